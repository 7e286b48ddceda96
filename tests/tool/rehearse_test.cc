// 'rehearse' on a generated fleet, checked against what its parts report on
// their own: every output agrees with the others (JSON, JUnit validated by
// xmllint, the page as Chromium renders it), a faulted cell fails exactly as
// 'run' of the same move on a copy does, shards merged equal one run, and
// Ctrl-C keeps what finished and leaves no copy behind.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

#include "browser_page.h"
#include "test_support.h"
#include "tool_run.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using testsupport::TempDir;

size_t count(const std::string &text, const std::string &needle) {
  size_t n = 0;
  for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
  return n;
}

Json json_of(const std::string &path) { return Json::parse(testsupport::read_file(path)); }

// Three images, one of each era: long chains (3.2), one big group (4.1),
// off-layout keys (4.2, a store of no one era).
std::string fleet(const TempDir &dir, const std::string &records = "300..600") {
  std::string f = dir / "fleet";
  tooltest::Run r = tooltest::run_tool(
      {"gen", "--fleet", f, "--images", "3", "--records", records, "--eras", "3.2,4.1,4.2", "--seed", "3"});
  EXPECT_EQ(r.status, 0) << r.err;
  return f;
}

void expect_valid_junit(const std::string &path) {
  std::string cmd = "xmllint --noout --schema " + std::string(TOOL_TEST_DIR) + "/junit.xsd " + path + " 2>/dev/null";
  EXPECT_EQ(std::system(cmd.c_str()), 0) << path << " does not validate";
}

// The JSON without what differs from one run to the next: times and how
// the run was spread.
Json timeless(Json doc) {
  for (const char *k : {"started", "seconds", "jobs", "shards"}) doc["rehearsal"].erase(k);
  for (Json &c : doc["cells"]) c.erase("seconds");
  return doc;
}

std::set<std::string> damaged_keys(const Json &findings_or_lines) {
  std::set<std::string> keys;
  for (const Json &f : findings_or_lines)
    if (f.is_object()) keys.insert(f["key"].get<std::string>());
    else {
      std::string line = f.get<std::string>();  // "<kind> <type> <key>: ..."
      size_t a = line.find(' '), b = line.find(' ', a + 1), c = line.find(':', b);
      keys.insert(line.substr(b + 1, c - b - 1));
    }
  return keys;
}

// Every file below dir with its bytes.
std::map<std::string, std::string> files_of(const std::string &dir) {
  std::map<std::string, std::string> files;
  for (const auto &e : fs::recursive_directory_iterator(dir))
    if (e.is_regular_file()) files[e.path().string()] = testsupport::read_file(e.path().string());
  return files;
}

TEST(Rehearse, LadderOnAFleetAgreesInEveryOutput) {
  TempDir dir;
  std::string out = dir / "out", f = fleet(dir);
  auto images = files_of(f);
  tooltest::Run r = tooltest::run_tool({"rehearse", "--ladder", "--quiet", "-j", "2", "--out", out, f});
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_TRUE(files_of(f) == images) << "the images changed";
  Json doc = json_of(out + "/rehearsal.json");
  ASSERT_EQ(doc["images"].size(), 3u);
  EXPECT_EQ(doc["cells"].size(), 15u);  // per image: 3 moves and 2 round trips
  size_t trips = 0;
  for (const Json &c : doc["cells"]) {
    SCOPED_TRACE(c["image"].get<std::string>() + " " + c["move"].get<std::string>());
    EXPECT_EQ(c["failure"], "");
    EXPECT_NE(c["outcome"], "failed");
    EXPECT_EQ(c["before"]["records"], doc["images"][c["image"].get<std::string>().back() - '1']["records"]);
    if (!c["round_trip"].get<bool>()) continue;
    ++trips;
    EXPECT_TRUE(c["trip"]["gone_as_forecast"].get<bool>()) << c["trip"].dump();
    size_t gone = 0;
    for (const auto &[type, n] : c["trip"]["by_type"].items()) gone += n["gone"].get<size_t>();
    EXPECT_EQ(gone > 0 || c["counts"]["lost"].get<size_t>() > 0, c["outcome"] == "losses");
  }
  EXPECT_EQ(trips, 6u);
  std::string junit = testsupport::read_file(out + "/junit.xml");
  expect_valid_junit(out + "/junit.xml");
  EXPECT_EQ(count(junit, "<testcase "), doc["cells"].size());
  EXPECT_EQ(count(junit, "<failure "), 0u);

  tooltest::BrowserPage page = tooltest::load_in_browser(out + "/report.html");
  ASSERT_EQ(page.error, "");
  EXPECT_TRUE(page.console.empty()) << page.console.front();
  EXPECT_EQ(count(page.dom, "<td class=\"cell o-"), doc["cells"].size());
  EXPECT_EQ(count(page.dom, "<details "), doc["cells"].size());
  EXPECT_EQ(count(page.dom, "<td class=\"cell na\""), doc["moves"].size() * 3 - doc["cells"].size());  // other eras' moves
  EXPECT_EQ(count(page.dom, "not run"), 0u);
  size_t capped = 0;  // the page lists 20 lost items of a cell, the JSON all
  for (const Json &c : doc["cells"]) capped += c["lost"].size() > 20;
  EXPECT_GT(capped, 0u);
  EXPECT_EQ(count(page.dom, " more in rehearsal.json</p>"), capped);
}

