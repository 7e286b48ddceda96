// wayshunt-convert run as a user runs it: each command's success and its
// answers to bad input, through exit status, stdout and stderr.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>

#include "test_support.h"
#include "tool_run.h"

namespace {

using Json = nlohmann::ordered_json;
using testsupport::ScopedEnv;
using tooltest::expect_refused;
using tooltest::has;
using tooltest::run_tool;
using Args = std::vector<std::string>;

// Each test gets a store folder and no PLAT_KVS_ROOT from the caller.
class ToolTest : public ::testing::Test {
 protected:
  ScopedEnv no_root_{"PLAT_KVS_ROOT", nullptr}, no_table_{"PLAT_PORTMAP_TABLE", nullptr};
  testsupport::TempDir dir_;

  std::string store(const std::string &name) { return dir_ / (name + ".mdb"); }
  void gen(const std::string &era, int records, int seed, const std::string &path) {
    auto r = run_tool({"gen", "--era", era, "--records", std::to_string(records), "--seed", std::to_string(seed), path});
    ASSERT_EQ(r.status, 0) << r.err;
  }
  Json dump(const std::string &path) {
    auto r = run_tool({"dump", "--json", path});
    EXPECT_EQ(r.status, 0) << r.err;
    return Json::parse(r.out);
  }
  tooltest::Run load(const Json &doc, const std::string &path) {
    testsupport::write_file(dir_ / "input.json", doc.dump(1));
    return run_tool({"load", dir_ / "input.json", path});
  }
  // The first record of a type.
  static Json &find(Json &doc, const std::string &type) {
    for (Json &r : doc["records"])
      if (r["type"] == type) return r;
    throw std::runtime_error("no " + type + " record in the store");
  }
  static Json raw(const Json &type, const char *key, const char *value) {
    return {{"type", type}, {"key", {{"form", "raw"}, {"hex", key}}}, {"value", {{"form", "raw"}, {"hex", value}}}};
  }
  // Whether the store folder holds no file named with prefix (temporaries included).
  bool none(const std::string &prefix) {
    for (const auto &e : std::filesystem::directory_iterator(dir_.path())) {
      std::string name = e.path().filename().string();
      if (name.rfind(prefix, 0) == 0 || name.rfind("." + prefix, 0) == 0) return false;
    }
    return true;
  }
};

// ---- per era: load of dump gives an equal store; gen per seed, shaped like a switch ----

class EraTest : public ToolTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(EraTest, RoundTripAndGen) {
  const std::string era = GetParam();
  for (auto [name, seed] : {std::pair{"a", 7}, {"same", 7}, {"other", 8}}) gen(era, 2000, seed, store(name));
  Json doc = dump(store("a"));
  ASSERT_EQ(doc["records"].size(), 2000u);
  ASSERT_EQ(load(doc, store("b")).status, 0);
  EXPECT_EQ(dump(store("b")), doc);
  for (auto [other, status] : {std::pair{"b", 0}, {"same", 0}, {"other", 1}}) {
    auto d = run_tool({"diff", store("a"), store(other)});
    EXPECT_EQ(d.status, status) << other << d.out << d.err;
    EXPECT_EQ(has(d.out, "0 added, 0 removed, 0 changed, 2000 unchanged"), status == 0) << d.out;
  }
  for (std::string e : {"3.2", "4.1", "4.2"})
    EXPECT_EQ(run_tool({"verify", "--era", e, store("a")}).status, e == era ? 0 : 1) << e;

