// Target table of the upgrade from 3.2: its build from the store (the chain
// insertion is part of the build), the release of its nodes, and its trunk
// fix-up. Mirrors wayshunt_cnv_tgt_table_413.cc.
//
// Trunk fix-up: each target chain is taken in chain
// order; every entry without WAYSHUNT_ACL_FLAG_PHYSICAL (whatever its
// WAYSHUNT_ACL_FLAG_VIRTUAL says) needs a physical partner in its chain: the
// same src_sid_wwn and src_did_wwn on the same slot, the slots looked up
// afresh from if_index. An entry without a partner turns physical, in the
// node at once and in the store as an 84-byte record under key type 55. A
// lookup that fails, or gives slot 255, ends the whole fix-up there.
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include "portmap.h"
#include "wayshunt_cnv_log.h"
#include "wayshunt_cnv_upgrade_32.h"

// The chains are linked and released through nxt_p (wayshunt_cnv_tgt_chains.cc).
static_assert(offsetof(wayshunt_cnv_32_acl_rw_node_t, nxt_p) == 0);

extern "C" {

// The name the build's traces carry, also when its driver runs it.
#define BUILD_STEP "wayshunt_cnv_upgrade_from_32_fix_trunk_entries_build_tgt_ht"

int32 wayshunt_cnv_32_build_tgt_ht_listed(kvs_service_t service, tk_hashtable_64_t *tgt_ht_p,
                                          wayshunt_cnv_tgt_heads_t *heads_p) {
  retcode_t rcode = 0, retcode = 0;
  const kvs_datum_t *pkey, *kvs_data_p;
  wayshunt_kvs_key_rw_acl_entry_t acl_key;
  wayshunt_kvs_data_rw_acl_entry_32_t acl_32;
  wayshunt_cnv_32_acl_rw_node_t *node_p;

  pkey = kvs_move2location(service, KVS_LOC_FIRST, &rcode);
  if (rcode == KVS_ERR_NO_KEY || pkey == NULL) return 0;
  for (;;) {
    if (pkey->ptr == NULL || pkey->siz == 0) goto next;
    if (((const uchar *)pkey->ptr)[0] != WAYSHUNT_KVS_KEY_ACL_RW_1) goto next;
    kvs_data_p = kvs_getvalue(service, &retcode);
    if (retcode != 0 || kvs_data_p == NULL || kvs_data_p->ptr == NULL || kvs_data_p->siz == 0) goto next;
    // A key longer than its layout is read through it: its first 10 bytes
    // give the hash key bytes, and the fix-up saves under the 10-byte key
    // built from them, beside the longer record. A key or value shorter than
    // its layout cannot be read whole without reading past it: the record
    // takes no part in this pass and stays as stored. The upgrade from 4.1.3
    // or lower holds to the same rule (wayshunt_cnv_rw_repair.cc).
    if (pkey->siz < sizeof acl_key || kvs_data_p->siz < sizeof acl_32) goto next;
    memcpy(&acl_key, pkey->ptr, sizeof acl_key);
    memcpy(&acl_32, kvs_data_p->ptr, sizeof acl_32);
    if (!(acl_32.acl_flags & WAYSHUNT_ACL_FLAG_ISL)) goto next;
    // Without memory for a node the entry takes no part in the fix-up; its
    // record stays as stored and the walk goes on.
    node_p = (wayshunt_cnv_32_acl_rw_node_t *)wayshunt_cnv_malloc(sizeof *node_p);
    if (node_p == NULL) goto next;
    node_p->kvs_hash_key_lower = acl_key.acl_hash_key_lower;
    memcpy(&node_p->entry, &acl_32, sizeof node_p->entry);
    WAYSHUNT_CNV_TRACE_AS(BUILD_STEP, "%s():%d Inserting new node into ht:\n");
    WAYSHUNT_CNV_TRACE_RW_ENTRY_AS(BUILD_STEP, &node_p->entry);
    WAYSHUNT_CNV_TRACE_KEY_LINE_AS(BUILD_STEP, node_p);
    wayshunt_cnv_tgt_chain_insert(tgt_ht_p, acl_32.tgt_pwwn.num, node_p, heads_p, BUILD_STEP);
  next:
    pkey = kvs_move2location(service, KVS_LOC_NEXT, &rcode);
    if (rcode == KVS_ERR_NO_KEY) {
      WAYSHUNT_CNV_TRACE_AS(BUILD_STEP, "%s():%d NO KEY\n");
      return 0;
    }
    if (pkey == NULL) return 0;
  }
}

int32 wayshunt_cnv_upgrade_from_32_fix_trunk_entries_build_tgt_ht(kvs_service_t service, tk_hashtable_64_t *tgt_ht_p) {
  return wayshunt_cnv_32_build_tgt_ht_listed(service, tgt_ht_p, NULL);
}

void wayshunt_cnv_32_release_tgt_table(tk_hashtable_64_t *tgt_ht_p) { wayshunt_cnv_release_tgt_chains(tgt_ht_p, NULL); }

// The partner search of the trace build: the whole chain from its head,
// every candidate traced as func, the fix-up. A WAYSHUNT_CNV_32_... outcome;
// *rc_p holds the status of the last slot lookup.
WAYSHUNT_CNV_INLINE int find_partner_by_scan(wayshunt_cnv_32_acl_rw_node_t *head_p,
                                             wayshunt_cnv_32_acl_rw_node_t *virt_node_p, slot_num_t slot_num,
                                             retcode_t *rc_p, const char *func) {
  for (wayshunt_cnv_32_acl_rw_node_t *phy_node_p = head_p; phy_node_p != NULL; phy_node_p = phy_node_p->nxt_p) {
    slot_num_t phy_slot_num = WAYSHUNT_SLOT_INVALID;
    WAYSHUNT_CNV_TRACE_AS(func, "%s():%d Entry: %p\n", (void *)phy_node_p);
    WAYSHUNT_CNV_TRACE_RW_ENTRY_AS(func, &phy_node_p->entry);
    WAYSHUNT_CNV_TRACE_KEY_LINE_AS(func, phy_node_p);
    if (phy_node_p == virt_node_p) continue;
    if (!(phy_node_p->entry.acl_flags & WAYSHUNT_ACL_FLAG_PHYSICAL)) continue;
    if (memcmp(&phy_node_p->entry.src_sid_wwn, &virt_node_p->entry.src_sid_wwn, sizeof(wwn_t)) != 0) continue;
    if (memcmp(&phy_node_p->entry.src_did_wwn, &virt_node_p->entry.src_did_wwn, sizeof(wwn_t)) != 0) continue;
    *rc_p = portmap_get_slot(phy_node_p->entry.if_index, &phy_slot_num);
    if (*rc_p != 0 || phy_slot_num == WAYSHUNT_SLOT_INVALID) return WAYSHUNT_CNV_32_LOOKUP_FAILED;
    WAYSHUNT_CNV_TRACE_AS(func, "%s():%d phy_slot_num = %u\n", phy_slot_num);
    if (phy_slot_num == slot_num) return WAYSHUNT_CNV_32_PARTNER;
  }
  return WAYSHUNT_CNV_32_NO_PARTNER;
}

// With the debug gate open every candidate of the partner search is traced,
// so the search scans the whole chain. With the gate shut it goes through an
// index of the chain's source pairs (wayshunt_cnv_trunk_index_32.cc), which
// looks up the same slots in the same order, so that the stores and the
// point where a failed lookup ends the fix-up are the same; a chain whose
// index finds no memory is scanned whole.
void wayshunt_cnv_upgrade_from_32_fix_trunk_entries(kvs_service_t service, tk_hashtable_64_t *tgt_ht_p) {
  wwn_t tgt_pwwn;
  void *data_p = NULL;
  wayshunt_cnv_32_acl_rw_node_t *head_p, *virt_node_p;
  slot_num_t slot_num;
  wayshunt_kvs_key_rw_acl_entry_t kvs_acl_32_key;
  wayshunt_kvs_data_rw_acl_entry_32_t kvs_acl_32_data;
  kvs_datum_t kvs_key, kvs_data;
  tk_err_t tk_err;
  retcode_t rc = 0;
  wayshunt_cnv_32_chain_index_t ix;
  int indexed, found;
  uint32 i;

  if (tgt_ht_p == NULL) {
    WAYSHUNT_CNV_TRACE("%s():%d NULL tgt_ht_p\n");
    return;
  }
  memset(&kvs_acl_32_key, 0, sizeof kvs_acl_32_key);
  kvs_acl_32_key.key_type.kvs_type = WAYSHUNT_KVS_KEY_ACL_RW_1;
  memset(&kvs_acl_32_data, 0, sizeof kvs_acl_32_data);
  kvs_key.ptr = &kvs_acl_32_key;
  kvs_key.siz = sizeof kvs_acl_32_key;
  kvs_data.ptr = &kvs_acl_32_data;
  kvs_data.siz = sizeof kvs_acl_32_data;
  memset(&ix, 0, sizeof ix);
  tgt_pwwn.num = 0;

  for (tk_err = tk_hashtable_64_get_first(tgt_ht_p, &tgt_pwwn.num, &data_p);;
       tk_err = tk_hashtable_64_traverse(tgt_ht_p, tgt_pwwn.num, &tgt_pwwn.num, &data_p)) {
    if (tk_err == TK_HASHTABLE_END) {
      WAYSHUNT_CNV_TRACE("%s():%d  No more Tgts\n");
      break;
    }
    if (tk_err != 0) break;
    head_p = (wayshunt_cnv_32_acl_rw_node_t *)data_p;
    if (head_p == NULL) continue;
    indexed = !debug && wayshunt_cnv_32_chain_index_build(&ix, head_p) == 0;
    for (virt_node_p = head_p, i = 0; virt_node_p != NULL; virt_node_p = virt_node_p->nxt_p, i++) {
      slot_num = WAYSHUNT_SLOT_INVALID;
      if (virt_node_p->entry.acl_flags & WAYSHUNT_ACL_FLAG_PHYSICAL) {
        WAYSHUNT_CNV_TRACE("%s():%d PHYSICAL Entry.. Ignore\n");
        continue;
      }
      rc = portmap_get_slot(virt_node_p->entry.if_index, &slot_num);
      if (rc != 0 || slot_num == WAYSHUNT_SLOT_INVALID) {
        WAYSHUNT_CNV_TRACE("%s():%d Failed to get slot num: %s 0x%x\n", retcode2str(rc), rc);
        goto out;
      }
      WAYSHUNT_CNV_TRACE("%s():%d Virt Entry: %p slot_num = %u\n", (void *)virt_node_p, slot_num);
      WAYSHUNT_CNV_TRACE_RW_ENTRY(&virt_node_p->entry);
      WAYSHUNT_CNV_TRACE_KEY_LINE(virt_node_p);

      if (indexed) {
        found = wayshunt_cnv_32_chain_index_find_partner(&ix, i, slot_num, &rc);
      } else {
        found = find_partner_by_scan(head_p, virt_node_p, slot_num, &rc, __func__);
      }
      if (found == WAYSHUNT_CNV_32_LOOKUP_FAILED) {
        WAYSHUNT_CNV_TRACE("%s():%d Failed to get slot num: %s 0x%x\n", retcode2str(rc), rc);
        goto out;
      }
      if (found == WAYSHUNT_CNV_32_PARTNER) {
        WAYSHUNT_CNV_TRACE("%s():%d Found Physical Entry\n");
        WAYSHUNT_CNV_TRACE("%s():%d Found Physical Entry - Process next Virtual Entry\n");
        continue;
      }

      WAYSHUNT_CNV_TRACE("%s():%d Physical Entry NOT Found");
      virt_node_p->entry.acl_flags &= ~WAYSHUNT_ACL_FLAG_VIRTUAL;
      virt_node_p->entry.acl_flags |= WAYSHUNT_ACL_FLAG_PHYSICAL;
      WAYSHUNT_CNV_TRACE("%s():%d New Flags 0x%08x\n", virt_node_p->entry.acl_flags);
      kvs_acl_32_key.acl_hash_key_lower = virt_node_p->kvs_hash_key_lower;
      memcpy(&kvs_acl_32_data, &virt_node_p->entry, sizeof kvs_acl_32_data);
      rc = kvs_store(service, KVS_STORE_REPLACE, &kvs_key, &kvs_data);
      if (rc != 0) WAYSHUNT_CNV_TRACE("%s():%d KVS Store Failed: %s 0x%x\n", retcode2str(rc), rc);
      // The node counts as physical from now on, whether or not the store
      // took the record.
      if (indexed) wayshunt_cnv_32_chain_index_now_physical(&ix, i);
    }
  }
out:
  wayshunt_cnv_32_chain_index_free(&ix);
}
}
