// The tool's reports checked against what the library did, on generated
// stores of every era and every move of the ladder, with and without fault
// rules: the forecast must equal the real move's change, record for record,
// and the audit's findings must equal the difference between the faulted
// move and a clean one. Every store is compared through the tool's own
// 'diff', run as a separate process on the stores the moves left.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cctype>
#include <cstdio>
#include <sstream>
#include <sys/wait.h>

#include <csignal>

#include <filesystem>
#include <memory>
#include <set>

#include "test_support.h"
#include "tool_run.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

struct Move {
  const char *era, *from, *to;
  bool loses;  // the forms the move enters keep less than those it leaves
};

const Move kMoves[] = {{"3.2", "3.2(1)", "4.2(1)", false}, {"3.2", "3.2(1)", "4.1(3)", false},
                       {"4.1", "4.1(3)", "4.2(1)", false}, {"4.2", "4.2(1)", "4.1(3)", true},
                       {"4.2", "4.2(1)", "3.2(1)", true},  {"4.1", "4.1(3)", "3.2(1)", true}};
const char *const kFaults[] = {"", "kvs_store:5", "portmap_get_slot:2-9", "kvs_delete:3", "kvs_getvalue:4=null"};

Json tool_json(const std::vector<std::string> &args, int want_status = -1) {
  tooltest::Run r = tooltest::run_tool(args);
  if (want_status >= 0) {
    EXPECT_EQ(r.status, want_status) << r.err;
  }
  Json j = Json::parse(r.out, nullptr, false);
  EXPECT_FALSE(j.is_discarded()) << r.out << r.err;
  return j;
}

std::string image(const std::string &img, const Move &m, int seed) {
  tooltest::run_tool({"gen", "--era", m.era, "--records", std::to_string(150 + 70 * seed), "--seed",
                      std::to_string(seed), img + "/mnt/kvs"});
  return img;
}

// The hex of an RW key as the tool names it: type, sub-type, then the hash
// number's bytes, lowest first.
std::string key_hex(const Json &record) {
  char hex[8];
  std::snprintf(hex, sizeof hex, "%02x%02x", record["type"] == "ACL_RW_1" ? 0x37 : 0, record["key"]["sub_type"].get<int>());
  std::string out = hex;
  for (uint64_t v = std::stoull(record["key"]["acl_hash_key_lower"].get<std::string>(), nullptr, 16), i = 0; i < 8; ++i, v >>= 8) {
    std::snprintf(hex, sizeof hex, "%02x", static_cast<unsigned>(v & 0xff));
    out += hex;
  }
  return out;
}

// The keys of the records in which two stores differ, as 'diff' prints
// them: "- TYPE key ...", "+ TYPE key ...", "~ TYPE key".
std::set<std::string> differing_keys(const std::string &a, const std::string &b) {
  std::istringstream lines(tooltest::run_tool({"diff", "--color", "never", a, b}).out);
  std::set<std::string> keys;
  for (std::string line; std::getline(lines, line);)
    if (line.size() > 2 && std::string("-+~").find(line[0]) != std::string::npos && line[1] == ' ') {
      std::istringstream words(line.substr(2));
      std::string type, key;
      words >> type >> key;
      keys.insert(key);
    }
  return keys;
}

class Observed : public ::testing::TestWithParam<std::tuple<Move, const char *, int>> {
 protected:
  testsupport::TempDir dir_;
  testsupport::ScopedEnv tmp_{"TMPDIR", dir_.path().c_str()}, no_faults_{"PLAT_FAULTS", nullptr};
};

TEST_P(Observed, ForecastIsTheMoveAndAuditIsTheDamage) {
  auto [m, fault, seed] = GetParam();
  std::string img = image(dir_ / "img", m, seed), clean = image(dir_ / "clean", m, seed);
  fs::copy_file(img + "/mnt/kvs/wayshunt_runtime_ha.mdb", dir_ / "before.mdb");
  std::vector<std::string> args = {"run", "--json", "--from", m.from, "--to", m.to, "--image", img};
  if (*fault) args.insert(args.end(), {"--fault", fault});
  Json run = tool_json(args);

  Json moved = tool_json({"diff", "--classify", "--json", dir_ / "before.mdb", img + "/mnt/kvs"});
  EXPECT_EQ(run["forecast"]["items"], moved["items"]) << "the forecast differs from what the move did";
  if (!*fault) {
    EXPECT_EQ(run["forecast"]["loses"].get<bool>(), m.loses) << run["forecast"]["summary"];
  }

  tool_json({"run", "--json", "--no-audit", "--from", m.from, "--to", m.to, "--image", clean}, 0);
  std::set<std::string> damaged = differing_keys(clean + "/mnt/kvs", img + "/mnt/kvs"), found;
  for (const Json &f : run["audit"]["findings"])
    if (f["kind"] != "invariant" && f["kind"] != "standby") found.insert(f["key"]);
  EXPECT_EQ(found, damaged) << "the audit's findings differ from the faulted move against a clean one";
  EXPECT_EQ(run["audit"]["clean"].get<bool>(), damaged.empty());
}

