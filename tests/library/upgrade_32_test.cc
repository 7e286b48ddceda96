// The upgrade from 3.2: which RW ACL entries enter the target table, how the
// trunk fix-up pairs them (seen through the slot lookups and stores in the
// platform journal), its failures, the whole move up from 3.2 through
// convert_gsync.
#include <cstdio>
#include <map>
#include <random>
#include <sstream>

#include "cnv_env.h"
#include "if_index.h"
#include "plat_ctl.h"
#include "test_support.h"
#include "toolkit.h"
#include "wayshunt.h"

using namespace cnv;

namespace {

constexpr uint32_t ISL = WAYSHUNT_ACL_FLAG_ISL, PHY = WAYSHUNT_ACL_FLAG_PHYSICAL, VIR = WAYSHUNT_ACL_FLAG_VIRTUAL;
constexpr uint32_t DROP = WAYSHUNT_ACL_FLAG_DROP_ALL, PEND = WAYSHUNT_ACL_FLAG_PGM_PENDING;
constexpr if_index_t fc(unsigned slot, unsigned port) { return IF_INDEX_FC(slot, port); }

// A 3.2 RW ACL record, stored under its type, sub type and hash key. pair
// names its src_sid_wwn and src_did_wwn by their last bytes.
struct Rec {
  char name;
  uint32_t flags;
  std::string pair;
  if_index_t ifx;
  uint8_t tgt = 1, type = 55, sub = 0;
  Bytes hash = {};
};
using Recs = std::vector<Rec>;

Bytes le32(uint32_t v) { return Bytes{char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; }
Bytes hash_at(size_t i) { return Bytes(1, char(0x10 + i)) + hx("a1 a2 a3 a4 a5 a6 a7"); }
Bytes key_of(const Rec &r) { return Bytes{char(r.type), char(r.sub)} + r.hash; }
Bytes key55(const Rec &r) { return hx("37 00") + r.hash; }

// The 84-byte value (tgt 0: a target name of zero bytes); dst names,
// rw_key, rw_info and bytes 81-83 carry patterns that must come back as they
// were.
Bytes value32(const Rec &r, uint32_t flags) {
  return (r.tgt ? hx("50 00 00 00 00 00 00") + char(r.tgt) : Bytes(8, '\0')) + le32(flags) +
         hx("20 00 00 00 00 00 00") + r.pair[0] + hx("20 01 00 00 00 00 00") + r.pair[1] +
         hx("21 00 00 00 00 00 00 99 22 00 00 00 00 00 00 98") + le32(r.ifx) + hx("01000000 00010203 00040506 07") +
         hx("01000000 00010203 00040506 01 01 00 00 78563412") + hx("e1 e2 e3");
}
uint32_t turned(uint32_t flags) { return (flags & ~VIR) | PHY; }

// Records from text, a word each: the name; flags (i ISL, v VIRTUAL, p
// PHYSICAL, d DROP_ALL, g PGM_PENDING, x 0x80); the pair; '@' and
// slot/port, or "pc" for port-channel 1; then t<target>, y<type>, s<sub
// type> where they are not 1, 55, 0. "Aiv11@2/1t2" is A, ISL | VIRTUAL,
// pair 11, fc2/1, target 2. Their hash keys sort in the order of the text,
// so the store walk meets them in that order.
Recs recs(const std::string &text) {
  Recs out;
  std::istringstream in(text);
  for (std::string w; in >> w;) {
    size_t at = w.find('@');
    Rec r{w[0], 0, w.substr(at - 2, 2), IF_INDEX_PORT_CHANNEL(1)};
    for (char f : w.substr(1, at - 3))
      r.flags |= f == 'i' ? ISL : f == 'v' ? VIR : f == 'p' ? PHY : f == 'd' ? DROP : f == 'g' ? PEND : 0x80;
    unsigned slot, port, n;
    int used = 2;
    if (std::sscanf(w.c_str() + at + 1, "%u/%u%n", &slot, &port, &used) == 2) r.ifx = fc(slot, port);
    for (const char *o = w.c_str() + at + 1 + used; *o && std::sscanf(o + 1, "%u%n", &n, &used) == 1; o += 1 + used)
      (*o == 't' ? r.tgt : *o == 'y' ? r.type : r.sub) = uint8_t(n);
    r.hash = hash_at(out.size());
    out.push_back(r);
  }
  return out;
}

Records store_of(const Recs &recs) {
  Records s;
  for (const Rec &r : recs) s[key_of(r)] = value32(r, r.flags);
  return s;
}

struct Outcome {
  retcode_t status;
  uint32_t opens;                    // kvs_open calls
  std::vector<std::string> journal;  // portmap_get_slot and kvs_store lines
  Records after;
  std::string log;
};

// Runs the pass (or convert_gsync) on a fresh store, with a portmap table
// and fault rules, recording the journal.
Outcome run(const Records &before, const std::string &table, const char *faults, bool gsync_it = false) {
  static int n = 0;
  testsupport::TempDir d;
  std::string tbl = d / ("portmap." + std::to_string(++n)), jn = d / "journal";
  testsupport::write_file(tbl, table);
  testsupport::ScopedEnv env("PLAT_PORTMAP_TABLE", tbl.c_str());
  make_store(before);
  Outcome r{};
  {
    testsupport::FaultScope f;
    if (*faults) f.add(faults);
    plat_journal_set(jn.c_str());
    r.status = gsync_it ? gsync()
                        : static_cast<retcode_t>(Env::get().fn<int32_t(const char *)>(
                              "wayshunt_cnv_config_upgrade_from_32")(runtime_url().c_str()));
    plat_journal_set(nullptr);
    r.opens = plat_call_count("kvs_open");
  }
  std::istringstream in(testsupport::read_file(jn));
  for (std::string line; std::getline(in, line);)
    if (line.rfind("portmap_get_slot(", 0) == 0 || line.rfind("kvs_store(", 0) == 0) r.journal.push_back(line);
  r.after = read_store();
  Env::get().fn<void()>("wayshunt_cnv_log_cleanup")();
  r.log = take_log();
  return r;
}

// A journal line as "L<if_index>" for a lookup or "S<key hex>" for a store.
std::string token(const std::string &line) {
  unsigned x = 0;
  if (std::sscanf(line.c_str(), "portmap_get_slot(0x%x)", &x) == 1) return "L" + std::to_string(x);
  return "S" + line.substr(line.find('[') + 1, line.find(']') - line.find('[') - 1);
}

// The lookups and stores of a run: "fc2/1" for a lookup (hex for an index
// of no port), "=A" for a store of A's entry under key type 55, sub type 0,
// "=A!" for a store that failed.
std::string events(const Outcome &r, const Recs &recs) {
  std::string out;
  for (const std::string &line : r.journal) {
    std::string t = token(line);
    char tok[32] = "=?";
    unsigned x = t[0] == 'L' ? unsigned(std::stoul(t.substr(1))) : 0;
    if (t[0] == 'L' && IF_INDEX_IS_FC(x))
      std::snprintf(tok, sizeof tok, "fc%u/%u", IF_INDEX_FC_SLOT(x), IF_INDEX_FC_PORT(x));
    else if (t[0] == 'L')
      std::snprintf(tok, sizeof tok, "0x%08x", x);
    else
      for (const Rec &rec : recs)
        if (t == "S" + hex(key55(rec))) tok[1] = rec.name;
    out += (out.empty() ? "" : " ") + std::string(tok) + (t[0] == 'S' && !line.ends_with("= 0x0") ? "!" : "");
  }
  return out;
}

// The log with each node address behind "Entry: " replaced by <p>.
std::string without_pointers(std::string log) {
  for (size_t at = log.find("Entry: 0x"); at != std::string::npos; at = log.find("Entry: 0x", at + 1))
    log.replace(at + 7, log.find_first_not_of("0123456789abcdefx", at + 7) - at - 7, "<p>");
  return log;
}

// The store after a run whose stores are those of want_events.
Records expected_after(const Recs &recs, const Records &before, const std::string &want_events) {
  Records s = before;
  std::istringstream in(want_events);
  for (std::string tok; in >> tok;)
    if (tok[0] == '=' && tok.size() == 2)
      for (const Rec &r : recs)
        if (r.name == tok[1]) s[key55(r)] = value32(r, turned(r.flags));
  return s;
}

struct Case {
  const char *name;
  const char *recs;
  const char *table;   // portmap table lines
  const char *faults;  // fault rules
  const char *events;  // lookups and stores, in order
  retcode_t status = 0;
  Records extra = {};  // other records, which must stay as they are
};

// clang-format off
const Case kFixUp[] = {
    // Chain order: the head, then the others in reverse order of the walk.
    {"A, B, C of one group: A changes", "Aiv11@2/1 Biv11@2/2 Civ11@2/3", "", "", "fc2/1 =A fc2/3 fc2/1 fc2/2 fc2/1"},
    {"H first of another group: C changes", "Hiv22@3/1 Aiv11@2/1 Biv11@2/2 Civ11@2/3", "", "",
     "fc3/1 =H fc2/3 =C fc2/2 fc2/3 fc2/1 fc2/3"},
    {"four met A, B, C, D are taken A, D, C, B", "Aiv11@2/1 Biv12@2/2 Civ21@2/3 Div22@2/4", "", "",
     "fc2/1 =A fc2/4 =D fc2/3 =C fc2/2 =B"},
    // What sets this fix-up apart from the one after 4.1.3.
    {"only type 55 with ISL enters, PHYSICAL not needed", "Aiv11@2/1y56 Bv11@2/2 Civ11@2/3", "", "", "fc2/3 =C"},
    {"an entry with neither flag is examined and turns physical", "Aix11@2/1", "", "", "fc2/1 =A"},
    {"both flags: not examined, stays, is a partner", "Bipv11@2/1 Viv11@2/2", "", "", "fc2/2 fc2/1"},
    {"partner found: the examined entry is not stored", "Pip11@2/1 Viv11@2/2", "", "", "fc2/2 fc2/1"},
    {"slot from if_index: same pair on another slot is no partner", "Pip11@3/1 Viv11@2/2", "", "", "fc2/2 fc3/1 =V"},
    {"a node turned physical is a partner for later ones; two slots, two changes", "Aiv11@2/1 Biv11@3/1 Civ11@3/2", "",
     "", "fc2/1 =A fc3/2 fc2/1 =C fc3/1 fc2/1 fc3/2"},
    {"sid, did tested before any lookup", "Sip12@5/1 Dip21@5/2 Viv11@2/1", "fc5/1 fail\nfc5/2 fail\n", "", "fc2/1 =V"},
    {"254 is a slot like any other", "Pip11@4/1 Viv11@4/2", "fc4/1 254\nfc4/2 254\n", "", "fc4/2 fc4/1"},
    {"failed store: node still counts as physical", "Aiv11@2/1 Biv11@2/2", "", "kvs_store:1", "fc2/1 =A! fc2/2 fc2/1"},
    {"the write goes under type 55, sub type 0; the record read stays", "Aiv11@2/1s7", "", "", "fc2/1 =A"},
    {"an all-zero target name is a key like any other", "Aiv11@2/1t0 Biv11@2/2t0", "", "", "fc2/1 =A fc2/2 fc2/1"},
    {"entries of other targets are no partners", "Pip11@2/1t2 Viv11@2/2", "", "", "fc2/2 =V"},
    // A failed lookup, or slot 255, ends the whole fix-up; the pass succeeds.
    {"partner lookup fails after a store", "Pip11@5/1 Viv11@2/1 Wiv22@2/2", "fc5/1 fail\n", "", "fc2/2 =W fc2/1 fc5/1"},
    {"examined entry has no slot: rest stays", "Aiv11@2/1 Biv22@2/2 Civ33@2/3 Div44@pc", "", "", "fc2/1 =A 0x04000000"},
    {"slot 255 with status 0 ends it too", "Aiv11@4/1 Biv22@2/2 Civ33@4/2", "fc4/2 255\n", "", "fc4/1 =A fc4/2"},
    {"an injected lookup failure", "Aiv11@2/1 Biv22@2/2", "", "portmap_get_slot:2", "fc2/1 =A"},
    // The table build and the driver.
    {"empty store", "", "", "", ""},
    {"no entry on an ISL: nothing is looked up or written", "Av11@2/1", "", "", ""},
    {"values or keys shorter than their layout are left alone", "Aiv11@2/1", "", "", "fc2/1 =A", 0,
     {{hx("37 00 01 02"), value32(recs("xiv11@2/2")[0], ISL | VIR)},
      {hx("37 00") + hash_at(7), value32(recs("yiv11@2/3")[0], ISL | VIR).substr(0, 83)}}},
    {"a value that cannot be read leaves its entry out", "Aiv11@2/1 Biv22@2/2", "", "kvs_getvalue:1", "fc2/2 =B"},
    {"an empty key datum is stepped over", "Aiv11@2/1 Biv22@2/2 Civ33@2/3", "", "kvs_move2location:2=empty",
     "fc2/1 =A fc2/3 =C"},
    {"a walk cut short keeps the table so far", "Aiv11@2/1 Biv22@2/2", "", "kvs_move2location:2=null", "fc2/1 =A"},
    {"a refused insert leaves the entry out, freed", "Aiv11@2/1 Biv22@2/2", "", "tk_hashtable_64_insert:1", "fc2/2 =B"},
    {"a failed table walk ends the fix-up at once", "Aiv11@2/1", "", "tk_hashtable_64_get_first:1", ""},
    {"open fails", "Aiv11@2/1", "", "kvs_open=0x4048000a", "", KVS_ERR_IO},
    {"table init fails: closed, unchanged", "Aiv11@2/1", "", "tk_hashtable_64_init=0x40100002", "", TK_ERR_NO_MEMORY},
    {"close fails, its status goes up", "Aiv11@2/1", "", "kvs_close=0x40480009", "fc2/1 =A", KVS_ERR_NO_SPACE},
};
// clang-format on

}  // namespace

TEST(Upgrade32, FixUpLookupsStoresAndStatus) {
  CNV_REQUIRE();
  for (const auto &c : kFixUp) {
    SCOPED_TRACE(c.name);
    const Recs rs = recs(c.recs);
    Records before = store_of(rs);
    before.insert(c.extra.begin(), c.extra.end());
    Outcome r = run(before, c.table, c.faults);
    EXPECT_EQ(r.status, c.status) << retcode2str(r.status);
    EXPECT_EQ(events(r, rs), c.events);
    // A failed open, init or close leaves the store as it was (a failed
    // close keeps nothing of the session in this store).
    EXPECT_EQ(r.after, c.status ? before : expected_after(rs, before, c.events));
    EXPECT_TRUE(Env::get().gate_open || r.log.empty()) << "the pass writes only traces";
  }
}

TEST(Upgrade32, ItsFunctionsAreExported) {
  CNV_REQUIRE();
  for (const char *name :
       {"wayshunt_cnv_config_upgrade_from_32", "wayshunt_cnv_upgrade_from_32_fix_trunk_entries_build_tgt_ht",
        "wayshunt_cnv_upgrade_from_32_fix_trunk_entries", "wayshunt_cnv_32_release_tgt_table",
        "wayshunt_cnv_32_chain_index_build", "wayshunt_cnv_32_chain_index_find_partner",
        "wayshunt_cnv_32_chain_index_now_physical", "wayshunt_cnv_32_chain_index_free"})
    EXPECT_NE(Env::get().sym(name), nullptr) << name;
}

// With the gate open every step of the scan is traced, in order.
TEST(Upgrade32, TracesOfTheFullScan) {
  CNV_REQUIRE();
  if (!Env::get().gate_open) GTEST_SKIP() << "traces are written with the debug gate open";
  const Recs rs = recs("Pip11@2/1 Viv11@2/2 Wiv22@3/1");
  Outcome r = run(store_of(rs), "", "");
  auto rw = [&](const char *fn, size_t i, uint32_t flags) {
    char b[400];
    std::snprintf(b, sizeof b,
                  "%s():N tgt_pwwn = 50:00:00:00:00:00:00:01, acl_flags = 0x%08x, src_sid_wwn = "
                  "20:00:00:00:00:00:00:%02x, src_did_wwn = 20:01:00:00:00:00:00:%02x, dst_sid: "
                  "21:00:00:00:00:00:00:99, dst_did: 22:00:00:00:00:00:00:98, if_index = 0x%08x\n"
                  "%s():N kvs_hash_key_lower = 0xa7a6a5a4a3a2a1%02zx\n",
                  fn, flags, rs[i].pair[0], rs[i].pair[1], rs[i].ifx, fn, 0x10 + i);
    return std::string(b);
  };
  const std::string B = "wayshunt_cnv_upgrade_from_32_fix_trunk_entries_build_tgt_ht():N ",
                    F = "wayshunt_cnv_upgrade_from_32_fix_trunk_entries():N ", fb = B.substr(0, B.size() - 5),
                    ff = F.substr(0, F.size() - 5), D = "wayshunt_cnv_config_upgrade_from_32():N ";
  std::string want = "wayshunt_cnv_log_init():N file opened sucessfully at <time>\n\n" + D +
                     "Fix all RW entries on ISL\n" + B + "Inserting new node into ht:\n" +
                     rw(fb.c_str(), 0, ISL | PHY) + B + "Inserted new entry\n" + B + "Inserting new node into ht:\n" +
                     rw(fb.c_str(), 1, ISL | VIR) + B + "Inserted after head\n" + B + "Inserting new node into ht:\n" +
                     rw(fb.c_str(), 2, ISL | VIR) + B + "Inserted after head\n" + B + "NO KEY\n";
  // Chain P, W, V.
  want += F + "PHYSICAL Entry.. Ignore\n" + F + "Virt Entry: <p> slot_num = 3\n" + rw(ff.c_str(), 2, ISL | VIR) + F +
          "Entry: <p>\n" + rw(ff.c_str(), 0, ISL | PHY) + F + "Entry: <p>\n" + rw(ff.c_str(), 2, ISL | VIR) + F +
          "Entry: <p>\n" + rw(ff.c_str(), 1, ISL | VIR) + F + "Physical Entry NOT Found" + F +
          "New Flags 0x00140000\n" + F + "Virt Entry: <p> slot_num = 2\n" + rw(ff.c_str(), 1, ISL | VIR) + F +
          "Entry: <p>\n" + rw(ff.c_str(), 0, ISL | PHY) + F + "phy_slot_num = 2\n" + F + "Found Physical Entry\n" + F +
          "Found Physical Entry - Process next Virtual Entry\n" + F + " No more Tgts\n" + D +
          "Upgrade runtime KVS from 3.2 successful\n" + "wayshunt_cnv_log_cleanup():N file Closed at <time>\n\n";
  EXPECT_EQ(without_pointers(normalized(r.log)), want);

  // A failed lookup is traced with its status; slot 255 with status 0.
  const Recs fail = recs("Aiv11@2/1 Biv22@4/1");
  for (auto [table, st] : {std::pair{"fc2/1 fail\n", retcode_t(PORTMAP_ERR_DOWN)}, {"fc2/1 255\n", 0u}}) {
    r = run(store_of(fail), table, "");
    char code[16];
    std::snprintf(code, sizeof code, " 0x%x\n", st);
    EXPECT_NE(normalized(r.log).find(F + "Failed to get slot num: " + retcode2str(st) + code), std::string::npos)
        << r.log;
  }
}

// The whole move up from 3.2 through convert_gsync: the 3.2 pass fixes the
// flags and keeps 84 bytes, the pass after it writes 82 bytes with the slot
// and fixes flags again.
TEST(Upgrade32, TwoPassesFrom32ToThePresentForms) {
  CNV_REQUIRE();
  // Met A, B, C, D, E. 3.2 pass, chain A, D, C, B: A has no partner and
  // turns physical; B finds A. C (both flags) and D are physical already.
  // The next pass: A loses DROP_ALL (dst_sid not zero), B loses PGM_PENDING,
  // C loses PHYSICAL to D; E, not on an ISL, only changes form.
  const Recs rs = recs("Aivd11@2/1 Bivg11@2/2 Cipv22@3/1 Dip22@3/2 Ev33@4/1");
  const uint32_t want_flags[] = {ISL | PHY, ISL | VIR, ISL | VIR, ISL | PHY, VIR};
  const uint8_t want_slot[] = {2, 2, 3, 3, 4};
  Records want;
  for (size_t i = 0; i < rs.size(); i++)
    want[key55(rs[i])] = value32(rs[i], want_flags[i]).substr(0, 81) + char(want_slot[i]);
  set_move("3.2(1)", "4.2(1)");
  Outcome r = run(store_of(rs), "", "", true);
  EXPECT_EQ(r.status, 0u);
  EXPECT_EQ(r.after, want);
  EXPECT_EQ(r.journal.front(), "portmap_get_slot(0x01001000) = 0 slot 2") << "the 3.2 pass comes first";
}

// Every row of the upgrade ladder, told apart by the opens of the store and
// by what becomes of one virtual 3.2 entry alone on an ISL. A failed 3.2
// pass stops the ladder with its status and an error record; a fix-up that
// ends early does not.
TEST(Upgrade32, UpgradeLadder) {
  CNV_REQUIRE();
  const Rec a = recs("Aiv11@2/1")[0];
  const Bytes key = key55(a), v = value32(a, a.flags);
  const Bytes by_32_and_413 = value32(a, turned(a.flags)).substr(0, 81) + '\x02', by_413 = v.substr(0, 81) + '\x02';
  struct Row {
    const char *from, *to;
    uint32_t opens;
    Bytes after;
    const char *table = "", *faults = "";
    retcode_t status = 0;
  };
  // clang-format off
  const Row rows[] = {
      {"2.5(1)", "4.2(1)", 0, v},             {"3.1(9)", "4.2(1)", 0, v},      {"3.2(1)", "4.2(1)", 2, by_32_and_413},
      {"3.2(3)", "4.1(1)", 2, by_32_and_413}, {"3.3(1)", "4.2(1)", 1, by_413}, {"4.0(2)", "4.2(1)", 1, by_413},
      {"4.1(3)", "5.0(1)", 1, by_413},        {"4.2(1)", "4.3(1)", 0, v},      {"5.0(1)", "5.1(1)", 0, v},
      {"3.2(1)", "4.2(1)", 1, v, "", "kvs_close:1=0x40480009", KVS_ERR_NO_SPACE},
      {"3.2(1)", "4.2(1)", 2, v.substr(0, 81) + '\xff', "fc2/1 fail\n"},  // flags as they were
  };
  // clang-format on
  for (const auto &row : rows) {
    SCOPED_TRACE(std::string(row.from) + " -> " + row.to + " " + row.table + row.faults);
    set_move(row.from, row.to);
    Outcome r = run({{key, v}}, row.table, row.faults, true);
    EXPECT_EQ(r.status, row.status);
    EXPECT_EQ(r.opens, row.opens);
    EXPECT_EQ(r.after, (Records{{key, row.after}}));
    const bool error_record = normalized(r.log).find("wayshunt_cnv_handle_upgrade_for_runtime_kvs():N upgrade from "
                                                     "3.2 Failedwayshunt_cnv_log_cleanup():N file Closed at") !=
                              std::string::npos;
    EXPECT_EQ(error_record, row.status != 0) << r.log;
    EXPECT_TRUE(Env::get().gate_open || row.status || r.log.empty()) << r.log;
  }
}
