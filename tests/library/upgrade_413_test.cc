// The upgrade from 4.1.3 or lower: flow-thru keys widened, RW ACL entries
// repaired, ELS ACL entries given their slot, the trunk fix-up of each
// target; stores before and after, the order of the fix-up's saves, the
// faults the conversion survives, its traces and the moves that reach it.
#include <random>

#include "cnv_env.h"
#include "plat_ctl.h"
#include "test_support.h"
#include "wayshunt.h"

using namespace cnv;

namespace {

constexpr uint32_t P = WAYSHUNT_ACL_FLAG_PHYSICAL, V = WAYSHUNT_ACL_FLAG_VIRTUAL, ISL = WAYSHUNT_ACL_FLAG_ISL;
constexpr uint32_t B = P | V | ISL, PH = P | ISL, VI = V | ISL;
constexpr uint32_t kFc3 = 0x010020b0, kFc3b = 0x010020c0, kFc1 = 0x01000000, kPc1 = 0x04000000, kPc2 = 0x04000001;

Bytes le(uint64_t v, int n) { return n ? char(v) + le(v >> 8, n - 1) : Bytes(); }

// An RW ACL entry as the test writes it: an 82- or 84-byte value and a
// 10-byte key (type, sub type 0, hash key k 11 22 .. 77).
struct Rw {
  uint32_t flags;
  char sid = 1, did = 2;
  uint32_t ifx = kFc3;
  uint64_t dst = 0;
  char tgt = '\xaa';
  uint8_t type = 0x37;
};
Bytes rw(const Rw &e, char slot, size_t size = 82) {
  Bytes v = Bytes(8, e.tgt) + le(e.flags, 4) + Bytes(8, e.sid) + Bytes(8, e.did) + le(e.dst, 8) + Bytes(8, '\xdd') +
            le(e.ifx, 4) + Bytes(13, '\x13') + Bytes(20, '\x20') + Bytes(1, slot);
  v.resize(size, '\x84');
  return v;
}
Bytes rwkey(uint8_t type, uint8_t k) { return Bytes{char(type), 0, char(k)} + hx("11 22 33 44 55 66 77"); }
char slot_of(uint32_t ifx) { return ifx == kFc3 || ifx == kFc3b ? 3 : ifx == kFc1 ? 1 : '\xff'; }

const Bytes kZero = hx("00000000");
const Bytes kFt = hx("36 00 2000002500000001 5000000000000001"), kFt2 = hx("36 07 2000002500000002 5000000000000001");
const Bytes kWide = hx("36 00 00000000 2000002500000001 5000000000000001");
const Bytes kWide2 = hx("36 07 00000000 2000002500000002 5000000000000001");

auto upgrade() { return Env::get().fn<retcode_t(const char *)>("wayshunt_cnv_config_upgrade_from_413_or_lower"); }

// Closes the log that a direct call may have left open, and drops it.
std::string finish() {
  Env::get().fn<void()>("wayshunt_cnv_log_cleanup")();
  return take_log();
}

// Runs the conversion and gives the fix-up's saves, in order, as
// "key|flags|target byte" of each kvs_store behind the walk's last move.
std::vector<std::string> run_with_saves(retcode_t *st) {
  testsupport::TempDir d;
  plat_journal_set((d / "j").c_str());
  *st = upgrade()(runtime_url().c_str());
  plat_journal_set(nullptr);
  finish();
  std::string j = testsupport::read_file(d / "j");
  j = j.substr(j.rfind("kvs_move2location("));
  std::vector<std::string> saves;
  for (size_t at = j.find("kvs_store("); at != std::string::npos; at = j.find("kvs_store(", at + 1)) {
    size_t k = j.find('[', at) + 1, v = j.find('[', k) + 1;  // "kvs_store(h, 1, [key], [value...]) = ..."
    saves.push_back(j.substr(k, j.find(']', k) - k) + "|" + j.substr(v + 24, 11) + "|" + j.substr(v, 2));
  }
  return saves;
}
std::string save(const Bytes &key, uint32_t flags, char tgt) {
  return hex(key) + "|" + hex(le(flags, 4)) + "|" + hex(Bytes(1, tgt));
}

}  // namespace

