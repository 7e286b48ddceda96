// Upgrade from 4.1.3 or lower: one walk over the runtime store hands each
// record to the processor of its key type (flow-thru keys widened, RW ACL
// entries repaired, ELS ACL entries given their slot); after the walk the
// widened keys are stored, the physical and virtual entries of each target
// are resolved, and the store is closed.
#include "wayshunt_cnv_upgrade_413.h"

#include <stdlib.h>
#include <string.h>

#include "wayshunt_cnv_log.h"

// Hands one record to the processor of its key type.
WAYSHUNT_CNV_INLINE void process_record(kvs_service_t service, const kvs_datum_t *pkey, const kvs_datum_t *kvs_data_p,
                                        tk_cqueue_t *q, tk_hashtable_64_t *ht, wayshunt_cnv_tgt_heads_t *heads_p,
                                        wayshunt_bool_t *del_key_p) {
  uint32 key_type = ((const uchar *)pkey->ptr)[0];
  switch (key_type) {
    case WAYSHUNT_KVS_KEY_FLOW_THRU_HOST:
      wayshunt_cnv_upg_from_413_or_lower_process_flow_thru_entry(service, pkey, kvs_data_p, q, del_key_p);
      break;
    case WAYSHUNT_KVS_KEY_ACL_RW_1:
    case WAYSHUNT_KVS_KEY_ACL_RW_2:
    case WAYSHUNT_KVS_KEY_ACL_RW_3:
      wayshunt_cnv_413_repair_acl_rw_entry_listed(service, pkey, kvs_data_p, ht, heads_p);
      break;
    case WAYSHUNT_KVS_KEY_ACL_ELS_1:
    case WAYSHUNT_KVS_KEY_ACL_ELS_2:
    case WAYSHUNT_KVS_KEY_ACL_ELS_3:
      wayshunt_cnv_upg_from_413_or_lower_process_acl_els_entry(service, pkey, kvs_data_p);
      break;
    default:
      break;
  }
}

// Deletes the 18-byte key whose widened form is queued, and gives the key
// the walk goes on with. Traces as func, the driver.
WAYSHUNT_CNV_INLINE const kvs_datum_t *delete_narrow_key(kvs_service_t service, const kvs_datum_t *pkey,
                                                         const char *func) {
  uchar copy[sizeof(wayshunt_kvs_key_flow_thru_host_413_t)];
  retcode_t rc;

  // Only 18-byte keys are marked for deletion, so the copy holds the
  // whole key. A delete that fails leaves the cursor on the key: the
  // walk then moves past it instead of processing it again, and the
  // record keeps its old key beside the widened one already queued.
  unsigned int siz = pkey->siz <= sizeof copy ? pkey->siz : 0;
  const void *saved = siz != 0 ? memcpy(copy, pkey->ptr, siz) : NULL;
  rc = kvs_delete(service, pkey);
  if (rc != 0)
    WAYSHUNT_CNV_TRACE_AS(func, "%s():%d Del Key failed: 0x%x\n", rc);
  else
    WAYSHUNT_CNV_TRACE_AS(func, "%s():%d Deleted Entry\n");
  pkey = wayshunt_cnv_key_after_delete(service, saved, siz, rc, &rc);
  if (rc != 0) WAYSHUNT_CNV_TRACE_AS(func, "%s():%d get Key failed: 0x%x\n", rc);
  return pkey;
}

// Stores the widened keys, in the order of the walk, each with a 4-byte zero
// value, and frees them. Traces as func, the driver.
WAYSHUNT_CNV_INLINE void store_widened_keys(kvs_service_t service, tk_cqueue_t *q, const char *func) {
  const void *entry_421_p = NULL;
  tk_cq_cookie_t cookie = 0;
  kvs_datum_t kvs_key, kvs_data;
  uint32 dummy = 0;
  retcode_t rc = tk_cq_dequeue_head(q, &entry_421_p, &cookie);
  while (rc == 0) {
    wayshunt_kvs_key_flow_thru_host_t entry;
    memcpy(&entry, entry_421_p, sizeof entry);
    kvs_key.ptr = (void *)entry_421_p;
    kvs_key.siz = sizeof(wayshunt_kvs_key_flow_thru_host_t);
    kvs_data.ptr = &dummy;
    kvs_data.siz = sizeof dummy;
    rc = kvs_store(service, KVS_STORE_REPLACE, &kvs_key, &kvs_data);
    if (rc != 0) WAYSHUNT_CNV_TRACE_AS(func, "%s():%d KVS Store Failed: %s 0x%x\n", retcode2str(rc), rc);
    WAYSHUNT_CNV_TRACE_AS(func, "%s():%d siz: %u, FT Entry: tgt PWWN: " WAYSHUNT_CNV_WWN_FMT ", host_pwwn: " WAYSHUNT_CNV_WWN_FMT
                       "\n",
                       kvs_key.siz, WAYSHUNT_CNV_WWN_ARGS(entry.tgt_pwwn), WAYSHUNT_CNV_WWN_ARGS(entry.host_pwwn));
    free((void *)entry_421_p);
    entry_421_p = NULL;
    rc = tk_cq_dequeue_head(q, &entry_421_p, &cookie);
  }

  wayshunt_cnv_free_queued_keys(q, rc);
}

