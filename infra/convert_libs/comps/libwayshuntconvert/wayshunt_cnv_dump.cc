// Entry dump: writes every record of an open store to the conversion log, as
// debug traces, for diagnosis. Stores and deletes nothing.
#include <string.h>

#include "wayshunt_cnv_log.h"

extern "C" {

uint32 wayshunt_cnv_fcid_value(fcid_t f) {
  return ((uint32)f.str[0] << 24) | ((uint32)f.str[1] << 16) | ((uint32)f.str[2] << 8) | f.str[3];
}

// The records print from copies, and a value that is missing or shorter than
// its layout prints nothing beyond its key line: the dump never reads past a
// datum's size.
uint32 wayshunt_cnv_print_kvs_entries(kvs_service_t service) {
  const kvs_datum_t *pkey, *kvs_data_p;
  retcode_t rcode = 0;
  uchar key_type;

  pkey = kvs_move2location(service, KVS_LOC_FIRST, &rcode);
  if (rcode == KVS_ERR_NO_KEY) {
    WAYSHUNT_CNV_TRACE("%s():%d NO keys \n");
    return 0;
  }
  if (pkey == NULL) return 0;
  for (;;) {
    if (pkey->ptr == NULL || pkey->siz == 0) {
      WAYSHUNT_CNV_TRACE("%s():%d NULL Ptr: %p or 0 size: %u\n", pkey->ptr, pkey->siz);
    } else {
      key_type = ((const uchar *)pkey->ptr)[0];
      kvs_data_p = kvs_getvalue(service, &rcode);
      unsigned int vsiz = kvs_data_p != NULL && kvs_data_p->ptr != NULL ? kvs_data_p->siz : 0;
      WAYSHUNT_CNV_TRACE("%s():%d key %u, siz:%u\n", key_type, pkey->siz);
      if (key_type == WAYSHUNT_KVS_KEY_FLOW_THRU_HOST) {
        WAYSHUNT_CNV_TRACE("%s():%d Key Size: %u", pkey->siz);
        if (pkey->siz == sizeof(wayshunt_kvs_key_flow_thru_host_413_t)) {
          wayshunt_kvs_key_flow_thru_host_413_t k;
          memcpy(&k, pkey->ptr, sizeof k);
          WAYSHUNT_CNV_TRACE("%s():%d FT Entry OLD: tgt PWWN: " WAYSHUNT_CNV_WWN_FMT
                             ", host_pwwn: " WAYSHUNT_CNV_WWN_FMT ", key_sz = %u\n",
                             WAYSHUNT_CNV_WWN_ARGS(k.tgt_pwwn), WAYSHUNT_CNV_WWN_ARGS(k.host_pwwn), pkey->siz);
        } else if (pkey->siz == sizeof(wayshunt_kvs_key_flow_thru_host_t)) {
          wayshunt_kvs_key_flow_thru_host_t k;
          memcpy(&k, pkey->ptr, sizeof k);
          WAYSHUNT_CNV_TRACE("%s():%d FT Entry New: vsan: %u, tgt PWWN: " WAYSHUNT_CNV_WWN_FMT
                             ", host_pwwn: " WAYSHUNT_CNV_WWN_FMT ", siz: %u\n",
                             k.vsan, WAYSHUNT_CNV_WWN_ARGS(k.tgt_pwwn), WAYSHUNT_CNV_WWN_ARGS(k.host_pwwn), pkey->siz);
        } else {
          WAYSHUNT_CNV_TRACE("%s():%d NOT Either Size\n");
        }
      } else if (key_type == WAYSHUNT_KVS_KEY_ACL_RW_1 && vsiz >= sizeof(wayshunt_kvs_data_rw_acl_entry_t)) {
        wayshunt_kvs_data_rw_acl_entry_t e;
        memcpy(&e, kvs_data_p->ptr, sizeof e);
        WAYSHUNT_CNV_TRACE_RW_ENTRY(&e);
        WAYSHUNT_CNV_TRACE("%s():%d Slot: %u\n", e.slot_num);
      } else if (key_type == WAYSHUNT_KVS_KEY_ACL_ELS_1 && vsiz >= sizeof(wayshunt_kvs_data_els_acl_entry_t)) {
        wayshunt_kvs_data_els_acl_entry_t e;
        memcpy(&e, kvs_data_p->ptr, sizeof e);
        WAYSHUNT_CNV_TRACE_ELS_ENTRY(&e);
      }
    }
    pkey = kvs_move2location(service, KVS_LOC_NEXT, &rcode);
    if (rcode == KVS_ERR_NO_KEY) {
      WAYSHUNT_CNV_TRACE("%s():%d NO KEY\n");
      return 0;
    }
    if (pkey == NULL) return 0;
  }
}
}
