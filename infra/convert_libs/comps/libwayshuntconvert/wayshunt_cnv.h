/* Functions and state of the conversion library, all with C linkage.
 *
 * The upgrade manager loads libconvertwayshunt.so and calls its entry points
 * (convert_running, convert_startup, convert_gsync, convert_running_fs_upg,
 * overseercb_no_overseer). Every other function is exported too, so that a
 * conversion step can be run and examined by itself; only
 * wayshunt_cnv_uri_complete is private. Entry points run one at a time on the
 * caller's thread: the state below has no lock. */
#ifndef WAYSHUNT_CNV_H
#define WAYSHUNT_CNV_H

#include <stdio.h>

#include "kvs_defs.h"
#include "status.h"
#include "toolkit.h"
#include "types.h"
#include "wayshunt.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The library's boolean: a 32-bit unsigned integer, 0 false. */
typedef uint32 wayshunt_bool_t;

#define WAYSHUNT_CNV_EXPORT __attribute__((visibility("default")))
#define WAYSHUNT_CNV_PRIVATE __attribute__((visibility("hidden")))

/* The one store this library converts. */
#define WAYSHUNT_CNV_RUNTIME_KVS "wayshunt_runtime_ha"

/* ---- entry points ---- */
WAYSHUNT_CNV_EXPORT retcode_t convert_running(char *pkg_name, char *from_pkg_version, char *to_pkg_version);
WAYSHUNT_CNV_EXPORT retcode_t convert_startup(char *path, char *pkg_name, char *to_pkg_version,
                                              char *from_pkg_version);
WAYSHUNT_CNV_EXPORT retcode_t convert_gsync(char *path, char *pkg_name, char *to_pkg_version,
                                            char *from_pkg_version);
WAYSHUNT_CNV_EXPORT retcode_t convert_running_fs_upg(char *path, char *pkg_name);
WAYSHUNT_CNV_EXPORT void overseercb_no_overseer(void);

/* ---- versions ---- */
extern WAYSHUNT_CNV_EXPORT int32 from_major, from_minor, from_patch;
extern WAYSHUNT_CNV_EXPORT int32 to_major, to_minor, to_patch;
WAYSHUNT_CNV_EXPORT void get_corrected_pkg_ver(char *reldesc_file, char *corrected_pkg_ver);
WAYSHUNT_CNV_EXPORT int split_version(char *version, int32 *major, int32 *minor, int32 *patch);
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_read_versions(void);
/* Whether the last wayshunt_cnv_read_versions() found both releases. When it
 * did not, all six integers are 0, a value on which no step does anything. */
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_versions_resolved(void);

/* ---- log ---- */
extern WAYSHUNT_CNV_PRIVATE FILE *err_fp;
extern WAYSHUNT_CNV_PRIVATE wayshunt_bool_t debug;
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_log_init(wayshunt_bool_t force);
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_log_cleanup(void);
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_get_timestamp_str(uchar *str_p);
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_log_write(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* ---- dispatch ---- */
WAYSHUNT_CNV_PRIVATE char *wayshunt_cnv_uri_complete(char *path, char *kvs_name);
WAYSHUNT_CNV_EXPORT retcode_t wayshunt_cnv_handle_downgrade_for_runtime_kvs(char *path);
WAYSHUNT_CNV_EXPORT retcode_t wayshunt_cnv_handle_upgrade_for_runtime_kvs(char *path);

/* ---- decommission on a move below 3.2 ---- */
WAYSHUNT_CNV_EXPORT retcode_t wayshunt_handle_downgrade(char *path);

/* ---- store helpers ---- */
WAYSHUNT_CNV_EXPORT void *wayshunt_cnv_malloc(uint32 size);
/* Keys up to this size are copied before a delete (see wayshunt_cnv_walk.cc). */
#define WAYSHUNT_CNV_KEY_COPY 512
WAYSHUNT_CNV_EXPORT const kvs_datum_t *wayshunt_cnv_key_after_delete(kvs_service_t service, const void *deleted,
                                                                     unsigned int deleted_siz, retcode_t del_rc,
                                                                     retcode_t *rcode);
WAYSHUNT_CNV_EXPORT uint32 wayshunt_cnv_print_kvs_entries(kvs_service_t service);
/* A Fibre Channel address read big-endian, as printed with "0x%06x". */
WAYSHUNT_CNV_EXPORT uint32 wayshunt_cnv_fcid_value(fcid_t fcid);

/* ---- downgrade conversions ---- */
WAYSHUNT_CNV_EXPORT int32 wayshunt_cnv_config_downgrade_to_3_2(const char *kvs_url);
WAYSHUNT_CNV_EXPORT retcode_t wayshunt_cnv_config_downgrade_to_413_or_lower(const char *kvs_url);
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_queue_narrowed_key(const kvs_datum_t *pkey, tk_cqueue_t *q);

/* ---- upgrade conversions ---- */
WAYSHUNT_CNV_EXPORT int32 wayshunt_cnv_config_upgrade_from_32(const char *kvs_url);
WAYSHUNT_CNV_EXPORT retcode_t wayshunt_cnv_config_upgrade_from_413_or_lower(const char *kvs_url);

#ifdef __cplusplus
}
#endif

#endif
