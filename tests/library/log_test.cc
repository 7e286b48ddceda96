// The conversion log: the gate, the exact records of a whole conversion, the
// error records that run on into the closing record, and a log that cannot
// be opened.
#include <sys/stat.h>

#include "cnv_env.h"
#include "test_support.h"

using namespace cnv;

namespace {

const Records kStore = {
    {hx("36 02 05000000 1111111111111111 2222222222222222"), hx("aabbccdd")},
    {hx("37 00 0102030405060708"), Bytes(82, '\x5a')},
    {hx("3f 00 01"), hx("99")},
};

const char *kClosing = "wayshunt_cnv_log_cleanup():N file Closed at <time>\n\n";

}  // namespace

// A move from 4.2 to 3.2 runs both downgrades; with the gate open every
// record of it is written, in order.
TEST(Log, WholeDowngradeMessageForMessage) {
  CNV_REQUIRE();
  make_store(kStore);
  set_move("4.2(1a)", "3.2(1)");
  ASSERT_EQ(gsync("3.2(1)", "4.2(1a)"), 0u);
  std::string log = normalized(take_log());
  if (!Env::get().gate_open) {
    EXPECT_EQ(log, "") << "no error record falls due: no log file";
    return;
  }
  const std::string dir = Env::get().store_dir, url = "nonvolatile:" + dir + "/wayshunt_runtime_ha";
  const std::string want = std::string() +
      "wayshunt_cnv_log_init():N file opened sucessfully at <time>\n\n"
      "convert_gsync():N wayshunt convert_gsync invoked\n"
      "convert_gsync():N pkg_name: wayshunt, path = " + dir + ", to = 3.2(1), from = 4.2(1a)\n"
      "wayshunt_cnv_read_versions():N to_ver = 3.2(1), from_ver = 4.2(1)\n"
      "wayshunt_cnv_read_versions():N from_major = 4, from_minor = 2, to_major = 3, to_minor = 2\n"
      "wayshunt_cnv_handle_downgrade_for_runtime_kvs():N from 4.2 to 3.2\n"
      "wayshunt_cnv_handle_downgrade_for_runtime_kvs():N kvs_url: " + url + "\n"
      "wayshunt_cnv_handle_downgrade_for_runtime_kvs():N Downgrade to 4.1.x or lower\n"
      "wayshunt_cnv_config_downgrade_to_413_or_lower():N Converting Flow-Thru Entries to lower version\n"
      "wayshunt_cnv_config_downgrade_to_413_or_lower():N key 54\n"
      "wayshunt_cnv_config_downgrade_to_413_or_lower():N removed FLOW_THRU Entry\n"
      "wayshunt_cnv_config_downgrade_to_413_or_lower():N key 55\n"
      "wayshunt_cnv_config_downgrade_to_413_or_lower():N key 63\n"
      "wayshunt_cnv_handle_downgrade_for_runtime_kvs():N kvs_url: " + url + "\n"
      "wayshunt_cnv_handle_downgrade_for_runtime_kvs():N Downgrade to 3.2\n"
      "wayshunt_cnv_config_downgrade_to_3_2():N removing all WAYSHUNT_KVS_KEY_RUNTIME_LC_INFO keys from KVS\n"
      "wayshunt_cnv_config_downgrade_to_3_2():N key 54\n"
      "wayshunt_cnv_config_downgrade_to_3_2():N key 55\n"
      "wayshunt_cnv_config_downgrade_to_3_2():N key 63\n"
      "wayshunt_cnv_config_downgrade_to_3_2():N removed WAYSHUNT_KVS_KEY_RUNTIME_LC_INFO\n"
      "wayshunt_cnv_config_downgrade_to_3_2():N Downgrade runtime KVS to 3.2 successful\n" +
      kClosing;
  EXPECT_EQ(log, want);
}

// A failed step writes its error record, which has no line feed, so the
// closing record runs on behind it; the log is closed once only.
TEST(Log, FailedStepRunsOnIntoTheClosingRecord) {
  CNV_REQUIRE();
  struct Case {
    const char *to, *faults, *record;
  };
  const Case cases[] = {
      {"4.1(1)", "kvs_open:1=0x4048000a", "wayshunt_cnv_handle_downgrade_for_runtime_kvs():N Downgrade Failed"},
      {"3.2(1)", "kvs_close:2=0x4048000a", "wayshunt_cnv_handle_downgrade_for_runtime_kvs():N Downgrade to 3.2 Failed"},
  };
  for (const auto &c : cases) {
    make_store(kStore);
    set_move("4.2(1)", c.to);
    testsupport::FaultScope faults;
    faults.add(c.faults);
    EXPECT_EQ(gsync(), KVS_ERR_IO);
    std::string log = normalized(take_log());
    std::string tail = std::string(c.record) + kClosing;
    ASSERT_GE(log.size(), tail.size()) << log;
    EXPECT_EQ(log.substr(log.size() - tail.size()), tail);
    if (!Env::get().gate_open) {
      EXPECT_EQ(log, tail) << "with the gate shut only the error records are written";
    }
  }
}

TEST(Log, InitAndCleanupOnTheirOwn) {
  CNV_REQUIRE();
  const Env &e = Env::get();
  auto init = e.fn<void(uint32_t)>("wayshunt_cnv_log_init");
  auto cleanup = e.fn<void()>("wayshunt_cnv_log_cleanup");
  auto stamp = e.fn<void(unsigned char *)>("wayshunt_cnv_get_timestamp_str");
  take_log();
  init(0);
  init(1);  // already open with the gate open; opens it with the gate shut
  cleanup();
  cleanup();  // finds the log closed
  std::string want = e.gate_open ? "wayshunt_cnv_log_init():N file opened sucessfully at <time>\n\n"
                                   "wayshunt_cnv_log_init():N file already opened\n"
                                 : "";
  EXPECT_EQ(normalized(take_log()), want + kClosing);
  stamp(nullptr);  // does nothing
  unsigned char buf[32] = {};
  stamp(buf);
  EXPECT_EQ(normalized(reinterpret_cast<char *>(buf)), "<time>\n");
}

// A log that cannot be opened drops its records and changes no result.
TEST(Log, UnopenableLogChangesNothing) {
  CNV_REQUIRE();
  make_store(kStore);
  set_move("4.2(1)", "4.1(1)");
  std::string path = Env::get().bootflash + "/wayshunt_cnv.log";
  take_log();
  ASSERT_EQ(mkdir(path.c_str(), 0755), 0);  // a folder where the file would be
  testsupport::FaultScope faults;
  faults.add("kvs_close:1=0x4048000a");
  EXPECT_EQ(gsync(), KVS_ERR_IO);
  EXPECT_EQ(read_store(), kStore);
  rmdir(path.c_str());
}