// Every upgrade move through convert_gsync: from 3.3 up to 4.1 the store is
// converted; from 3.1 or lower and from 4.2 or higher nothing changes. A
// failed close reaches the caller of convert_gsync with an error record.
TEST(Upgrade413, GsyncMoves) {
  CNV_REQUIRE();
  const Records before = {{kFt2, hx("01020304")}, {hx("3f 00"), hx("99")}};
  const Records after = {{kWide2, kZero}, {hx("3f 00"), hx("99")}};
  struct Move {
    const char *from, *to;
    bool converts;
    const char *faults = "";
    retcode_t status = 0;
  };
  const Move moves[] = {
      {"3.3(1)", "4.2(1)", true},  {"3.9(2)", "5.0(1)", true},  {"4.0(1)", "4.1(2)", true},
      {"4.1(3)", "4.2(1)", true},  {"4.1(1a)", "6.1(1)", true}, {"3.1(1)", "4.2(1)", false},
      {"2.9(1)", "4.1(1)", false}, {"4.2(1)", "4.3(1)", false}, {"5.0(1)", "6.0(1)", false},
      {"4.1(1)", "4.1(3)", false}, {"4.0(1)", "4.2(1)", false, "kvs_close=0x40480009", KVS_ERR_NO_SPACE}};
  for (const Move &m : moves) {
    SCOPED_TRACE(std::string(m.from) + " -> " + m.to + " " + m.faults);
    make_store(before);
    set_move(m.from, m.to);
    {
      testsupport::FaultScope faults;
      if (*m.faults) faults.add(m.faults);
      EXPECT_EQ(gsync(), m.status);
    }
    EXPECT_EQ(read_store(), m.converts ? after : before);
    const std::string log = normalized(take_log());
    EXPECT_EQ(log.find("wayshunt_cnv_handle_upgrade_for_runtime_kvs():N upgrade from 4.1.3 or lower "
                       "Failedwayshunt_cnv_log_cleanup():N file Closed at <time>\n\n") != std::string::npos,
              m.status != 0)
        << log;
    EXPECT_TRUE(Env::get().gate_open || m.status || log.empty()) << log;
  }
}

// The four flag rules, in their order, on entries that stay out of the
// target table; slots from the interface; 82 bytes out of 82 or 84.
TEST(Upgrade413, RwRepair) {
  CNV_REQUIRE();
  constexpr uint32_t PEND = 0x80, BUSY = 0x100, VW = 0x400000, FO = 0x2000000, DROP = 0x4000000;
  struct Case {
    const char *name;
    Rw in;
    uint32_t out;
    char slot;
    size_t size = 82;
  };
  const Case cases[] = {
      {"rule 1 under type 55", {V | PEND}, V, 3},
      {"no rule 1 under type 56", {.flags = V | PEND, .type = 0x38}, V | PEND, 3},
      {"no rule 1 under type 57", {.flags = V | PEND, .type = 0x39}, V | PEND, 3},
      {"rule 1 clears BUSY before rule 3 looks", {V | PEND | BUSY | FO}, V, 3},
      {"rule 4 after rule 1", {.flags = V | PEND | BUSY | FO | VW, .ifx = kFc1}, V, 1},
      {"VW kept without VIRTUAL or BUSY", {.flags = VW, .type = 0x38}, VW, 3},
      {"VW cleared by BUSY, any type", {.flags = VW | BUSY, .type = 0x39}, BUSY, 3},
      {"FO cleared by BUSY", {.flags = BUSY | FO, .type = 0x38}, BUSY, 3},
      {"DROP ALL kept with dst_sid zero", {DROP}, DROP, 3},
      {"DROP ALL cleared by one byte of dst_sid", {.flags = DROP, .dst = 1ull << 56, .type = 0x39}, 0, 3},
      {"other bits pass, port-channel has no slot", {.flags = 0x80000001 | ISL, .ifx = kPc1, .type = 0x38},
       0x80000001 | ISL, '\xff'},
      {"84 bytes become 82", {V | VW}, V, 3, 84},
  };
  Records before;
  uint8_t k = 0;
  for (const auto &c : cases) before[rwkey(c.in.type, ++k)] = rw(c.in, '\x77', c.size);
  make_store(before);
  ASSERT_EQ(upgrade()(runtime_url().c_str()), 0u);
  finish();
  Records got = read_store();
  k = 0;
  for (const auto &c : cases) {
    Rw out = c.in;
    out.flags = c.out;
    EXPECT_EQ(hex(got[rwkey(c.in.type, ++k)]), hex(rw(out, c.slot))) << c.name;
  }
}

