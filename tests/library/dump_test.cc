// The entry dump: every record of a store written to the log in its printed
// form, with the gate open, and nothing with it shut.
#include "cnv_env.h"
#include "test_support.h"

using namespace cnv;

namespace {

// RW value: target 20:00:00:25:b5:00:00:01, flags 0x00340080, names, if_index
// 0x01002030, rewrite key and info of 0x77, slot 3 in byte 81.
const Bytes kRwValue = hx("2000002500000001 80003400 1000000000000001 1000000000000002"
                          "00000000000000aa 00000000000000bb 30200001") +
                       Bytes(33, '\x77') + hx("03");
// ELS value: target, source, vsan 10, fcids 0x0a0b0c and 0x010203,
// if_index 0x01001000, flags 0x11, slot 2.
const Bytes kElsValue = hx("2000002500000001 2100002500000009 0a000000 000a0b0c 00010203 00100001 11000000 02");

}  // namespace

TEST(Dump, EveryRecordInItsPrintedForm) {
  CNV_REQUIRE();
  make_store({
      {hx("36 00 2000002500000001 5000000000000001"), hx("00000000")},
      {hx("36 00 07000000 2000002500000001 5000000000000001"), hx("00000000")},
      {hx("36 00 0102"), ""},
      {hx("37 00 0000000000000001"), kRwValue},
      {hx("37 00 0000000000000002"), kRwValue + "\x01\x02"},
      {hx("37 00 0000000000000003"), kRwValue.substr(0, 40)},
      {hx("38 00 0000000000000004"), kRwValue},
      {hx("3a 00 77"), kElsValue},
      {hx("3f 00"), "lc"},
  });
  auto dump = Env::get().fn<uint32_t(kvs_service_t)>("wayshunt_cnv_print_kvs_entries");
  take_log();
  retcode_t st;
  std::string url = runtime_url();
  kvs_service_t s = kvs_open(url.c_str(), &st);
  ASSERT_EQ(st, 0u);
  EXPECT_EQ(dump(s), 0u);
  EXPECT_EQ(kvs_move2location(s, KVS_LOC_NEXT, &st), nullptr) << "cursor left behind the last key";
  EXPECT_EQ(kvs_close(s), 0u);
  Env::get().fn<void()>("wayshunt_cnv_log_cleanup")();
  std::string log = normalized(take_log());
  if (!Env::get().gate_open) {
    EXPECT_EQ(log, "");
    return;
  }
  const char *f = "wayshunt_cnv_print_kvs_entries():N ";
  const std::string rw = std::string(f) +
      "tgt_pwwn = 20:00:00:25:00:00:00:01, acl_flags = 0x00340080, src_sid_wwn = 10:00:00:00:00:00:00:01, "
      "src_did_wwn = 10:00:00:00:00:00:00:02, dst_sid: 00:00:00:00:00:00:00:aa, dst_did: 00:00:00:00:00:00:00:bb, "
      "if_index = 0x01002030\n" + f + "Slot: 3\n";
  const std::string want = std::string() +
      "wayshunt_cnv_log_init():N file opened sucessfully at <time>\n\n" +
      f + "key 54, siz:4\n" + f + "Key Size: 4" + f + "NOT Either Size\n" +
      f + "key 54, siz:22\n" + f + "Key Size: 22" + f +
      "FT Entry New: vsan: 7, tgt PWWN: 50:00:00:00:00:00:00:01, host_pwwn: 20:00:00:25:00:00:00:01, siz: 22\n" +
      f + "key 54, siz:18\n" + f + "Key Size: 18" + f +
      "FT Entry OLD: tgt PWWN: 50:00:00:00:00:00:00:01, host_pwwn: 20:00:00:25:00:00:00:01, key_sz = 18\n" +
      f + "key 55, siz:10\n" + rw +
      f + "key 55, siz:10\n" + rw +
      f + "key 55, siz:10\n" +  // value shorter than its layout: no record line
      f + "key 56, siz:10\n" +
      f + "key 58, siz:3\n" + f +
      "tgt_pwwn = 20:00:00:25:00:00:00:01, src_pwwn = 21:00:00:25:00:00:00:09, vsan = 10, src_fcid: 0x0a0b0c, "
      "dst_fcid: 0x010203, if_index = 0x01001000, flags: 0x00000011, slot_num: 2\n" +
      f + "key 63, siz:2\n" + f + "NO KEY\n" +
      "wayshunt_cnv_log_cleanup():N file Closed at <time>\n\n";
  EXPECT_EQ(log, want);
}

TEST(Dump, EmptyStoreAndHiddenKeys) {
  CNV_REQUIRE();
  auto dump = Env::get().fn<uint32_t(kvs_service_t)>("wayshunt_cnv_print_kvs_entries");
  std::string url = runtime_url();
  struct Case {
    Records store;
    const char *faults, *want;
  };
  const Case cases[] = {
      {{}, "", "wayshunt_cnv_print_kvs_entries():N NO keys \n"},
      {{{hx("3f 00"), "a"}}, "kvs_move2location:1=empty kvs_getvalue=null",
       "wayshunt_cnv_print_kvs_entries():N NULL Ptr: (nil) or 0 size: 0\n"
       "wayshunt_cnv_print_kvs_entries():N NO KEY\n"},
      {{{hx("37 00 0000000000000001"), kRwValue}}, "kvs_getvalue=null",
       "wayshunt_cnv_print_kvs_entries():N key 55, siz:10\nwayshunt_cnv_print_kvs_entries():N NO KEY\n"},
  };
  for (const auto &c : cases) {
    make_store(c.store);
    take_log();
    retcode_t st;
    kvs_service_t s = kvs_open(url.c_str(), &st);
    {
      testsupport::FaultScope faults;
      if (*c.faults) faults.add(c.faults);
      EXPECT_EQ(dump(s), 0u);
    }
    EXPECT_EQ(kvs_close(s), 0u);
    Env::get().fn<void()>("wayshunt_cnv_log_cleanup")();
    std::string log = normalized(take_log());
    if (!Env::get().gate_open) {
      EXPECT_EQ(log, "");
      continue;
    }
    std::string body = log.substr(log.find("\n\n") + 2);
    EXPECT_EQ(body, std::string(c.want) + "wayshunt_cnv_log_cleanup():N file Closed at <time>\n\n");
  }
}
