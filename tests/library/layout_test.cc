// The stored forms against byte images written by hand: where every field
// lands, in which byte order.
#include <cstring>

#include "cnv_env.h"
#include "wayshunt.h"

using cnv::Bytes;
using cnv::hx;

namespace {

template <typename T>
Bytes image(const T &t) {
  return Bytes(reinterpret_cast<const char *>(&t), sizeof t);
}

wwn_t wwn(const char *hex) {
  wwn_t w;
  std::memcpy(w.str, hx(hex).data(), 8);
  return w;
}

fcid_t fcid(const char *hex) {
  fcid_t f;
  std::memcpy(f.str, hx(hex).data(), 4);
  return f;
}

}  // namespace

TEST(Layout, KeysMatchTheirByteImages) {
  wayshunt_kvs_key_flow_thru_host_t k22{};
  k22.key_type = {WAYSHUNT_KVS_KEY_FLOW_THRU_HOST, 2};
  k22.vsan = 0x0102;
  k22.host_pwwn = wwn("2000002500000001");
  k22.tgt_pwwn = wwn("5000000000000009");
  EXPECT_EQ(image(k22), hx("36 02 02010000 2000002500000001 5000000000000009"));

  wayshunt_kvs_key_flow_thru_host_413_t k18{};
  k18.key_type = {WAYSHUNT_KVS_KEY_FLOW_THRU_HOST, 0};
  k18.host_pwwn = wwn("2000002500000001");
  k18.tgt_pwwn = wwn("5000000000000009");
  EXPECT_EQ(image(k18), hx("36 00 2000002500000001 5000000000000009"));

  wayshunt_kvs_key_rw_acl_entry_t rw{};
  rw.key_type = {WAYSHUNT_KVS_KEY_ACL_RW_3, 1};
  rw.acl_hash_key_lower = 0x0807060504030201ull;
  EXPECT_EQ(image(rw), hx("39 01 0102030405060708"));
  EXPECT_EQ(wwn("0102030405060708").num, 0x0807060504030201ull) << "a name read as a number is not swapped";
}

TEST(Layout, ValuesMatchTheirByteImages) {
  wayshunt_kvs_data_rw_acl_entry_t v{};
  v.tgt_pwwn = wwn("2000002500000001");
  v.acl_flags = WAYSHUNT_ACL_FLAG_ISL | WAYSHUNT_ACL_FLAG_PHYSICAL | WAYSHUNT_ACL_FLAG_PGM_PENDING;
  v.src_sid_wwn = wwn("1111111111111111");
  v.src_did_wwn = wwn("2222222222222222");
  v.dst_sid_wwn = wwn("3333333333333333");
  v.dst_did_wwn = wwn("4444444444444444");
  v.if_index = 0x01002030;
  v.rw_key = {0x0a, fcid("00010203"), fcid("00040506"), 2, {}};
  v.rw_info = {0x0b, fcid("00070809"), fcid("000a0b0c"), 1, 1, 0, 0, 0x01020304};
  v.slot_num = 3;
  const Bytes rw_image = hx("2000002500000001 80001400 1111111111111111 2222222222222222 3333333333333333"
                            "4444444444444444 30200001 0a000000 00010203 00040506 02"
                            "0b000000 00070809 000a0b0c 01 01 00 00 04030201 03");
  EXPECT_EQ(image(v), rw_image);

  wayshunt_kvs_data_rw_acl_entry_32_t v32{};
  std::memcpy(&v32, &v, 81);
  std::memcpy(v32.unused, "\xee\xee\xee", 3);
  EXPECT_EQ(image(v32), rw_image.substr(0, 81) + "\xee\xee\xee");

  wayshunt_kvs_data_els_acl_entry_t e{};
  e.tgt_pwwn = wwn("2000002500000001");
  e.src_pwwn = wwn("2100002500000009");
  e.src_vsan = 10;
  e.src_fcid = fcid("000a0b0c");
  e.dst_fcid = fcid("00010203");
  e.if_index = 0x01001000;
  e.flags = 0x11;
  e.slot_num = 2;
  EXPECT_EQ(image(e), hx("2000002500000001 2100002500000009 0a000000 000a0b0c 00010203 00100001 11000000 02"));
  EXPECT_EQ(e.src_fcid.fcid.domain, 0x0a);
  EXPECT_EQ(e.src_fcid.fcid.port, 0x0c);
}
