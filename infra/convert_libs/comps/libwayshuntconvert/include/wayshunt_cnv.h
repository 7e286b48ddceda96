/** @file wayshunt_cnv.h
 *  @brief libconvertwayshunt: conversion of the wayshunt runtime store
 *  between software releases.
 *
 *  The platform's upgrade manager loads libconvertwayshunt.so and calls the
 *  entry points of section 1. The library reads the release being left and
 *  the release being entered from the two release descriptor files named by
 *  the environment variables OVERSEER_FROM_RELDESC_PATH and
 *  OVERSEER_TO_RELDESC_PATH; the version strings the caller passes only show
 *  in the debug trace. From those two releases alone it decides:
 *
 *  - on a move down, it rewrites the runtime store "wayshunt_runtime_ha" in
 *    the forms of the lower release (4.1.3 or lower, then 3.2);
 *  - on a move up, it rewrites the store in the present forms (from 3.2 the
 *    pass of the 3.2 upgrade runs first, then the one from 4.1.3 or lower);
 *  - on a move below 3.2, it asks the running service over the hub to
 *    decommission the switch and copies the service's twelve stored files to
 *    the standby supervisor.
 *
 *  The steps of section 2 are exported as well, so that each can be run and
 *  examined by itself; the upgrade manager does not call them.
 *
 *  @par Statuses
 *  Every function that can fail returns a retcode_t, 0 for success. A
 *  non-zero status is either one of the library's own codes below or the
 *  unchanged status of the platform call that failed (status.h: the store's
 *  KVS_ERR_..., the toolkit's TK_ERR_..., PLAT_ERR_INJECTED for a fault set
 *  with PLAT_FAULTS). wayshunt_cnv_strerror() gives the text of each: the
 *  library's own for its codes, retcode2str()'s for the rest. Nothing is
 *  undone after a failure: what a conversion rewrote before it failed stays
 *  rewritten, and the status goes up unchanged.
 *
 *  @par Log
 *  Failures leave an error record in /bootflash/wayshunt_cnv.log
 *  (WAYSHUNT_CNV_LOG_PATH), which is opened only when something is written.
 *  The trace build (installed in convertwayshunt-trace/) also writes a debug
 *  trace of every step.
 *
 *  @par Threads and state
 *  No threads, no locks: call the functions one at a time, from one thread.
 *  The library keeps nothing from one call to the next that the next call
 *  needs; the six version integers hold the last releases read.
 *
 *  @par Ownership
 *  Every string argument belongs to the caller; the library neither writes
 *  nor keeps it. */
#ifndef WAYSHUNT_CNV_H
#define WAYSHUNT_CNV_H

#include "kvs_defs.h"
#include "status.h"
#include "types.h"
#include "wayshunt.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The library's boolean: a 32-bit unsigned integer, 0 false. */
typedef uint32 wayshunt_bool_t;

#define WAYSHUNT_CNV_EXPORT __attribute__((visibility("default")))

/** @defgroup status The library's own statuses
 *  @{ */
/** A release descriptor gave no usable version: a variable unset, the file
 *  missing or without a version, or a version text that does not parse.
 *  Nothing was converted, decommissioned or copied. */
#define WAYSHUNT_CNV_ERR_VERSION 0x40700001u
/** On a move below 3.2 no hub queue could be bound for the decommission
 *  request (the cause was written to the log). Nothing was sent or copied. */
#define WAYSHUNT_CNV_HUB_BIND_FAILED 16

/** @brief The text of any status a function of this library returns.
 *  Reads no release, writes no log, touches no store: it can be called at
 *  any time, before, between or after the entry points.
 *  @param[in] rc  a status
 *  @return for WAYSHUNT_CNV_ERR_VERSION and WAYSHUNT_CNV_HUB_BIND_FAILED the
 *          library's own text, a constant; for every other status
 *          retcode2str(rc), the platform's text, which lives as long as
 *          retcode2str() says. Never null. */
WAYSHUNT_CNV_EXPORT const char *wayshunt_cnv_strerror(retcode_t rc);
/** @} */

/** The one store this library converts, "<path>/wayshunt_runtime_ha". */
#define WAYSHUNT_CNV_RUNTIME_KVS "wayshunt_runtime_ha"

/** The conversion log the library appends its records to (see Log above),
 *  and where readers of the log find it. */
#define WAYSHUNT_CNV_LOG_PATH "/bootflash/wayshunt_cnv.log"

/* ==== 1. Entry points: what the upgrade manager calls ==================== */

