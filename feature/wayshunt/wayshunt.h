/* Stored forms of the wayshunt service's runtime store "wayshunt_runtime_ha":
 * key types, key and value layouts of every release era, and the bits of
 * acl_flags. Shared with the service on both sides of a release move, so
 * every layout is fixed to the byte and checked at compile time.
 *
 * Eras: 3.2; above 3.2 and below 4.2 (named "413" below); 4.2 and above.
 * No record carries a version mark: the era of a record follows from the
 * direction of the move.
 *
 * All forms are packed. Integers are little-endian; worldwide names (wwn_t)
 * and Fibre Channel addresses (fcid_t) are byte strings in network order and
 * are never byte-swapped. */
#ifndef WAYSHUNT_H
#define WAYSHUNT_H

#include <stddef.h>

#include "if_index.h"
#include "types.h"

#ifdef __cplusplus
#define WAYSHUNT_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define WAYSHUNT_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

WAYSHUNT_STATIC_ASSERT(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "stored integers are read in place as little-endian");

/* ---- key types (kvs_type, the first key byte) ---- */
#define WAYSHUNT_KVS_KEY_FLOW_THRU_HOST 54
#define WAYSHUNT_KVS_KEY_ACL_RW_1 55
#define WAYSHUNT_KVS_KEY_ACL_RW_2 56
#define WAYSHUNT_KVS_KEY_ACL_RW_3 57
#define WAYSHUNT_KVS_KEY_ACL_ELS_1 58
#define WAYSHUNT_KVS_KEY_ACL_ELS_2 59
#define WAYSHUNT_KVS_KEY_ACL_ELS_3 60
#define WAYSHUNT_KVS_KEY_RUNTIME_LC_INFO 63

/* ---- bits of acl_flags ---- */
#define WAYSHUNT_ACL_FLAG_PGM_PENDING 0x80u
#define WAYSHUNT_ACL_FLAG_PGM_BUSY 0x100u
#define WAYSHUNT_ACL_FLAG_ISL 0x40000u
#define WAYSHUNT_ACL_FLAG_PHYSICAL 0x100000u
#define WAYSHUNT_ACL_FLAG_VIRTUAL 0x200000u
#define WAYSHUNT_ACL_FLAG_VW 0x400000u
#define WAYSHUNT_ACL_FLAG_FO 0x2000000u
#define WAYSHUNT_ACL_FLAG_DROP_ALL 0x4000000u

/* A slot lookup that failed. */
#define WAYSHUNT_SLOT_INVALID 255

#pragma pack(push, 1)

/* ---- base types ---- */

/* Worldwide name: 8 bytes, printed from byte 0 to byte 7. num is the same
 * bytes read as one little-endian number (no byte swap). */
typedef union wwn_ {
  uint8 str[8];
  uint64 num;
} wwn_t;

/* Fibre Channel address; read big-endian it is the value printed "0x%06x". */
typedef union fcid_ {
  uint8 str[4];
  uint32 num;
  struct {
    uint8 invalid;
    uint8 domain;
    uint8 area;
    uint8 port;
  } fcid;
} fcid_t;

typedef int32 vsan_id_t;

typedef struct lun_ {
  uint8 lun[8];
} lun_t;

/* ---- keys ---- */

/* Header of every key. */
typedef struct wayshunt_kvs_key_ {
  uint8 kvs_type;
  uint8 kvs_sub_type;
} wayshunt_kvs_key_t;

/* Flow-thru host key, era 4.2 and above: 22 bytes. */
typedef struct wayshunt_kvs_key_flow_thru_host_ {
  wayshunt_kvs_key_t key_type;
  vsan_id_t vsan;
  wwn_t host_pwwn;
  wwn_t tgt_pwwn;
} wayshunt_kvs_key_flow_thru_host_t;

/* Flow-thru host key, eras 3.2 and 4.1.3 or lower: 18 bytes, no vsan. */
typedef struct wayshunt_kvs_key_flow_thru_host_413_ {
  wayshunt_kvs_key_t key_type;
  wwn_t host_pwwn;
  wwn_t tgt_pwwn;
} wayshunt_kvs_key_flow_thru_host_413_t;

