// wayshunt-convert run as a user runs it: each command's success and its
// answers to bad input, through exit status, stdout and stderr.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>

#include "test_support.h"
#include "tool_run.h"

namespace {

using Json = nlohmann::ordered_json;
using testsupport::TempDir;
using tooltest::run_tool;

// Each test gets a store folder and no PLAT_KVS_ROOT from the caller.
class ToolTest : public ::testing::Test {
 protected:
  testsupport::ScopedEnv no_root_{"PLAT_KVS_ROOT", nullptr};
  testsupport::ScopedEnv no_table_{"PLAT_PORTMAP_TABLE", nullptr};
  TempDir dir_;

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
    std::string file = dir_ / "input.json";
    testsupport::write_file(file, doc.dump(1));
    return run_tool({"load", file, path});
  }
  // The first record of a type (and value form, when given).
  static Json &find(Json &doc, const std::string &type, const std::string &form = "") {
    for (Json &r : doc["records"])
      if (r["type"] == type && (form.empty() || r["value"]["form"] == form)) return r;
    throw std::runtime_error("no " + type + " record in the store");
  }
  // Files in the store folder whose name starts with prefix (temporaries included).
  std::vector<std::string> files(const std::string &prefix) {
    std::vector<std::string> out;
    for (const auto &e : std::filesystem::directory_iterator(dir_.path())) {
      std::string name = e.path().filename().string();
      if (name.rfind(prefix, 0) == 0 || name.rfind("." + prefix, 0) == 0) out.push_back(name);
    }
    return out;
  }
};

size_t lines(const std::string &s) { return static_cast<size_t>(std::count(s.begin(), s.end(), '\n')); }

// ---- gen, dump, load and diff round trip, per era ----

class EraTest : public ToolTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(EraTest, LoadOfDumpGivesAnEqualStore) {
  gen(GetParam(), 500, 7, store("a"));
  Json doc = dump(store("a"));
  ASSERT_EQ(doc["records"].size(), 500u);
  auto r = load(doc, store("b"));
  ASSERT_EQ(r.status, 0) << r.err;
  auto d = run_tool({"diff", store("a"), store("b")});
  EXPECT_EQ(d.status, 0) << d.out << d.err;
  EXPECT_NE(d.out.find("0 added, 0 removed, 0 changed, 500 unchanged"), std::string::npos) << d.out;
  EXPECT_EQ(dump(store("b")), doc);
}

TEST_P(EraTest, GenIsDeterministicPerSeedAndPassesOnlyItsOwnEra) {
  gen(GetParam(), 300, 3, store("a"));
  gen(GetParam(), 300, 3, store("same"));
  gen(GetParam(), 300, 4, store("other"));
  EXPECT_EQ(run_tool({"diff", store("a"), store("same")}).status, 0);
  EXPECT_EQ(run_tool({"diff", store("a"), store("other")}).status, 1);
  for (std::string era : {"3.2", "4.1", "4.2"}) {
    auto v = run_tool({"verify", "--era", era, store("a")});
    EXPECT_EQ(v.status, era == GetParam() ? 0 : 1) << era << "\n" << v.out << v.err;
  }
}

