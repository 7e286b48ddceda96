// Tests of portmap_get_slot(): the interface index encoding, the table file
// (overrides, additions, failures, bad tables, reloading) and faults.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "plat_ctl.h"
#include "portmap.h"
#include "portmap_admin.h"
#include "test_support.h"

namespace {

using testsupport::FaultScope;
using testsupport::ScopedEnv;
using testsupport::TempDir;

struct Lookup {
  if_index_t idx;
  retcode_t rc;
  int slot;  // when rc is 0
};

void expect_lookups(const std::vector<Lookup> &lookups) {
  for (const auto &l : lookups) {
    SCOPED_TRACE(testing::Message() << std::hex << "if_index 0x" << l.idx);
    slot_num_t slot = 0xee;
    EXPECT_EQ(portmap_get_slot(l.idx, &slot), l.rc);
    EXPECT_EQ(slot, l.rc == 0 ? l.slot : 0xee);  // left alone on failure
  }
}

TEST(Portmap, SlotFromEncoding) {
  ScopedEnv no_table("PLAT_PORTMAP_TABLE", nullptr);
  expect_lookups({
      {0x01000000, 0, 1},  // fc1/1
      {0x010020b0, 0, 3},  // fc3/12
      {IF_INDEX_FC(16, 256), 0, 16},
      {0x04000004, PORTMAP_ERR_NO_SLOT, 0},  // port-channel 5
      {IF_INDEX_PORT_CHANNEL(256), PORTMAP_ERR_NO_SLOT, 0},
      {IF_INDEX_VIRTUAL(1), PORTMAP_ERR_NO_SLOT, 0},
      {IF_INDEX_VIRTUAL(65536), PORTMAP_ERR_NO_SLOT, 0},
      {0, PORTMAP_ERR_BAD_IF_INDEX, 0},
      {0x02000000, PORTMAP_ERR_BAD_IF_INDEX, 0},
      {0x01000001, PORTMAP_ERR_BAD_IF_INDEX, 0},  // reserved bits of a physical index
      {0x01010000, PORTMAP_ERR_BAD_IF_INDEX, 0},
      {0x04000100, PORTMAP_ERR_BAD_IF_INDEX, 0},
      {0x05010000, PORTMAP_ERR_BAD_IF_INDEX, 0},
  });
  EXPECT_EQ(portmap_get_slot(0x01000000, nullptr), PLAT_ERR_INVALID);
}

TEST(Portmap, TableOverridesAndAdds) {
  TempDir dir;
  testsupport::write_file(dir / "table",
                          "# test table\n"
                          "\n"
                          "fc3/12         9   # moved\n"
                          "0x02000000\t255\n"
                          "port-channel5  4\n"
                          "0x05000000     fail\n"
                          "fc2/1          fail=0x40500001\n"
                          "16842752       0\n"
                          "  fc16/256 fail=7\r\n");
  ScopedEnv table("PLAT_PORTMAP_TABLE", (dir / "table").c_str());
  expect_lookups({
      {IF_INDEX_FC(3, 12), 0, 9},
      {0x02000000, 0, 255},
      {IF_INDEX_PORT_CHANNEL(5), 0, 4},
      {IF_INDEX_VIRTUAL(1), PORTMAP_ERR_DOWN, 0},
      {IF_INDEX_FC(2, 1), PORTMAP_ERR_NO_SLOT, 0},
      {0x01010000, 0, 0},
      {IF_INDEX_FC(16, 256), 7, 0},
      {IF_INDEX_FC(4, 1), 0, 4},  // not listed: from the encoding
      {IF_INDEX_VIRTUAL(2), PORTMAP_ERR_NO_SLOT, 0},
  });
  EXPECT_EQ(portmap_table_reload(), 0);
}

// The file is read when first needed and kept; forgetting the readings
// makes the next lookup read what the file holds now.
TEST(Portmap, ForgottenTableIsReadAgain) {
  TempDir dir;
  testsupport::write_file(dir / "table", "fc1/1 9\n");
  ScopedEnv table("PLAT_PORTMAP_TABLE", (dir / "table").c_str());
  expect_lookups({{IF_INDEX_FC(1, 1), 0, 9}});
  testsupport::write_file(dir / "table", "fc1/1 fail\n");
  expect_lookups({{IF_INDEX_FC(1, 1), 0, 9}});
  portmap_table_forget();
  expect_lookups({{IF_INDEX_FC(1, 1), PORTMAP_ERR_DOWN, 0}});
  portmap_table_forget();
  ScopedEnv no_table("PLAT_PORTMAP_TABLE", nullptr);
  expect_lookups({{IF_INDEX_FC(1, 1), 0, 1}});
}

TEST(Portmap, BadTableFailsEveryLookupAndSaysWhereOnce) {
  struct Case {
    const char *text;  // null: no such file
    unsigned line;
  } cases[] = {
      {"fc1/1 1\nfc3/12\n", 2},    {"fc1/1 256\n", 1},         {"fc17/1 1\n", 1},       {"fc1/0 1\n", 1},
      {"fc1/1 fail=0\n", 1},       {"fc1/1 fail=x\n", 1},      {"port-channel0 1\n", 1}, {"0x 1\n", 1},
      {"#\n\nfc1/1 1 2\n", 3},     {"fc1/1 -1\n", 1},          {"eth1 1\n", 1},          {"0x01000000 1\nfc1/1 2\n", 2},
      {"4294967296 1\n", 1},       {nullptr, 0},
  };
  TempDir dir;
  int n = 0;
  for (const auto &c : cases) {
    std::string path = dir / ("t" + std::to_string(n++));
    SCOPED_TRACE(c.text ? c.text : "missing file");
    if (c.text) testsupport::write_file(path, c.text);
    ScopedEnv table("PLAT_PORTMAP_TABLE", path.c_str());
    testing::internal::CaptureStderr();
    expect_lookups({{IF_INDEX_FC(1, 1), PORTMAP_ERR_TABLE, 0}, {IF_INDEX_FC(2, 1), PORTMAP_ERR_TABLE, 0}});
    std::string err = testing::internal::GetCapturedStderr();
    std::string where = c.text ? path + ":" + std::to_string(c.line) + ":" : path + ":";
    EXPECT_NE(err.find(where), std::string::npos) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    testing::internal::CaptureStderr();
    EXPECT_EQ(portmap_table_reload(), -1);
    testing::internal::GetCapturedStderr();
  }
}

}  // namespace