  std::map<std::string, int> types;
  int isl = 0, both_on_isl = 0, port_channels = 0;
  std::set<std::string> slots, host_prefixes;
  for (const Json &r : doc["records"]) {
    ++types[r["type"]];
    const Json &v = r["value"];
    std::string f = v.value("acl_flags", ""), i = v.value("if_index", "");
    isl += has(f, "ISL");
    both_on_isl += has(f, "ISL") && has(f, "PHYSICAL|VIRTUAL");
    port_channels += i.rfind("port-channel", 0) == 0;
    if (i.rfind("fc", 0) == 0) slots.insert(i.substr(2, i.find('/') - 2));
    if (r["type"] == "FLOW_THRU_HOST") host_prefixes.insert(r["key"]["host_pwwn"].get<std::string>().substr(0, 14));
  }
  EXPECT_EQ(types.count("RUNTIME_LC_INFO"), era == "3.2" ? 0u : 1u);
  for (const char *t : {"FLOW_THRU_HOST", "ACL_RW_1", "ACL_RW_2", "ACL_ELS_1"}) EXPECT_GT(types[t], 0) << t;
  EXPECT_TRUE(isl > 100 && port_channels > 0) << isl << " " << port_channels;
  EXPECT_EQ(slots, (std::set<std::string>{"1", "2", "3", "4", "7", "8", "9", "10"}));
  EXPECT_EQ(host_prefixes, (std::set<std::string>{"20:00:00:25:b5", "21:00:00:24:ff", "10:00:00:90:fa"}));
  // Entries with both flags on an ISL wait for the 4.1 upgrade; 4.2 has them resolved.
  if (era != "3.2") {
    EXPECT_EQ(both_on_isl > 0, era == "4.1");
  }
}

INSTANTIATE_TEST_SUITE_P(Eras, EraTest, ::testing::Values("3.2", "4.1", "4.2"), [](const auto &info) {
  return "era" + info.param.substr(0, 1) + info.param.substr(2);
});

// ---- load: bad input names the record and field, and leaves no store ----

TEST_F(ToolTest, LoadRejectsBadRecordsAndLeavesNoStore) {
  gen("3.2", 40, 1, store("src"));
  const Json base = dump(store("src"));
  size_t rw = 0;  // the index of the first ACL_RW_1, named in its messages
  while (base["records"][rw]["type"] != "ACL_RW_1") ++rw;
  const struct {
    std::function<void(Json &)> mutate;
    std::string message;
  } cases[] = {
      {[](Json &d) { find(d, "ACL_RW_1")["value"]["acl_flags"] = "ISL|BOGUS"; },
       "records[" + std::to_string(rw) + "] (ACL_RW_1): value.acl_flags: unknown flag 'BOGUS'"},
      {[](Json &d) { find(d, "FLOW_THRU_HOST")["key"].erase("tgt_pwwn"); }, "(FLOW_THRU_HOST): key.tgt_pwwn: missing"},
      {[](Json &d) { find(d, "ACL_ELS_1")["value"]["src_pwwn"] = "50:06:zz"; },
       "(ACL_ELS_1): value.src_pwwn: '50:06:zz' is not a worldwide name"},
      {[](Json &d) { find(d, "ACL_RW_1")["value"]["size"] = 82; }, "value.size: 82 does not match"},
      {[](Json &d) { find(d, "ACL_RW_1")["value"]["slot"] = 3; }, "value.slot: unknown field"},
      {[](Json &d) { find(d, "ACL_ELS_1")["value"]["form"] = "rw_acl"; }, "value.form: 'rw_acl' is not a form of ACL_ELS_1"},
      {[](Json &d) { find(d, "ACL_RW_1")["value"]["rw_key"]["vsan"] = 4294967296; }, "value.rw_key.vsan: 4294967296 is outside"},
      {[](Json &d) { find(d, "ACL_RW_1")["value"]["if_index"] = "fc17/1"; }, "value.if_index: slot 17 out of range"},
      {[](Json &d) { d["records"].push_back(raw(63, "3e00", "")); }, "key.hex: first byte 3e is not the record's type 3f"},
      {[](Json &d) { d["records"].push_back(d["records"][2]); }, "same key as records[2]"},
      {[](Json &d) { d = Json::array(); }, "top level: expected an object"},
  };
  for (const auto &c : cases) {
    Json doc = base;
    c.mutate(doc);
    expect_refused(load(doc, store("out")), c.message);
    EXPECT_TRUE(none("out")) << c.message;
  }
}

// Broken JSON, an existing store and failing store calls: exit 2, nothing
// new left behind, the replaced store untouched.
TEST_F(ToolTest, StoreFailuresLeaveNoStoreBehind) {
  gen("4.2", 30, 1, store("a"));
  testsupport::write_file(dir_ / "a.json", dump(store("a")).dump());
  testsupport::write_file(dir_ / "broken.json", "{\"records\": [ {\"type\": 55,}");
  gen("3.2", 30, 1, store("old"));
  const struct {
    const char *faults;
    Args args;
    const char *message;
  } cases[] = {
      {nullptr, {"load", dir_ / "broken.json", store("new")}, "not valid JSON: parse error at line 1"},
      {nullptr, {"load", dir_ / "a.json", store("old")}, "exists; pass --force"},
      {"kvs_store:5", {"load", dir_ / "a.json", store("new")}, "cannot store record 4"},
      {"kvs_close:1=0x40480009", {"load", dir_ / "a.json", store("new")}, "cannot write store"},
      {"kvs_open:1", {"gen", "--era", "3.2", "--records", "9", store("new")}, "cannot open new store"},
      {"kvs_store:3", {"load", "--force", dir_ / "a.json", store("old")}, "cannot store record 2"},
      {"kvs_move2location:4=0x4048000a", {"dump", store("a")}, "cannot walk store"},
      {"kvs_getvalue:2=null", {"dump", store("a")}, "cannot read the value of key"},
  };
  for (const auto &c : cases) {
    ScopedEnv faults("PLAT_FAULTS", c.faults);
    expect_refused(run_tool(c.args), c.message);
    EXPECT_TRUE(none("new") && none("old.tmp")) << c.message;
  }
  EXPECT_EQ(run_tool({"verify", "--era", "3.2", store("old")}).status, 0);
  EXPECT_EQ(run_tool({"load", "--force", dir_ / "a.json", store("old")}).status, 0);
  EXPECT_TRUE(run_tool({"diff", store("a"), store("old")}).status == 0 && none("old.tmp"));
}

// ---- diff ----

TEST_F(ToolTest, DiffReportsAddedRemovedAndChangedFields) {
  gen("4.1", 60, 2, store("a"));
  Json doc = dump(store("a"));
  find(doc, "ACL_RW_1")["value"]["acl_flags"] = "ISL|PHYSICAL|VIRTUAL";
  ASSERT_EQ(load(doc, store("before")).status, 0);
  find(doc, "ACL_RW_1")["value"]["acl_flags"] = "ISL|PHYSICAL|PGM_BUSY";
  doc["records"].erase(doc["records"].begin());
  doc["records"].push_back(raw(61, "3d0001", "ff"));
  ASSERT_EQ(load(doc, store("after")).status, 0);

  auto j = run_tool({"diff", "--json", store("before"), store("after")});
  ASSERT_EQ(j.status, 1) << j.err;
  Json d = Json::parse(j.out);
  EXPECT_EQ(d["counts"], Json({{"added", 1}, {"removed", 1}, {"changed", 1}, {"unchanged", 58}}));
  EXPECT_EQ(d["added"][0]["key"]["hex"], "3d0001");
  ASSERT_EQ(d["changed"][0]["fields"].size(), 1u);
  const Json &f = d["changed"][0]["fields"][0];
  EXPECT_EQ(f["field"], "value.acl_flags");
  EXPECT_EQ(f["flags_set"], Json({"PGM_BUSY"}));
  EXPECT_EQ(f["flags_cleared"], Json({"VIRTUAL"}));
  for (const Args &colour : {Args{}, Args{"--color", "always"}, Args{"--color", "never"}}) {
    Args args = {"diff"};
    args.insert(args.end(), colour.begin(), colour.end());
    args.insert(args.end(), {store("before"), store("after")});
    auto t = run_tool(args);
    EXPECT_EQ(t.status, 1);
    EXPECT_EQ(has(t.out, "\033["), colour.size() && colour[1] == "always") << t.out;
    for (const char *text : {"value.acl_flags", "+PGM_BUSY -VIRTUAL", "1 added, 1 removed, 1 changed, 58 unchanged"})
      EXPECT_TRUE(has(t.out, text)) << text << "\n" << t.out;
  }
  auto missing = run_tool({"diff", store("before"), store("nothere")});
  EXPECT_EQ(missing.status, 2);
  EXPECT_TRUE(has(missing.err, "nothere.mdb")) << missing.err;
}

// ---- verify names the broken record ----

TEST_F(ToolTest, VerifyNamesEachViolation) {
  for (auto [era, n] : {std::pair{"3.2", 80}, {"4.1", 80}, {"4.2", 120}}) gen(era, n, 5, store(era));
  Json up = dump(store("4.2"));
  for (Json &r : up["records"])  // what a move up leaves: widened keys have vsan 0
    if (r["type"] == "FLOW_THRU_HOST") r["key"]["vsan"] = 0;
  const Json bases[] = {dump(store("3.2")), dump(store("4.1")), up};
  const Args eras[] = {{"--era", "3.2"}, {"--era", "4.1", "--after-downgrade"}, {"--era", "4.2", "--after-upgrade"}};
  auto verify = [&](int base, const std::string &path) {
    Args args = {"verify"};
    args.insert(args.end(), eras[base].begin(), eras[base].end());
    args.push_back(path);
    return run_tool(args);
  };
  auto clean = [&](int base) { return dir_ / ("clean" + std::to_string(base) + ".mdb"); };
  const struct {
    int base;
    std::function<void(Json &)> mutate;
    const char *message;  // "" for a store that stays clean
  } cases[] = {
      {0, [](Json &d) { find(d, "ACL_RW_1")["value"].merge_patch({{"form", "rw_acl"}, {"size", nullptr}, {"unused", nullptr}, {"slot_num", 1}}); },
       "value is 82 bytes; era 3.2"},
      {0, [](Json &d) { d["records"].push_back(raw("RUNTIME_LC_INFO", "3f0001", "01")); }, "RUNTIME_LC_INFO record in a 3.2 store"},
      {0, [](Json &d) { d["records"].push_back(raw("FLOW_THRU_HOST", "36000a0000002000002500000001500601600000000a", "00000000")); },
       "key is 22 bytes; era 3.2 stores FLOW_THRU_HOST keys in 18"},
      {1, [](Json &d) { find(d, "FLOW_THRU_HOST")["value"]["value"] = 7; }, "narrowed records have value 0"},
      {1, [](Json &d) { d["records"].push_back(raw("ACL_ELS_1", "3a0001", "00")); }, "value is 1 bytes; era 4.1 stores ACL_ELS_1 values in 37"},
      {2, [](Json &d) { find(d, "ACL_RW_1")["value"]["acl_flags"] = "ISL|PHYSICAL|VIRTUAL"; }, "carries both PHYSICAL and VIRTUAL"},
      {2, [](Json &d) { find(d, "ACL_RW_2")["value"]["acl_flags"] = "ISL|PHYSICAL|VIRTUAL"; }, ""},
      {2, [](Json &d) { find(d, "ACL_RW_1")["value"]["slot_num"] = 200; }, "slot_num 200 but if_index"},
      {2, [](Json &d) { find(d, "ACL_ELS_1")["value"]["slot_num"] = 200; }, "slot_num 200 but if_index"},
      {2, [](Json &d) { find(d, "ACL_RW_1")["value"].merge_patch({{"acl_flags", "DROP_ALL"}, {"dst_sid_wwn", "2f:ff:00:0d:ec:00:00:99"}}); },
       "DROP_ALL with a non-zero dst_sid_wwn"},
      {2, [](Json &d) { find(d, "ACL_RW_3")["value"]["acl_flags"] = "PGM_BUSY|FO"; }, "PGM_BUSY with FO"},
      {2, [](Json &d) { find(d, "ACL_RW_2")["value"]["acl_flags"] = "VIRTUAL|VW"; }, "VW with VIRTUAL or PGM_BUSY"},
      {2, [](Json &d) { find(d, "FLOW_THRU_HOST")["key"]["vsan"] = 20; }, "vsan 20 in a flow-thru key"},
  };
  for (int b = 0; b < 3; ++b) {
    ASSERT_EQ(load(bases[b], clean(b)).status, 0);
    auto v = verify(b, clean(b));
    EXPECT_EQ(v.status, 0) << b << "\n" << v.out << v.err;
  }
  for (const auto &c : cases) {
    SCOPED_TRACE(c.message);
    Json doc = bases[c.base];
    c.mutate(doc);
    std::string broken = store("broken");
    std::filesystem::remove(broken);
    ASSERT_EQ(load(doc, broken).status, 0);
    auto v = verify(c.base, broken);
    EXPECT_EQ(v.status, *c.message ? 1 : 0) << v.out << v.err;
    if (!*c.message) continue;
    // One violation, on the line of the broken record: its key (as diff names it) first.
    auto d = Json::parse(run_tool({"diff", "--json", clean(c.base), broken}).out);
    std::string key = !d["changed"].empty() ? d["changed"][0]["key"].get<std::string>()
                      : d["added"][0]["key"].value("hex", "");
    std::string first = v.out.substr(0, v.out.find('\n'));
    EXPECT_TRUE(has(first, c.message)) << v.out;
    EXPECT_EQ(first.rfind(key, 0), 0u) << key << "\n" << v.out;
    EXPECT_TRUE(has(v.out, "1 violation in 1 record")) << v.out;
  }
}

// A fixture written by hand, read from stdin; slots as the interface map
// gives them, PLAT_PORTMAP_TABLE included.
TEST_F(ToolTest, HandWrittenFixtureAndTheInterfaceMap) {
  testsupport::write_file(dir_ / "fixture.json", R"({"records": [{"type": "ACL_RW_1",
    "key": {"form": "rw_acl", "sub_type": 0, "acl_hash_key_lower": "0x2a"},
    "value": {"form": "rw_acl", "tgt_pwwn": "50:06:01:60:3b:a0:11:22", "acl_flags": "ISL|PHYSICAL", "if_index": "fc2/1",
      "src_sid_wwn": "20:00:00:25:b5:01:00:01", "src_did_wwn": "50:06:01:60:3b:a0:11:22", "slot_num": 9,
      "dst_sid_wwn": "00:00:00:00:00:00:00:00", "dst_did_wwn": "2f:ff:00:0d:ec:00:00:01",
      "rw_key": {"vsan": 10, "sid": "0x0a0100", "did": "0x0b0200", "num_luns": 0}, "rw_info": {"vsan": 1010, "sid": "0x0a0100",
      "did": "0x0b0200", "up": 1, "up_valid": 1, "num_prog_if_MSB": 0, "num_del_if_MSB": 0, "flags": "0x0"}}},
    {"type": 97, "key": {"form": "raw", "hex": "6101"}, "value": {"form": "raw", "hex": "00ff"}}]})");
  auto l = run_tool({"load", "-", store("f")}, dir_ / "fixture.json");
  ASSERT_EQ(l.status, 0) << l.err;
  auto t = run_tool({"dump", "--all", store("f")});
  for (const char *text : {"acl_hash_key_lower=0x000000000000002a", "acl_flags=ISL|PHYSICAL", "if_index=fc2/1",
                           "rw_info.vsan=1010", "rw_key.sid=0x0a0100", "slot_num=9", "97                  2    2  key=6101 value=00ff"})
    EXPECT_TRUE(has(t.out, text)) << text << "\n" << t.out;
  const Args verify = {"verify", "--era", "4.2", "--after-upgrade", store("f")};
  auto v = run_tool(verify);
  EXPECT_EQ(v.status, 1);
  EXPECT_TRUE(has(v.out, "37002a00000000000000 ACL_RW_1: slot_num 9 but if_index fc2/1 lies in slot 2")) << v.out;
  testsupport::write_file(dir_ / "portmap", "fc2/1 9\n");
  ScopedEnv table("PLAT_PORTMAP_TABLE", (dir_ / "portmap").c_str());
  EXPECT_EQ(run_tool(verify).status, 0);
}