TEST_P(EraTest, GenShapesRecordsLikeASwitch) {
  gen(GetParam(), 2000, 11, store("a"));
  Json doc = dump(store("a"));
  std::map<std::string, int> types;
  int isl = 0, both_on_isl = 0, port_channels = 0;
  std::set<std::string> slots, host_prefixes;
  for (const Json &r : doc["records"]) {
    ++types[r["type"]];
    const Json &v = r["value"];
    if (v.contains("acl_flags")) {
      std::string f = v["acl_flags"];
      isl += f.find("ISL") != std::string::npos;
      both_on_isl += f.find("ISL") != std::string::npos && f.find("PHYSICAL|VIRTUAL") != std::string::npos;
    }
    if (v.contains("if_index")) {
      std::string i = v["if_index"];
      if (i.rfind("port-channel", 0) == 0) ++port_channels;
      if (i.rfind("fc", 0) == 0) slots.insert(i.substr(2, i.find('/') - 2));
    }
    if (r["type"] == "FLOW_THRU_HOST") host_prefixes.insert(r["key"]["host_pwwn"].get<std::string>().substr(0, 14));
  }
  EXPECT_EQ(types.count("RUNTIME_LC_INFO"), GetParam() == "3.2" ? 0u : 1u);
  for (const char *t : {"FLOW_THRU_HOST", "ACL_RW_1", "ACL_RW_2", "ACL_ELS_1"}) EXPECT_GT(types[t], 0) << t;
  EXPECT_GT(isl, 100);
  EXPECT_GT(port_channels, 0);
  EXPECT_EQ(slots, (std::set<std::string>{"1", "2", "3", "4", "7", "8", "9", "10"}));
  EXPECT_EQ(host_prefixes, (std::set<std::string>{"20:00:00:25:b5", "21:00:00:24:ff", "10:00:00:90:fa"}));
  // Entries with both flags on an ISL wait for the 4.1 upgrade; 4.2 has them resolved.
  if (GetParam() == "4.1") {
    EXPECT_GT(both_on_isl, 0);
  } else if (GetParam() == "4.2") {
    EXPECT_EQ(both_on_isl, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Eras, EraTest, ::testing::Values("3.2", "4.1", "4.2"),
                         [](const auto &info) { return "era" + std::string(info.param == "3.2" ? "32" : info.param == "4.1" ? "41" : "42"); });

// ---- load: bad input names the record and field, and leaves no store ----

TEST_F(ToolTest, LoadRejectsBadRecordsAndLeavesNoStore) {
  gen("3.2", 40, 1, store("src"));
  const Json base = dump(store("src"));
  struct Case {
    const char *what;
    std::function<void(Json &)> mutate;
    const char *message;
  };
  const Case cases[] = {
      {"unknown flag", [](Json &d) { find(d, "ACL_RW_1")["value"]["acl_flags"] = "ISL|BOGUS"; },
       "(ACL_RW_1): value.acl_flags: unknown flag 'BOGUS'"},
      {"missing field", [](Json &d) { find(d, "FLOW_THRU_HOST")["key"].erase("tgt_pwwn"); },
       "(FLOW_THRU_HOST): key.tgt_pwwn: missing"},
      {"bad worldwide name", [](Json &d) { find(d, "ACL_ELS_1")["value"]["src_pwwn"] = "50:06:zz"; },
       "(ACL_ELS_1): value.src_pwwn: '50:06:zz' is not a worldwide name"},
      {"size of another form", [](Json &d) { find(d, "ACL_RW_1")["value"]["size"] = 82; }, "value.size: 82 does not match"},
      {"misspelt field", [](Json &d) { find(d, "ACL_RW_1")["value"]["slot"] = 3; }, "value.slot: unknown field"},
      {"form of another type", [](Json &d) { find(d, "ACL_ELS_1")["value"]["form"] = "rw_acl"; },
       "value.form: 'rw_acl' is not a form of ACL_ELS_1"},
      {"vsan out of range", [](Json &d) { find(d, "ACL_RW_1")["value"]["rw_key"]["vsan"] = 4294967296; },
       "value.rw_key.vsan: 4294967296 is outside"},
      {"slot out of the encoding", [](Json &d) { find(d, "ACL_RW_1")["value"]["if_index"] = "fc17/1"; },
       "value.if_index: slot 17 out of range"},
      {"raw key of another type", [](Json &d) { d["records"].push_back({{"type", 63}, {"key", {{"form", "raw"}, {"hex", "3e00"}}}, {"value", {{"form", "raw"}, {"hex", ""}}}}); },
       "key.hex: first byte 3e is not the record's type 3f"},
      {"duplicate key", [](Json &d) { d["records"].push_back(d["records"][2]); }, "same key as records[2]"},
      {"not a store document", [](Json &d) { d = Json::array(); }, "top level: expected an object"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    Json doc = base;
    c.mutate(doc);
    auto r = load(doc, store("out"));
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(lines(r.err), 1u) << r.err;
    EXPECT_TRUE(files("out").empty());
  }
  // The record's index is named: the mutated ACL_RW_1 is the first one.
  Json doc = base;
  size_t index = 0;
  while (doc["records"][index]["type"] != "ACL_RW_1") ++index;
  doc["records"][index]["value"]["acl_flags"] = "NOPE";
  EXPECT_NE(load(doc, store("out")).err.find("records[" + std::to_string(index) + "] (ACL_RW_1)"), std::string::npos);
}

TEST_F(ToolTest, LoadRefusesBrokenJsonAndExistingStoresUnlessForced) {
  testsupport::write_file(dir_ / "broken.json", "{\"records\": [ {\"type\": 55,}");
  auto r = run_tool({"load", dir_ / "broken.json", store("out")});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("not valid JSON: parse error at line 1"), std::string::npos) << r.err;
  EXPECT_TRUE(files("out").empty());

  gen("4.1", 30, 1, store("a"));
  gen("4.2", 30, 1, store("b"));
  r = load(dump(store("a")), store("b"));
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("exists; pass --force"), std::string::npos) << r.err;
  EXPECT_EQ(run_tool({"diff", store("a"), store("b")}).status, 1);  // b untouched
  std::string file = dir_ / "input.json";
  EXPECT_EQ(run_tool({"load", "--force", file, store("b")}).status, 0);
  EXPECT_EQ(run_tool({"diff", store("a"), store("b")}).status, 0);
  EXPECT_TRUE(files("b.tmp").empty());  // no temporary left beside it
}

TEST_F(ToolTest, StoreFailuresLeaveNoStoreBehind) {
  gen("4.2", 30, 1, store("a"));
  const Json doc = dump(store("a"));
  testsupport::write_file(dir_ / "a.json", doc.dump());
  gen("3.2", 30, 1, store("old"));
  struct Case {
    const char *faults;
    std::vector<std::string> args;
    const char *message;
  };
  const Case cases[] = {
      {"kvs_store:5", {"load", dir_ / "a.json", store("new")}, "cannot store record 4"},
      {"kvs_close:1=0x40480009", {"load", dir_ / "a.json", store("new")}, "cannot write store"},
      {"kvs_open:1", {"gen", "--era", "3.2", "--records", "9", store("new")}, "cannot open new store"},
      {"kvs_store:3", {"load", "--force", dir_ / "a.json", store("old")}, "cannot store record 2"},
      {"kvs_move2location:4=0x4048000a", {"dump", store("a")}, "cannot walk store"},
      {"kvs_getvalue:2=null", {"dump", store("a")}, "cannot read the value of key"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.faults);
    testsupport::ScopedEnv faults("PLAT_FAULTS", c.faults);
    auto r = run_tool(c.args);
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(lines(r.err), 1u) << r.err;
    EXPECT_TRUE(files("new").empty());
    EXPECT_TRUE(files("old.tmp").empty());
  }
  auto d = run_tool({"verify", "--era", "3.2", store("old")});  // the replaced store is untouched
  EXPECT_EQ(d.status, 0) << d.out;
}

// ---- diff ----

TEST_F(ToolTest, DiffReportsAddedRemovedAndChangedFields) {
  gen("4.1", 60, 2, store("a"));
  Json doc = dump(store("a"));
  Json &rw = find(doc, "ACL_RW_1");
  rw["value"]["acl_flags"] = "ISL|PHYSICAL|VIRTUAL";
  ASSERT_EQ(load(doc, store("before")).status, 0);
  find(doc, "ACL_RW_1")["value"]["acl_flags"] = "ISL|PHYSICAL|PGM_BUSY";
  doc["records"].erase(doc["records"].begin());
  doc["records"].push_back({{"type", 61}, {"key", {{"form", "raw"}, {"hex", "3d0001"}}}, {"value", {{"form", "raw"}, {"hex", "ff"}}}});
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

  struct Case {
    std::vector<std::string> args;
    bool colour;
  };
  for (const Case &c : {Case{{}, false}, Case{{"--color", "always"}, true}, Case{{"--color", "never"}, false}}) {
    std::vector<std::string> args = {"diff"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    args.insert(args.end(), {store("before"), store("after")});
    auto t = run_tool(args);
    EXPECT_EQ(t.status, 1);
    EXPECT_EQ(t.out.find("\033[") != std::string::npos, c.colour) << t.out;
    EXPECT_NE(t.out.find("value.acl_flags"), std::string::npos);
    EXPECT_NE(t.out.find("+PGM_BUSY -VIRTUAL"), std::string::npos) << t.out;
    EXPECT_NE(t.out.find("1 added, 1 removed, 1 changed, 58 unchanged"), std::string::npos) << t.out;
  }
  auto missing = run_tool({"diff", store("before"), store("nothere")});
  EXPECT_EQ(missing.status, 2);
  EXPECT_NE(missing.err.find("nothere.mdb"), std::string::npos) << missing.err;
}

// ---- verify names the broken record ----

TEST_F(ToolTest, VerifyNamesEachViolation) {
  gen("3.2", 80, 5, store("s32"));
  gen("4.1", 80, 5, store("s41"));
  gen("4.2", 120, 5, store("s42"));
  Json up = dump(store("s42"));
  for (Json &r : up["records"])  // what a move up leaves: widened keys have vsan 0
    if (r["type"] == "FLOW_THRU_HOST") r["key"]["vsan"] = 0;
  const Json bases[] = {dump(store("s32")), dump(store("s41")), up};
  const std::vector<std::string> era_args[] = {
      {"--era", "3.2"}, {"--era", "4.1", "--after-downgrade"}, {"--era", "4.2", "--after-upgrade"}};
  auto raw = [](const char *type, const char *key, const char *value) {
    return Json{{"type", type}, {"key", {{"form", "raw"}, {"hex", key}}}, {"value", {{"form", "raw"}, {"hex", value}}}};
  };
  struct Case {
    int base;
    const char *what;
    std::function<void(Json &)> mutate;
    const char *message;  // "" for a store that stays clean
  };
  const Case cases[] = {
      {0, "82-byte ACL_RW_1 value", [](Json &d) {
         Json &v = find(d, "ACL_RW_1")["value"];
         v["form"] = "rw_acl";
         v.erase("size");
         v.erase("unused");
         v["slot_num"] = 1;
       }, "value is 82 bytes; era 3.2"},
      {0, "line card record", [&](Json &d) { d["records"].push_back(raw("RUNTIME_LC_INFO", "3f0001", "01")); },
       "RUNTIME_LC_INFO record in a 3.2 store"},
      {0, "22-byte flow-thru key", [&](Json &d) { d["records"].push_back(raw("FLOW_THRU_HOST", "36000a0000002000002500000001500601600000000a", "00000000")); },
       "key is 22 bytes; era 3.2 stores FLOW_THRU_HOST keys in 18"},
      {1, "flow-thru value not narrowed", [](Json &d) { find(d, "FLOW_THRU_HOST")["value"]["value"] = 7; },
       "narrowed records have value 0"},
      {1, "37-byte ELS value cut", [&](Json &d) { d["records"].push_back(raw("ACL_ELS_1", "3a0001", "00")); },
       "value is 1 bytes; era 4.1 stores ACL_ELS_1 values in 37"},
      {2, "both flags on an ISL", [](Json &d) { find(d, "ACL_RW_1")["value"]["acl_flags"] = "ISL|PHYSICAL|VIRTUAL"; },
       "carries both PHYSICAL and VIRTUAL"},
      {2, "both flags under ACL_RW_2", [](Json &d) { find(d, "ACL_RW_2")["value"]["acl_flags"] = "ISL|PHYSICAL|VIRTUAL"; }, ""},
      {2, "stale slot", [](Json &d) { find(d, "ACL_RW_1")["value"]["slot_num"] = 200; }, "slot_num 200 but if_index"},
      {2, "stale ELS slot", [](Json &d) { find(d, "ACL_ELS_1")["value"]["slot_num"] = 200; }, "slot_num 200 but if_index"},
      {2, "DROP_ALL kept", [](Json &d) {
         Json &v = find(d, "ACL_RW_1")["value"];
         v["acl_flags"] = "DROP_ALL";
         v["dst_sid_wwn"] = "2f:ff:00:0d:ec:00:00:99";
       }, "DROP_ALL with a non-zero dst_sid_wwn"},
      {2, "FO kept", [](Json &d) { find(d, "ACL_RW_3")["value"]["acl_flags"] = "PGM_BUSY|FO"; }, "PGM_BUSY with FO"},
      {2, "VW kept", [](Json &d) { find(d, "ACL_RW_2")["value"]["acl_flags"] = "VIRTUAL|VW"; }, "VW with VIRTUAL or PGM_BUSY"},
      {2, "vsan kept", [](Json &d) { find(d, "FLOW_THRU_HOST")["key"]["vsan"] = 20; }, "vsan 20 in a flow-thru key"},
  };
  for (int b = 0; b < 3; ++b) {
    ASSERT_EQ(load(bases[b], dir_ / ("clean" + std::to_string(b) + ".mdb")).status, 0);
    std::vector<std::string> args = {"verify"};
    args.insert(args.end(), era_args[b].begin(), era_args[b].end());
    args.push_back(dir_ / ("clean" + std::to_string(b) + ".mdb"));
    auto v = run_tool(args);
    EXPECT_EQ(v.status, 0) << b << "\n" << v.out << v.err;
  }
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    Json doc = bases[c.base];
    c.mutate(doc);
    std::string broken = store("broken");
    std::filesystem::remove(broken);
    ASSERT_EQ(load(doc, broken).status, 0);
    std::vector<std::string> args = {"verify"};
    args.insert(args.end(), era_args[c.base].begin(), era_args[c.base].end());
    args.push_back(broken);
    auto v = run_tool(args);
    if (!*c.message) {
      EXPECT_EQ(v.status, 0) << v.out;
      continue;
    }
    EXPECT_EQ(v.status, 1) << v.out << v.err;
    // One violation, on the line of the broken record: its key (as diff names it) first.
    auto d = Json::parse(run_tool({"diff", "--json", dir_ / ("clean" + std::to_string(c.base) + ".mdb"), broken}).out);
    std::string key = !d["changed"].empty() ? d["changed"][0]["key"].get<std::string>()
                      : d["added"][0]["key"].contains("hex") ? d["added"][0]["key"]["hex"].get<std::string>() : "";
    std::string first = v.out.substr(0, v.out.find('\n'));
    EXPECT_NE(first.find(c.message), std::string::npos) << v.out;
    if (!key.empty()) {
      EXPECT_EQ(first.rfind(key, 0), 0u) << key << "\n" << v.out;
    }
    EXPECT_NE(v.out.find("1 violation in 1 record"), std::string::npos) << v.out;
  }
}

// A fixture written by hand, read from stdin; slots as the interface map
// gives them, PLAT_PORTMAP_TABLE included.
TEST_F(ToolTest, HandWrittenFixtureAndTheInterfaceMap) {
  testsupport::write_file(dir_ / "fixture.json", R"({"records": [
    {"type": "ACL_RW_1",
     "key": {"form": "rw_acl", "sub_type": 0, "acl_hash_key_lower": "0x2a"},
     "value": {"form": "rw_acl", "tgt_pwwn": "50:06:01:60:3b:a0:11:22", "acl_flags": "ISL|PHYSICAL",
               "src_sid_wwn": "20:00:00:25:b5:01:00:01", "src_did_wwn": "50:06:01:60:3b:a0:11:22",
               "dst_sid_wwn": "00:00:00:00:00:00:00:00", "dst_did_wwn": "2f:ff:00:0d:ec:00:00:01",
               "if_index": "fc2/1",
               "rw_key": {"vsan": 10, "sid": "0x0a0100", "did": "0x0b0200", "num_luns": 0},
               "rw_info": {"vsan": 1010, "sid": "0x0a0100", "did": "0x0b0200", "up": 1, "up_valid": 1,
                           "num_prog_if_MSB": 0, "num_del_if_MSB": 0, "flags": "0x0"},
               "slot_num": 9}},
    {"type": 97, "key": {"form": "raw", "hex": "6101"}, "value": {"form": "raw", "hex": "00ff"}}]})");
  auto l = run_tool({"load", "-", store("f")}, dir_ / "fixture.json");
  ASSERT_EQ(l.status, 0) << l.err;
  auto t = run_tool({"dump", "--all", store("f")});
  for (const char *text : {"acl_hash_key_lower=0x000000000000002a", "acl_flags=ISL|PHYSICAL", "if_index=fc2/1",
                           "rw_info.vsan=1010", "rw_key.sid=0x0a0100", "slot_num=9", "97                  2    2  key=6101 value=00ff"})
    EXPECT_NE(t.out.find(text), std::string::npos) << text << "\n" << t.out;
  auto v = run_tool({"verify", "--era", "4.2", "--after-upgrade", store("f")});
  EXPECT_EQ(v.status, 1);
  EXPECT_NE(v.out.find("37002a00000000000000 ACL_RW_1: slot_num 9 but if_index fc2/1 lies in slot 2"), std::string::npos)
      << v.out;
  testsupport::write_file(dir_ / "portmap", "fc2/1 9\n");
  testsupport::ScopedEnv table("PLAT_PORTMAP_TABLE", (dir_ / "portmap").c_str());
  v = run_tool({"verify", "--era", "4.2", "--after-upgrade", store("f")});
  EXPECT_EQ(v.status, 0) << v.out;
}

