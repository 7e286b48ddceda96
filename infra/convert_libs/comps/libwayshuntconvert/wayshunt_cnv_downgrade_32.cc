// Downgrade to 3.2: the runtime line card records (key type 63) leave the
// store; nothing else is touched and no value is read.
#include <stdlib.h>
#include <string.h>

#include "wayshunt_cnv_log.h"

extern "C" int32 wayshunt_cnv_config_downgrade_to_3_2(const char *kvs_url) {
  kvs_service_t service;
  const kvs_datum_t *pkey;
  retcode_t rcode = 0;
  uchar copy[WAYSHUNT_CNV_KEY_COPY];

  WAYSHUNT_CNV_TRACE("%s():%d removing all WAYSHUNT_KVS_KEY_RUNTIME_LC_INFO keys from KVS\n");
  service = kvs_open(kvs_url, &rcode);
  if (rcode != 0) {
    WAYSHUNT_CNV_TRACE("%s():%d kvs_open error: %s\n", retcode2str(rcode));
    return rcode;
  }
  pkey = kvs_move2location(service, KVS_LOC_FIRST, &rcode);
  if (rcode == KVS_ERR_NO_KEY) {
    WAYSHUNT_CNV_TRACE("%s():%d NO KEY\n");
    kvs_close(service);
    return KVS_ERR_NO_KEY;
  }
  while (pkey != NULL) {
    if (pkey->ptr == NULL || pkey->siz == 0) {
      pkey = kvs_move2location(service, KVS_LOC_NEXT, &rcode);
      continue;
    }
    const uchar *key = (const uchar *)pkey->ptr;
    WAYSHUNT_CNV_TRACE("%s():%d key %u\n", key[0]);
    if (key[0] != WAYSHUNT_KVS_KEY_RUNTIME_LC_INFO) {
      pkey = kvs_move2location(service, KVS_LOC_NEXT, &rcode);
      continue;
    }
    unsigned int siz = pkey->siz;
    void *heap_p;
    const void *saved = wayshunt_cnv_keep_key(pkey, copy, sizeof copy, &heap_p);
    rcode = kvs_delete(service, pkey);
    WAYSHUNT_CNV_TRACE("%s():%d removed WAYSHUNT_KVS_KEY_RUNTIME_LC_INFO\n");
    // The cursor already stands on the next key, unless the delete failed
    // and left it on this one: then the walk moves past it.
    pkey = wayshunt_cnv_key_after_delete(service, saved, siz, rcode, &rcode);
    free(heap_p);
  }
  rcode = kvs_close(service);
  if (rcode == 0) {
    WAYSHUNT_CNV_TRACE("%s():%d Downgrade runtime KVS to 3.2 successful\n");
    return 0;
  }
  WAYSHUNT_CNV_TRACE("%s():%d kvs_close error: %s\n", retcode2str(rcode));
  return rcode;
}