// ---- arguments, help and store forms ----

TEST_F(ToolTest, BadArgumentsGiveOneLineAndStatus2) {
  gen("3.2", 10, 1, store("a"));
  testsupport::write_file(dir_ / "junk.mdb", "not a store");
  const std::pair<Args, const char *> cases[] = {
      {{}, "A subcommand is required"},
      {{"frobnicate"}, "unknown command 'frobnicate'"},
      {{"dump"}, "store is required"},
      {{"gen", "--era", "5.0", "--records", "3", store("x")}, "--era: 5.0 not in"},
      {{"gen", "--era", "3.2", "--records", "3", store("a") + "/x.mdb"}, "cannot create folder"},
      {{"gen", "--era", "3.2", "--records", "3", store("a")}, "exists; pass --force"},
      {{"verify", "--era", "3.2", "--after-upgrade", store("a")}, "use --era 4.2"},
      {{"dump", dir_ / "notes.txt"}, "is no store"},
      {{"dump", store("missing")}, "no such store"},
      {{"dump", store("junk")}, "not a store"},
      {{"dump", "nonvolatile:nodir"}, "is not a store URL"},
  };
  for (const auto &[args, message] : cases) expect_refused(run_tool(args), message);
}

TEST_F(ToolTest, EveryCommandHasHelpWithAnExample) {
  auto top = run_tool({"--help"});
  EXPECT_TRUE(top.status == 0 && has(top.out, "Exit status")) << top.out;
  for (std::string cmd : {"dump", "info", "load", "diff", "gen", "verify", "run", "service", "demo", "log"}) {
    auto r = run_tool({cmd, "--help"});
    EXPECT_TRUE(r.status == 0 && has(r.out, "Example:\n  wayshunt-convert ") && has(r.out, "wayshunt-convert " + cmd + " "))
        << r.out;
  }
}

