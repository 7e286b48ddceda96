// Choice of the conversions of the runtime store, down or up the ladder of
// record forms (3.2, then 4.1.3 or lower, then the present form), and the
// store's URL.
#include <stdio.h>

#include "wayshunt_cnv_log.h"

extern "C" {

// The URL "nonvolatile:<path>/<kvs_name>" in the one static buffer, cut to
// 255 characters without a word.
char *wayshunt_cnv_uri_complete(char *path, char *kvs_name) {
  static char url[256];
  snprintf(url, sizeof url, "nonvolatile:%s/%s%s", path, "", kvs_name);
  return url;
}

retcode_t wayshunt_cnv_handle_downgrade_for_runtime_kvs(char *path) {
  char kvs_name[] = WAYSHUNT_CNV_RUNTIME_KVS;
  const char *kvs_url;
  retcode_t rc;
  WAYSHUNT_CNV_TRACE("%s():%d from %u.%u to %u.%u\n", from_major, from_minor, to_major, to_minor);
  if (wayshunt_cnv_to_413_or_lower()) {
    kvs_url = wayshunt_cnv_uri_complete(path, kvs_name);
    WAYSHUNT_CNV_TRACE("%s():%d kvs_url: %s\n", kvs_url);
    WAYSHUNT_CNV_TRACE("%s():%d Downgrade to 4.1.x or lower\n");
    rc = wayshunt_cnv_config_downgrade_to_413_or_lower(kvs_url);
    if (rc != 0) {
      WAYSHUNT_CNV_ERROR("%s():%d Downgrade Failed");
      wayshunt_cnv_log_cleanup();
      return rc;
    }
  }
  if (wayshunt_cnv_to_32()) {
    kvs_url = wayshunt_cnv_uri_complete(path, kvs_name);
    WAYSHUNT_CNV_TRACE("%s():%d kvs_url: %s\n", kvs_url);
    WAYSHUNT_CNV_TRACE("%s():%d Downgrade to 3.2\n");
    rc = wayshunt_cnv_config_downgrade_to_3_2(kvs_url);
    if (rc != 0) {
      WAYSHUNT_CNV_ERROR("%s():%d Downgrade to 3.2 Failed");
      wayshunt_cnv_log_cleanup();
      return rc;
    }
  }
  return 0;
}
}

extern "C" retcode_t wayshunt_cnv_handle_upgrade_for_runtime_kvs(char *path) {
  char kvs_name[] = WAYSHUNT_CNV_RUNTIME_KVS;
  retcode_t rc = 0;
  WAYSHUNT_CNV_TRACE("%s():%d from %u.%u to %u.%u\n", from_major, from_minor, to_major, to_minor);
  const char *kvs_url = wayshunt_cnv_uri_complete(path, kvs_name);
  WAYSHUNT_CNV_TRACE("%s():%d kvs_url: %s\n", kvs_url);
  if (wayshunt_cnv_from_31_or_lower()) {
    WAYSHUNT_CNV_TRACE("%s():%d Upgrade 3.1.x, or Lower. ignoring\n");
    return 0;
  }
  if (wayshunt_cnv_from_32()) {
    WAYSHUNT_CNV_TRACE("%s():%d upgrade from 3.2\n");
    rc = wayshunt_cnv_config_upgrade_from_32(kvs_url);
    if (rc != 0) {
      WAYSHUNT_CNV_ERROR("%s():%d upgrade from 3.2 Failed");
      return rc;
    }
  }
  if (wayshunt_cnv_from_413_or_lower()) {
    WAYSHUNT_CNV_TRACE("%s():%d upgrade from 4.1.3 or lower\n");
    rc = wayshunt_cnv_config_upgrade_from_413_or_lower(kvs_url);
    if (rc != 0) WAYSHUNT_CNV_ERROR("%s():%d upgrade from 4.1.3 or lower Failed");
  }
  return rc;
}