extern "C" {

retcode_t wayshunt_cnv_config_upgrade_from_413_or_lower(const char *kvs_url) {
  kvs_service_t service;
  const kvs_datum_t *pkey;
  const kvs_datum_t *kvs_data_p;
  retcode_t rc = 0;
  uint32 key_type;
  wayshunt_bool_t del_key = 0;
  tk_cqueue_t flow_thru_entry_q;
  tk_hashtable_64_t tgt_ht;
  wayshunt_cnv_tgt_heads_t heads;  // the chains' heads, so that every chain is freed

  memset(&heads, 0, sizeof heads);
  rc = tk_cq_init(&flow_thru_entry_q, 0);
  if (rc != 0) WAYSHUNT_CNV_TRACE("%s():%d CQ Init Failed: 0x%x\n", rc);
  // Without a target table no entry could be resolved, and the walk would
  // have repaired entries that the fix-up then never sees. The conversion
  // stops before the store is opened, so the store stays as it was, and the
  // caller gets the table's status.
  rc = tk_hashtable_64_init(&tgt_ht, 256, tk_hashtable_64_modulo_size_hash_fn);
  if (rc != 0) {
    WAYSHUNT_CNV_TRACE("%s():%d Failed to Init Hash Table: %s 0x%x\n", retcode2str(rc), rc);
    tk_cq_destroy(&flow_thru_entry_q);
    return rc;
  }
  service = kvs_open(kvs_url, &rc);
  if (rc != 0) {
    WAYSHUNT_CNV_TRACE("%s():%d kvs_open error: %s\n", retcode2str(rc));
    tk_cq_destroy(&flow_thru_entry_q);
    tk_hashtable_64_destroy(&tgt_ht);
    return rc;
  }

  pkey = kvs_move2location(service, KVS_LOC_FIRST, &rc);
  if (rc == KVS_ERR_NO_KEY)
    WAYSHUNT_CNV_TRACE("%s():%d NO KEY\n");
  else if (rc != 0)
    WAYSHUNT_CNV_TRACE("%s():%d Error: 0x%x\n", rc);
  while (pkey != NULL) {
    if (pkey->ptr == NULL || pkey->siz == 0) {
      pkey = kvs_move2location(service, KVS_LOC_NEXT, &rc);
      if (rc != 0) WAYSHUNT_CNV_TRACE("%s():%d kvs_move2location failed: 0x%x\n", rc);
      continue;
    }
    key_type = ((const uchar *)pkey->ptr)[0];
    // A missing value goes to the processors as it comes: each of them
    // leaves a record whose value it cannot read in full as it stands.
    kvs_data_p = kvs_getvalue(service, &rc);
    WAYSHUNT_CNV_TRACE("%s():%d key %u\n", key_type);
    process_record(service, pkey, kvs_data_p, &flow_thru_entry_q, &tgt_ht, &heads, &del_key);
    if (del_key == 1) {
      pkey = delete_narrow_key(service, pkey, __func__);
      del_key = 0;
      continue;
    }
    pkey = kvs_move2location(service, KVS_LOC_NEXT, &rc);
    if (rc != 0) WAYSHUNT_CNV_TRACE("%s():%d Move Key failed: 0x%x\n", rc);
  }

  store_widened_keys(service, &flow_thru_entry_q, __func__);
  rc = tk_cq_destroy(&flow_thru_entry_q);
  wayshunt_cnv_upgrade_from_413_fix_trunk_entries(service, &tgt_ht);
  wayshunt_cnv_release_tgt_chains(&tgt_ht, &heads);
  tk_hashtable_64_destroy(&tgt_ht);
  rc = kvs_close(service);
  if (rc != 0) {
    WAYSHUNT_CNV_TRACE("%s():%d kvs_close error: %s\n", retcode2str(rc));
    return rc;
  }
  WAYSHUNT_CNV_TRACE("%s():%d Upgrade from 4.1.3 or lower successful\n");
  return 0;
}
}
