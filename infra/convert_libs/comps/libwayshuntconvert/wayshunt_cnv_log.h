/* The conversion log's two record forms. Every record's format begins with
 * "%s():%d ", filled with the function's name and the source line.
 *
 * WAYSHUNT_CNV_TRACE: written only while the debug gate is open; with the
 *   gate shut it evaluates nothing.
 * WAYSHUNT_CNV_ERROR: written always. Only nine exist in the library. */
#ifndef WAYSHUNT_CNV_LOG_H
#define WAYSHUNT_CNV_LOG_H

#include "wayshunt_cnv_int.h"

/* The log's path, WAYSHUNT_CNV_LOG_PATH, is public (wayshunt_cnv.h, included
 * through wayshunt_cnv_int.h). */

#define WAYSHUNT_CNV_TRACE(format, ...)                                                 \
  do {                                                                                  \
    if (debug) wayshunt_cnv_log_write(format, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
  } while (0)

/* A trace on behalf of the step named func. */
#define WAYSHUNT_CNV_TRACE_AS(func, format, ...)                                      \
  do {                                                                                \
    if (debug) wayshunt_cnv_log_write(format, func, __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
  } while (0)

#define WAYSHUNT_CNV_ERROR(format, ...) wayshunt_cnv_log_write(format, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

/* The eight bytes of a worldwide name, for "%02x:...:%02x" (8 times). */
#define WAYSHUNT_CNV_WWN_ARGS(w) \
  (w).str[0], (w).str[1], (w).str[2], (w).str[3], (w).str[4], (w).str[5], (w).str[6], (w).str[7]
#define WAYSHUNT_CNV_WWN_FMT "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x"

/* The printed forms of records, as debug traces of the function they stand
 * in. e points at a wayshunt_kvs_data_rw_acl_entry_t (or the 3.2 form),
 * a wayshunt_kvs_data_els_acl_entry_t, or a target table node. */
#define WAYSHUNT_CNV_TRACE_RW_ENTRY(e) WAYSHUNT_CNV_TRACE_RW_ENTRY_AS(__func__, e)
#define WAYSHUNT_CNV_TRACE_RW_ENTRY_AS(func, e)                                                                    \
  WAYSHUNT_CNV_TRACE_AS(func, "%s():%d tgt_pwwn = " WAYSHUNT_CNV_WWN_FMT ", acl_flags = 0x%08x, src_sid_wwn = " WAYSHUNT_CNV_WWN_FMT \
                     ", src_did_wwn = " WAYSHUNT_CNV_WWN_FMT ", dst_sid: " WAYSHUNT_CNV_WWN_FMT                      \
                     ", dst_did: " WAYSHUNT_CNV_WWN_FMT ", if_index = 0x%08x\n",                                    \
                     WAYSHUNT_CNV_WWN_ARGS((e)->tgt_pwwn), (e)->acl_flags, WAYSHUNT_CNV_WWN_ARGS((e)->src_sid_wwn),   \
                     WAYSHUNT_CNV_WWN_ARGS((e)->src_did_wwn), WAYSHUNT_CNV_WWN_ARGS((e)->dst_sid_wwn),                \
                     WAYSHUNT_CNV_WWN_ARGS((e)->dst_did_wwn), (e)->if_index)

#define WAYSHUNT_CNV_TRACE_ELS_ENTRY(e)                                                                             \
  WAYSHUNT_CNV_TRACE("%s():%d tgt_pwwn = " WAYSHUNT_CNV_WWN_FMT ", src_pwwn = " WAYSHUNT_CNV_WWN_FMT                  \
                     ", vsan = %u, src_fcid: 0x%06x, dst_fcid: 0x%06x, if_index = 0x%08x, flags: 0x%08x, slot_num: %u\n", \
                     WAYSHUNT_CNV_WWN_ARGS((e)->tgt_pwwn), WAYSHUNT_CNV_WWN_ARGS((e)->src_pwwn), (e)->src_vsan,       \
                     wayshunt_cnv_fcid_value((e)->src_fcid), wayshunt_cnv_fcid_value((e)->dst_fcid), (e)->if_index,    \
                     (e)->flags, (e)->slot_num)

#define WAYSHUNT_CNV_TRACE_KEY_LINE(node_p) WAYSHUNT_CNV_TRACE_KEY_LINE_AS(__func__, node_p)
#define WAYSHUNT_CNV_TRACE_KEY_LINE_AS(func, node_p) \
  WAYSHUNT_CNV_TRACE_AS(func, "%s():%d kvs_hash_key_lower = 0x%08llx\n", (unsigned long long)(node_p)->kvs_hash_key_lower)

#endif