// A store is named by URL, file or folder; the table decodes fields.
TEST_F(ToolTest, StoreFormsAndDumpTable) {
  gen("4.2", 25, 1, dir_.path());
  Json by_url = dump("nonvolatile:" + dir_.path() + "/wayshunt_runtime_ha");
  EXPECT_EQ(by_url["records"].size(), 25u);
  EXPECT_EQ(dump(dir_ / "wayshunt_runtime_ha.mdb"), by_url);
  EXPECT_EQ(dump(dir_.path() + "/"), by_url);
  ScopedEnv root("PLAT_KVS_ROOT", dir_.path().c_str());
  EXPECT_EQ(dump("nonvolatile:/wayshunt_runtime_ha"), by_url);
  EXPECT_EQ(dump(dir_.path()), by_url);
  gen("3.2", 200, 1, store("a"));
  auto r = run_tool({"dump", store("a")});
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char *text : {"FLOW_THRU_HOST     18    4", "ACL_RW_1           10   84", "ACL_RW_2           10   82",
                           "ACL_ELS_1          10   37", "acl_flags=ISL|", "if_index=fc", "if_index=port-channel",
                           "tgt_pwwn=50:", "200 records: "})
    EXPECT_TRUE(has(r.out, text)) << text;
}

}  // namespace