/** @brief Called while the running service is up. Converts nothing.
 *  @param[in] pkg_name, from_pkg_version, to_pkg_version  trace only
 *  Touches: the two release descriptors; the log only in the trace build.
 *  @return 0, always. */
WAYSHUNT_CNV_EXPORT retcode_t convert_running(char *pkg_name, char *from_pkg_version, char *to_pkg_version);

/** @brief Called at the start-up of the new release. On a move to a release
 *  below 3.2 asks the running service (hub access point HUB_SAP_WAYSHUNT of
 *  hub_defs.h, opcode WAYSHUNT_CLI_HUB_OPCODE of wayshunt_cli.h) to
 *  decommission the switch, waits for its answer, and copies the service's
 *  twelve stored files below /mnt/kvs/ to the standby; on any other move
 *  does nothing. A failed request, answer or copy is logged and passed over.
 *  @param[in] path  not used (the files have fixed paths)
 *  @param[in] pkg_name, to_pkg_version, from_pkg_version  trace only
 *  Touches: the release descriptors, the hub, the standby, the log.
 *  @return 0                             done, or nothing to do
 *  @return WAYSHUNT_CNV_ERR_VERSION      a release is unknown
 *  @return WAYSHUNT_CNV_HUB_BIND_FAILED  no hub queue could be bound */
WAYSHUNT_CNV_EXPORT retcode_t convert_startup(char *path, char *pkg_name, char *to_pkg_version,
                                              char *from_pkg_version);

/** @brief Converts the runtime store at path for the move between the two
 *  releases. Releases are compared by major, then minor; the patch never
 *  counts, so a move within one major.minor converts nothing.
 *  @param[in] path  the folder of the store (the URL is
 *                   "nonvolatile:<path>/wayshunt_runtime_ha", at most 255
 *                   characters)
 *  @param[in] pkg_name, to_pkg_version, from_pkg_version  trace only
 *  Touches: the release descriptors, the store, the log.
 *  @return 0                         converted, or nothing to convert
 *  @return WAYSHUNT_CNV_ERR_VERSION  a release is unknown; store untouched
 *  @return otherwise                 the status of the conversion that failed
 *          (wayshunt_cnv_handle_downgrade_for_runtime_kvs or
 *          wayshunt_cnv_handle_upgrade_for_runtime_kvs) */
WAYSHUNT_CNV_EXPORT retcode_t convert_gsync(char *path, char *pkg_name, char *to_pkg_version,
                                            char *from_pkg_version);

/** @brief A second road into convert_gsync, for a file system upgrade:
 *  convert_gsync(path, pkg_name, "fs_upg", "fs_upg").
 *  @return what convert_gsync returns. */
WAYSHUNT_CNV_EXPORT retcode_t convert_running_fs_upg(char *path, char *pkg_name);

/** @brief The platform's callback for a supervisor without an overseer:
 *  calls plat_overseercb_no_overseer(). No log, no store. */
WAYSHUNT_CNV_EXPORT void overseercb_no_overseer(void);

/* ==== 2. Steps exported for examination ================================== */

/* ---- releases ---- */

/** The release being left and the release being entered, as the last
 *  wayshunt_cnv_read_versions() found them; all six 0 when it found no
 *  usable version, a value on which no step converts or decommissions. */
extern WAYSHUNT_CNV_EXPORT int32 from_major, from_minor, from_patch;
extern WAYSHUNT_CNV_EXPORT int32 to_major, to_minor, to_patch;

/** Reads both descriptor files (OVERSEER_TO_RELDESC_PATH first) into the six
 *  integers. @return non-zero when the corrected versions differ. */
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_read_versions(void);
/** Writes "<major>.<minor>(<patch>)" of a descriptor file into
 *  corrected_pkg_ver (512 bytes); "" when it has no usable version. */
WAYSHUNT_CNV_EXPORT void get_corrected_pkg_ver(char *reldesc_file, char *corrected_pkg_ver);
/** Parses "%d.%d(%d)". @return the number of fields read, 0 to 3. */
WAYSHUNT_CNV_EXPORT int split_version(char *version, int32 *major, int32 *minor, int32 *patch);

