// wayshunt-convert run, service and demo, run as a user runs them: release
// moves on device images, the running service played beside them, and the
// image left alone by a dry run. The stores are checked with the tool's own
// 'verify', which tells the eras' forms apart.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <map>
#include <memory>

#include "devroot.h"
#include "test_support.h"
#include "tool_run.h"

namespace {

namespace fs = std::filesystem;
using testsupport::read_file;
using testsupport::ScopedEnv;
using testsupport::TempDir;
using tooltest::has;
using tooltest::run_tool;
using Args = std::vector<std::string>;

// The running service's twelve files.
std::vector<std::string> service_files() {
  std::vector<std::string> out;
  for (const char *s : {"oper_cfg", "target_config", "pending_del_config", "tgt_cfg_v2"})
    for (const char *x : {".dat", ".kvs", ".map"}) out.push_back(std::string("wayshunt_") + s + x);
  return out;
}

// Every entry below dir: folders as "", files with their bytes.
std::map<std::string, std::string> tree(const std::string &dir) {
  std::map<std::string, std::string> t;
  for (const auto &e : fs::recursive_directory_iterator(dir))
    t[e.path().lexically_relative(dir).string()] = e.is_regular_file() ? read_file(e.path().string()) : "";
  return t;
}

class RunTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why;
    if (!devroot::available(&why)) GTEST_SKIP() << "no private device root here: " << why;
  }

  ScopedEnv no_root_{"PLAT_KVS_ROOT", nullptr}, no_faults_{"PLAT_FAULTS", nullptr}, no_journal_{"PLAT_JOURNAL", nullptr};
  TempDir dir_;
  std::string img_ = dir_ / "img";
  std::string kvs_ = img_ + "/mnt/kvs";

  // An image with a generated store of the era and the service's files.
  void make_image(const std::string &era) {
    fs::create_directories(kvs_);
    auto r = run_tool({"gen", "--era", era, "--records", "300", kvs_ + "/wayshunt_runtime_ha.mdb"});
    ASSERT_EQ(r.status, 0) << r.err;
    for (const auto &f : service_files()) testsupport::write_file(kvs_ + "/" + f, "contents of " + f);
  }
  // 'verify' of the image's store against an era (and what a move leaves).
  int verify(const std::string &era, const std::string &after = "") {
    Args args = {"verify", "--era", era, kvs_};
    if (!after.empty()) args.insert(args.begin() + 1, after);
    return run_tool(args).status;
  }
  // How many of the service's files reached the standby unchanged.
  size_t on_standby() {
    size_t n = 0;
    for (const auto &f : service_files()) n += read_file(img_ + "/standby/mnt/kvs/" + f) == "contents of " + f;
    return n;
  }
};

// ---- moves: the entry points called, the store converted ----

struct Move {
  const char *name, *era, *from, *to, *step;
  std::vector<std::string> calls, not_called;  // entry points' calls, as printed
  const char *verify_era, *verify_after;  // the store afterwards
};

void PrintTo(const Move &m, std::ostream *os) { *os << m.name; }

class MoveTest : public RunTest, public ::testing::WithParamInterface<Move> {};
const std::vector<std::string> kAllSteps = {"convert_running(", "convert_startup(", "convert_gsync("};

TEST_P(MoveTest, CallsTheEntryPointsAndConvertsTheStore) {
  const Move &m = GetParam();
  make_image(m.era);
  if (*m.verify_after) {
    ASSERT_NE(verify(m.verify_era, m.verify_after), 0) << "the store already looks converted";
  }
  auto r = run_tool({"run", "--from", m.from, "--to", m.to, "--image", img_, "--step", m.step});
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  size_t last = 0;  // the calls come in the upgrade manager's order
  for (const auto &c : m.calls) {
    size_t at = r.out.find(c);
    EXPECT_TRUE(at != std::string::npos && at >= last) << c << "\n" << r.out;
    last = at == std::string::npos ? last : at;
  }
  for (const auto &c : m.not_called) EXPECT_FALSE(has(r.out, c)) << c << "\n" << r.out;
  EXPECT_TRUE(has(r.out, ") = 0x00000000 (success)")) << r.out;
  EXPECT_FALSE(has(r.out, "conversion log")) << "a good move with the gate shut writes no log\n" << r.out;
  EXPECT_EQ(verify(m.verify_era, m.verify_after), 0);
  EXPECT_EQ(on_standby(), 0u) << "only a move below 3.2 copies to the standby";
}