/* RW ACL key (types 55, 56, 57): 10 bytes. acl_hash_key_lower is opaque. */
typedef struct wayshunt_kvs_key_rw_acl_entry_ {
  wayshunt_kvs_key_t key_type;
  uint64 acl_hash_key_lower;
} wayshunt_kvs_key_rw_acl_entry_t;

/* ---- values ---- */

/* Cross-fabric rewrite key: 13 bytes; lun takes no room in the record. */
typedef struct acl_hub_crossfab_rewrite_key_ {
  vsan_id_t vsan;
  fcid_t sid;
  fcid_t did;
  uint8 num_luns;
  lun_t lun[0];
} acl_hub_crossfab_rewrite_key_t;

/* Cross-fabric rewrite info: 20 bytes. */
typedef struct acl_hub_crossfab_rewrite_info_ {
  vsan_id_t vsan;
  fcid_t sid;
  fcid_t did;
  uint8 up;
  uint8 up_valid;
  uint8 num_prog_if_MSB;
  uint8 num_del_if_MSB;
  uint32 flags;
} acl_hub_crossfab_rewrite_info_t;

/* RW ACL value, eras 4.1.3 or lower and 4.2 and above: 82 bytes. */
typedef struct wayshunt_kvs_data_rw_acl_entry_ {
  wwn_t tgt_pwwn;
  uint32 acl_flags;
  wwn_t src_sid_wwn;
  wwn_t src_did_wwn;
  wwn_t dst_sid_wwn;
  wwn_t dst_did_wwn;
  if_index_t if_index;
  acl_hub_crossfab_rewrite_key_t rw_key;
  acl_hub_crossfab_rewrite_info_t rw_info;
  slot_num_t slot_num;
} wayshunt_kvs_data_rw_acl_entry_t;

/* RW ACL value of type 55, era 3.2: 84 bytes. The fields end at byte 80;
 * bytes 81 to 83 belong to no field and pass through unread. */
typedef struct wayshunt_kvs_data_rw_acl_entry_32_ {
  wwn_t tgt_pwwn;
  uint32 acl_flags;
  wwn_t src_sid_wwn;
  wwn_t src_did_wwn;
  wwn_t dst_sid_wwn;
  wwn_t dst_did_wwn;
  if_index_t if_index;
  acl_hub_crossfab_rewrite_key_t rw_key;
  acl_hub_crossfab_rewrite_info_t rw_info;
  uint8 unused[3];
} wayshunt_kvs_data_rw_acl_entry_32_t;

/* ELS ACL value (types 58, 59, 60): 37 bytes. */
typedef struct wayshunt_kvs_data_els_acl_entry_ {
  wwn_t tgt_pwwn;
  wwn_t src_pwwn;
  vsan_id_t src_vsan;
  fcid_t src_fcid;
  fcid_t dst_fcid;
  if_index_t if_index;
  uint32 flags;
  slot_num_t slot_num;
} wayshunt_kvs_data_els_acl_entry_t;

#pragma pack(pop)

/* ---- layout checks ---- */
#define WAYSHUNT_AT(type, field, off) WAYSHUNT_STATIC_ASSERT(offsetof(type, field) == (off), #type "." #field)
#define WAYSHUNT_SIZE(type, size) WAYSHUNT_STATIC_ASSERT(sizeof(type) == (size), "size of " #type)

WAYSHUNT_SIZE(wwn_t, 8);
WAYSHUNT_SIZE(fcid_t, 4);
WAYSHUNT_SIZE(lun_t, 8);
WAYSHUNT_SIZE(wayshunt_kvs_key_t, 2);

WAYSHUNT_SIZE(wayshunt_kvs_key_flow_thru_host_t, 22);
WAYSHUNT_AT(wayshunt_kvs_key_flow_thru_host_t, vsan, 2);
WAYSHUNT_AT(wayshunt_kvs_key_flow_thru_host_t, host_pwwn, 6);
WAYSHUNT_AT(wayshunt_kvs_key_flow_thru_host_t, tgt_pwwn, 14);

