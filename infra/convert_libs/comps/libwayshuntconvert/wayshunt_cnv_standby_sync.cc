// Copy of the service's stored files to the standby supervisor: four stores
// of three files each, in a fixed order. Best effort: a failed copy shows in
// a debug trace at most, and the next file is copied all the same.
#include "overseer.h"
#include "wayshunt_cnv_decom.h"
#include "wayshunt_cnv_log.h"
#include "wayshunt_stored_files.h"

// Seconds the platform may take for one copy.
#define WAYSHUNT_CNV_GSYNC_TIMEOUT 60


extern "C" {

void wayshunt_cnv_sync_kvs_to_standby(hub_q_handle_t hub_q) {
  uint32 i;
  // The paths are only read on the way down.
  for (i = 0; i < WAYSHUNT_STORED_FILE_COUNT; i++) wayshunt_cnv_sync_file_to_standby(hub_q, (uchar *)wayshunt_stored_files[i]);
}

void wayshunt_cnv_sync_file_to_standby(hub_q_handle_t hub_q, uchar *file_path) {
  retcode_t rc;

  WAYSHUNT_CNV_TRACE("%s():%d gSyncing File - %s\n", (char *)file_path);
  // The file lands at the same path on the standby, replacing what is there.
  rc = overseercmn_file_gsync(hub_q, WAYSHUNT_CNV_GSYNC_TIMEOUT, SRVUUID_WAYSHUNT, (const char *)file_path,
                              (const char *)file_path, 1, 0, 0, 0, 0);
  if (rc != 0) {
    WAYSHUNT_CNV_TRACE("%s():%d overseercmn_file_gsync FAILED - %08X (%s)\n", rc, retcode2str(rc));
    return;
  }
  WAYSHUNT_CNV_TRACE("%s():%d GSYNC DONE for File %s\n", (char *)file_path);
}
}
