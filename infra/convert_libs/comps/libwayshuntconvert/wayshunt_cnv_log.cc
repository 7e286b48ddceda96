// The conversion log: one text file, opened on demand, every record flushed.
#include "wayshunt_cnv_log.h"

#include <stdarg.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>

#ifndef WAYSHUNT_CNV_DEBUG_AT_LOAD
#define WAYSHUNT_CNV_DEBUG_AT_LOAD 0
#endif

extern "C" {

FILE *err_fp = NULL;
// Nothing in the library writes the gate: only the trace build opens it,
// at load.
wayshunt_bool_t debug = WAYSHUNT_CNV_DEBUG_AT_LOAD;

void wayshunt_cnv_get_timestamp_str(uchar *str_p) {
  struct timeval tv;
  if (str_p == NULL) return;
  memset(&tv, 0, sizeof tv);
  gettimeofday(&tv, NULL);
  ctime_r(&tv.tv_sec, (char *)str_p);
}

void wayshunt_cnv_log_init(wayshunt_bool_t force) {
  uchar string_buf[90];
  if (!force && !debug) return;
  if (err_fp != NULL) {
    WAYSHUNT_CNV_TRACE("%s():%d file already opened\n");
    return;
  }
  wayshunt_cnv_get_timestamp_str(string_buf);
  err_fp = fopen(WAYSHUNT_CNV_LOG_PATH, "a");
  if (err_fp != NULL) WAYSHUNT_CNV_TRACE("%s():%d file opened sucessfully at %s\n", string_buf);
}

void wayshunt_cnv_log_cleanup(void) {
  uchar string_buf[90];
  if (err_fp == NULL) return;
  wayshunt_cnv_get_timestamp_str(string_buf);
  WAYSHUNT_CNV_ERROR("%s():%d file Closed at %s\n", string_buf);
  fclose(err_fp);
  err_fp = NULL;
}

// Writes one record. When the log cannot be opened the record is dropped:
// the library has no other output, it tries once per record, and nothing
// that happens to the log changes a conversion's result.
void wayshunt_cnv_log_write(const char *format, ...) {
  va_list ap;
  if (err_fp == NULL) wayshunt_cnv_log_init(1);
  if (err_fp == NULL) return;
  va_start(ap, format);
  vfprintf(err_fp, format, ap);
  va_end(ap);
  fflush(err_fp);
}
}
