// wayshunt-convert's commands against golden files: each case runs the tool
// on a small world of stores, images and logs, and its exit status, stdout
// and stderr must match golden/<case>.txt (folders masked).
#include <gtest/gtest.h>

#include <filesystem>

#include "test_support.h"
#include "tool_run.h"

namespace {

using Args = std::vector<std::string>;

struct Case {
  const char *name;
  Args args;  // "@" at the start of an argument stands for the world's folder
  const char *faults = nullptr;  // PLAT_FAULTS for the run
};

void PrintTo(const Case &c, std::ostream *os) { *os << c.name; }

// Hand-written logs: a clean close, and failures whose records run on into
// the next where the library writes no line feed.
constexpr const char *kCleanLog = "wayshunt_cnv_log_cleanup():71 file Closed at Mon Nov 23 10:00:00 2026\n\n";
constexpr const char *kErrorLog =
    "convert_gsync():140 wayshunt convert_gsync invoked\n"
    "wayshunt_cnv_handle_downgrade_for_runtime_kvs():60 Downgrade Failed"
    "wayshunt_cnv_log_cleanup():71 file Closed at Mon Nov 23 10:00:01 2026\n\n"
    "wayshunt_handle_downgrade():88 \nHUB BIND Error -1"
    "convert_startup():120 Handle Downgrade Failed"
    "wayshunt_cnv_decom_switch():150 \n***Error in Receiving hub msg - 110 (Connection timed out)\n"
    "wayshunt_cnv_log_cleanup():71 file Closed at Mon Nov 23 10:00:02 2026\n\n";

// One FLOW_THRU_HOST key in each width: no era fits both.
constexpr const char *kMixed = R"({"records": [
  {"type": 54, "key": {"form": "raw", "hex": "3600000000002000002500000001500601600000000a"}, "value": {"form": "raw", "hex": "00000000"}},
  {"type": 54, "key": {"form": "raw", "hex": "36002000002500000002500601600000000a"}, "value": {"form": "raw", "hex": "00000000"}}]})";

const Case kCases[] = {
    {"info_32", {"info", "@/s32"}},
    {"info_mixed_json", {"info", "--json", "@/mixed.mdb"}},
    {"info_mixed", {"info", "@/mixed.mdb"}},
    {"info_missing", {"info", "@/none.mdb"}},
    {"info_not_a_store", {"info", "@/junk.mdb"}},
    {"run_fault", {"run", "--from", "4.2(1)", "--to", "4.1(3)", "--image", "@/img42", "--fault", "kvs_open:1"}},
    {"run_fault_unknown", {"run", "--from", "4.2(1)", "--to", "4.1(3)", "--image", "@/img42", "--fault", "kvs_stor:3"}},
    {"run_fault_garbled", {"run", "--from", "4.2(1)", "--to", "4.1(3)", "--image", "@/img42", "--fault", "kvs_store:0"}},
};

class Golden : public ::testing::TestWithParam<Case> {
 protected:
  static void tool(const Args &args) {
    auto r = tooltest::run_tool(args);
    ASSERT_EQ(r.status, 0) << r.err;
  }
  void SetUp() override {
    testsupport::ScopedEnv no_faults("PLAT_FAULTS", nullptr);
    for (const char *era : {"3.2", "4.2"})
      for (std::string dir : {world_ / ("s" + std::string(era).erase(1, 1)), world_ / ("img" + std::string(era).erase(1, 1)) + "/mnt/kvs"}) {
        std::filesystem::create_directories(dir);
        tool({"gen", "--era", era, "--records", "40", "--seed", "3", dir});
      }
    testsupport::write_file(world_ / "mixed.json", kMixed);
    tool({"load", world_ / "mixed.json", world_ / "mixed.mdb"});
    testsupport::write_file(world_ / "junk.mdb", "not a store\n");
    testsupport::write_file(world_ / "garbled.json", "{\"records\": [ {\"type\": 55,}");
    testsupport::write_file(world_ / "clean.log", kCleanLog);
    testsupport::write_file(world_ / "errors.log", kErrorLog);
    testsupport::write_file(world_ / "notes.txt", "shopping list\n");
  }
  testsupport::ScopedEnv no_root_{"PLAT_KVS_ROOT", nullptr}, no_table_{"PLAT_PORTMAP_TABLE", nullptr};
  testsupport::TempDir world_;
};

TEST_P(Golden, Matches) {
  const Case &c = GetParam();
  Args args;
  for (const std::string &a : c.args) args.push_back(a[0] == '@' ? world_.path() + a.substr(1) : a);
  testsupport::ScopedEnv faults("PLAT_FAULTS", c.faults);
  auto r = tooltest::run_tool(args);
  tooltest::expect_golden(c.name, r,
                          {{world_.path(), "WORLD"},
                           {std::filesystem::path(testsupport::bin_dir()).parent_path().string(), "BUILD"},
                           {"\\(\\):[0-9]+ ", "():N "},
                           {"at [A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]{2} [0-9:]{8} [0-9]{4}", "at TIME"},
                           {"/[^ ]*/wayshunt-dry\\.[A-Za-z0-9]+", "DRY"}});
}

INSTANTIATE_TEST_SUITE_P(Cases, Golden, ::testing::ValuesIn(kCases), [](const auto &info) { return std::string(info.param.name); });

}  // namespace
