/* The index of one target chain that both trunk fix-ups go through while
 * the debug gate is shut: the chain's nodes in an array in chain order, each
 * with the first entry of its group (entries with an equal group key), and
 * one list per group for the fix-up to thread as it needs. Entries are
 * numbered by their place in the chain. */
#ifndef WAYSHUNT_CNV_CHAIN_INDEX_H
#define WAYSHUNT_CNV_CHAIN_INDEX_H

#include "wayshunt_cnv.h"

#ifdef __cplusplus
extern "C" {
#endif

#define WAYSHUNT_CNV_IX_NONE 0xffffffffu

/* What puts an entry in a group: the fields the fix-up compares. */
typedef struct wayshunt_cnv_group_key_ {
  uint64 a;
  uint64 b;
  uint32 c;
} wayshunt_cnv_group_key_t;

/* The group key of a node. A node begins with its next pointer. */
typedef void (*wayshunt_cnv_group_key_fn_t)(const void *node_p, wayshunt_cnv_group_key_t *key_p);

/* Scratch space, grown as chains need it and kept for the length of one
 * fix-up. All zero before the first chain. */
typedef struct wayshunt_cnv_chain_index_ {
  uint32 n;      /* entries of the chain indexed last */
  uint32 cap;    /* entries the arrays below hold */
  void **node;   /* the chain, in chain order */
  uint32 *grp;   /* first entry of the entry's group */
  uint32 *first; /* of a group's first entry: the head (or tail) of its list, for the fix-up */
  uint32 *next;  /* next entry of the same list, for the fix-up */
  uint32 slots;  /* slots allocated for the open-addressing table */
  uint32 *slot;  /* first entry of a group, or WAYSHUNT_CNV_IX_NONE for a free slot */
} wayshunt_cnv_chain_index_t;

/* Indexes the chain at head_p in one pass. 0, or -1 when there is no memory
 * for it (then the chain is left to the full scan). */
WAYSHUNT_CNV_EXPORT int wayshunt_cnv_chain_index_build(wayshunt_cnv_chain_index_t *ix_p, void *head_p,
                                                       wayshunt_cnv_group_key_fn_t key_fn);
/* Releases the scratch space and zeroes it. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_chain_index_free(wayshunt_cnv_chain_index_t *ix_p);
/* Parts of the build: room for n entries; the first entry of entry i's
 * group among the first `used` slots, entry i itself when its group is new;
 * the table of `used` slots filled anew from the groups so far. */
WAYSHUNT_CNV_EXPORT int wayshunt_cnv_chain_index_room(wayshunt_cnv_chain_index_t *ix_p, uint64 n);
WAYSHUNT_CNV_EXPORT uint32 wayshunt_cnv_chain_index_group_of(wayshunt_cnv_chain_index_t *ix_p, uint32 i, uint32 used,
                                                             wayshunt_cnv_group_key_fn_t key_fn);
WAYSHUNT_CNV_EXPORT uint64 wayshunt_cnv_group_hash(const wayshunt_cnv_group_key_t *k);
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_chain_index_rehash(wayshunt_cnv_chain_index_t *ix_p, uint32 used,
                                                         wayshunt_cnv_group_key_fn_t key_fn);

#ifdef __cplusplus
}
#endif

#endif