// The fix-up's outcome in a group, and the order of its saves. Entries have
// the keys 1, 2, 3 and the walk meets them in the byte order of their keys
// (type first); the chain is the first met, then the rest in reverse (walk
// A, B, C gives the chain A, C, B).
TEST(Upgrade413, FixupGroups) {
  CNV_REQUIRE();
  struct Case {
    const char *name;
    std::vector<Rw> walk;
    std::vector<uint32_t> out;
    std::vector<int> saves;
  };
  const Case cases[] = {
      {"B1", {{B}}, {PH}, {0}},
      {"B1, P", {{B}, {PH}}, {VI, PH}, {0}},
      {"P, B1", {{PH}, {B}}, {PH, VI}, {1}},
      {"B1, B2", {{B}, {B}}, {PH, PH}, {1, 0}},
      {"chain B1, B2, P", {{B}, {PH}, {B}}, {VI, PH, PH}, {2, 0}},
      {"chain B1, P, B2", {{B}, {B}, {PH}}, {VI, VI, PH}, {0, 1}},
      {"another slot", {{B}, {.flags = B, .ifx = kFc1}}, {PH, PH}, {0, 1}},
      {"another src_sid", {{B}, {.flags = B, .sid = 9}}, {PH, PH}, {0, 1}},
      {"another src_did", {{B}, {.flags = PH, .did = 9}}, {PH, PH}, {0}},
      {"another target", {{B}, {.flags = PH, .tgt = '\xbb'}}, {PH, PH}, {0}},
      {"dst and port play no part", {{B}, {.flags = PH, .ifx = kFc3b, .dst = 5}}, {VI, PH}, {0}},
      {"slot 255 matches slot 255", {{.flags = B, .ifx = kPc1}, {.flags = PH, .ifx = kPc2}}, {VI, PH}, {0}},
      {"no ISL, no part", {{B}, {P}, {P | V}}, {PH, P, P | V}, {0}},
      {"VIRTUAL alone is no candidate", {{B}, {VI}}, {PH, VI}, {0}},
      {"types 56 and 57 saved under 55 (walk 2, 1, 3)", {{.flags = B, .type = 0x38}, {PH}, {.flags = B, .type = 0x39}},
       {VI, PH, VI}, {2, 0}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    Records before, after;
    std::vector<std::string> want;
    for (size_t i = 0; i < c.walk.size(); i++) {
      Rw e = c.walk[i];
      char slot = slot_of(e.ifx);
      before[rwkey(e.type, i + 1)] = rw(e, 0);
      after[rwkey(e.type, i + 1)] = rw(e, slot);
      e.flags = c.out[i];
      if (c.out[i] != c.walk[i].flags) after[rwkey(0x37, i + 1)] = rw(e, slot);
    }
    for (int i : c.saves) want.push_back(save(rwkey(0x37, i + 1), c.out[i], c.walk[i].tgt));
    make_store(before);
    retcode_t st;
    EXPECT_EQ(run_with_saves(&st), want);
    EXPECT_EQ(st, 0u);
    EXPECT_EQ(read_store(), after);
  }
}

// Odd records and failed platform calls: the store keeps what cannot be
// converted, and only the open and the close reach the caller.
TEST(Upgrade413, EdgesAndFaults) {
  CNV_REQUIRE();
  const Bytes k1 = rwkey(0x37, 1), k2 = rwkey(0x37, 2), els = hx("3b 00"), els2 = hx("3c 01 02 03 04");
  const Bytes elsv = hx("5000000000000001 3000000000000001 0a000000 00010203 00040506 b0200001 ffffffff");
  struct Case {
    const char *name;
    Records before;
    const char *faults;
    retcode_t status;
    Records after;
  };
  // clang-format off
  const Case cases[] = {
      {"widen: header kept, vsan 0, value zeroed, neighbours untouched",
       {{hx("35 00"), "a"}, {kFt, "abcd"}, {kFt2, ""}, {hx("3d 00"), "z"}}, "", 0,
       {{hx("35 00"), "a"}, {kWide, kZero}, {kWide2, kZero}, {hx("3d 00"), "z"}}},
      {"widen: a key of another size stays", {{kWide, "q"}, {hx("36 00 01"), "r"}}, "", 0,
       {{kWide, "q"}, {hx("36 00 01"), "r"}}},
      {"els: byte 36 filled, any key, longer value cut", {{els, elsv + "\x09"}, {els2, elsv + "\x01xyz"}}, "", 0,
       {{els, elsv + "\x03"}, {els2, elsv + "\x03"}}},
      {"short values and keys stay out", {{els, elsv}, {k1, rw({B}, 0, 81)}, {hx("37 00 01"), rw({B}, 0)}}, "", 0,
       {{els, elsv}, {k1, rw({B}, 0, 81)}, {hx("37 00 01"), rw({B}, 3)}}},
      {"empty store", {}, "", 0, {}},
      {"portmap fails: slot 255", {{els, elsv + "\x01"}, {k1, rw({VI}, 7)}}, "portmap_get_slot", 0,
       {{els, elsv + "\xff"}, {k1, rw({VI}, '\xff')}}},
      {"no value: record kept, flow-thru still widened", {{kFt, "v"}, {k1, rw({B}, 7)}, {els, elsv + "\x01"}},
       "kvs_getvalue=null", 0, {{kWide, kZero}, {k1, rw({B}, 7)}, {els, elsv + "\x01"}}},
      {"empty key skipped", {{kFt, "v"}, {kFt2, "w"}}, "kvs_move2location:1=empty", 0, {{kFt, "v"}, {kWide2, kZero}}},
      {"repair store fails: entry kept", {{k1, rw({VI}, 7, 84)}}, "kvs_store:1", 0, {{k1, rw({VI}, 7, 84)}}},
      {"repair store fails: the fix-up writes it", {{k1, rw({B}, 7, 84)}}, "kvs_store:1", 0, {{k1, rw({PH}, 3)}}},
      {"fix-up save fails: later steps go by the node", {{k1, rw({B}, 0)}, {k2, rw({B}, 0)}}, "kvs_store:3", 0,
       {{k1, rw({PH}, 3)}, {k2, rw({B}, 3)}}},
      {"widened store fails: record gone", {{kFt, "x"}, {kFt2, "y"}}, "kvs_store:1", 0, {{kWide2, kZero}}},
      {"delete fails once: both forms", {{kFt, "x"}, {kFt2, "y"}}, "kvs_delete:1", 0,
       {{kFt, "x"}, {kWide, kZero}, {kWide2, kZero}}},
      {"delete keeps failing: the walk moves on", {{kFt, "x"}, {kFt2, "y"}}, "kvs_delete", 0,
       {{kFt, "x"}, {kFt2, "y"}, {kWide, kZero}, {kWide2, kZero}}},
      {"enqueue fails: old key kept", {{kFt, "x"}, {kFt2, "y"}}, "tk_cq_enqueue_tail:1", 0,
       {{kFt, "x"}, {kWide2, kZero}}},
      {"dequeue fails: the drain ends", {{kFt, "x"}, {kFt2, "y"}}, "tk_cq_dequeue_head:2", 0, {{kWide, kZero}}},
      {"insert fails: entry as repaired", {{k1, rw({B}, 0)}}, "tk_hashtable_64_insert", 0, {{k1, rw({B}, 3)}}},
      {"table init fails: nothing touched", {{kFt, "x"}, {k1, rw({B}, 0)}}, "tk_hashtable_64_init", PLAT_ERR_INJECTED,
       {{kFt, "x"}, {k1, rw({B}, 0)}}},
      {"open fails", {{kFt, "x"}}, "kvs_open=0x4048000a", KVS_ERR_IO, {{kFt, "x"}}},
      {"close fails", {{kFt, "x"}}, "kvs_close=0x40480009", KVS_ERR_NO_SPACE, {{kFt, "x"}}},
  };
  // clang-format on
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    make_store(c.before);
    {
      testsupport::FaultScope faults;
      if (*c.faults) faults.add(c.faults);
      EXPECT_EQ(upgrade()(runtime_url().c_str()), c.status);
    }
    finish();
    EXPECT_EQ(read_store(), c.after);
  }
}

