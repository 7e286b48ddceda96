// Random runtime stores and single runs of the library: see store_gen.h.
#include "store_gen.h"

#include <sstream>

#include "if_index.h"
#include "plat_ctl.h"
#include "records.h"
#include "test_support.h"

namespace cnv {

const char kPortmap[] = "fc7/1 fail\nfc9/1 255\n";
const Move kLadder[6] = {{"3.2(1)", "4.2(1)", true},  {"3.2(1)", "4.1(3)", true},  {"4.1(3)", "4.2(1)", false},
                         {"4.2(1)", "4.1(3)", false}, {"4.2(1)", "3.2(2)", false}, {"4.1(3)", "3.2(1)", false}};

namespace {

constexpr uint32_t kBits[] = {WAYSHUNT_ACL_FLAG_PHYSICAL,    WAYSHUNT_ACL_FLAG_VIRTUAL,  WAYSHUNT_ACL_FLAG_ISL,
                              WAYSHUNT_ACL_FLAG_PGM_PENDING, WAYSHUNT_ACL_FLAG_PGM_BUSY, WAYSHUNT_ACL_FLAG_VW,
                              WAYSHUNT_ACL_FLAG_FO,          WAYSHUNT_ACL_FLAG_DROP_ALL};
// Slots 1 and 3, a failing lookup, slot 255 and a port-channel.
const if_index_t kIfs[] = {IF_INDEX_FC(1, 1), IF_INDEX_FC(3, 1), IF_INDEX_FC(3, 2), IF_INDEX_FC(1, 4),
                           IF_INDEX_FC(7, 1), IF_INDEX_FC(9, 1), IF_INDEX_PORT_CHANNEL(1)};

}  // namespace

uint32_t Gen::flags() {
  uint32_t f = chance(5) ? static_cast<uint32_t>(r()) : 0;
  for (uint32_t b : kBits)
    if (chance(b == WAYSHUNT_ACL_FLAG_ISL ? 85 : 45)) f |= b;
  return f;
}

size_t Gen::rw_size(bool era32, uint8_t type) {
  if (chance(4)) return below(90);
  return era32 && type == WAYSHUNT_KVS_KEY_ACL_RW_1 ? (chance(85) ? 84 : 82) : (chance(90) ? 82 : 84);
}

Records Gen::store(bool era32) {
  Records s;
  unsigned targets = 1 + below(3), pairs = 1 + below(3);
  for (unsigned t = 0; t < targets; t++) {
    unsigned chain = chance(20) ? max_chain / 3 + below(max_chain - max_chain / 3) : below(max_chain / 5 + 1);
    for (unsigned i = 0; i < chain; i++) {
      uint8_t type = chance(70) ? 55 : 56 + below(2);
      uint64_t hash = 0x1000 + below(2 * max_chain / 3 * targets + 1);  // 56 and 57 meet 55's hash keys
      rec::Rw e{0xaa00 + t, flags(), 1 + below(pairs), 7 + below(pairs), chance(30) ? r() : 0};
      e.ifx = kIfs[below(std::size(kIfs))];
      e.slot = static_cast<uint8_t>(r());
      Bytes k = rec::rw_key(type, hash);
      if (chance(3)) k.resize(1 + below(11));
      s[k] = rec::rw_value(e, rw_size(era32, type));
    }
  }
  for (unsigned i = below(6); i > 0; i--) {  // flow-thru keys of either width
    Bytes k = rec::ft_key(chance(era32 ? 10 : 60), r(), 0xaa00 + below(3), static_cast<uint8_t>(below(3)));
    if (chance(5)) k.resize(1 + below(30));
    s[k] = chance(90) ? Bytes(4, '\0') : Bytes(below(9), 'v');
  }
  for (unsigned i = below(6); i > 0; i--) {  // ELS entries
    Bytes v = rec::els_value(0xaa00 + below(3), r(), kIfs[below(std::size(kIfs))], static_cast<uint32_t>(r()));
    if (chance(10)) v.resize(below(45), 'e');
    s[Bytes{char(58 + below(3)), char(below(2))} + Bytes(1 + below(6), char(i))] = v;
  }
  for (unsigned i = era32 ? 0 : below(3); i > 0; i--) s[Bytes{63, char(i)}] = Bytes(below(20), 'l');
  if (chance(20)) s[Bytes{char(r()), char(r())}] = Bytes(below(100), 'x');  // a type no conversion knows
  return s;
}

std::string Gen::faults() {
  if (chance(70)) return "";
  std::string f = std::string(chance(70) ? "kvs_store" : "kvs_delete") + ":" + std::to_string(1 + below(30));
  return chance(20) ? f + "+" : f;
}

namespace {

std::string store_calls(const std::string &journal) {
  std::istringstream in(journal);
  std::string out;
  for (std::string line; std::getline(in, line);)
    if (line.rfind("kvs_store(", 0) == 0 || line.rfind("kvs_delete(", 0) == 0)
      out += line.substr(0, line.find('(') + 1) + line.substr(line.find(", ") + 2) + "\n";
    else if (line.rfind("kvs_open(", 0) == 0 || line.rfind("kvs_close(", 0) == 0)  // the passes
      out += line.substr(0, line.find('(')) + line.substr(line.find(')') + 1, line.find(" handle") - line.find(')') - 1) +
             "\n";
  return out;
}

}  // namespace

Outcome run_on(const Records &in, const char *from, const char *to, const std::string &faults,
               const std::function<retcode_t()> &fn) {
  Outcome o;
  testsupport::TempDir d;
  make_store(in);
  set_move(from, to);
  take_log();
  {
    testsupport::FaultScope scope;
    if (!faults.empty()) scope.add(faults);
    plat_journal_set((d / "j").c_str());
    o.rc = fn();
    plat_journal_set(nullptr);
  }
  o.log = normalized(take_log());
  o.store = read_store();
  o.calls = store_calls(testsupport::read_file(d / "j"));
  return o;
}

Outcome convert(const Records &in, const char *from, const char *to, const std::string &faults) {
  return run_on(in, from, to, faults, [] { return gsync(); });
}

std::string dump(const Records &s) {
  std::string out;
  for (const auto &[k, v] : s) out += hex(k) + " = " + hex(v) + "\n";
  return out;
}

}  // namespace cnv
