/* The library's own declarations beside its public header: the log's state,
 * the store URL and the helpers the conversions share. These functions are
 * exported like every other (only wayshunt_cnv_uri_complete is not), but no
 * caller outside the library needs them. */
#ifndef WAYSHUNT_CNV_INT_H
#define WAYSHUNT_CNV_INT_H

#include <stdio.h>

#include "toolkit.h"
#include "wayshunt_cnv.h"

#ifdef __cplusplus
extern "C" {
#endif

#define WAYSHUNT_CNV_PRIVATE __attribute__((visibility("hidden")))
/* A helper of one file, always inlined: every function of the library that
 * stands by itself is exported (only wayshunt_cnv_uri_complete is not). */
#define WAYSHUNT_CNV_INLINE static inline __attribute__((always_inline))

/* ---- log ---- */
extern WAYSHUNT_CNV_PRIVATE FILE *err_fp;
extern WAYSHUNT_CNV_PRIVATE wayshunt_bool_t debug;
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_get_timestamp_str(uchar *str_p);
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_log_write(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* ---- store URL ---- */
WAYSHUNT_CNV_PRIVATE char *wayshunt_cnv_uri_complete(char *path, char *kvs_name);

/* ---- releases ---- */
/* wayshunt_cnv_read_versions, telling as well in *resolved_p whether both
 * releases were found (the entry points report when they were not). */
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_read_releases(wayshunt_bool_t *resolved_p);

/* ---- store helpers ---- */
WAYSHUNT_CNV_EXPORT void *wayshunt_cnv_malloc(uint32 size);
/* Keys up to this size are copied on the stack before a delete, longer ones
 * into a block of their own (wayshunt_cnv_keep_key). */
#define WAYSHUNT_CNV_KEY_COPY 64
WAYSHUNT_CNV_EXPORT const void *wayshunt_cnv_keep_key(const kvs_datum_t *pkey, void *buf, uint32 buf_siz,
                                                      void **heap_p);
WAYSHUNT_CNV_EXPORT const kvs_datum_t *wayshunt_cnv_key_after_delete(kvs_service_t service, const void *deleted,
                                                                     unsigned int deleted_siz, retcode_t del_rc,
                                                                     retcode_t *rcode);
/* A Fibre Channel address read big-endian, as printed with "0x%06x". */
WAYSHUNT_CNV_EXPORT uint32 wayshunt_cnv_fcid_value(fcid_t fcid);

/* Frees the keys left in q when a dequeue failed with status rc. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_free_queued_keys(tk_cqueue_t *q, tk_err_t rc);

/* ---- the chains of a target table (wayshunt_cnv_tgt_chains.cc) ---- */
/* The heads of a table's chains, listed by the table's owner, a conversion's
 * driver, in a local of its own for the length of its call, so that its
 * release frees every chain even when a table walk is cut short. Starts
 * zeroed; the release frees the list. */
typedef struct wayshunt_cnv_tgt_heads_ {
  void **head;
  uint32 n, cap;
  wayshunt_bool_t unlisted; /* a head found no memory in the list */
} wayshunt_cnv_tgt_heads_t;
/* Puts node_p (either era's node, nxt_p first) into the chain of tgt_pwwn
 * and lists a new chain's head in heads_p, unless heads_p is null; func
 * names the step in the traces. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_tgt_chain_insert(tk_hashtable_64_t *ht, uint64 tgt_pwwn, void *node_p,
                                                       wayshunt_cnv_tgt_heads_t *heads_p, const char *func);
/* Frees every chain of ht, the table itself staying for its destroy: the
 * chains the table walk reaches, and with heads_p those of its list too. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_release_tgt_chains(tk_hashtable_64_t *ht,
                                                         wayshunt_cnv_tgt_heads_t *heads_p);

/* ---- downgrade to 4.1.3 or lower ---- */
WAYSHUNT_CNV_EXPORT wayshunt_bool_t wayshunt_cnv_queue_narrowed_key(const kvs_datum_t *pkey, tk_cqueue_t *q);

#ifdef __cplusplus
}
#endif

#endif
