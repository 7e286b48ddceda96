// Target table of the upgrade from 4.1.3 or lower: the chain insertion (the
// build is the walk's RW ACL repair, wayshunt_cnv_rw_repair.cc), the release
// of its nodes, and its trunk fix-up. Mirrors wayshunt_cnv_tgt_table_32.cc.
//
// During the walk every repaired RW ACL entry with both
// WAYSHUNT_ACL_FLAG_PHYSICAL and WAYSHUNT_ACL_FLAG_ISL is copied into one
// chain per target port name (the first entry is the head, each later one
// goes right behind it). After the walk the fix-up resolves, chain by chain,
// the entries that carry both PHYSICAL and VIRTUAL, and writes each changed
// entry back under key type 55.
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include "wayshunt_cnv_log.h"
#include "wayshunt_cnv_upgrade_413.h"

// The chains are linked and released through nxt_p (wayshunt_cnv_tgt_chains.cc).
static_assert(offsetof(wayshunt_cnv_413_acl_rw_node_t, nxt_p) == 0);

extern "C" {

// The name the add operation's traces carry, also when its driver runs it.
#define ADD_STEP "wayshunt_cnv413_upg_add_entry_to_tgt_hash"

void wayshunt_cnv413_add_entry_listed(tk_hashtable_64_t *tgt_ht_p, wayshunt_kvs_key_rw_acl_entry_t *acl_key_p,
                                      wayshunt_kvs_data_rw_acl_entry_t *acl_p, wayshunt_cnv_tgt_heads_t *heads_p) {
  wayshunt_cnv_413_acl_rw_node_t *node_p;

  if (!(acl_p->acl_flags & WAYSHUNT_ACL_FLAG_ISL)) return;
  // Without memory for a node the entry takes no part in the fix-up; it
  // stays in the store as the repair stored it.
  node_p = (wayshunt_cnv_413_acl_rw_node_t *)wayshunt_cnv_malloc(sizeof *node_p);
  if (node_p == NULL) return;
  node_p->kvs_hash_key_lower = acl_key_p->acl_hash_key_lower;
  memcpy(&node_p->entry, acl_p, sizeof node_p->entry);
  WAYSHUNT_CNV_TRACE_AS(ADD_STEP, "%s():%d Inserting new node into ht:\n");
  WAYSHUNT_CNV_TRACE_RW_ENTRY_AS(ADD_STEP, &node_p->entry);
  WAYSHUNT_CNV_TRACE_KEY_LINE_AS(ADD_STEP, node_p);
  wayshunt_cnv_tgt_chain_insert(tgt_ht_p, acl_p->tgt_pwwn.num, node_p, heads_p, ADD_STEP);
}

void wayshunt_cnv413_upg_add_entry_to_tgt_hash(tk_hashtable_64_t *tgt_ht_p, wayshunt_kvs_key_rw_acl_entry_t *acl_key_p,
                                               wayshunt_kvs_data_rw_acl_entry_t *acl_p) {
  wayshunt_cnv413_add_entry_listed(tgt_ht_p, acl_key_p, acl_p, NULL);
}

void wayshunt_cnv_413_release_tgt_table(tk_hashtable_64_t *tgt_ht_p) { wayshunt_cnv_release_tgt_chains(tgt_ht_p, NULL); }

void wayshunt_cnv_upgrade_from_41_acl_rw_save_entry(kvs_service_t service, uint64 kvs_hash_key_lower,
                                                    wayshunt_kvs_data_rw_acl_entry_t *acl_p) {
  wayshunt_kvs_key_rw_acl_entry_t kvs_key_acl_rw;
  kvs_datum_t kvs_key, kvs_data;
  retcode_t rc;

  memset(&kvs_key_acl_rw, 0, sizeof kvs_key_acl_rw);
  kvs_key_acl_rw.key_type.kvs_type = WAYSHUNT_KVS_KEY_ACL_RW_1;
  kvs_key_acl_rw.key_type.kvs_sub_type = 0;
  kvs_key_acl_rw.acl_hash_key_lower = kvs_hash_key_lower;
  kvs_key.ptr = &kvs_key_acl_rw;
  kvs_key.siz = sizeof kvs_key_acl_rw;
  kvs_data.ptr = acl_p;
  kvs_data.siz = sizeof *acl_p;
  rc = kvs_store(service, KVS_STORE_REPLACE, &kvs_key, &kvs_data);
  if (rc != 0) WAYSHUNT_CNV_TRACE("%s():%d KVS Store Failed: %s 0x%x\n", retcode2str(rc), rc);
}

// For each entry with both bits, in chain order, the candidates are scanned
// from the head: a candidate on the same slot with the same source pair that
// has both bits loses VIRTUAL; the first such candidate that is plainly
// physical makes the entry lose PHYSICAL instead; if none does, the entry
// loses VIRTUAL.
//
// With the debug gate shut nothing is traced, and a candidate on another
// slot or with another source pair is only passed over, so each chain goes
// through an index of its groups (wayshunt_cnv_trunk_index_413.cc), which
// gives the same outcomes and saves in the same order without the scan of
// the whole chain for every entry. The full scan below runs with the gate
// open, where it traces every candidate, and for a chain whose index found
// no memory.
void wayshunt_cnv_upgrade_from_413_fix_trunk_entries(kvs_service_t service, tk_hashtable_64_t *tgt_ht_p) {
  uint64 tgt_pwwn = 0;
  void *data_p = NULL;
  wayshunt_cnv_413_acl_rw_node_t *head_p, *phy_node_p, *virt_node_p;
  wayshunt_kvs_data_rw_acl_entry_t *phy_entry_p, *virt_entry_p;
  uint32 flags, virt_acl_flags;
  wayshunt_cnv_413_chain_index_t ix;
  tk_err_t rc;

  if (tgt_ht_p == NULL) {
    WAYSHUNT_CNV_TRACE("%s():%d NULL tgt_ht_p\n");
    return;
  }
  memset(&ix, 0, sizeof ix);
  rc = tk_hashtable_64_get_first(tgt_ht_p, &tgt_pwwn, &data_p);
  for (;;) {
    if (rc == TK_HASHTABLE_END) {
      WAYSHUNT_CNV_TRACE("%s():%d  No more Tgts\n");
      break;
    }
    if (rc != 0) break;
    head_p = (wayshunt_cnv_413_acl_rw_node_t *)data_p;
    if (debug || wayshunt_cnv_413_fix_chain_indexed(service, head_p, &ix) != 0) {
      for (phy_node_p = head_p; phy_node_p != NULL; phy_node_p = phy_node_p->nxt_p) {
        flags = phy_node_p->entry.acl_flags;
        if ((flags & (WAYSHUNT_ACL_FLAG_PHYSICAL | WAYSHUNT_ACL_FLAG_VIRTUAL)) !=
            (WAYSHUNT_ACL_FLAG_PHYSICAL | WAYSHUNT_ACL_FLAG_VIRTUAL)) {
          WAYSHUNT_CNV_TRACE("%s():%d Both PHY/VIRT not set together. Ignore\n");
          continue;
        }
        WAYSHUNT_CNV_TRACE("%s():%d Entry: %p slot_num = %u, PHY,VIRT are set\n", (void *)phy_node_p,
                           phy_node_p->entry.slot_num);
        WAYSHUNT_CNV_TRACE_RW_ENTRY(&phy_node_p->entry);
        WAYSHUNT_CNV_TRACE_KEY_LINE(phy_node_p);
        phy_entry_p = &phy_node_p->entry;
        for (virt_node_p = head_p; virt_node_p != NULL; virt_node_p = virt_node_p->nxt_p) {
          virt_acl_flags = virt_node_p->entry.acl_flags;
          WAYSHUNT_CNV_TRACE("%s():%d virt Entry: %p\n", (void *)virt_node_p);
          WAYSHUNT_CNV_TRACE_RW_ENTRY(&virt_node_p->entry);
          WAYSHUNT_CNV_TRACE_KEY_LINE(virt_node_p);
          if (virt_node_p == phy_node_p) continue;
          virt_entry_p = &virt_node_p->entry;
          if (!(virt_acl_flags & WAYSHUNT_ACL_FLAG_PHYSICAL)) continue;
          if (virt_entry_p->slot_num != phy_entry_p->slot_num) continue;
          if (memcmp(&virt_entry_p->src_sid_wwn, &phy_entry_p->src_sid_wwn, sizeof(wwn_t)) != 0) continue;
          if (memcmp(&virt_entry_p->src_did_wwn, &phy_entry_p->src_did_wwn, sizeof(wwn_t)) != 0) continue;
          if (virt_acl_flags & WAYSHUNT_ACL_FLAG_VIRTUAL) {
            virt_entry_p->acl_flags &= ~WAYSHUNT_ACL_FLAG_VIRTUAL;
            WAYSHUNT_CNV_TRACE("%s():%d Reset Virtual Flag\n");
            wayshunt_cnv_upgrade_from_41_acl_rw_save_entry(service, virt_node_p->kvs_hash_key_lower, virt_entry_p);
            continue;
          }
          phy_entry_p->acl_flags &= ~WAYSHUNT_ACL_FLAG_PHYSICAL;
          WAYSHUNT_CNV_TRACE("%s():%d Reset Physical Flag\n");
          wayshunt_cnv_upgrade_from_41_acl_rw_save_entry(service, phy_node_p->kvs_hash_key_lower, phy_entry_p);
          break;
        }
        if (virt_node_p == NULL) {
          phy_entry_p->acl_flags &= ~WAYSHUNT_ACL_FLAG_VIRTUAL;
          WAYSHUNT_CNV_TRACE("%s():%d Reset Virtual Flg from PHY\n");
          wayshunt_cnv_upgrade_from_41_acl_rw_save_entry(service, phy_node_p->kvs_hash_key_lower, phy_entry_p);
        }
      }
    }
    rc = tk_hashtable_64_traverse(tgt_ht_p, tgt_pwwn, &tgt_pwwn, &data_p);
  }
  wayshunt_cnv_413_chain_index_free(&ix);
}
}
