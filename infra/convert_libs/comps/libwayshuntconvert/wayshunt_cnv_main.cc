// Entry points that the upgrade manager calls. Each stands by itself: it
// brackets its work with the log, resolves both releases afresh from the
// descriptor files and decides on those alone; the caller's version strings
// only show in traces.
#include <stdlib.h>

#include "overseer.h"
#include "wayshunt_cnv_log.h"

extern "C" {

retcode_t convert_running(char *pkg_name, char *from_pkg_version, char *to_pkg_version) {
  wayshunt_cnv_log_init(0);
  WAYSHUNT_CNV_TRACE("%s():%d wayshunt convert_running invoked\n");
  WAYSHUNT_CNV_TRACE("%s():%d pkg_name: %s, to = %s, from = %s\n", pkg_name, to_pkg_version, from_pkg_version);
  wayshunt_cnv_read_versions();
  WAYSHUNT_CNV_TRACE("%s():%d Nothing to Convert\n");
  wayshunt_cnv_log_cleanup();
  return 0;
}

retcode_t convert_startup(char *path, char *pkg_name, char *to_pkg_version, char *from_pkg_version) {
  retcode_t rc;
  wayshunt_cnv_log_init(0);
  WAYSHUNT_CNV_TRACE("%s():%d wayshunt convert_startup invoked\n");
  WAYSHUNT_CNV_TRACE("%s():%d pkg_name: %s, path = %s, to = %s, from = %s\n", pkg_name, path, to_pkg_version,
                     from_pkg_version);
  wayshunt_bool_t resolved;
  wayshunt_cnv_read_releases(&resolved);
  // Without both releases nothing is decided: the caller gets a status of
  // its own, and no error record is added to the nine the log knows.
  if (!resolved) {
    rc = WAYSHUNT_CNV_ERR_VERSION;
  } else {
    rc = wayshunt_handle_downgrade(path);
    if (rc != 0) WAYSHUNT_CNV_ERROR("%s():%d Handle Downgrade Failed");
  }
  wayshunt_cnv_log_cleanup();
  return rc;
}

retcode_t convert_gsync(char *path, char *pkg_name, char *to_pkg_version, char *from_pkg_version) {
  retcode_t rc = 0;
  wayshunt_cnv_log_init(0);
  WAYSHUNT_CNV_TRACE("%s():%d wayshunt convert_gsync invoked\n");
  WAYSHUNT_CNV_TRACE("%s():%d pkg_name: %s, path = %s, to = %s, from = %s\n", pkg_name, path, to_pkg_version,
                     from_pkg_version);
  wayshunt_bool_t resolved;
  wayshunt_cnv_read_releases(&resolved);
  if (!resolved)
    rc = WAYSHUNT_CNV_ERR_VERSION;  // nothing converted, the caller told (see convert_startup)
  else if (wayshunt_cnv_is_downgrade())
    rc = wayshunt_cnv_handle_downgrade_for_runtime_kvs(path);
  else if (wayshunt_cnv_is_upgrade())
    rc = wayshunt_cnv_handle_upgrade_for_runtime_kvs(path);
  wayshunt_cnv_log_cleanup();
  return rc;
}

retcode_t convert_running_fs_upg(char *path, char *pkg_name) {
  char fs_upg[] = "fs_upg";
  wayshunt_cnv_log_init(0);
  WAYSHUNT_CNV_TRACE("%s():%d convert_running_fs_upg invoked\n");
  WAYSHUNT_CNV_TRACE("%s():%d pkg_name: %s, path = %s\n", pkg_name, path);
  wayshunt_cnv_read_versions();
  return convert_gsync(path, pkg_name, fs_upg, fs_upg);
}

void overseercb_no_overseer(void) { plat_overseercb_no_overseer(); }

void *wayshunt_cnv_malloc(uint32 size) { return size ? calloc(1, size) : NULL; }
}