std::string case_name(const ::testing::TestParamInfo<Observed::ParamType> &info) {
  auto [m, fault, seed] = info.param;
  std::string name = std::string(m.from) + "_" + m.to + "_" + (*fault ? fault : "clean") + "_" + std::to_string(seed);
  for (char &c : name)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  return name;
}

INSTANTIATE_TEST_SUITE_P(Ladder, Observed,
                         ::testing::Combine(::testing::ValuesIn(kMoves), ::testing::ValuesIn(kFaults), ::testing::Values(1, 2)),
                         case_name);

// Bytes that belong to no field of the 3.2 RW value and are not zero are the
// only loss of a move up from 3.2: exactly those records are named lost.
TEST(ObservedLoss, NonZeroUnusedBytesAreLostAndNamed) {
  testsupport::TempDir dir;
  testsupport::ScopedEnv tmp("TMPDIR", dir.path().c_str());
  std::string img = image(dir / "img", kMoves[0], 1);
  Json store = tool_json({"dump", "--json", img + "/mnt/kvs"});
  std::set<std::string> edited;
  for (Json &r : store["records"])
    if (r["value"].value("form", "") == "rw_acl_32" && edited.size() < 3) {
      r["value"]["unused"] = "11abcd";
      edited.insert(key_hex(r));
    }
  testsupport::write_file(dir / "store.json", store.dump());
  ASSERT_EQ(tooltest::run_tool({"load", "--force", dir / "store.json", img + "/mnt/kvs"}).status, 0);
  Json run = tool_json({"run", "--dry-run", "--json", "--from", "3.2(1)", "--to", "4.2(1)", "--image", img}, 0);
  std::set<std::string> lost;
  for (const Json &i : run["forecast"]["items"])
    if (i["class"] == "lost") lost.insert(i["key"].get<std::string>() + " " + i["field"].get<std::string>());
  std::set<std::string> want;
  for (const std::string &k : edited) want.insert(k + " value.unused");
  EXPECT_EQ(lost, want) << run["forecast"]["summary"];
}

// A slot that was known and that a failed lookup turns into 255 is lost; a
// slot that was 0 (never filled in) and turns into 255 is not.
TEST(ObservedLoss, KnownSlotsTurnedTo255AreLost) {
  testsupport::TempDir dir;
  testsupport::ScopedEnv tmp("TMPDIR", dir.path().c_str());
  std::string img = image(dir / "img", kMoves[2], 1);
  Json run = tool_json({"run", "--dry-run", "--json", "--from", "4.1(3)", "--to", "4.2(1)", "--image", img, "--fault",
                        "portmap_get_slot:1-40"}, 0);
  size_t lost = 0;
  for (const Json &i : run["forecast"]["items"]) {
    if (i["field"] != "value.slot_num" || i["after"] != "255") continue;
    bool known = i["before"] != "0" && i["before"] != "255";
    EXPECT_EQ(i["class"], known ? "lost" : "repaired") << i.dump();
    lost += known;
  }
  EXPECT_GT(lost, 0u) << "no known slot met a failed lookup: the case tests nothing";
  EXPECT_TRUE(run["forecast"]["loses"].get<bool>());
}

// Four runs of one move on one image at once, twenty times over: each run
// completes or is refused naming the lock's holder, none fails with a
// conversion status, and the store ends as one run leaves it.
TEST(ObservedLock, RunsOnOneImageTakeTurns) {
  testsupport::TempDir dir;
  testsupport::ScopedEnv tmp("TMPDIR", dir.path().c_str());
  const Move &m = kMoves[3];
  std::string ref = image(dir / "ref", m, 1);
  ASSERT_EQ(tooltest::run_tool({"run", "--no-audit", "--from", m.from, "--to", m.to, "--image", ref}).status, 0);
  size_t refused = 0;
  for (int round = 0; round < 20; ++round) {
    std::string img = image(dir / ("img" + std::to_string(round)), m, 1);
    std::vector<std::unique_ptr<testsupport::Child>> runs;
    for (int i = 0; i < 4; ++i)  // --force: the later ones find the store moved already
      runs.push_back(std::make_unique<testsupport::Child>(
          std::vector<std::string>{testsupport::bin_dir() + "/wayshunt-convert", "run", "--force", "--from", m.from,
                                   "--to", m.to, "--image", img},
          img + "/out" + std::to_string(i)));
    for (int i = 0; i < 4; ++i) {
      int status = runs[i]->wait(60000);
      std::string out = testsupport::read_file(img + "/out" + std::to_string(i));
      ASSERT_TRUE(WIFEXITED(status)) << out;
      int rc = WEXITSTATUS(status);
      EXPECT_TRUE(rc == 0 || (rc == 2 && out.find(" is in use by process ") != std::string::npos)) << rc << ": " << out;
      refused += rc == 2;
    }
    EXPECT_EQ(tooltest::run_tool({"diff", "--quiet", ref + "/mnt/kvs", img + "/mnt/kvs"}).status, 0) << "round " << round;
  }
  EXPECT_GT(refused, 0u) << "no run ever met another: the test tests nothing";
}

