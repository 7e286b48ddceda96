// Standby file copy: what lands where, and that every failure leaves
// nothing behind.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "hub_defs.h"
#include "overseer.h"
#include "plat_ctl.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;
using testsupport::ScopedEnv;
using testsupport::TempDir;

class GsyncTest : public ::testing::Test {
 protected:
  GsyncTest() {
    fs::create_directory(root_);
    testsupport::write_file(src_, "source bytes");
    q_ = hub_bind(HUB_Q_KIND_MSG, HUB_SAP_DYNAMIC, nullptr, "gsync");
    EXPECT_GE(q_, 0);
  }
  ~GsyncTest() override { hub_unbind(q_, 0); }

  retcode_t gsync(const char *src, const char *dst, int replace = 1) {
    return overseercmn_file_gsync(q_, 30, SRVUUID_WAYSHUNT, src, dst, replace, 0, 0, 0, 0);
  }

  // Every file (not folder) below base, relative to it.
  static std::set<std::string> files(const std::string &base) {
    std::set<std::string> out;
    for (const auto &e : fs::recursive_directory_iterator(base))
      if (!fs::is_directory(e.symlink_status())) out.insert(e.path().lexically_relative(base).string());
    return out;
  }

  TempDir work_, base_;  // base_ holds the standby root, so escapes would land beside it
  std::string root_ = base_ / "standby", src_ = work_ / "src.dat";
  ScopedEnv hub_{"PLAT_HUB_DIR", work_.path().c_str()};
  ScopedEnv standby_{"PLAT_STANDBY_ROOT", root_.c_str()};
  testsupport::FaultScope faults_;
  hub_q_handle_t q_ = -1;
};

TEST_F(GsyncTest, CopyLandsWholeAtTheMappedPath) {
  struct Row {
    const char *dst, *mapped;
    size_t size;
    int replace;  // no difference while the target is missing
  } rows[] = {
      {"/mnt/kvs/x.dat", "mnt/kvs/x.dat", 300000, 1},  // several read chunks
      {"/top.bin", "top.bin", 0, 1},
      {"//a/./b/../c.dat", "a/c.dat", 10, 0},
  };
  for (const auto &r : rows) {
    std::string bytes(r.size, '\0');
    for (size_t i = 0; i < r.size; ++i) bytes[i] = static_cast<char>(i * 31 + 7);
    testsupport::write_file(src_, bytes);
    fs::remove_all(root_);
    fs::create_directory(root_);
    EXPECT_EQ(gsync(src_.c_str(), r.dst, r.replace), PLAT_OK) << r.dst;
    EXPECT_EQ(testsupport::read_file(root_ + "/" + r.mapped), bytes) << r.dst;
    EXPECT_EQ(files(root_), std::set<std::string>{r.mapped}) << r.dst;
  }
}

TEST_F(GsyncTest, ExistingFileIsReplacedOnlyWhenAsked) {
  struct Row {
    int replace;
    retcode_t rc;
    const char *after;
  } rows[] = {{0, OVERSEER_ERR_IO, "old"}, {1, PLAT_OK, "source bytes"}};
  for (const auto &r : rows) {
    fs::create_directories(root_ + "/mnt");
    testsupport::write_file(root_ + "/mnt/x", "old");
    EXPECT_EQ(gsync(src_.c_str(), "/mnt/x", r.replace), r.rc) << "replace=" << r.replace;
    EXPECT_EQ(testsupport::read_file(root_ + "/mnt/x"), r.after) << "replace=" << r.replace;
    EXPECT_EQ(files(root_), std::set<std::string>{"mnt/x"}) << "replace=" << r.replace;
  }
}

TEST_F(GsyncTest, FailuresLeaveNothingBehind) {
  std::string outside = base_ / "outside";
  fs::create_directory(outside);
  fs::create_directory_symlink(outside, root_ + "/link");
  std::string not_dir = work_ / "plain";
  testsupport::write_file(not_dir, "");
  const char *root = root_.c_str(), *src = src_.c_str();
  std::string none = work_ / "none";
  struct Row {
    const char *what, *root, *src, *dst, *fault;
    int q_offset;  // added to the bound queue's handle
    retcode_t rc;
  } rows[] = {
      {"no standby", nullptr, src, "/x", nullptr, 0, OVERSEER_ERR_NO_STANDBY},
      {"empty standby", "", src, "/x", nullptr, 0, OVERSEER_ERR_NO_STANDBY},
      {"standby not a folder", not_dir.c_str(), src, "/x", nullptr, 0, OVERSEER_ERR_NO_STANDBY},
      {"missing source", root, none.c_str(), "/x", nullptr, 0, OVERSEER_ERR_NO_SOURCE},
      {"source is a folder", root, work_.path().c_str(), "/x", nullptr, 0, OVERSEER_ERR_NO_SOURCE},
      {"null source", root, nullptr, "/x", nullptr, 0, OVERSEER_ERR_NO_SOURCE},
      {"climbs from the root", root, src, "/../x", nullptr, 0, OVERSEER_ERR_BAD_PATH},
      {"climbs after a folder", root, src, "/a/../../x", nullptr, 0, OVERSEER_ERR_BAD_PATH},
      {"relative", root, src, "x", nullptr, 0, OVERSEER_ERR_BAD_PATH},
      {"names no file", root, src, "/a/..", nullptr, 0, OVERSEER_ERR_BAD_PATH},
      {"null destination", root, src, nullptr, nullptr, 0, OVERSEER_ERR_BAD_PATH},
      {"through a link out of the root", root, src, "/link/x", nullptr, 0, OVERSEER_ERR_BAD_PATH},
      {"unbound queue", root, src, "/x", nullptr, 100, OVERSEER_ERR_BAD_QUEUE},
      {"injected fault", root, src, "/x", "overseercmn_file_gsync", 0, PLAT_ERR_INJECTED},
      {"injected status", root, src, "/x", "overseercmn_file_gsync=0x40600004", 0, OVERSEER_ERR_IO},
  };
  for (const auto &r : rows) {
    ScopedEnv env("PLAT_STANDBY_ROOT", r.root);
    if (r.fault) faults_.add(r.fault);
    EXPECT_EQ(overseercmn_file_gsync(q_ + r.q_offset, 30, SRVUUID_WAYSHUNT, r.src, r.dst, 1, 0, 0, 0, 0), r.rc)
        << r.what;
    plat_fault_reset();
    EXPECT_EQ(files(base_.path()), std::set<std::string>{"standby/link"}) << r.what;
  }
}

}  // namespace