// The traces of a whole conversion (with the gate shut: no log at all).
TEST(Upgrade413, Traces) {
  CNV_REQUIRE();
  make_store({{kFt, "x"}, {rwkey(0x37, 1), rw({B}, 0)}, {rwkey(0x37, 2), rw({PH}, 0)}});
  finish();
  ASSERT_EQ(upgrade()(runtime_url().c_str()), 0u);
  std::string log = normalized(finish());
  for (size_t at = log.find("Entry: 0x"); at != std::string::npos; at = log.find("Entry: 0x", at + 1))
    log.replace(at + 7, log.find_first_not_of("0123456789abcdefx", at + 7) - at - 7, "<p>");
  EXPECT_TRUE(Env::get().gate_open || log.empty()) << log;
  if (!Env::get().gate_open) return;
  const std::string d = "wayshunt_cnv_config_upgrade_from_413_or_lower():N ",
                    r = "wayshunt_cnv_upg_from_413_or_lower_process_acl_rw_entry():N ",
                    a = "wayshunt_cnv413_upg_add_entry_to_tgt_hash():N ",
                    f = "wayshunt_cnv_upgrade_from_413_fix_trunk_entries():N ",
                    s = "wayshunt_cnv_get_slot_no_from_if_index():N slot_num = 3\n";
  auto line = [](const std::string &fn, uint32_t flags, int k) {
    char b[400];
    snprintf(b, sizeof b,
             "%stgt_pwwn = aa:aa:aa:aa:aa:aa:aa:aa, acl_flags = 0x%08x, src_sid_wwn = 01:01:01:01:01:01:01:01, "
             "src_did_wwn = 02:02:02:02:02:02:02:02, dst_sid: 00:00:00:00:00:00:00:00, dst_did: "
             "dd:dd:dd:dd:dd:dd:dd:dd, if_index = 0x010020b0\n",
             fn.c_str(), flags);
    return b + (k ? fn + "kvs_hash_key_lower = 0x776655443322110" + char('0' + k) + "\n" : "");
  };
  auto repair = [&](uint32_t flags, int k, const char *link) {
    return r + "ACL Entry Before Processing - key_type: 55\n" + line(r, flags, 0) + s + r + "new slot num: 3\n" + r +
           "ACL Entry - After Processing\n" + line(r, flags, 0) + a + "Inserting new node into ht:\n" +
           line(a, flags, k) + a + link;
  };
  std::string want = "wayshunt_cnv_log_init():N file opened sucessfully at <time>\n\n" + d + "key 54\n" +
                     "wayshunt_cnv_upg_from_413_or_lower_process_flow_thru_entry():N FT Entry OLD: tgt PWWN: "
                     "50:00:00:00:00:00:00:01, host_pwwn: 20:00:00:25:00:00:00:01, key_sz = 18\n"
                     "wayshunt_cnv_upg_from_413_or_lower_process_flow_thru_entry():N FT Entry New: tgt PWWN: "
                     "50:00:00:00:00:00:00:01, host_pwwn: 20:00:00:25:00:00:00:01\n" +
                     d + "Deleted Entry\n" + d + "key 55\n" + repair(B, 1, "Inserted new entry\n") + d + "key 55\n" +
                     repair(PH, 2, "Inserted after head\n") + d + "Move Key failed: 0x40480003\n" + d +
                     "siz: 22, FT Entry: tgt PWWN: 50:00:00:00:00:00:00:01, host_pwwn: 20:00:00:25:00:00:00:01\n" + f +
                     "Entry: <p> slot_num = 3, PHY,VIRT are set\n" + line(f, B, 1) + f + "virt Entry: <p>\n" +
                     line(f, B, 1) + f + "virt Entry: <p>\n" + line(f, PH, 2) + f + "Reset Physical Flag\n" + f +
                     "Both PHY/VIRT not set together. Ignore\n" + f + " No more Tgts\n" + d +
                     "Upgrade from 4.1.3 or lower successful\n" +
                     "wayshunt_cnv_log_cleanup():N file Closed at <time>\n\n";
  EXPECT_EQ(log, want);
}
