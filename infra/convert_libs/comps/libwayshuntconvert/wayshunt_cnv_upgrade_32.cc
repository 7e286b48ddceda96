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

int32 wayshunt_cnv_config_upgrade_from_32(const char *kvs_url) {
  retcode_t rcode = 0;
  kvs_service_t service;
  tk_hashtable_64_t tgt_ht;
  wayshunt_cnv_tgt_heads_t heads;  // the chains' heads, so that every chain is freed

  memset(&heads, 0, sizeof heads);

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
  (void)wayshunt_cnv_32_build_tgt_ht_listed(service, &tgt_ht, &heads);
  wayshunt_cnv_upgrade_from_32_fix_trunk_entries(service, &tgt_ht);
  // The store is closed while the table still stands; the nodes go after.
  rcode = kvs_close(service);
  if (rcode != 0) WAYSHUNT_CNV_TRACE("%s():%d kvs_close error: %s\n", retcode2str(rcode));
  wayshunt_cnv_release_tgt_chains(&tgt_ht, &heads);
  tk_hashtable_64_destroy(&tgt_ht);
  if (rcode != 0) return (int32)rcode;
  WAYSHUNT_CNV_TRACE("%s():%d Upgrade runtime KVS from 3.2 successful\n");
  return 0;
}
}
