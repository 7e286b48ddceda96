// The entry points and the choice of conversions: which releases lead to
// which conversions, what reaches the caller, and what the library exports.
#include <dlfcn.h>

#include "cnv_env.h"
#include "kvs_admin.h"
#include "plat_ctl.h"
#include "test_support.h"
#include "wayshunt_cnv.h"

using namespace cnv;

namespace {

// A store with one record of each kind a downgrade touches: a 22-byte
// flow-thru key (vsan 5, sub type 2), an RW entry and a line card record.
const Records kBefore = {
    {hx("36 02 05000000 1111111111111111 2222222222222222"), hx("aabbccdd")},
    {hx("37 00 0102030405060708"), Bytes(82, '\x5a')},
    {hx("3f 00 01"), hx("99")},
};
const Bytes kNarrowed = hx("36 02 1111111111111111 2222222222222222");

Records after_413() {
  Records r = kBefore;
  r.erase(r.begin());
  r[kNarrowed] = hx("00000000");
  return r;
}

Records after_32() {
  Records r = after_413();
  r.erase(hx("3f 00 01"));
  return r;
}

}  // namespace

// Every downgrade and level move of the ladder, through convert_gsync.
TEST(Frame, DowngradeLadder) {
  CNV_REQUIRE();
  struct Case {
    const char *from, *to;
    Records want;
  };
  const Case cases[] = {
      {"4.2(1)", "4.1(3)", after_413()}, {"4.2(1a)", "4.0(1)", after_413()}, {"5.0(1)", "3.2(1)", after_32()},
      {"4.2(1)", "3.1(2)", after_413()}, {"4.1(3)", "4.0(2)", after_413()}, {"4.2(1)", "2.1(1)", after_413()},
      {"4.12(1)", "4.2(1)", kBefore},    {"5.1(1)", "4.3(1)", kBefore},     {"4.2(1)", "4.2(3b)", kBefore},
      {"4.2(3b)", "4.2(1)", kBefore},    {"3.2(2)", "3.2(1)", kBefore},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(c.from) + " -> " + c.to);
    make_store(kBefore);
    set_move(c.from, c.to);
    EXPECT_EQ(gsync(), 0u);
    EXPECT_EQ(read_store(), c.want);
    take_log();
  }
}

// The caller's version strings decide nothing: the descriptor files do.
TEST(Frame, DescriptorFilesDecideNotTheCallersStrings) {
  CNV_REQUIRE();
  make_store(kBefore);
  set_move("4.2(1)", "4.1(1)");
  EXPECT_EQ(gsync("4.2(1)", "4.1(1)"), 0u);
  EXPECT_EQ(read_store(), after_413());
}

// Without both releases nothing is converted and the caller is told; no
// error record is written for it.
TEST(Frame, UnknownReleaseConvertsNothing) {
  CNV_REQUIRE();
  auto startup = Env::get().fn<retcode_t(char *, char *, char *, char *)>("convert_startup");
  struct Case {
    const char *name, *from, *to;
    bool unset_from;
  };
  const Case cases[] = {
      {"variable unset", "4.2(1)", "4.1(1)", true}, {"no version in file", "", "4.1(1)", false},
      {"unparsable", "four.two", "4.1(1)", false},   {"no patch", "4.2", "4.1(1)", false},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    make_store(kBefore);
    set_move(c.from, c.to);
    testsupport::ScopedEnv unset("OVERSEER_FROM_RELDESC_PATH",
                                 c.unset_from ? nullptr : getenv("OVERSEER_FROM_RELDESC_PATH"));
    testsupport::FaultScope faults;
    EXPECT_EQ(gsync(), WAYSHUNT_CNV_ERR_VERSION);
    std::string s = Env::get().store_dir, p = "p", t = "t", f = "f";
    EXPECT_EQ(startup(s.data(), p.data(), t.data(), f.data()), WAYSHUNT_CNV_ERR_VERSION);
    EXPECT_EQ(plat_call_count("kvs_open"), 0u);
    EXPECT_EQ(plat_call_count("hub_bind"), 0u);
    EXPECT_EQ(read_store(), kBefore);
    std::string log = take_log();
    EXPECT_EQ(log.find("Failed"), std::string::npos) << log;
    if (!Env::get().gate_open) {
      EXPECT_EQ(log, "");
    }
    auto *major = static_cast<int32_t *>(Env::get().sym("from_major"));
    ASSERT_NE(major, nullptr);
    EXPECT_EQ(*major, 0) << "no integer left undefined";
  }
}

