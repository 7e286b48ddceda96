// Widening of one flow-thru host key from the 18-byte form to the 22-byte
// form (vsan 0, both header bytes and both names kept in place). The new key
// waits in the driver's queue and is stored after the walk; the driver
// deletes the old key.
#include <stdlib.h>
#include <string.h>

#include "wayshunt_cnv_log.h"
#include "wayshunt_cnv_upgrade_413.h"

extern "C" void wayshunt_cnv_upg_from_413_or_lower_process_flow_thru_entry(kvs_service_t service,
                                                                           const kvs_datum_t *kvs_key_p,
                                                                           const kvs_datum_t *kvs_data_p,
                                                                           tk_cqueue_t *flow_thru_entry_q_p,
                                                                           wayshunt_bool_t *del_key_p) {
  wayshunt_kvs_key_flow_thru_host_413_t entry_413;
  wayshunt_kvs_key_flow_thru_host_t entry_421;
  uchar *entry_421_p;
  retcode_t rc;
  (void)service;
  (void)kvs_data_p;

  // Only the 18-byte key has a widening. A key of another size (already
  // wide, or of no known form) is left in the store as it is: it is neither
  // read nor marked for deletion.
  if (kvs_key_p->siz != sizeof(wayshunt_kvs_key_flow_thru_host_413_t)) return;
  memcpy(&entry_413, kvs_key_p->ptr, sizeof entry_413);
  WAYSHUNT_CNV_TRACE(
      "%s():%d FT Entry OLD: tgt PWWN: " WAYSHUNT_CNV_WWN_FMT ", host_pwwn: " WAYSHUNT_CNV_WWN_FMT ", key_sz = %u\n",
      WAYSHUNT_CNV_WWN_ARGS(entry_413.tgt_pwwn), WAYSHUNT_CNV_WWN_ARGS(entry_413.host_pwwn), kvs_key_p->siz);
  // Without memory for the new key the record keeps its old key: it is not
  // marked for deletion, so it is not lost.
  entry_421_p = (uchar *)wayshunt_cnv_malloc(sizeof(wayshunt_kvs_key_flow_thru_host_t));
  if (entry_421_p == NULL) return;
  memcpy(entry_421_p, &entry_413, sizeof(wayshunt_kvs_key_t));
  memcpy(entry_421_p + offsetof(wayshunt_kvs_key_flow_thru_host_t, host_pwwn),
         (const uchar *)&entry_413 + offsetof(wayshunt_kvs_key_flow_thru_host_413_t, host_pwwn), 2 * sizeof(wwn_t));
  memcpy(&entry_421, entry_421_p, sizeof entry_421);
  WAYSHUNT_CNV_TRACE("%s():%d FT Entry New: tgt PWWN: " WAYSHUNT_CNV_WWN_FMT ", host_pwwn: " WAYSHUNT_CNV_WWN_FMT "\n",
                     WAYSHUNT_CNV_WWN_ARGS(entry_421.tgt_pwwn), WAYSHUNT_CNV_WWN_ARGS(entry_421.host_pwwn));
  rc = tk_cq_enqueue_tail(flow_thru_entry_q_p, entry_421_p, 0);
  if (rc != 0) {
    // The new key did not reach the queue: it is freed here, and the record
    // keeps its old key (not marked for deletion).
    WAYSHUNT_CNV_TRACE("%s():%d Enq. tail failed: 0x%x\n", rc);
    free(entry_421_p);
    return;
  }
  *del_key_p = 1;
}