// A move cut short by a signal names the entry point and the rung that ran,
// as the conversion's own stack showed them. The store keeps a rung's work
// only once the rung closes it, so a rung cut short leaves the store as the
// rung found it; the same move run again leaves the store an uninterrupted
// move leaves.
struct Stop {
  int move;            // into kMoves
  const char *rule;    // raises the signal at a call of the platform
  int signal;
  const char *rung;    // named in the report
  bool cut_changed;    // an earlier rung had ended before the signal
};
const Stop kStops[] = {
    {4, "kvs_open:1=SIGINT", SIGINT, "wayshunt_cnv_config_downgrade_to_413_or_lower, the rung down to the forms of 4.1.3", false},
    {4, "kvs_open:2=SIGTERM", SIGTERM, "wayshunt_cnv_config_downgrade_to_3_2, the rung down to the forms of 3.2", true},
    {4, "kvs_delete:3=SIGTERM", SIGTERM, "wayshunt_cnv_config_downgrade_to_413_or_lower, the rung down", false},
    {0, "kvs_open:2=SIGINT", SIGINT, "wayshunt_cnv_config_upgrade_from_413_or_lower, the rung up from the forms of 4.1.3", true},
    {0, "kvs_store:2=SIGINT", SIGINT, "wayshunt_cnv_config_upgrade_from_32, the rung up from the forms of 3.2", false},
    {2, "kvs_getvalue:7=SIGTERM", SIGTERM, "wayshunt_cnv_config_upgrade_from_413_or_lower, the rung up", false},
};

TEST(ObservedStop, InterruptionNamesTheRungAndARerunFinishes) {
  testsupport::TempDir dir;
  testsupport::ScopedEnv tmp("TMPDIR", dir.path().c_str());
  int n = 0;
  for (const Stop &c : kStops) {
    const Move &m = kMoves[c.move];
    std::string at = std::to_string(n++);
    std::string img = image(dir / ("img" + at), m, 2), ref = image(dir / ("ref" + at), m, 2);
    auto run = [&](const std::string &image, std::vector<std::string> more) {
      std::vector<std::string> a = {"run", "--from", m.from, "--to", m.to, "--image", image};
      a.insert(a.end(), more.begin(), more.end());
      return tooltest::run_tool(a);
    };
    tooltest::Run cut = run(img, {"--fault", c.rule});
    SCOPED_TRACE(std::string(m.from) + " -> " + m.to + " " + c.rule + "\n" + cut.out + cut.err);
    EXPECT_EQ(cut.status, 128 + c.signal);
    EXPECT_NE(cut.out.find(std::string("during convert_gsync, in ") + c.rung), std::string::npos);
    EXPECT_NE(cut.out.find("run the same move again to finish it"), std::string::npos);
    EXPECT_NE(tooltest::run_tool({"info", img + "/mnt/kvs"}).out.find("that stopped before its end"), std::string::npos);
    EXPECT_EQ(tooltest::run_tool({"diff", "--quiet", img + "/mnt/kvs", ref + "/mnt/kvs"}).status, c.cut_changed ? 1 : 0);
    EXPECT_EQ(run(img, {"--no-audit"}).status, 0);
    EXPECT_EQ(run(ref, {"--no-audit"}).status, 0);
    EXPECT_EQ(tooltest::run_tool({"diff", "--quiet", img + "/mnt/kvs", ref + "/mnt/kvs"}).status, 0);
  }
}

// A store replaced by 'gen --force' keeps the mode of the one it replaces.
TEST(ObservedWrite, ReplacedStoreKeepsItsMode) {
  testsupport::TempDir dir;
  std::string store = dir / "s/wayshunt_runtime_ha.mdb";
  ASSERT_EQ(tooltest::run_tool({"gen", "--era", "4.2", "--records", "5", dir / "s"}).status, 0);
  fs::permissions(store, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  ASSERT_EQ(tooltest::run_tool({"gen", "--force", "--era", "3.2", "--records", "7", dir / "s"}).status, 0);
  EXPECT_EQ(fs::status(store).permissions(), fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
}

}  // namespace