/** The decisions on the last releases read, one predicate each: a move down
 *  (major, then minor), a move up, a downgrade that reaches the 4.1.3 form
 *  (to 4.1 or lower), a downgrade that reaches the 3.2 form (to 3.2), an
 *  upgrade that starts below the 3.2 form (from 3.1 or lower: ignored), from
 *  the 3.2 form (from 3.2), from the 4.1.3 form or lower (from 4.1 or lower),
 *  and a release entered below 3.2 (1.x, 2.x, 3.0 or 3.1: decommission, on
 *  any move that is not an upgrade). */
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_is_downgrade(void);
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_is_upgrade(void);
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_to_413_or_lower(void);
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_to_32(void);
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_from_31_or_lower(void);
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_from_32(void);
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_from_413_or_lower(void);
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_to_below_32(void);

/* ---- log ---- */

/** Opens the log when force is non-zero or in the trace build. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_log_init(wayshunt_bool_t force);
/** Writes the closing record and closes the log, if it is open. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_log_cleanup(void);

/* ---- dispatchers: the conversions of one move, in ladder order ---- */

/** Down: to 4.1 or lower, wayshunt_cnv_config_downgrade_to_413_or_lower; then
 *  to 3.2, wayshunt_cnv_config_downgrade_to_3_2. The first that fails stops
 *  the rest, writes its error record and closes the log.
 *  @param[in] path  the folder of the store
 *  @return 0, or the status of the conversion that failed */
WAYSHUNT_CNV_EXPORT retcode_t wayshunt_cnv_handle_downgrade_for_runtime_kvs(char *path);
/** Up: from 3.1 or lower nothing (0); from 3.2
 *  wayshunt_cnv_config_upgrade_from_32; then from 4.1 or lower
 *  wayshunt_cnv_config_upgrade_from_413_or_lower.
 *  @param[in] path  the folder of the store
 *  @return 0, or the status of the conversion that failed */
WAYSHUNT_CNV_EXPORT retcode_t wayshunt_cnv_handle_upgrade_for_runtime_kvs(char *path);

/* ---- conversions: each opens the store by its URL, walks it once, stores
 *      new keys after the walk and closes it. Failures of single records are
 *      traced and passed over; only the statuses listed reach the caller. */

/** To 3.2: deletes every runtime line card record (key type 63).
 *  @param[in] kvs_url  "nonvolatile:<dir>/<name>"
 *  @return 0
 *  @return KVS_ERR_NO_KEY  the store is empty (it is closed again)
 *  @return otherwise       the status of kvs_open (store untouched) or of
 *                          kvs_close */
WAYSHUNT_CNV_EXPORT int32 wayshunt_cnv_config_downgrade_to_3_2(const char *kvs_url);
/** To 4.1.3 or lower: every 22-byte flow-thru host key (type 54) is deleted
 *  and stored again in its 18-byte form with a 4-byte zero value.
 *  @return 0
 *  @return KVS_ERR_NO_KEY  the store is empty
 *  @return otherwise       the status of kvs_open or of kvs_close */
WAYSHUNT_CNV_EXPORT retcode_t wayshunt_cnv_config_downgrade_to_413_or_lower(const char *kvs_url);
/** First pass up from 3.2: RW ACL entries (type 55) on inter-switch links
 *  get a physical partner per target; values keep their 84-byte form.
 *  @return 0 (an empty store included)
 *  @return otherwise  the status of kvs_open, of tk_hashtable_64_init (the
 *                     store is closed unchanged) or of kvs_close */
WAYSHUNT_CNV_EXPORT int32 wayshunt_cnv_config_upgrade_from_32(const char *kvs_url);
/** Up from 4.1.3 or lower: flow-thru keys widened to 22 bytes, RW ACL
 *  entries repaired to the 82-byte form with their slot, ELS ACL entries
 *  given their slot, then the physical and virtual entries of each target
 *  resolved.
 *  @return 0 (an empty store included)
 *  @return otherwise  the status of tk_hashtable_64_init (store not opened),
 *                     of kvs_open or of kvs_close */
WAYSHUNT_CNV_EXPORT retcode_t wayshunt_cnv_config_upgrade_from_413_or_lower(const char *kvs_url);

/* ---- decommission on a move below 3.2 ---- */

/** What convert_startup does after reading the releases.
 *  @param[in] path  not used
 *  @return 0, or WAYSHUNT_CNV_HUB_BIND_FAILED */
WAYSHUNT_CNV_EXPORT retcode_t wayshunt_handle_downgrade(char *path);

/* ---- diagnosis ---- */

/** Writes every record of the open store to the log as debug traces (trace
 *  build only); stores and deletes nothing. Moves the store's cursor.
 *  @return 0 */
WAYSHUNT_CNV_EXPORT uint32 wayshunt_cnv_print_kvs_entries(kvs_service_t service);

#ifdef __cplusplus
}
#endif

#endif