// ---- arguments, help and store forms ----

TEST_F(ToolTest, BadArgumentsGiveOneLineAndStatus2) {
  gen("3.2", 10, 1, store("a"));
  testsupport::write_file(dir_ / "junk.mdb", "not a store");
  struct Case {
    std::vector<std::string> args;
    const char *message;
  };
  const Case cases[] = {
      {{}, "A subcommand is required"},
      {{"frobnicate"}, "unknown command 'frobnicate'"},
      {{"dump"}, "store is required"},
      {{"gen", "--era", "5.0", "--records", "3", store("x")}, "--era: 5.0 not in"},
      {{"gen", "--era", "3.2", "--records", "3", dir_ / "nodir/x.mdb"}, "does not exist; create it first"},
      {{"gen", "--era", "3.2", "--records", "3", store("a")}, "exists; pass --force"},
      {{"verify", "--era", "3.2", "--after-upgrade", store("a")}, "use --era 4.2"},
      {{"dump", dir_ / "notes.txt"}, "is no store"},
      {{"dump", store("missing")}, "no such store"},
      {{"dump", store("junk")}, "not a store"},
      {{"dump", "nonvolatile:nodir"}, "is not a store URL"},
  };
  for (const Case &c : cases) {
    auto r = run_tool(c.args);
    SCOPED_TRACE(r.err);
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find(c.message), std::string::npos);
    EXPECT_EQ(lines(r.err), 1u);
  }
}

