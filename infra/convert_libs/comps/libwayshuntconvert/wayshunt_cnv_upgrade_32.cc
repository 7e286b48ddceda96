// Upgrade from 3.2, first pass: every stored RW ACL entry of key type 55 on
// an inter-switch link is copied into one chain per target port name, the
// trunk fix-up (wayshunt_cnv_tgt_table_32.cc) rewrites the entries that need
// it, and the store is closed before the nodes are released. Values keep
// their 84-byte 3.2 form; the pass from 4.1.3 or lower narrows them next.
#include <stdlib.h>
#include <string.h>

#include "wayshunt_cnv_log.h"
#include "wayshunt_cnv_upgrade_32.h"

extern "C" {

void wayshunt_cnv_32_release_tgt_table(tk_hashtable_64_t *tgt_ht_p) {
  wwn_t tgt_pwwn;
  void *data_p = NULL;
  wayshunt_cnv_32_acl_rw_node_t *node_p, *nxt_node_p;
  tk_err_t rc;

  tgt_pwwn.num = 0;
  rc = tk_hashtable_64_get_first(tgt_ht_p, &tgt_pwwn.num, &data_p);
  while (rc == 0) {
    for (node_p = (wayshunt_cnv_32_acl_rw_node_t *)data_p; node_p != NULL; node_p = nxt_node_p) {
      nxt_node_p = node_p->nxt_p;
      free(node_p);
    }
    rc = tk_hashtable_64_traverse(tgt_ht_p, tgt_pwwn.num, &tgt_pwwn.num, &data_p);
  }
}

int32 wayshunt_cnv_upgrade_from_32_fix_trunk_entries_build_tgt_ht(kvs_service_t service, tk_hashtable_64_t *tgt_ht_p) {
  retcode_t rcode = 0, retcode = 0;
  const kvs_datum_t *pkey, *kvs_data_p;
  wayshunt_kvs_key_rw_acl_entry_t acl_key;
  wayshunt_kvs_data_rw_acl_entry_32_t acl_32;
  wayshunt_cnv_32_acl_rw_node_t *node_p;
  void *prev_p;

  pkey = kvs_move2location(service, KVS_LOC_FIRST, &rcode);
  if (rcode == KVS_ERR_NO_KEY || pkey == NULL) return 0;
  for (;;) {
    prev_p = NULL;
    if (pkey->ptr == NULL || pkey->siz == 0) goto next;
    if (((const uchar *)pkey->ptr)[0] != WAYSHUNT_KVS_KEY_ACL_RW_1) goto next;
    kvs_data_p = kvs_getvalue(service, &retcode);
    if (retcode != 0 || kvs_data_p == NULL || kvs_data_p->ptr == NULL || kvs_data_p->siz == 0) goto next;
    // A key or value of type 55 shorter than its layout cannot be read
    // whole: the record takes no part in this pass and stays as stored.
    if (pkey->siz < sizeof acl_key || kvs_data_p->siz < sizeof acl_32) goto next;
    memcpy(&acl_key, pkey->ptr, sizeof acl_key);
    memcpy(&acl_32, kvs_data_p->ptr, sizeof acl_32);
    if (!(acl_32.acl_flags & WAYSHUNT_ACL_FLAG_ISL)) goto next;
    // Without memory for a node the entry takes no part in the fix-up; its
    // record stays as stored and the walk goes on.
    node_p = (wayshunt_cnv_32_acl_rw_node_t *)wayshunt_cnv_malloc(sizeof *node_p);
    if (node_p == NULL) goto next;
    node_p->kvs_hash_key_lower = acl_key.acl_hash_key_lower;
    memcpy(&node_p->entry, &acl_32, sizeof node_p->entry);
    WAYSHUNT_CNV_TRACE("%s():%d Inserting new node into ht:\n");
    WAYSHUNT_CNV_TRACE_RW_ENTRY(&node_p->entry);
    WAYSHUNT_CNV_TRACE_KEY_LINE(node_p);
    if (tk_hashtable_64_find(tgt_ht_p, acl_32.tgt_pwwn.num, &prev_p) == 0) {
      wayshunt_cnv_32_acl_rw_node_t *head_p = (wayshunt_cnv_32_acl_rw_node_t *)prev_p;
      node_p->nxt_p = head_p->nxt_p;
      head_p->nxt_p = node_p;
      WAYSHUNT_CNV_TRACE("%s():%d Inserted after head\n");
    } else if (tk_hashtable_64_insert(tgt_ht_p, acl_32.tgt_pwwn.num, node_p) == 0) {
      WAYSHUNT_CNV_TRACE("%s():%d Inserted new entry\n");
    } else {
      // A node that the table refused is in no chain, so the release walk
      // would never reach it: it is freed here, untraced, and the entry
      // takes no part in the fix-up, its record staying as stored.
      free(node_p);
    }
  next:
    pkey = kvs_move2location(service, KVS_LOC_NEXT, &rcode);
    if (rcode == KVS_ERR_NO_KEY) {
      WAYSHUNT_CNV_TRACE("%s():%d NO KEY\n");
      return 0;
    }
    if (pkey == NULL) return 0;
  }
}

int32 wayshunt_cnv_config_upgrade_from_32(const char *kvs_url) {
  retcode_t rcode = 0;
  kvs_service_t service;
  tk_hashtable_64_t tgt_ht;

  WAYSHUNT_CNV_TRACE("%s():%d Fix all RW entries on ISL\n");
  service = kvs_open(kvs_url, &rcode);
  if (rcode != 0) {
    WAYSHUNT_CNV_TRACE("%s():%d kvs_open error: %s\n", retcode2str(rcode));
    return (int32)rcode;
  }
  rcode = tk_hashtable_64_init(&tgt_ht, 256, tk_hashtable_64_modulo_size_hash_fn);
  if (rcode != 0) {
    WAYSHUNT_CNV_TRACE("%s():%d Failed to Init Hash Table: %s 0x%x\n", retcode2str(rcode), rcode);
    kvs_close(service);
    return (int32)rcode;
  }
  (void)wayshunt_cnv_upgrade_from_32_fix_trunk_entries_build_tgt_ht(service, &tgt_ht);
  wayshunt_cnv_upgrade_from_32_fix_trunk_entries(service, &tgt_ht);
  // The store is closed while the table still stands; the nodes go after.
  rcode = kvs_close(service);
  if (rcode != 0) WAYSHUNT_CNV_TRACE("%s():%d kvs_close error: %s\n", retcode2str(rcode));
  wayshunt_cnv_32_release_tgt_table(&tgt_ht);
  tk_hashtable_64_destroy(&tgt_ht);
  if (rcode != 0) return (int32)rcode;
  WAYSHUNT_CNV_TRACE("%s():%d Upgrade runtime KVS from 3.2 successful\n");
  return 0;
}
}
