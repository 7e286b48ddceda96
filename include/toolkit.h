/* Toolkit containers: a first-in first-out queue and a table keyed by a
 * 64-bit integer. Callers keep the head structs in their own storage, hand in
 * pointers and never read a field. The containers never own the data
 * pointers they hold: callers allocate before handing in and free after
 * taking out. */
#ifndef PLAT_TOOLKIT_H
#define PLAT_TOOLKIT_H

#include <time.h>

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t tk_err_t;

#define TK_OK 0u
#define TK_ERR_INVALID 0x40100001u   /* null container or argument, or bucket count 0 */
#define TK_ERR_NO_MEMORY 0x40100002u /* out of memory */
#define TK_ERR_EMPTY 0x40100003u     /* dequeue from an empty queue */
#define TK_HASHTABLE_END 19u         /* table walk is over (or the table is empty) */
#define TK_ERR_NOT_FOUND 0x40100005u /* no such key in the table */
#define TK_ERR_EXISTS 0x40100006u    /* insert of a key that is already in the table */
#define TK_ERR_FULL 0x40100007u      /* enqueue on a queue at its max_len */
#define TK_ERR_NOT_EMPTY 0x40100008u /* destroy of a queue that still held items (they were dropped) */

/* ---- queue ---- */

typedef uint32_t tk_cq_cookie_t;

struct tk_cqueue_;

typedef struct tk_cq_node_ {
  struct tk_cq_node_ *next;
  struct tk_cq_node_ *prev;
  const void *data;
  tk_cq_cookie_t cookie;
  time_t enqueue_time;
  struct tk_cqueue_ *cq;
} tk_cq_node_t;

typedef struct tk_cqueue_ {
  tk_cq_node_t *head;
  tk_cq_node_t *tail;
  uint32 len;
  uint32 max_len;      /* 0: no limit */
  uint32 max_len_ever; /* high-water mark */
} tk_cqueue_t;

/* Makes q an empty queue holding at most max_len items (0: any number). */
tk_err_t tk_cq_init(tk_cqueue_t *q, uint32 max_len);
/* Appends data with its cookie. TK_ERR_FULL at max_len, TK_ERR_NO_MEMORY. */
tk_err_t tk_cq_enqueue_tail(tk_cqueue_t *q, const void *data, tk_cq_cookie_t cookie);
/* Takes the oldest item out: 0 with *data and *cookie, TK_ERR_EMPTY when
 * there is none. cookie may be null. */
tk_err_t tk_cq_dequeue_head(tk_cqueue_t *q, const void **data, tk_cq_cookie_t *cookie);
/* Releases the queue's own memory. Items still queued are dropped (their data
 * untouched) and reported by TK_ERR_NOT_EMPTY. */
tk_err_t tk_cq_destroy(tk_cqueue_t *q);

/* ---- table keyed by uint64 ---- */

struct tk_hashtable_64_;

typedef uint32 (*tk_hashtable_64_hash_fn_t)(struct tk_hashtable_64_ *ht, uint64 key);

typedef struct tk_hashtable_64_node_ {
  uint64 key;
  void *data;
  struct tk_hashtable_64_node_ *p_next;
  struct tk_hashtable_64_node_ *p_prev;
} tk_hashtable_64_node_t;

typedef struct tk_hashtable_64_ {
  uint32 size; /* bucket count: the one asked for, grown as the table fills */
  tk_hashtable_64_node_t **hash_array; /* the buckets; the item count is kept in a block just before them */
  tk_hashtable_64_hash_fn_t hash_fn;
} tk_hashtable_64_t;

/* The key modulo the table's present bucket count. */
uint32 tk_hashtable_64_modulo_size_hash_fn(tk_hashtable_64_t *ht, uint64 key);

/* Makes ht an empty table of size buckets hashed by hash_fn. The table grows
 * its bucket count by itself, so lookups stay fast at any number of keys. */
tk_err_t tk_hashtable_64_init(tk_hashtable_64_t *ht, uint32 size, tk_hashtable_64_hash_fn_t hash_fn);
/* 0 with *data if key is there, TK_ERR_NOT_FOUND if not. */
tk_err_t tk_hashtable_64_find(tk_hashtable_64_t *ht, uint64 key, void **data);
/* Adds key with data. TK_ERR_EXISTS (nothing changed) if key is there. */
tk_err_t tk_hashtable_64_insert(tk_hashtable_64_t *ht, uint64 key, void *data);
/* First item of a walk: 0 with *key and *data, TK_HASHTABLE_END if empty. */
tk_err_t tk_hashtable_64_get_first(tk_hashtable_64_t *ht, uint64 *key, void **data);
/* Item behind key (the key the last step gave): 0 with *next_key and *data,
 * TK_HASHTABLE_END behind the last item, TK_ERR_NOT_FOUND if key is not in
 * the table. Every key comes once; the order is the table's own. The data of
 * visited items may be freed during the walk; nothing may be inserted. */
tk_err_t tk_hashtable_64_traverse(tk_hashtable_64_t *ht, uint64 key, uint64 *next_key, void **data);
/* Releases the table's own memory, never the data. */
tk_err_t tk_hashtable_64_destroy(tk_hashtable_64_t *ht);

#ifdef __cplusplus
}
#endif

#endif
