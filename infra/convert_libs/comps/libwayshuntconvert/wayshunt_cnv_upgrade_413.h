/* The upgrade from 4.1.3 or lower: the record processors of the walk, the
 * slot lookup, and the target table with its trunk fix-up. The driver itself,
 * wayshunt_cnv_config_upgrade_from_413_or_lower, is in wayshunt_cnv.h. */
#ifndef WAYSHUNT_CNV_UPGRADE_413_H
#define WAYSHUNT_CNV_UPGRADE_413_H

#include "wayshunt_cnv_chain_index.h"
#include "wayshunt_cnv_int.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One entry of the target table: a copy of a repaired RW ACL entry that has
 * both WAYSHUNT_ACL_FLAG_PHYSICAL and WAYSHUNT_ACL_FLAG_ISL, and the 8 hash
 * key bytes of its stored key. The table maps tgt_pwwn.num to the head of the
 * target's chain; later entries are linked right behind the head. */
typedef struct wayshunt_cnv_413_acl_rw_node_ {
  struct wayshunt_cnv_413_acl_rw_node_ *nxt_p;
  uint64 kvs_hash_key_lower;
  wayshunt_kvs_data_rw_acl_entry_t entry;
} wayshunt_cnv_413_acl_rw_node_t;

/* ---- record processors of the walk ---- */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_upg_from_413_or_lower_process_flow_thru_entry(kvs_service_t service,
                                                                                    const kvs_datum_t *kvs_key_p,
                                                                                    const kvs_datum_t *kvs_data_p,
                                                                                    tk_cqueue_t *flow_thru_entry_q_p,
                                                                                    wayshunt_bool_t *del_key_p);
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_upg_from_413_or_lower_process_acl_rw_entry(kvs_service_t service,
                                                                                 const kvs_datum_t *kvs_key_p,
                                                                                 const kvs_datum_t *kvs_data_p,
                                                                                 tk_hashtable_64_t *tgt_ht_p);
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_upg_from_413_or_lower_process_acl_els_entry(kvs_service_t service,
                                                                                  const kvs_datum_t *kvs_key_p,
                                                                                  const kvs_datum_t *kvs_data_p);
WAYSHUNT_CNV_EXPORT slot_num_t wayshunt_cnv_get_slot_no_from_if_index(if_index_t if_index);

/* ---- target table and trunk fix-up ---- */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv413_upg_add_entry_to_tgt_hash(tk_hashtable_64_t *tgt_ht_p,
                                                                   wayshunt_kvs_key_rw_acl_entry_t *acl_key_p,
                                                                   wayshunt_kvs_data_rw_acl_entry_t *acl_p);
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_upgrade_from_413_fix_trunk_entries(kvs_service_t service,
                                                                         tk_hashtable_64_t *tgt_ht_p);
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_upgrade_from_41_acl_rw_save_entry(kvs_service_t service,
                                                                        uint64 kvs_hash_key_lower,
                                                                        wayshunt_kvs_data_rw_acl_entry_t *acl_p);
/* Frees every node of the table that a table walk reaches; the table
 * itself stays for its destroy. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_413_release_tgt_table(tk_hashtable_64_t *tgt_ht_p);
/* The repair and the add operation as the driver runs them: each new
 * chain's head is listed in heads_p as well (see wayshunt_cnv_tgt_heads_t),
 * unless it is null. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_413_repair_acl_rw_entry_listed(kvs_service_t service,
                                                                     const kvs_datum_t *kvs_key_p,
                                                                     const kvs_datum_t *kvs_data_p,
                                                                     tk_hashtable_64_t *tgt_ht_p,
                                                                     wayshunt_cnv_tgt_heads_t *heads_p);
WAYSHUNT_CNV_EXPORT void wayshunt_cnv413_add_entry_listed(tk_hashtable_64_t *tgt_ht_p,
                                                          wayshunt_kvs_key_rw_acl_entry_t *acl_key_p,
                                                          wayshunt_kvs_data_rw_acl_entry_t *acl_p,
                                                          wayshunt_cnv_tgt_heads_t *heads_p);

/* ---- the fix-up of one chain through an index of its groups ---- */

/* Scratch space of the indexed fix-up: the chain index, whose groups are
 * the entries with the same slot_num and source pair. */
typedef wayshunt_cnv_chain_index_t wayshunt_cnv_413_chain_index_t;

/* The group key of a node: its slot_num and source pair. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_413_group_key(const void *node_p, wayshunt_cnv_group_key_t *key_p);
/* Resolves the chain at head_p with the same outcomes and saves, in the
 * same order, as the full scan, visiting only the entries of each group.
 * Non-zero when there was no memory for the index: then nothing was changed
 * or saved, and the chain is left to the full scan. */
WAYSHUNT_CNV_EXPORT int wayshunt_cnv_413_fix_chain_indexed(kvs_service_t service,
                                                           wayshunt_cnv_413_acl_rw_node_t *head_p,
                                                           wayshunt_cnv_413_chain_index_t *ix_p);
/* Releases the scratch space and zeroes it. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_413_chain_index_free(wayshunt_cnv_413_chain_index_t *ix_p);

#ifdef __cplusplus
}
#endif

#endif
