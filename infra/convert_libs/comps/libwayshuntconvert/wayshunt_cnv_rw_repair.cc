// Repair of one RW ACL record on the way up from 4.1.3 or lower: the slot
// number from the entry's interface, four flag rules, an 82-byte value under
// the same key, and physical entries handed to the target table. Also the
// slot lookup, which the ELS slot fill shares.
#include <string.h>

#include "portmap.h"
#include "wayshunt_cnv_log.h"
#include "wayshunt_cnv_upgrade_413.h"

extern "C" {

slot_num_t wayshunt_cnv_get_slot_no_from_if_index(if_index_t if_index) {
  slot_num_t slot_num = 0;
  retcode_t rc = portmap_get_slot(if_index, &slot_num);
  if (rc != 0) {
    WAYSHUNT_CNV_TRACE("%s():%d get slot Failed: rc = 0x%x\n", rc);
    return WAYSHUNT_SLOT_INVALID;
  }
  WAYSHUNT_CNV_TRACE("%s():%d slot_num = %u\n", slot_num);
  return slot_num;
}

// The name the repair's traces carry, also when its driver runs it.
#define REPAIR_STEP "wayshunt_cnv_upg_from_413_or_lower_process_acl_rw_entry"

void wayshunt_cnv_413_repair_acl_rw_entry_listed(kvs_service_t service, const kvs_datum_t *kvs_key_p,
                                                 const kvs_datum_t *kvs_data_p, tk_hashtable_64_t *tgt_ht_p,
                                                 wayshunt_cnv_tgt_heads_t *heads_p) {
  wayshunt_kvs_data_rw_acl_entry_t new_acl_rw_data;
  wayshunt_kvs_key_rw_acl_entry_t acl_key;
  kvs_datum_t kvs_data;
  uint32 key_type;
  retcode_t rc;

  // A record whose value is missing or shorter than the 82-byte form has
  // nothing to repair from: it stays in the store as it is and takes no part
  // in the fix-up.
  if (kvs_data_p == NULL || kvs_data_p->ptr == NULL || kvs_data_p->siz < sizeof new_acl_rw_data) return;
  key_type = ((const uchar *)kvs_key_p->ptr)[0];
  // The first 82 bytes: an 84-byte value of 3.2 loses its last two here.
  memcpy(&new_acl_rw_data, kvs_data_p->ptr, sizeof new_acl_rw_data);
  WAYSHUNT_CNV_TRACE_AS(REPAIR_STEP, "%s():%d ACL Entry Before Processing - key_type: %u\n", key_type);
  WAYSHUNT_CNV_TRACE_RW_ENTRY_AS(REPAIR_STEP, &new_acl_rw_data);
  new_acl_rw_data.slot_num = wayshunt_cnv_get_slot_no_from_if_index(new_acl_rw_data.if_index);
  WAYSHUNT_CNV_TRACE_AS(REPAIR_STEP, "%s():%d new slot num: %u\n", new_acl_rw_data.slot_num);

  if (key_type == WAYSHUNT_KVS_KEY_ACL_RW_1 && (new_acl_rw_data.acl_flags & WAYSHUNT_ACL_FLAG_VIRTUAL) &&
      (new_acl_rw_data.acl_flags & WAYSHUNT_ACL_FLAG_PGM_PENDING)) {
    new_acl_rw_data.acl_flags &= ~(WAYSHUNT_ACL_FLAG_PGM_PENDING | WAYSHUNT_ACL_FLAG_PGM_BUSY | WAYSHUNT_ACL_FLAG_FO);
    WAYSHUNT_CNV_TRACE_AS(REPAIR_STEP, "%s():%d Set PgmDone\n");
  }
  if ((new_acl_rw_data.acl_flags & WAYSHUNT_ACL_FLAG_DROP_ALL) && new_acl_rw_data.dst_sid_wwn.num != 0) {
    new_acl_rw_data.acl_flags &= ~WAYSHUNT_ACL_FLAG_DROP_ALL;
    WAYSHUNT_CNV_TRACE_AS(REPAIR_STEP, "%s():%d reset DROP ALL");
  }
  if ((new_acl_rw_data.acl_flags & WAYSHUNT_ACL_FLAG_PGM_BUSY) && (new_acl_rw_data.acl_flags & WAYSHUNT_ACL_FLAG_FO)) {
    new_acl_rw_data.acl_flags &= ~WAYSHUNT_ACL_FLAG_FO;
    WAYSHUNT_CNV_TRACE_AS(REPAIR_STEP, "%s():%d reset FO\n");
  }
  if ((new_acl_rw_data.acl_flags & WAYSHUNT_ACL_FLAG_VW) &&
      (new_acl_rw_data.acl_flags & (WAYSHUNT_ACL_FLAG_VIRTUAL | WAYSHUNT_ACL_FLAG_PGM_BUSY))) {
    new_acl_rw_data.acl_flags &= ~WAYSHUNT_ACL_FLAG_VW;
    WAYSHUNT_CNV_TRACE_AS(REPAIR_STEP, "%s():%d reset VW\n");
  }

  WAYSHUNT_CNV_TRACE_AS(REPAIR_STEP, "%s():%d ACL Entry - After Processing\n");
  WAYSHUNT_CNV_TRACE_RW_ENTRY_AS(REPAIR_STEP, &new_acl_rw_data);
  kvs_data.ptr = &new_acl_rw_data;
  kvs_data.siz = sizeof new_acl_rw_data;
  rc = kvs_store(service, KVS_STORE_REPLACE, kvs_key_p, &kvs_data);
  if (rc != 0) WAYSHUNT_CNV_TRACE_AS(REPAIR_STEP, "%s():%d KVS Store Failed: %s 0x%x\n", retcode2str(rc), rc);

  // The table takes the key's bytes 2 to 9 through its 10-byte layout. A
  // longer key is read through it too, and the fix-up then saves under the
  // 10-byte key built from those bytes, beside the longer record. A shorter
  // key does not hold them: its entry stays as stored above and takes no
  // part in the fix-up. The build of the 3.2 pass holds to the same rule.
  if ((new_acl_rw_data.acl_flags & WAYSHUNT_ACL_FLAG_PHYSICAL) && kvs_key_p->siz >= sizeof acl_key) {
    memcpy(&acl_key, kvs_key_p->ptr, sizeof acl_key);
    wayshunt_cnv413_add_entry_listed(tgt_ht_p, &acl_key, &new_acl_rw_data, heads_p);
  }
}

void wayshunt_cnv_upg_from_413_or_lower_process_acl_rw_entry(kvs_service_t service, const kvs_datum_t *kvs_key_p,
                                                             const kvs_datum_t *kvs_data_p,
                                                             tk_hashtable_64_t *tgt_ht_p) {
  wayshunt_cnv_413_repair_acl_rw_entry_listed(service, kvs_key_p, kvs_data_p, tgt_ht_p, NULL);
}
}
