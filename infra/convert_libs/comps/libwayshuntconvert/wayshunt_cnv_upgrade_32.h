/* The upgrade from 3.2, first of the two passes on the way up from 3.2: the
 * target table of RW ACL entries on inter-switch links, its build from the
 * store, its trunk fix-up and the release of its nodes. The driver itself,
 * wayshunt_cnv_config_upgrade_from_32, is in wayshunt_cnv.h. */
#ifndef WAYSHUNT_CNV_UPGRADE_32_H
#define WAYSHUNT_CNV_UPGRADE_32_H

#include "wayshunt_cnv_chain_index.h"
#include "wayshunt_cnv_int.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One entry of the target table: a copy of a stored 84-byte RW ACL value of
 * key type 55 with WAYSHUNT_ACL_FLAG_ISL, and the 8 hash key bytes of its
 * key. The table maps tgt_pwwn.num to the head of the target's chain; later
 * entries are linked right behind the head. */
typedef struct wayshunt_cnv_32_acl_rw_node_ {
  struct wayshunt_cnv_32_acl_rw_node_ *nxt_p;
  uint64 kvs_hash_key_lower;
  wayshunt_kvs_data_rw_acl_entry_32_t entry;
} wayshunt_cnv_32_acl_rw_node_t;

/* Fills the table from the open store. Always 0. */
WAYSHUNT_CNV_EXPORT int32 wayshunt_cnv_upgrade_from_32_fix_trunk_entries_build_tgt_ht(kvs_service_t service,
                                                                                      tk_hashtable_64_t *tgt_ht_p);
/* Gives every non-physical entry a physical partner (same target, same
 * source pair, same slot), turning it physical itself when it has none. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_upgrade_from_32_fix_trunk_entries(kvs_service_t service,
                                                                        tk_hashtable_64_t *tgt_ht_p);
/* Frees every node of the table that a table walk reaches; the table
 * itself stays for its destroy. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_32_release_tgt_table(tk_hashtable_64_t *tgt_ht_p);
/* The build as the driver runs it: each new chain's head is listed in
 * heads_p as well (see wayshunt_cnv_tgt_heads_t), unless it is null. */
WAYSHUNT_CNV_EXPORT int32 wayshunt_cnv_32_build_tgt_ht_listed(kvs_service_t service,
                                                              tk_hashtable_64_t *tgt_ht_p,
                                                              wayshunt_cnv_tgt_heads_t *heads_p);

/* ---- the partner search of one chain through an index of its source pairs ---- */

/* Scratch space of the indexed search: the chain index, and where the
 * examined entry goes in its physical list should it turn physical. */
typedef struct wayshunt_cnv_32_chain_index_ {
  wayshunt_cnv_chain_index_t core; /* first/next: the physical entries of each source pair */
  uint32 ins_after;                /* the last search's last physical entry before the examined one */
} wayshunt_cnv_32_chain_index_t;

/* Outcomes of a partner search. */
#define WAYSHUNT_CNV_32_NO_PARTNER 0
#define WAYSHUNT_CNV_32_PARTNER 1
#define WAYSHUNT_CNV_32_LOOKUP_FAILED 2

/* Indexes the chain at head_p. 0, or -1 when there is no memory for it. */
WAYSHUNT_CNV_EXPORT int wayshunt_cnv_32_chain_index_build(wayshunt_cnv_32_chain_index_t *ix_p,
                                                          wayshunt_cnv_32_acl_rw_node_t *head_p);
/* Searches a partner for entry i, whose slot is slot_num: the physical
 * entries of its source pair, in chain order, each slot looked up afresh.
 * On WAYSHUNT_CNV_32_LOOKUP_FAILED *rc_p holds the lookup's status (0 for a
 * slot of 255). */
WAYSHUNT_CNV_EXPORT int wayshunt_cnv_32_chain_index_find_partner(wayshunt_cnv_32_chain_index_t *ix_p, uint32 i,
                                                                 slot_num_t slot_num, retcode_t *rc_p);
/* Records that entry i, whose search just found no partner, is physical now. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_32_chain_index_now_physical(wayshunt_cnv_32_chain_index_t *ix_p, uint32 i);
/* Releases the scratch space and zeroes it. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_32_chain_index_free(wayshunt_cnv_32_chain_index_t *ix_p);
/* The group key of a node: its source pair. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_32_group_key(const void *node_p, wayshunt_cnv_group_key_t *key_p);

#ifdef __cplusplus
}
#endif

#endif
