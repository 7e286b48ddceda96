// The two downgrades, each on its own: stores before and after, the status
// that reaches the caller, and the faults they must survive.
#include "cnv_env.h"
#include "test_support.h"

using namespace cnv;

namespace {

// Flow-thru keys: 22 bytes (type, sub type, vsan, host, target) and the
// 18-byte form without vsan.
const Bytes kFtA = hx("36 00 01000000 2000002500000001 5000000000000001");
const Bytes kFtA2 = hx("36 00 02000000 2000002500000001 5000000000000001");  // A in another vsan
const Bytes kFtB = hx("36 07 01000000 2000002500000002 5000000000000001");
const Bytes kFtC = hx("36 00 0a000000 2000002500000003 5000000000000002");
const Bytes kNarrowA = hx("36 00 2000002500000001 5000000000000001");
const Bytes kNarrowB = hx("36 07 2000002500000002 5000000000000001");
const Bytes kNarrowC = hx("36 00 2000002500000003 5000000000000002");
const Bytes kZero = hx("00000000");
const Bytes kRw = hx("37 00 0102030405060708"), kRwValue(82, '\x11');
const Bytes kOdd = hx("36 00 05");  // sorts between A and C; of no flow-thru size
const Bytes kOther22 = hx("3d 00 01000000 2000002500000001 5000000000000001");  // type 61, flow-thru sized

struct Case {
  const char *name;
  bool to_32;  // which conversion
  Records before;
  const char *faults;
  retcode_t status;
  Records after;
};

const Case kCases[] = {
    {"narrow: sub type kept, value zeroed, vsan twins collapse", false,
     {{kFtA, "x"}, {kFtA2, "yy"}, {kFtB, "zzzz"}, {kRw, kRwValue}}, "", 0,
     {{kNarrowA, kZero}, {kNarrowB, kZero}, {kRw, kRwValue}}},
    {"narrow: a run of flow-thru keys, then others", false,
     {{kFtA, "1"}, {kFtB, "2"}, {kFtC, "3"}, {kOther22, "4"}}, "", 0,
     {{kNarrowA, kZero}, {kNarrowB, kZero}, {kNarrowC, kZero}, {kOther22, "4"}}},
    {"narrow: keys of other sizes stay as they are", false,
     {{kNarrowA, "old"}, {hx("36 00 01"), "short"}, {kOther22, "x"}}, "", 0,
     {{kNarrowA, "old"}, {hx("36 00 01"), "short"}, {kOther22, "x"}}},
    {"narrow: no keys", false, {}, "", KVS_ERR_NO_KEY, {}},
    {"narrow: open fails", false, {{kFtA, "x"}}, "kvs_open:1=0x4048000a", KVS_ERR_IO, {{kFtA, "x"}}},
    {"narrow: close fails", false, {{kFtA, "x"}}, "kvs_close=0x40480009", KVS_ERR_NO_SPACE, {{kFtA, "x"}}},
    {"narrow: delete keeps failing, both forms stay", false, {{kFtA, "x"}, {kFtB, "y"}}, "kvs_delete=0x4048000a", 0,
     {{kFtA, "x"}, {kFtB, "y"}, {kNarrowA, kZero}, {kNarrowB, kZero}}},
    {"narrow: failed store loses that record, still success", false, {{kFtA, "x"}, {kFtB, "y"}}, "kvs_store:1", 0,
     {{kNarrowB, kZero}}},
    {"narrow: failed enqueue keeps the record in its old form", false, {{kFtA, "x"}, {kFtB, "y"}},
     "tk_cq_enqueue_tail:1", 0, {{kFtA, "x"}, {kNarrowB, kZero}}},
    {"narrow: failed move ends the walk, the rest keep their keys", false,
     {{kFtA, "x"}, {kOdd, "y"}, {kFtC, "z"}}, "kvs_move2location:2=0x4048000a", 0,
     {{kNarrowA, kZero}, {kOdd, "y"}, {kFtC, "z"}}},
    {"narrow: empty datum stepped over", false, {{kOdd, "y"}, {kFtC, "z"}}, "kvs_move2location:2=empty", 0,
     {{kOdd, "y"}, {kFtC, "z"}}},
    {"3.2: line card records go, whatever sub type or length", true,
     {{hx("3f"), "a"}, {hx("3f 05 0102"), "b"}, {hx("3e 00"), "c"}, {kRw, kRwValue}, {hx("40 3f"), "d"},
      {hx("3f ff") + Bytes(40, 'k'), "e"}},
     "", 0, {{hx("3e 00"), "c"}, {kRw, kRwValue}, {hx("40 3f"), "d"}}},
    {"3.2: only line card records leave an empty store", true, {{hx("3f 00"), "a"}, {hx("3f 01"), "b"}}, "", 0, {}},
    {"3.2: nothing to delete", true, {{kFtA, "x"}, {kRw, kRwValue}}, "", 0, {{kFtA, "x"}, {kRw, kRwValue}}},
    {"3.2: no keys", true, {}, "", KVS_ERR_NO_KEY, {}},
    {"3.2: delete keeps failing, the walk moves on", true, {{hx("3f 00"), "a"}, {hx("3f 01"), "b"}, {kRw, "c"}},
     "kvs_delete=0x4048000a", 0, {{hx("3f 00"), "a"}, {hx("3f 01"), "b"}, {kRw, "c"}}},
    {"3.2: close fails", true, {{hx("3f 00"), "a"}}, "kvs_close=0x4048000a", KVS_ERR_IO, {{hx("3f 00"), "a"}}},
};

}  // namespace

TEST(Downgrade, StoresBeforeAndAfter) {
  CNV_REQUIRE();
  auto to_413 = Env::get().fn<retcode_t(const char *)>("wayshunt_cnv_config_downgrade_to_413_or_lower");
  auto to_32 = Env::get().fn<int32_t(const char *)>("wayshunt_cnv_config_downgrade_to_3_2");
  ASSERT_TRUE(to_413 && to_32);
  std::string url = runtime_url();
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.name);
    make_store(c.before);
    retcode_t st;
    {
      testsupport::FaultScope faults;
      if (*c.faults) faults.add(c.faults);
      st = c.to_32 ? static_cast<retcode_t>(to_32(url.c_str())) : to_413(url.c_str());
    }
    EXPECT_EQ(st, c.status) << retcode2str(st);
    EXPECT_EQ(read_store(), c.after);
    Env::get().fn<void()>("wayshunt_cnv_log_cleanup")();
    std::string log = take_log();
    if (!Env::get().gate_open) {
      EXPECT_EQ(log, "") << "a downgrade writes only traces";
    }
  }
}