TEST_F(ToolTest, EveryCommandHasHelpWithAnExample) {
  auto top = run_tool({"--help"});
  EXPECT_EQ(top.status, 0);
  EXPECT_NE(top.out.find("Exit status"), std::string::npos);
  for (const char *cmd : {"dump", "load", "diff", "gen", "verify"}) {
    auto r = run_tool({cmd, "--help"});
    EXPECT_EQ(r.status, 0) << cmd;
    EXPECT_NE(r.out.find(std::string("wayshunt-convert ") + cmd + " "), std::string::npos) << r.out;
  }
}

TEST_F(ToolTest, StoreIsNamedByUrlFileOrFolder) {
  gen("4.2", 25, 1, dir_.path());
  Json by_url = dump("nonvolatile:" + dir_.path() + "/wayshunt_runtime_ha");
  EXPECT_EQ(by_url["records"].size(), 25u);
  EXPECT_EQ(dump(dir_ / "wayshunt_runtime_ha.mdb"), by_url);
  EXPECT_EQ(dump(dir_.path() + "/"), by_url);
  testsupport::ScopedEnv root("PLAT_KVS_ROOT", dir_.path().c_str());
  EXPECT_EQ(dump("nonvolatile:/wayshunt_runtime_ha"), by_url);
  EXPECT_EQ(dump(dir_.path()), by_url);
}

TEST_F(ToolTest, DumpTableDecodesFields) {
  gen("3.2", 200, 1, store("a"));
  auto r = run_tool({"dump", store("a")});
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char *text : {"FLOW_THRU_HOST     18    4", "ACL_RW_1           10   84", "ACL_RW_2           10   82",
                           "ACL_ELS_1          10   37", "acl_flags=ISL|", "if_index=fc", "if_index=port-channel",
                           "tgt_pwwn=50:", "200 records: "})
    EXPECT_NE(r.out.find(text), std::string::npos) << text;
}

}  // namespace
