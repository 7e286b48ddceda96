// Downgrade to 4.1.3 or lower: every flow-thru host record (key type 54)
// leaves the store and comes back under its 18-byte key, without vsan, with a
// 4-byte zero value. The narrowed keys wait in a queue, in the order of the
// walk, and are stored once the walk is over.
#include <stdlib.h>
#include <string.h>

#include "wayshunt_cnv_log.h"

// Queues the narrowed form of a 22-byte flow-thru key. 0 when the record
// must stay as it is: a key of another size (already narrow, or of no known
// form) has no narrowing, and a key that could not be allocated or queued
// would be lost by the delete that follows.
extern "C" wayshunt_bool_t wayshunt_cnv_queue_narrowed_key(const kvs_datum_t *pkey, tk_cqueue_t *q) {
  if (pkey->siz != sizeof(wayshunt_kvs_key_flow_thru_host_t)) return 0;
  const uchar *key = (const uchar *)pkey->ptr;
  uchar *entry_413_p = (uchar *)wayshunt_cnv_malloc(sizeof(wayshunt_kvs_key_flow_thru_host_413_t));
  if (entry_413_p == NULL) return 0;
  memcpy(entry_413_p, key, sizeof(wayshunt_kvs_key_t));
  memcpy(entry_413_p + sizeof(wayshunt_kvs_key_t), key + offsetof(wayshunt_kvs_key_flow_thru_host_t, host_pwwn),
         2 * sizeof(wwn_t));
  if (tk_cq_enqueue_tail(q, entry_413_p, 0) != 0) {
    free(entry_413_p);
    return 0;
  }
  return 1;
}

extern "C" retcode_t wayshunt_cnv_config_downgrade_to_413_or_lower(const char *kvs_url) {
  kvs_service_t service;
  const kvs_datum_t *pkey;
  retcode_t rc = 0;
  tk_cqueue_t flow_thru_entry_q;
  tk_cq_cookie_t cookie;
  kvs_datum_t kvs_key, kvs_data;
  uint32 dummy = 0;
  const void *entry_413_p = NULL;
  uchar copy[WAYSHUNT_CNV_KEY_COPY];

  WAYSHUNT_CNV_TRACE("%s():%d Converting Flow-Thru Entries to lower version\n");
  rc = tk_cq_init(&flow_thru_entry_q, 0);
  service = kvs_open(kvs_url, &rc);
  if (rc != 0) {
    WAYSHUNT_CNV_TRACE("%s():%d kvs_open error: %s\n", retcode2str(rc));
    tk_cq_destroy(&flow_thru_entry_q);
    return rc;
  }
  pkey = kvs_move2location(service, KVS_LOC_FIRST, &rc);
  if (rc == KVS_ERR_NO_KEY) {
    WAYSHUNT_CNV_TRACE("%s():%d NO KEY\n");
    tk_cq_destroy(&flow_thru_entry_q);
    kvs_close(service);
    return KVS_ERR_NO_KEY;
  }
  while (pkey != NULL) {
    if (pkey->ptr == NULL || pkey->siz == 0) {
      pkey = kvs_move2location(service, KVS_LOC_NEXT, &rc);
      continue;
    }
    const uchar *key = (const uchar *)pkey->ptr;
    WAYSHUNT_CNV_TRACE("%s():%d key %u\n", key[0]);
    if (key[0] != WAYSHUNT_KVS_KEY_FLOW_THRU_HOST || !wayshunt_cnv_queue_narrowed_key(pkey, &flow_thru_entry_q)) {
      pkey = kvs_move2location(service, KVS_LOC_NEXT, &rc);
      continue;
    }
    unsigned int siz = pkey->siz;
    const void *saved = memcpy(copy, key, siz);
    rc = kvs_delete(service, pkey);
    WAYSHUNT_CNV_TRACE("%s():%d removed FLOW_THRU Entry\n");
    pkey = wayshunt_cnv_key_after_delete(service, saved, siz, rc, &rc);
  }
  rc = tk_cq_dequeue_head(&flow_thru_entry_q, &entry_413_p, &cookie);
  while (rc == 0) {
    kvs_key.ptr = (void *)entry_413_p;
    kvs_key.siz = sizeof(wayshunt_kvs_key_flow_thru_host_413_t);
    kvs_data.ptr = &dummy;
    kvs_data.siz = sizeof dummy;
    rc = kvs_store(service, KVS_STORE_REPLACE, &kvs_key, &kvs_data);
    if (rc != 0) WAYSHUNT_CNV_TRACE("%s():%d KVS Store Failed: %s 0x%x\n", retcode2str(rc), rc);
    free((void *)entry_413_p);
    rc = tk_cq_dequeue_head(&flow_thru_entry_q, &entry_413_p, &cookie);
  }
  wayshunt_cnv_free_queued_keys(&flow_thru_entry_q, rc);
  rc = tk_cq_destroy(&flow_thru_entry_q);
  rc = kvs_close(service);
  if (rc == 0) return 0;
  WAYSHUNT_CNV_TRACE("%s():%d kvs_close error: %s\n", retcode2str(rc));
  return rc;
}
