// Builders of stored records for the tests, over the layouts of wayshunt.h:
// keys and values as the service stores them in each era.
#ifndef TESTS_LIBRARY_RECORDS_H
#define TESTS_LIBRARY_RECORDS_H

#include <cstring>
#include <string>

#include "wayshunt.h"

namespace rec {

using Bytes = std::string;

template <typename T>
Bytes bytes_of(const T &t) {
  return Bytes(reinterpret_cast<const char *>(&t), sizeof t);
}
inline wwn_t wwn(uint64_t v) {
  wwn_t w;
  w.num = v;
  return w;
}

// RW ACL key of type 55, 56 or 57.
inline Bytes rw_key(uint8_t type, uint64_t hash, uint8_t sub = 0) {
  wayshunt_kvs_key_rw_acl_entry_t k{{type, sub}, hash};
  return bytes_of(k);
}

// RW ACL value: the 82-byte form; size 84 gives the 3.2 form (bytes 81 to
// 83 filled with pad), any other size the form cut or padded.
struct Rw {
  uint64_t tgt;
  uint32_t flags;
  uint64_t sid = 1, did = 2, dst_sid = 0, dst_did = 0;
  if_index_t ifx = 0;
  uint8_t slot = 0;
};
inline Bytes rw_value(const Rw &e, size_t size = sizeof(wayshunt_kvs_data_rw_acl_entry_t), char pad = '\x84') {
  wayshunt_kvs_data_rw_acl_entry_t v;
  std::memset(&v, 0x13, sizeof v);
  v.tgt_pwwn = wwn(e.tgt);
  v.acl_flags = e.flags;
  v.src_sid_wwn = wwn(e.sid);
  v.src_did_wwn = wwn(e.did);
  v.dst_sid_wwn = wwn(e.dst_sid);
  v.dst_did_wwn = wwn(e.dst_did);
  v.if_index = e.ifx;
  v.slot_num = e.slot;
  Bytes b = bytes_of(v);
  if (size == sizeof(wayshunt_kvs_data_rw_acl_entry_32_t)) b.back() = pad;
  b.resize(size, pad);
  return b;
}

// Flow-thru host key: 22 bytes (wide) or the 18-byte form of 4.1.3 or lower.
inline Bytes ft_key(bool wide, uint64_t host, uint64_t tgt, uint8_t sub = 0, int32_t vsan = 0) {
  if (wide) {
    wayshunt_kvs_key_flow_thru_host_t k{{WAYSHUNT_KVS_KEY_FLOW_THRU_HOST, sub}, vsan, wwn(host), wwn(tgt)};
    return bytes_of(k);
  }
  wayshunt_kvs_key_flow_thru_host_413_t k{{WAYSHUNT_KVS_KEY_FLOW_THRU_HOST, sub}, wwn(host), wwn(tgt)};
  return bytes_of(k);
}

// ELS ACL value (37 bytes).
inline Bytes els_value(uint64_t tgt, uint64_t src, if_index_t ifx, uint32_t flags = 0, uint8_t slot = 0) {
  wayshunt_kvs_data_els_acl_entry_t v;
  std::memset(&v, 0x5e, sizeof v);
  v.tgt_pwwn = wwn(tgt);
  v.src_pwwn = wwn(src);
  v.if_index = ifx;
  v.flags = flags;
  v.slot_num = slot;
  return bytes_of(v);
}

}  // namespace rec

#endif
