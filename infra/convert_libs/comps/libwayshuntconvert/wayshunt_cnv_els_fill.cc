// Slot fill of one ELS ACL record on the way up from 4.1.3 or lower: byte 36
// gets the slot of the entry's interface, the other 36 bytes stay as they
// were, and the 37-byte value goes back under the same key.
#include <string.h>

#include "wayshunt_cnv_log.h"
#include "wayshunt_cnv_upgrade_413.h"

extern "C" void wayshunt_cnv_upg_from_413_or_lower_process_acl_els_entry(kvs_service_t service,
                                                                         const kvs_datum_t *kvs_key_p,
                                                                         const kvs_datum_t *kvs_data_p) {
  wayshunt_kvs_data_els_acl_entry_t new_acl_els_data;
  kvs_datum_t kvs_data;
  retcode_t rc;

  // A record whose value is missing or shorter than the 37-byte form has no
  // interface to read: it stays in the store as it is.
  if (kvs_data_p == NULL || kvs_data_p->ptr == NULL || kvs_data_p->siz < sizeof new_acl_els_data) return;
  memcpy(&new_acl_els_data, kvs_data_p->ptr, sizeof new_acl_els_data);
  WAYSHUNT_CNV_TRACE("%s():%d ACL Entry - Before Processing\n");
  WAYSHUNT_CNV_TRACE_ELS_ENTRY(&new_acl_els_data);
  new_acl_els_data.slot_num = wayshunt_cnv_get_slot_no_from_if_index(new_acl_els_data.if_index);
  WAYSHUNT_CNV_TRACE("%s():%d new slot num: %u\n", new_acl_els_data.slot_num);
  WAYSHUNT_CNV_TRACE("%s():%d ACL Entry - After Processing\n");
  WAYSHUNT_CNV_TRACE_ELS_ENTRY(&new_acl_els_data);
  kvs_data.ptr = &new_acl_els_data;
  kvs_data.siz = sizeof new_acl_els_data;
  rc = kvs_store(service, KVS_STORE_REPLACE, kvs_key_p, &kvs_data);
  if (rc != 0) WAYSHUNT_CNV_TRACE("%s():%d KVS Store Failed: %s 0x%x\n", retcode2str(rc), rc);
}
