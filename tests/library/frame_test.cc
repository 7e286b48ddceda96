// The entry points' frame: releases that cannot be read, how versions are
// read, the store's URL and the callback. Which moves convert what is in the
// golden cases.
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


}  // namespace

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

// The callback goes to the platform's, once per call.
TEST(Frame, NoOverseerCallback) {
  CNV_REQUIRE();
  testsupport::FaultScope faults;
  Env::get().fn<void()>("overseercb_no_overseer")();
  EXPECT_EQ(plat_call_count("plat_overseercb_no_overseer"), 1u);
}

// The library's own codes have its texts; every other status keeps the
// platform's. Called outside any conversion it writes no log.
TEST(Frame, StatusTexts) {
  CNV_REQUIRE();
  auto text = Env::get().fn<const char *(retcode_t)>("wayshunt_cnv_strerror");
  ASSERT_NE(text, nullptr);
  take_log();
  struct Case {
    retcode_t rc;
    const char *own;  // words of the library's text; null: the platform's text
  };
  const Case cases[] = {
      {WAYSHUNT_CNV_ERR_VERSION, "no release version"}, {WAYSHUNT_CNV_HUB_BIND_FAILED, "no hub queue"},
      {0, nullptr}, {KVS_ERR_NO_KEY, nullptr}, {PLAT_ERR_INJECTED, nullptr}, {0x12345678, nullptr},
  };
  for (const auto &c : cases) {
    const char *t = text(c.rc);
    ASSERT_NE(t, nullptr) << c.rc;
    if (c.own) EXPECT_NE(std::string(t).find(c.own), std::string::npos) << t;
    else EXPECT_EQ(std::string(t), retcode2str(c.rc));
  }
  EXPECT_EQ(take_log(), "");
}