// A fault in every move: each one-way cell fails, or passes, as 'run' of the
// same move with the same rule on a copy of the image, and names the same
// damaged records.
TEST(Rehearse, FaultedCellsFailAsRunDoes) {
  TempDir dir;
  std::string f = fleet(dir), out = dir / "out";
  tooltest::Run r = tooltest::run_tool({"rehearse", "--ladder", "--quiet", "--fault", "kvs_store:100", "--out", out, f + "/img-2"});
  Json doc = json_of(out + "/rehearsal.json");
  std::string junit = testsupport::read_file(out + "/junit.xml");
  expect_valid_junit(out + "/junit.xml");
  size_t failed = 0, compared = 0;
  for (const Json &c : doc["cells"]) {
    failed += c["failure"] != "";
    if (c["round_trip"].get<bool>()) continue;
    SCOPED_TRACE(c["move"].get<std::string>());
    std::string copy = dir / ("copy" + std::to_string(compared++));
    fs::copy(f + "/img-2", copy, fs::copy_options::recursive);
    tooltest::Run alone = tooltest::run_tool({"run", "--from", c["path"][0], "--to", c["path"][1], "--image", copy,
                                              "--fault", "kvs_store:100", "--json"});
    Json moved = Json::parse(alone.out);
    EXPECT_EQ(alone.status == 1, c["failure"] != "") << c["failure"];
    EXPECT_EQ(damaged_keys(moved["audit"]["findings"]), damaged_keys(c["damaged"]));
    for (const std::string &key : damaged_keys(c["damaged"])) EXPECT_NE(count(junit, key), 0u) << key;
  }
  EXPECT_EQ(compared, 3u);
  EXPECT_GT(failed, 0u);
  EXPECT_EQ(count(junit, "<failure "), failed);
  EXPECT_EQ(r.status, 1);
}

TEST(Rehearse, ShardsMergedEqualOneRun) {
  TempDir dir;
  std::string f = fleet(dir);
  std::vector<std::string> common = {"--move", "3.2(1)->4.2(1)", "--move", "4.2(1)->3.2(1)->4.2(1)", "--quiet"};
  auto rehearse = [&](std::vector<std::string> args) {
    args.insert(args.begin(), "rehearse");
    args.insert(args.end(), common.begin(), common.end());
    return tooltest::run_tool(args).status;
  };
  EXPECT_EQ(rehearse({"--out", dir / "one", f}), 1);  // each image meets a move of another era
  EXPECT_EQ(rehearse({"--shard", "1/2", "--out", dir / "a", f}), 1);
  EXPECT_EQ(rehearse({"--shard", "2/2", "--out", dir / "b", f}), 1);
  tooltest::Run m = tooltest::run_tool({"rehearse", "--merge", "--quiet", "--out", dir / "all", dir / "b", dir / "a/rehearsal.json"});
  EXPECT_EQ(m.status, 1) << m.err;
  Json one = json_of(dir / "one/rehearsal.json"), all = json_of(dir / "all/rehearsal.json");
  EXPECT_EQ(all["rehearsal"]["shards"], Json({"1/2", "2/2"}));
  EXPECT_EQ(json_of(dir / "a/rehearsal.json")["images"].size(), 2u);
  EXPECT_TRUE(timeless(all) == timeless(one)) << Json::diff(timeless(one), timeless(all)).dump();
  EXPECT_EQ(count(testsupport::read_file(dir / "all/junit.xml"), "<testcase "), 6u);
  tooltest::Run again = tooltest::run_tool({"rehearse", "--merge", "--out", dir / "twice", dir / "a", dir / "a"});
  EXPECT_EQ(again.status, 2);
  EXPECT_NE(again.err.find("is in two rehearsals"), std::string::npos) << again.err;
}

// SIGINT once the first cell is written: the rehearsal stops, writes the
// report of what finished and removes every copy.
TEST(Rehearse, InterruptionKeepsWhatFinished) {
  TempDir dir, tmp;
  std::string f = fleet(dir, "3000"), out = dir / "out";
  testsupport::ScopedEnv private_tmp("TMPDIR", tmp.path().c_str());
  testsupport::Child tool({testsupport::bin_dir() + "/wayshunt-convert", "rehearse", "--ladder", "--quiet", "-j", "1",
                           "--out", out, f});
  auto finished_cell = [&] {
    for (const auto &e : fs::recursive_directory_iterator(tmp.path(), fs::directory_options::skip_permission_denied))
      if (e.path().string().ends_with(".cell.json")) return true;
    return false;
  };
  for (int i = 0; i < 3000 && !finished_cell(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  int status = tool.stop(SIGINT);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 130);
  Json doc = json_of(out + "/rehearsal.json");
  EXPECT_TRUE(doc["rehearsal"]["interrupted"].get<bool>());
  EXPECT_GE(doc["cells"].size(), 1u);
  EXPECT_LT(doc["cells"].size(), 15u);
  EXPECT_EQ(doc["images"][2]["error"], "not rehearsed: the rehearsal was interrupted");
  expect_valid_junit(out + "/junit.xml");
  EXPECT_TRUE(fs::is_empty(tmp.path())) << "copies left in " << tmp.path();
}

}  // namespace
