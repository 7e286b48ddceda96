// The partner search of the 3.2 trunk fix-up through an index of one target
// chain: its entries grouped by source pair (src_sid_wwn, src_did_wwn), and
// for each source pair the list of its physical entries in chain order.
// Used while the debug gate is shut, where the scan of the whole chain for
// every examined entry would cost the square of the chain's length.
//
// Why it looks up the same slots in the same order as the scan of the whole
// chain: that scan, for an examined entry, passes over without a lookup
// every entry that is the examined one, is not physical now, or has another
// source pair, and looks up the slot of every other entry, in chain order,
// until a slot matches or a lookup fails. The fix-up changes acl_flags
// alone, so an entry's source pair stays what it was when the index was
// built. An entry becomes physical only when it is examined and has no
// partner, and no entry ever stops being physical. So the list of a source
// pair, built from the flags at the start and given each entry that turns
// physical at its place in chain order, holds exactly the entries that the
// scan would look up, in the scan's order.
#include <stdlib.h>
#include <string.h>

#include "portmap.h"
#include "wayshunt_cnv_upgrade_32.h"

#define WAYSHUNT_CNV_32_IX_NONE 0xffffffffu

extern "C" {

void wayshunt_cnv_32_chain_index_free(wayshunt_cnv_32_chain_index_t *ix_p) {
  free(ix_p->node);
  free(ix_p->grp);
  free(ix_p->phy_first);
  free(ix_p->phy_next);
  free(ix_p->slot);
  memset(ix_p, 0, sizeof *ix_p);
}

// Room for n entries and an open-addressing table of at least 2n slots.
// 0 when there is no memory, or n is too large to count in bytes.
int wayshunt_cnv_32_chain_index_reserve(wayshunt_cnv_32_chain_index_t *ix_p, uint32 n) {
  uint64 slots = 16;
  while (slots < 2 * (uint64)n) slots *= 2;
  if (slots * sizeof(uint32) > UINT32_MAX || (uint64)n * sizeof(void *) > UINT32_MAX) return 0;
  if (n > ix_p->cap) {
    wayshunt_cnv_32_chain_index_free(ix_p);
    uint32 cap = n < 64 ? 64 : n;
    ix_p->node = (wayshunt_cnv_32_acl_rw_node_t **)wayshunt_cnv_malloc(cap * (uint32)sizeof(void *));
    ix_p->grp = (uint32 *)wayshunt_cnv_malloc(cap * (uint32)sizeof(uint32));
    ix_p->phy_first = (uint32 *)wayshunt_cnv_malloc(cap * (uint32)sizeof(uint32));
    ix_p->phy_next = (uint32 *)wayshunt_cnv_malloc(cap * (uint32)sizeof(uint32));
    if (!ix_p->node || !ix_p->grp || !ix_p->phy_first || !ix_p->phy_next) {
      wayshunt_cnv_32_chain_index_free(ix_p);
      return 0;
    }
    ix_p->cap = cap;
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

uint64 wayshunt_cnv_32_pair_hash(const wayshunt_kvs_data_rw_acl_entry_32_t *e) {
  uint64 h = e->src_sid_wwn.num * 0x9e3779b97f4a7c15ull;
  h ^= e->src_did_wwn.num * 0xc2b2ae3d27d4eb4full;
  return h ^ (h >> 29) ^ (h >> 47);
}

int wayshunt_cnv_32_same_pair(const wayshunt_kvs_data_rw_acl_entry_32_t *a,
                              const wayshunt_kvs_data_rw_acl_entry_32_t *b) {
  return memcmp(&a->src_sid_wwn, &b->src_sid_wwn, sizeof(wwn_t)) == 0 &&
         memcmp(&a->src_did_wwn, &b->src_did_wwn, sizeof(wwn_t)) == 0;
}

// The first entry of the source pair of entry i, which becomes that first
// entry itself when the pair is new.
uint32 wayshunt_cnv_32_pair_of(wayshunt_cnv_32_chain_index_t *ix_p, uint32 i) {
  const wayshunt_kvs_data_rw_acl_entry_32_t *e = &ix_p->node[i]->entry;
  uint32 mask = ix_p->slots - 1;
  for (uint32 s = (uint32)wayshunt_cnv_32_pair_hash(e) & mask;; s = (s + 1) & mask) {
    uint32 g = ix_p->slot[s];
    if (g == WAYSHUNT_CNV_32_IX_NONE) {
      ix_p->slot[s] = i;
      return i;
    }
    if (wayshunt_cnv_32_same_pair(&ix_p->node[g]->entry, e)) return g;
  }
}

int wayshunt_cnv_32_chain_index_build(wayshunt_cnv_32_chain_index_t *ix_p, wayshunt_cnv_32_acl_rw_node_t *head_p) {
  uint32 n = 0, i;

  for (wayshunt_cnv_32_acl_rw_node_t *p = head_p; p != NULL; p = p->nxt_p) {
    if (n == WAYSHUNT_CNV_32_IX_NONE - 1) return -1;
    n++;
  }
  if (!wayshunt_cnv_32_chain_index_reserve(ix_p, n)) return -1;
  memset(ix_p->slot, 0xff, ix_p->slots * sizeof(uint32));
  i = 0;
  for (wayshunt_cnv_32_acl_rw_node_t *p = head_p; p != NULL; p = p->nxt_p, i++) {
    ix_p->node[i] = p;
    ix_p->phy_first[i] = WAYSHUNT_CNV_32_IX_NONE;
    ix_p->grp[i] = wayshunt_cnv_32_pair_of(ix_p, i);
  }
  // Taken from the back, each physical entry goes in front of its list, so
  // that every list runs in chain order.
  for (i = n; i-- > 0;) {
    ix_p->phy_next[i] = WAYSHUNT_CNV_32_IX_NONE;
    if (!(ix_p->node[i]->entry.acl_flags & WAYSHUNT_ACL_FLAG_PHYSICAL)) continue;
    ix_p->phy_next[i] = ix_p->phy_first[ix_p->grp[i]];
    ix_p->phy_first[ix_p->grp[i]] = i;
  }
  ix_p->ins_after = WAYSHUNT_CNV_32_IX_NONE;
  return 0;
}

int wayshunt_cnv_32_chain_index_find_partner(wayshunt_cnv_32_chain_index_t *ix_p, uint32 i, slot_num_t slot_num,
                                             retcode_t *rc_p) {
  uint32 before = WAYSHUNT_CNV_32_IX_NONE;

  for (uint32 j = ix_p->phy_first[ix_p->grp[i]]; j != WAYSHUNT_CNV_32_IX_NONE; j = ix_p->phy_next[j]) {
    const wayshunt_kvs_data_rw_acl_entry_32_t *e = &ix_p->node[j]->entry;
    slot_num_t phy_slot_num = WAYSHUNT_SLOT_INVALID;
    if (j == i || !(e->acl_flags & WAYSHUNT_ACL_FLAG_PHYSICAL)) continue;
    retcode_t rc = portmap_get_slot(e->if_index, &phy_slot_num);
    if (rc != 0 || phy_slot_num == WAYSHUNT_SLOT_INVALID) {
      *rc_p = rc;
      return WAYSHUNT_CNV_32_LOOKUP_FAILED;
    }
    if (phy_slot_num == slot_num) return WAYSHUNT_CNV_32_PARTNER;
    if (j < i) before = j;
  }
  // The whole list was seen: the entry, if it turns physical, goes behind
  // the last physical entry that stands before it in the chain.
  ix_p->ins_after = before;
  return WAYSHUNT_CNV_32_NO_PARTNER;
}

void wayshunt_cnv_32_chain_index_now_physical(wayshunt_cnv_32_chain_index_t *ix_p, uint32 i) {
  uint32 *link_p =
      ix_p->ins_after == WAYSHUNT_CNV_32_IX_NONE ? &ix_p->phy_first[ix_p->grp[i]] : &ix_p->phy_next[ix_p->ins_after];
  ix_p->phy_next[i] = *link_p;
  *link_p = i;
  ix_p->ins_after = WAYSHUNT_CNV_32_IX_NONE;
}
}