WAYSHUNT_SIZE(wayshunt_kvs_key_flow_thru_host_413_t, 18);
WAYSHUNT_AT(wayshunt_kvs_key_flow_thru_host_413_t, host_pwwn, 2);
WAYSHUNT_AT(wayshunt_kvs_key_flow_thru_host_413_t, tgt_pwwn, 10);

WAYSHUNT_SIZE(wayshunt_kvs_key_rw_acl_entry_t, 10);
WAYSHUNT_AT(wayshunt_kvs_key_rw_acl_entry_t, acl_hash_key_lower, 2);

WAYSHUNT_SIZE(acl_hub_crossfab_rewrite_key_t, 13);
WAYSHUNT_AT(acl_hub_crossfab_rewrite_key_t, sid, 4);
WAYSHUNT_AT(acl_hub_crossfab_rewrite_key_t, did, 8);
WAYSHUNT_AT(acl_hub_crossfab_rewrite_key_t, num_luns, 12);
WAYSHUNT_AT(acl_hub_crossfab_rewrite_key_t, lun, 13);

WAYSHUNT_SIZE(acl_hub_crossfab_rewrite_info_t, 20);
WAYSHUNT_AT(acl_hub_crossfab_rewrite_info_t, sid, 4);
WAYSHUNT_AT(acl_hub_crossfab_rewrite_info_t, did, 8);
WAYSHUNT_AT(acl_hub_crossfab_rewrite_info_t, up, 12);
WAYSHUNT_AT(acl_hub_crossfab_rewrite_info_t, up_valid, 13);
WAYSHUNT_AT(acl_hub_crossfab_rewrite_info_t, num_prog_if_MSB, 14);
WAYSHUNT_AT(acl_hub_crossfab_rewrite_info_t, num_del_if_MSB, 15);
WAYSHUNT_AT(acl_hub_crossfab_rewrite_info_t, flags, 16);

WAYSHUNT_SIZE(wayshunt_kvs_data_rw_acl_entry_t, 82);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_t, acl_flags, 8);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_t, src_sid_wwn, 12);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_t, src_did_wwn, 20);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_t, dst_sid_wwn, 28);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_t, dst_did_wwn, 36);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_t, if_index, 44);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_t, rw_key, 48);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_t, rw_info, 61);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_t, slot_num, 81);

WAYSHUNT_SIZE(wayshunt_kvs_data_rw_acl_entry_32_t, 84);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_32_t, acl_flags, 8);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_32_t, src_sid_wwn, 12);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_32_t, src_did_wwn, 20);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_32_t, dst_sid_wwn, 28);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_32_t, dst_did_wwn, 36);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_32_t, if_index, 44);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_32_t, rw_key, 48);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_32_t, rw_info, 61);
WAYSHUNT_AT(wayshunt_kvs_data_rw_acl_entry_32_t, unused, 81);

WAYSHUNT_SIZE(wayshunt_kvs_data_els_acl_entry_t, 37);
WAYSHUNT_AT(wayshunt_kvs_data_els_acl_entry_t, src_pwwn, 8);
WAYSHUNT_AT(wayshunt_kvs_data_els_acl_entry_t, src_vsan, 16);
WAYSHUNT_AT(wayshunt_kvs_data_els_acl_entry_t, src_fcid, 20);
WAYSHUNT_AT(wayshunt_kvs_data_els_acl_entry_t, dst_fcid, 24);
WAYSHUNT_AT(wayshunt_kvs_data_els_acl_entry_t, if_index, 28);
WAYSHUNT_AT(wayshunt_kvs_data_els_acl_entry_t, flags, 32);
WAYSHUNT_AT(wayshunt_kvs_data_els_acl_entry_t, slot_num, 36);

#undef WAYSHUNT_AT
#undef WAYSHUNT_SIZE

#endif
