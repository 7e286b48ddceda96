// Checks of a store against the invariants of its era and of a move.
#include "compare/invariants.h"

#include <cstring>

#include "records/form_tables.h"
#include "records/formats.h"
#include "records/json_codec.h"
#include "wayshunt.h"

namespace wsc {

namespace {

using Violations = std::vector<std::string>;



// The size checks of the era, for one record, from the service's table of
// forms. A store moved down keeps the RW values of the latest era.
void check_forms(const Record &r, Era era, bool moved_down, Violations &out) {
  std::string name = type_label(r.type()), e = era_name(era);
  auto size_is = [&](const char *part, const wayshunt_form_t &form, size_t have) {
    if (form.name && have != form.size)
      out.push_back(std::string(part) + " is " + std::to_string(have) + " bytes; era " + e + " stores " + name + " " +
                    part + "s in " + std::to_string(form.size));
  };
  if (r.key.size() < 2) out.push_back("key is " + std::to_string(r.key.size()) + " bytes, shorter than the type header");
  const wayshunt_type_forms_t *forms = type_forms(r.type());
  if (!forms) return;
  size_is("key", forms->key[era_index(era)], r.key.size());
  size_is("value", forms->value[era_index(moved_down && is_rw(r.type()) ? Era::v42 : era)], r.value.size());
  if (!forms->stored[era_index(era)])
    out.push_back(name + " record in a " + e + " store; the move down to " + e + " deletes every one");
}

void check_rw_after_upgrade(const Record &r, const SlotLookup &slot_of, Violations &out) {
  wayshunt_kvs_data_rw_acl_entry_t e;
  std::memcpy(&e, r.value.data(), sizeof e);
  uint32_t f = e.acl_flags;
  auto has = [f](uint32_t bits) { return (f & bits) == bits; };
  std::string flags = " (acl_flags " + format_acl_flags(f) + ")";
  static const uint8_t kZero[8] = {};
  if (has(WAYSHUNT_ACL_FLAG_DROP_ALL) && std::memcmp(e.dst_sid_wwn.str, kZero, 8) != 0)
    out.push_back("DROP_ALL with a non-zero dst_sid_wwn" + flags + "; the upgrade's repair clears it");
  if (has(WAYSHUNT_ACL_FLAG_PGM_BUSY | WAYSHUNT_ACL_FLAG_FO))
    out.push_back("PGM_BUSY with FO" + flags + "; the upgrade's repair clears FO");
  if (has(WAYSHUNT_ACL_FLAG_VW) && (f & (WAYSHUNT_ACL_FLAG_VIRTUAL | WAYSHUNT_ACL_FLAG_PGM_BUSY)))
    out.push_back("VW with VIRTUAL or PGM_BUSY" + flags + "; the upgrade's repair clears VW");
  if (r.type() == WAYSHUNT_KVS_KEY_ACL_RW_1 &&
      has(WAYSHUNT_ACL_FLAG_ISL | WAYSHUNT_ACL_FLAG_PHYSICAL | WAYSHUNT_ACL_FLAG_VIRTUAL))
    out.push_back("entry on an ISL of target " + format_wwn(e.tgt_pwwn.str) + " carries both PHYSICAL and VIRTUAL" +
                  flags + "; the trunk fix-up leaves only one");
  if (uint8_t want = slot_of(e.if_index); e.slot_num != want)
    out.push_back("slot_num " + std::to_string(e.slot_num) + " but if_index " + format_if_index(e.if_index) +
                  " lies in slot " + std::to_string(want));
}

void check_flow_thru_value(const Record &r, const char *how, Violations &out) {
  if (r.value.size() == 4 && (r.value[0] | r.value[1] | r.value[2] | r.value[3]))
    out.push_back("flow-thru value 0x" + to_hex(r.value) + "; " + how + " records have value 0");
}

void check_after_upgrade(const Record &r, const SlotLookup &slot_of, Violations &out) {
  uint8_t t = r.type();
  if (t == WAYSHUNT_KVS_KEY_FLOW_THRU_HOST && r.key.size() == sizeof(wayshunt_kvs_key_flow_thru_host_t)) {
    wayshunt_kvs_key_flow_thru_host_t k;
    std::memcpy(&k, r.key.data(), sizeof k);
    if (k.vsan != 0) out.push_back("vsan " + std::to_string(k.vsan) + " in a flow-thru key; widened keys have vsan 0");
    check_flow_thru_value(r, "widened", out);
  } else if (is_rw(t) && r.value.size() == sizeof(wayshunt_kvs_data_rw_acl_entry_t)) {
    check_rw_after_upgrade(r, slot_of, out);
  } else if (is_els(t) && r.value.size() == sizeof(wayshunt_kvs_data_els_acl_entry_t)) {
    wayshunt_kvs_data_els_acl_entry_t e;
    std::memcpy(&e, r.value.data(), sizeof e);
    if (uint8_t want = slot_of(e.if_index); e.slot_num != want)
      out.push_back("slot_num " + std::to_string(e.slot_num) + " but if_index " + format_if_index(e.if_index) +
                    " lies in slot " + std::to_string(want));
  }
}

}  // namespace

std::vector<Violation> violations(const Records &records, Era era, After after, const SlotLookup &slot_of) {
  std::vector<Violation> out;
  for (const Record &r : records) {
    Violations v;
    check_forms(r, era, after == After::downgrade, v);
    if (after == After::upgrade) check_after_upgrade(r, slot_of, v);
    if (after == After::downgrade && r.type() == WAYSHUNT_KVS_KEY_FLOW_THRU_HOST) check_flow_thru_value(r, "narrowed", v);
    for (std::string &what : v) out.emplace_back(&r, std::move(what));
  }
  return out;
}

}  // namespace wsc