TEST(Frame, VersionsReadAsSignedNumbersAndCorrected) {
  CNV_REQUIRE();
  auto read = Env::get().fn<uint32_t()>("wayshunt_cnv_read_versions");
  auto var = [](const char *n) { return *static_cast<int32_t *>(Env::get().sym(n)); };
  struct Case {
    const char *from, *to;
    int32_t fmaj, fmin, tmaj, tmin;
    bool differ;
  };
  const Case cases[] = {
      {"4.12(1)", "4.2(1)", 4, 12, 4, 2, true}, {"3.2(1a)", "3.2(1)", 3, 2, 3, 2, false},
      {"3.2(1)", "3.2(2)", 3, 2, 3, 2, true},   {"-1.0(0)", "0.3(9)", -1, 0, 0, 3, true},
  };
  for (const auto &c : cases) {
    set_move(c.from, c.to);
    EXPECT_EQ(read() != 0, c.differ) << c.from << " " << c.to;
    EXPECT_EQ(var("from_major"), c.fmaj);
    EXPECT_EQ(var("from_minor"), c.fmin);
    EXPECT_EQ(var("to_major"), c.tmaj);
    EXPECT_EQ(var("to_minor"), c.tmin);
  }
  take_log();
}

TEST(Frame, FailedStepStopsTheLadderWithItsStatus) {
  CNV_REQUIRE();
  struct Case {
    const char *to, *faults;
    retcode_t want;
    uint32_t opens;
    Records store;
  };
  const Case cases[] = {
      {"3.2(1)", "kvs_open:1=0x4048000a", KVS_ERR_IO, 1, kBefore},
      {"3.2(1)", "kvs_close:1=0x40480009", KVS_ERR_NO_SPACE, 1, kBefore},
      {"3.2(1)", "kvs_open:2=0x4048000a", KVS_ERR_IO, 2, after_413()},
      {"4.1(1)", "kvs_close:1=0x40480009", KVS_ERR_NO_SPACE, 1, kBefore},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.faults);
    make_store(kBefore);
    set_move("4.2(1)", c.to);
    testsupport::FaultScope faults;
    faults.add(c.faults);
    EXPECT_EQ(gsync(), c.want);
    EXPECT_EQ(plat_call_count("kvs_open"), c.opens);
    EXPECT_EQ(read_store(), c.store);
    take_log();
  }
}

// An empty store is a failed downgrade.
TEST(Frame, EmptyStoreFailsTheDowngrade) {
  CNV_REQUIRE();
  make_store({});
  set_move("4.2(1)", "3.2(1)");
  EXPECT_EQ(gsync(), KVS_ERR_NO_KEY);
  EXPECT_EQ(read_store(), Records{});
  take_log();
}

