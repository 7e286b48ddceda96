// The trunk fix-up of one target chain through an index of its groups: the
// entries with the same slot_num, src_sid_wwn and src_did_wwn, each group
// kept in chain order. Used while the debug gate is shut, where the full
// scan would cost the square of the chain's length.
//
// Why the outcome is that of the full scan: the fix-up changes acl_flags
// alone, so the group of an entry stays what it was when the index was
// built. In the full scan a candidate outside the entry's group fails the
// slot or source pair test and is passed over with nothing changed or
// saved; only group members with PHYSICAL set can change a flag, save or
// end the scan. Here the same group members are visited in the same chain
// order, with the same tests on their flags as they stand at the visit, so
// every change and every save happens in the same order. The outer order,
// its test and the end-of-scan step are the full scan's.
#include <stdlib.h>
#include <string.h>

#include "wayshunt_cnv_log.h"
#include "wayshunt_cnv_upgrade_413.h"

#define WAYSHUNT_CNV_IX_NONE 0xffffffffu

extern "C" {

void wayshunt_cnv_413_chain_index_free(wayshunt_cnv_413_chain_index_t *ix_p) {
  free(ix_p->node);
  free(ix_p->grp_next);
  free(ix_p->grp_head);
  free(ix_p->grp_tail);
  free(ix_p->slot);
  memset(ix_p, 0, sizeof *ix_p);
}

// The open-addressing table for a chain of n nodes: a power of two of at
// least 2n slots, so that a probe ends soon at a free slot.
uint64 wayshunt_cnv_413_chain_index_slots(uint32 n) {
  uint64 slots = 16;
  while (slots < 2 * (uint64)n) slots *= 2;
  return slots;
}

int wayshunt_cnv_413_chain_index_reserve(wayshunt_cnv_413_chain_index_t *ix_p, uint32 n) {
  uint64 slots = wayshunt_cnv_413_chain_index_slots(n);
  if (slots * sizeof(uint32) > UINT32_MAX || (uint64)n * sizeof(void *) > UINT32_MAX) return 0;
  if (n > ix_p->cap) {
    uint64 cap = (uint64)ix_p->cap * 2 > n ? (uint64)ix_p->cap * 2 : n;
    if (cap * sizeof(void *) > UINT32_MAX) cap = n;
    wayshunt_cnv_413_chain_index_free(ix_p);
    ix_p->node = (wayshunt_cnv_413_acl_rw_node_t **)wayshunt_cnv_malloc((uint32)(cap * sizeof(void *)));
    ix_p->grp_next = (uint32 *)wayshunt_cnv_malloc((uint32)(cap * sizeof(uint32)));
    ix_p->grp_head = (uint32 *)wayshunt_cnv_malloc((uint32)(cap * sizeof(uint32)));
    ix_p->grp_tail = (uint32 *)wayshunt_cnv_malloc((uint32)(cap * sizeof(uint32)));
    if (!ix_p->node || !ix_p->grp_next || !ix_p->grp_head || !ix_p->grp_tail) {
      wayshunt_cnv_413_chain_index_free(ix_p);
      return 0;
    }
    ix_p->cap = (uint32)cap;
  }
  if (slots > ix_p->slots) {
    free(ix_p->slot);
    ix_p->slots = 0;
    ix_p->slot = (uint32 *)wayshunt_cnv_malloc((uint32)(slots * sizeof(uint32)));
    if (ix_p->slot == NULL) return 0;
    ix_p->slots = (uint32)slots;
  }
  return 1;
}

// Only the part of the slot table that this chain needs is cleared and
// used, so a long chain met earlier does not slow the short ones after it.
uint32 wayshunt_cnv_413_chain_index_build(wayshunt_cnv_413_chain_index_t *ix_p, wayshunt_cnv_413_acl_rw_node_t *head_p,
                                          uint32 n) {
  uint32 i = 0, s, mask = (uint32)wayshunt_cnv_413_chain_index_slots(n) - 1;
  memset(ix_p->slot, 0xff, ((size_t)mask + 1) * sizeof(uint32));
  for (wayshunt_cnv_413_acl_rw_node_t *p = head_p; p != NULL && i < n; p = p->nxt_p, i++) {
    const wayshunt_kvs_data_rw_acl_entry_t *e = &p->entry;
    uint64 h = e->src_sid_wwn.num * 0x9e3779b97f4a7c15ull;
    h ^= (e->src_did_wwn.num + e->slot_num) * 0xc2b2ae3d27d4eb4full;
    h ^= (h >> 29) ^ (h >> 47);
    ix_p->node[i] = p;
    ix_p->grp_next[i] = WAYSHUNT_CNV_IX_NONE;
    for (s = (uint32)h & mask;; s = (s + 1) & mask) {
      uint32 g = ix_p->slot[s];
      if (g == WAYSHUNT_CNV_IX_NONE) {
        ix_p->slot[s] = i;
        ix_p->grp_head[i] = i;
        ix_p->grp_tail[i] = i;
        break;
      }
      const wayshunt_kvs_data_rw_acl_entry_t *f = &ix_p->node[g]->entry;
      if (f->slot_num == e->slot_num && memcmp(&f->src_sid_wwn, &e->src_sid_wwn, sizeof(wwn_t)) == 0 &&
          memcmp(&f->src_did_wwn, &e->src_did_wwn, sizeof(wwn_t)) == 0) {
        ix_p->grp_next[ix_p->grp_tail[g]] = i;
        ix_p->grp_tail[g] = i;
        ix_p->grp_head[i] = g;
        break;
      }
    }
  }
  return i;
}

int wayshunt_cnv_413_fix_chain_indexed(kvs_service_t service, wayshunt_cnv_413_acl_rw_node_t *head_p,
                                       wayshunt_cnv_413_chain_index_t *ix_p) {
  const uint32 both = WAYSHUNT_ACL_FLAG_PHYSICAL | WAYSHUNT_ACL_FLAG_VIRTUAL;
  uint32 n = 0, i, j;

  for (wayshunt_cnv_413_acl_rw_node_t *p = head_p; p != NULL; p = p->nxt_p) {
    if (n == UINT32_MAX - 1) return -1;
    n++;
  }
  if (!wayshunt_cnv_413_chain_index_reserve(ix_p, n)) return -1;
  n = wayshunt_cnv_413_chain_index_build(ix_p, head_p, n);

  for (i = 0; i < n; i++) {
    wayshunt_cnv_413_acl_rw_node_t *phy_node_p = ix_p->node[i];
    wayshunt_kvs_data_rw_acl_entry_t *phy_entry_p = &phy_node_p->entry;
    if ((phy_entry_p->acl_flags & both) != both) continue;
    for (j = ix_p->grp_head[i]; j != WAYSHUNT_CNV_IX_NONE; j = ix_p->grp_next[j]) {
      if (j == i) continue;
      wayshunt_cnv_413_acl_rw_node_t *virt_node_p = ix_p->node[j];
      uint32 virt_acl_flags = virt_node_p->entry.acl_flags;
      if (!(virt_acl_flags & WAYSHUNT_ACL_FLAG_PHYSICAL)) continue;
      if (virt_acl_flags & WAYSHUNT_ACL_FLAG_VIRTUAL) {
        virt_node_p->entry.acl_flags &= ~WAYSHUNT_ACL_FLAG_VIRTUAL;
        wayshunt_cnv_upgrade_from_41_acl_rw_save_entry(service, virt_node_p->kvs_hash_key_lower, &virt_node_p->entry);
        continue;
      }
      phy_entry_p->acl_flags &= ~WAYSHUNT_ACL_FLAG_PHYSICAL;
      wayshunt_cnv_upgrade_from_41_acl_rw_save_entry(service, phy_node_p->kvs_hash_key_lower, phy_entry_p);
      break;
    }
    if (j == WAYSHUNT_CNV_IX_NONE) {
      phy_entry_p->acl_flags &= ~WAYSHUNT_ACL_FLAG_VIRTUAL;
      wayshunt_cnv_upgrade_from_41_acl_rw_save_entry(service, phy_node_p->kvs_hash_key_lower, phy_entry_p);
    }
  }
  return 0;
}
}
