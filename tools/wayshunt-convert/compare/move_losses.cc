// Foreseeing a move's losses: what each of the move's store conversions
// drops, record by record.
#include "compare/move_losses.h"

#include <cstring>
#include <map>
#include <ostream>

#include "records/formats.h"
#include "records/form_tables.h"
#include "portmap.h"

namespace wsc {

namespace {

// Items shown per kind in the text; the JSON holds all.
constexpr size_t kShown = 5;

enum Kind { kVsan, kCollapse, kValue, kLineCard, kCut, kSlot };

bool is_flow_thru(const Record &r, size_t key_size) {
  return r.type() == WAYSHUNT_KVS_KEY_FLOW_THRU_HOST && r.key.size() == key_size;
}

uint32_t u32_at(const Bytes &b, size_t off) {
  uint32_t v;
  std::memcpy(&v, b.data() + off, sizeof v);
  return v;
}

void add(Loss &l, size_t n, const std::string &item) {
  l.count += n;
  l.items.push_back(item);
}

// Narrowing (to 4.1.3 or lower): only 22-byte keys are narrowed; each loses
// its vsan (a vsan of 0 is what widening gives back, so only others count),
// and narrowed keys equal to each other or to an 18-byte key collapse.
void narrowing(const Records &store, std::vector<Loss> &l) {
  using Wide = wayshunt_kvs_key_flow_thru_host_t;
  std::map<Bytes, size_t> groups;
  for (const Record &r : store) {
    if (is_flow_thru(r, sizeof(wayshunt_kvs_key_flow_thru_host_413_t))) ++groups[r.key];
    if (!is_flow_thru(r, sizeof(Wide))) continue;
    Bytes narrow(sizeof(wayshunt_kvs_key_flow_thru_host_413_t));
    std::memcpy(narrow.data(), r.key.data(), sizeof(wayshunt_kvs_key_t));
    std::memcpy(narrow.data() + sizeof(wayshunt_kvs_key_t), r.key.data() + offsetof(Wide, host_pwwn),
                narrow.size() - sizeof(wayshunt_kvs_key_t));
    ++groups[narrow];
    if (int32_t vsan = static_cast<int32_t>(u32_at(r.key, offsetof(Wide, vsan))))
      add(l[kVsan], 1, to_hex(r.key) + " vsan " + std::to_string(vsan));
    if (r.value != Bytes(WAYSHUNT_FLOW_THRU_VALUE_SIZE, 0)) add(l[kValue], 1, to_hex(r.key) + " value " + to_hex(r.value));
  }
  for (const auto &[key, n] : groups)
    if (n > 1) add(l[kCollapse], n - 1, to_hex(key) + " from " + std::to_string(n) + " records");
}

uint8_t slot_of(uint32_t if_index) {
  slot_num_t slot = 0;
  return portmap_get_slot(if_index, &slot) ? WAYSHUNT_SLOT_INVALID : slot;
}

// The pass from 4.1.3 or lower: widening gives every flow-thru record the
// value 0; RW values keep their first 82 bytes; RW and ELS records get the
// slot of their interface, 255 when the lookup fails.
void upgrade_pass(const Records &store, std::vector<Loss> &l) {
  using Rw = wayshunt_kvs_data_rw_acl_entry_t;
  using Els = wayshunt_kvs_data_els_acl_entry_t;
  for (const Record &r : store) {
    if (is_flow_thru(r, sizeof(wayshunt_kvs_key_flow_thru_host_413_t)) && r.value != Bytes(WAYSHUNT_FLOW_THRU_VALUE_SIZE, 0))
      add(l[kValue], 1, to_hex(r.key) + " value " + to_hex(r.value));
    size_t if_at = is_rw(r.type()) && r.value.size() >= sizeof(Rw) ? offsetof(Rw, if_index)
                   : is_els(r.type()) && r.value.size() >= sizeof(Els) ? offsetof(Els, if_index)
                                                                        : 0;
    if (is_rw(r.type()) && r.value.size() > sizeof(Rw))
      add(l[kCut], 1, to_hex(r.key) + " drops " + to_hex(r.value.data() + sizeof(Rw), r.value.size() - sizeof(Rw)));
    if (if_at && slot_of(u32_at(r.value, if_at)) == WAYSHUNT_SLOT_INVALID)
      add(l[kSlot], 1, to_hex(r.key) + " " + type_label(r.type()) + " if_index " + format_if_index(u32_at(r.value, if_at)));
  }
}

}  // namespace

size_t MoveLosses::total() const {
  size_t n = 0;
  for (const Loss &l : losses) n += l.count;
  return n;
}

MoveLosses foresee_losses(const Records &store, const std::vector<std::string> &conversions, bool down) {
  MoveLosses m;
  m.conversions = conversions;
  m.down = down;
  m.losses = {{"vsan", "flow-thru keys lose a non-zero vsan", 0, {}},
              {"collapse", "records collapse into another with an equal narrowed key", 0, {}},
              {"value", "flow-thru values are replaced by 0", 0, {}},
              {"line_cards", "runtime line card records are deleted", 0, {}},
              {"cut", "RW values of more than 82 bytes are cut to 82", 0, {}},
              {"slot_255", "RW and ELS records get slot 255 (slot lookup fails)", 0, {}}};
  for (const std::string &c : m.conversions) {
    if (c == "to 4.1.3 or lower") narrowing(store, m.losses);
    if (c == "from 4.1.3 or lower") upgrade_pass(store, m.losses);
    if (c == "to 3.2")
      for (const Record &r : store)
        if (r.type() == WAYSHUNT_KVS_KEY_RUNTIME_LC_INFO) add(m.losses[kLineCard], 1, to_hex(r.key));
  }
  return m;
}

std::string loss_headline(const MoveLosses &m) {
  if (m.conversions.empty()) return "this move converts no store record";
  if (!m.total()) return "this move loses nothing of the store";
  std::string out = std::string("this ") + (m.down ? "downgrade" : "upgrade") + " loses information: ";
  bool first = true;
  for (const Loss &l : m.losses)
    if (l.count) out += (first ? "" : ", ") + std::to_string(l.count) + " " + l.what, first = false;
  return out;
}

void print_losses(const MoveLosses &m, std::ostream &out) {
  out << loss_headline(m) << "\n";
  if (m.conversions.empty()) return;
  out << "  conversions:";
  for (const std::string &c : m.conversions) out << " " << c << (&c == &m.conversions.back() ? "" : ",");
  out << "\n";
  for (const Loss &l : m.losses) {
    if (!l.count) continue;
    out << "  " << l.count << " " << l.what << ":\n";
    for (size_t i = 0; i < l.items.size() && i < kShown; ++i) out << "    " << l.items[i] << "\n";
    if (l.items.size() > kShown) out << "    ... and " << l.items.size() - kShown << " more (see --json)\n";
  }
}

Json losses_to_json(const MoveLosses &m) {
  Json j = {{"summary", loss_headline(m)}, {"conversions", m.conversions}, {"records_affected", m.total()}};
  Json &kinds = j["losses"] = Json::object();
  for (const Loss &l : m.losses) kinds[l.id] = {{"what", l.what}, {"count", l.count}, {"items", l.items}};
  return j;
}

}  // namespace wsc