INSTANTIATE_TEST_SUITE_P(
    Moves, MoveTest,
    ::testing::Values(
        Move{"UpFrom32", "3.2", "3.2(1)", "4.2(1a)", "all", kAllSteps, {}, "4.2", "--after-upgrade"},
        Move{"DownTo32", "4.2", "4.2(1)", "3.2(1)", "all", kAllSteps, {}, "3.2", "--after-downgrade"},
        Move{"GsyncAlone", "4.2", "4.2(1)", "4.1(3)", "gsync", {"convert_gsync("}, {"convert_running(", "convert_startup("},
             "4.1", "--after-downgrade"},
        Move{"FsUpgAlone", "4.1", "4.1(3)", "4.2(1)", "fs_upg", {"convert_running_fs_upg("}, {"convert_gsync("}, "4.2",
             "--after-upgrade"},
        // Running alone leaves the store as it was.
        Move{"RunningAlone", "3.2", "3.2(1)", "4.2(1)", "running",
             {"convert_running(\"wayshunt\", \"3.2(1)\", \"4.2(1)\") = 0x00000000 (success)"}, {"convert_gsync("}, "3.2", ""}),
    [](const auto &info) { return std::string(info.param.name); });

// ---- failures: a non-zero status stops the move, exit 1 ----

TEST_F(RunTest, AFailedStepIsReportedAndStopsTheMove) {
  const struct {
    const char *faults, *from, *to, *failed, *status, *log;
  } cases[] = {
      {"hub_bind", "4.2(1)", "3.1(1)", "convert_startup", "0x00000010", "HUB BIND Error"},
      {"kvs_open", "3.2(1)", "4.2(1)", "convert_gsync", "0x40000001 (platform: injected fault)", "upgrade from 3.2 Failed"},
  };
  make_image("3.2");
  for (const auto &c : cases) {
    ScopedEnv faults("PLAT_FAULTS", c.faults);
    auto r = run_tool({"run", "--from", c.from, "--to", c.to, "--image", img_});
    EXPECT_EQ(r.status, 1) << c.faults << r.err;
    EXPECT_TRUE(has(r.out, std::string(c.failed) + "(") && has(r.out, ") = " + std::string(c.status))) << r.out;
    EXPECT_TRUE(has(r.out, c.log)) << "the log part of this run is shown\n" << r.out;
    EXPECT_EQ(has(r.out, "convert_gsync("), std::string(c.failed) == "convert_gsync") << r.out;
  }
  EXPECT_EQ(verify("3.2"), 0) << "no step converted the store";
}

// ---- trace build: the log is written and shown ----