TEST(Frame, OtherEntryPoints) {
  CNV_REQUIRE();
  const Env &e = Env::get();
  auto running = e.fn<retcode_t(char *, char *, char *)>("convert_running");
  auto fs_upg = e.fn<retcode_t(char *, char *)>("convert_running_fs_upg");
  auto no_overseer = e.fn<void()>("overseercb_no_overseer");
  std::string pkg = "wayshunt", a = "3.1(1)", b = "4.2(1)", path = e.store_dir;
  for (const char *to : {"3.2(1)", "4.1(1)", "5.0(1)"}) {
    make_store(kBefore);
    set_move("4.2(1)", to);
    testsupport::FaultScope faults;
    EXPECT_EQ(running(pkg.data(), a.data(), b.data()), 0u);
    EXPECT_EQ(plat_call_count("kvs_open") + plat_call_count("hub_bind"), 0u) << "convert_running touches nothing";
    EXPECT_EQ(fs_upg(path.data(), pkg.data()), 0u);
    Records via_fs = read_store();
    make_store(kBefore);
    EXPECT_EQ(gsync(), 0u);
    EXPECT_EQ(via_fs, read_store()) << "convert_running_fs_upg converts as convert_gsync";
  }
  testsupport::FaultScope faults;
  no_overseer();
  EXPECT_EQ(plat_call_count("plat_overseercb_no_overseer"), 1u);
  take_log();
}

// A path so long that the URL passes 255 characters gives a cut URL, which
// names no store.
TEST(Frame, LongPathCutsTheUrl) {
  CNV_REQUIRE();
  testsupport::TempDir d;
  std::string journal = d / "journal";
  std::string path = "/" + std::string(260, 'p');
  set_move("4.2(1)", "4.1(1)");
  ASSERT_EQ(plat_journal_set(journal.c_str()), 0);
  EXPECT_EQ(gsync_at(path), KVS_ERR_NO_STORE);
  plat_journal_set(nullptr);
  std::string want = "kvs_open(nonvolatile:" + path.substr(0, 255 - 12) + ") = 0x" ;
  EXPECT_NE(testsupport::read_file(journal).find(want), std::string::npos) << testsupport::read_file(journal);
  take_log();
}

TEST(Frame, ExportsItsFunctionsButNotItsPrivateState) {
  CNV_REQUIRE();
  const char *exported[] = {
      "convert_running", "convert_startup", "convert_gsync", "convert_running_fs_upg", "overseercb_no_overseer",
      "from_major", "from_minor", "from_patch", "to_major", "to_minor", "to_patch", "get_corrected_pkg_ver",
      "split_version", "wayshunt_cnv_read_versions", "wayshunt_cnv_log_init", "wayshunt_cnv_log_cleanup",
      "wayshunt_cnv_get_timestamp_str", "wayshunt_cnv_handle_downgrade_for_runtime_kvs",
      "wayshunt_cnv_handle_upgrade_for_runtime_kvs", "wayshunt_cnv_print_kvs_entries",
      "wayshunt_cnv_config_downgrade_to_3_2", "wayshunt_cnv_config_downgrade_to_413_or_lower", "wayshunt_cnv_malloc",
      "wayshunt_cnv_config_upgrade_from_413_or_lower", "wayshunt_cnv_upg_from_413_or_lower_process_flow_thru_entry",
      "wayshunt_cnv_upg_from_413_or_lower_process_acl_rw_entry",
      "wayshunt_cnv_upg_from_413_or_lower_process_acl_els_entry", "wayshunt_cnv_get_slot_no_from_if_index",
      "wayshunt_cnv413_upg_add_entry_to_tgt_hash", "wayshunt_cnv_upgrade_from_413_fix_trunk_entries",
      "wayshunt_cnv_upgrade_from_41_acl_rw_save_entry", "wayshunt_cnv_config_upgrade_from_32",
      "wayshunt_cnv_upgrade_from_32_fix_trunk_entries_build_tgt_ht", "wayshunt_cnv_upgrade_from_32_fix_trunk_entries",
      "wayshunt_handle_downgrade", "wayshunt_cnv_decom_switch", "wayshunt_cnv_sync_kvs_to_standby",
      "wayshunt_cnv_sync_file_to_standby",
  };
  for (const char *name : exported) EXPECT_NE(Env::get().sym(name), nullptr) << name;
  for (const char *name : {"wayshunt_cnv_uri_complete", "err_fp", "debug"})
    EXPECT_EQ(Env::get().sym(name), nullptr) << name;
}
