// Tests of reldesc_sw_ver_file_get(): descriptor parsing, unreadable files,
// the per-thread buffer, faults and the journal.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "plat_ctl.h"
#include "reldesc.h"
#include "test_support.h"

namespace {

using testsupport::FaultScope;
using testsupport::TempDir;

std::string or_null(const char *s) { return s ? s : "(null)"; }

TEST(Reldesc, ReadsSwVersion) {
  struct Case {
    const char *text;
    const char *want;  // null: no version
  } cases[] = {
      {"SW_VERSION=4.2(1a)\n", "4.2(1a)"},
      {"  SW_VERSION =\t4.2(1a)  \r\n", "4.2(1a)"},
      {"# SW_VERSION=old\nNAME=switch\n\nSW_VERSION=5.0(2)\nBUILD=7\n", "5.0(2)"},
      {"SW_VERSION=1.0\nSW_VERSION=2.0\n", "2.0"},
      {"SW_VERSION=3.1", "3.1"},
      {"SW_VERSION=a=b c\n", "a=b c"},
      {"NAME=switch\nSW_VERSION_OLD=1\n", nullptr},
      {"SW_VERSION=\n", nullptr},
      {"SW_VERSION = \t\n", nullptr},
      {"SW_VERSION 4.2\n", nullptr},
      {"sw_version=4.2\n", nullptr},
      {"", nullptr},
  };
  TempDir dir;
  for (const auto &c : cases) {
    SCOPED_TRACE(c.text);
    testsupport::write_file(dir / "rel", c.text);
    EXPECT_EQ(or_null(reldesc_sw_ver_file_get((dir / "rel").c_str())), or_null(c.want));
  }
  EXPECT_EQ(reldesc_sw_ver_file_get(nullptr), nullptr);
  EXPECT_EQ(reldesc_sw_ver_file_get((dir / "missing").c_str()), nullptr);
  EXPECT_EQ(reldesc_sw_ver_file_get(dir.path().c_str()), nullptr);
}

TEST(Reldesc, BufferIsPerThread) {
  TempDir dir;
  testsupport::write_file(dir / "a", "SW_VERSION=1.1\n");
  testsupport::write_file(dir / "b", "SW_VERSION=2.2\n");
  char *mine = reldesc_sw_ver_file_get((dir / "a").c_str());
  std::string theirs;
  std::thread([&] { theirs = or_null(reldesc_sw_ver_file_get((dir / "b").c_str())); }).join();
  EXPECT_EQ(or_null(mine), "1.1");
  EXPECT_EQ(theirs, "2.2");
}

}  // namespace