TEST_F(RunTest, TraceShowsTheLogOfThisRun) {
  make_image("4.2");
  for (int round = 0; round < 2; ++round) {
    auto r = run_tool({"run", "--from", "4.2(1)", "--to", "4.1(1)", "--image", img_, "--step", "gsync", "--trace"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(has(r.out, "gate-open/libconvertwayshunt.so") && has(r.out, "convert_gsync invoked")) << r.out;
    // Only this run's part: the second run does not show the first one's opening.
    EXPECT_TRUE(has(r.out, "file opened") && r.out.find("file opened") == r.out.rfind("file opened")) << r.out;
  }
  EXPECT_TRUE(has(read_file(img_ + "/bootflash/wayshunt_cnv.log"), "convert_gsync invoked"));
}

// ---- a move below 3.2: decommission request and standby copy ----

TEST_F(RunTest, MoveBelow32AsksTheServiceAndCopiesToTheStandby) {
  const struct {
    Args service;     // the service's options; none runs when empty
    const char *log;  // what the run's log shows ("" for nothing)
  } cases[] = {{{"--image"}, ""}, {{"--no-reply", "--image"}, "Error in Receiving hub msg"}, {{}, "Error in Sending HUB Message"}};
  ScopedEnv wait("PLAT_HUB_WAIT_MS", "300");
  make_image("4.2");
  for (const auto &c : cases) {
    SCOPED_TRACE(c.log);
    fs::remove_all(img_ + "/standby");
    fs::remove(img_ + "/service-requests.txt");
    std::unique_ptr<testsupport::Child> service;
    if (!c.service.empty()) {
      std::string ready = dir_ / "ready";
      fs::remove(ready);
      Args argv = {testsupport::bin_dir() + "/wayshunt-convert", "service", "--ready", ready};
      argv.insert(argv.end(), c.service.begin(), c.service.end());
      argv.push_back(img_);
      service = std::make_unique<testsupport::Child>(argv);
      ASSERT_TRUE(testsupport::wait_for_path(ready, 10000));
    }
    auto r = run_tool({"run", "--from", "4.2(1)", "--to", "3.1(1)", "--image", img_, "--step", "startup"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(has(r.out, "convert_startup(\"/mnt/kvs\", \"wayshunt\", \"3.1(1)\", \"4.2(1)\") = 0x00000000")) << r.out;
    EXPECT_EQ(has(r.out, "conversion log"), *c.log != '\0') << r.out;
    EXPECT_TRUE(has(r.out, c.log)) << r.out;
    EXPECT_EQ(on_standby(), 12u) << r.out;
    if (service) {
      std::string requests = read_file(img_ + "/service-requests.txt");
      EXPECT_TRUE(has(requests, "opcode=4204") && has(requests, "len=128 data=44000000")) << requests;
      EXPECT_EQ(WEXITSTATUS(service->stop()), 0);
    }
  }
  EXPECT_EQ(verify("4.2"), 0) << "startup does not touch the store";
}

// ---- dry run: the image stays byte for byte ----

TEST_F(RunTest, DryRunPrintsTheChangesAndLeavesTheImage) {
  make_image("4.2");
  fs::create_directories(dir_ / "tmp");
  ScopedEnv tmp("TMPDIR", (dir_ / "tmp").c_str());
  auto before = tree(img_);
  auto r = run_tool({"run", "--from", "4.2(1)", "--to", "3.1(1)", "--image", img_, "--dry-run"});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_TRUE(has(r.out, "changed,")) << "the store's diff is printed\n" << r.out;
  EXPECT_TRUE(has(r.out, "+ mnt/kvs/wayshunt_tgt_cfg_v2.map")) << "the standby's changes are printed\n" << r.out;
  EXPECT_TRUE(tree(img_) == before) << "the image changed";
  EXPECT_TRUE(fs::is_empty(dir_ / "tmp")) << "the copy was left behind";
}

// ---- setup errors: one line on stderr, exit 2 ----

TEST_F(RunTest, SetupErrorsGiveOneLineAndStatus2) {
  make_image("3.2");
  fs::create_directories(dir_ / "empty");
  fs::create_directories(dir_ / "full");
  testsupport::write_file(dir_ / "full/x", "x");
  auto run = [](std::string image, Args more, std::string from = "3.2(1)") {
    Args args = {"run", "--from", from, "--to", "4.2(1)", "--image", image};
    args.insert(args.end(), more.begin(), more.end());
    return args;
  };
  const std::pair<Args, const char *> cases[] = {
      {run(dir_ / "empty", {}), "holds no runtime store"},
      {run(dir_ / "missing", {}), "does not exist"},
      {run(img_, {}, "3.2"), "--from '3.2' is no release version"},
      {run(img_, {"--library", dir_ / "none.so"}), "cannot load the conversion library"},
      {run(img_, {"--trace", "--library", "x.so"}), "excludes"},
      {run(img_, {"--step", "later"}), "later not in"},
      {{"service", "--image", dir_ / "missing"}, "does not exist"},
      {{"demo", "--dir", dir_ / "full"}, "is not empty"},
  };
  for (const auto &[args, message] : cases) tooltest::expect_refused(run_tool(args), message);
  EXPECT_EQ(verify("3.2"), 0);
}

// ---- demo: runs to the end ----

TEST_F(RunTest, DemoRunsToTheEnd) {
  std::string dir = dir_ / "demo";
  auto r = run_tool({"demo", "--dir", dir, "--records", "60"});
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  for (const std::string &text : Args{"msg_type 68 (clear decommission), force_mode 1, 0 other non-zero bytes",
                           "12 of 12 service files identical", "the image is kept in " + dir})
    EXPECT_TRUE(has(r.out, text)) << text << "\n" << r.out;
  kvs_ = dir + "/mnt/kvs";
  EXPECT_EQ(verify("4.1", "--after-downgrade"), 0);
}

}  // namespace
