// The partner search of the 3.2 trunk fix-up through an index of one target
// chain (wayshunt_cnv_chain_index.cc): its entries grouped by source pair
// (src_sid_wwn, src_did_wwn), and for each source pair the list of its
// physical entries in chain order. Used while the debug gate is shut, where
// the scan of the whole chain for every examined entry would cost the
// square of the chain's length.
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
// scan would look up, in the scan's order. The search costs no more steps
// than the scan makes lookups.
#include <stddef.h>

#include "portmap.h"
#include "wayshunt_cnv_upgrade_32.h"

static_assert(offsetof(wayshunt_cnv_32_acl_rw_node_t, nxt_p) == 0, "the index walks nodes by their first field");

extern "C" {

void wayshunt_cnv_32_group_key(const void *node_p, wayshunt_cnv_group_key_t *key_p) {
  const wayshunt_kvs_data_rw_acl_entry_32_t *e = &((const wayshunt_cnv_32_acl_rw_node_t *)node_p)->entry;
  key_p->a = e->src_sid_wwn.num;
  key_p->b = e->src_did_wwn.num;
  key_p->c = 0;
}

void wayshunt_cnv_32_chain_index_free(wayshunt_cnv_32_chain_index_t *ix_p) {
  wayshunt_cnv_chain_index_free(&ix_p->core);
  ix_p->ins_after = WAYSHUNT_CNV_IX_NONE;
}

// first[] of a source pair's first entry is its first physical entry, and
// next[] the physical entry behind; taken from the back, each physical
// entry goes in front of its list, so that every list runs in chain order.
int wayshunt_cnv_32_chain_index_build(wayshunt_cnv_32_chain_index_t *ix_p, wayshunt_cnv_32_acl_rw_node_t *head_p) {
  wayshunt_cnv_chain_index_t *c = &ix_p->core;
  if (wayshunt_cnv_chain_index_build(c, head_p, wayshunt_cnv_32_group_key) != 0) return -1;
  for (uint32 i = 0; i < c->n; i++) c->first[i] = WAYSHUNT_CNV_IX_NONE;
  for (uint32 i = c->n; i-- > 0;) {
    c->next[i] = WAYSHUNT_CNV_IX_NONE;
    if (!(((wayshunt_cnv_32_acl_rw_node_t *)c->node[i])->entry.acl_flags & WAYSHUNT_ACL_FLAG_PHYSICAL)) continue;
    c->next[i] = c->first[c->grp[i]];
    c->first[c->grp[i]] = i;
  }
  ix_p->ins_after = WAYSHUNT_CNV_IX_NONE;
  return 0;
}

int wayshunt_cnv_32_chain_index_find_partner(wayshunt_cnv_32_chain_index_t *ix_p, uint32 i, slot_num_t slot_num,
                                             retcode_t *rc_p) {
  wayshunt_cnv_chain_index_t *c = &ix_p->core;
  uint32 before = WAYSHUNT_CNV_IX_NONE;

  for (uint32 j = c->first[c->grp[i]]; j != WAYSHUNT_CNV_IX_NONE; j = c->next[j]) {
    const wayshunt_kvs_data_rw_acl_entry_32_t *e = &((wayshunt_cnv_32_acl_rw_node_t *)c->node[j])->entry;
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
  wayshunt_cnv_chain_index_t *c = &ix_p->core;
  uint32 *link_p = ix_p->ins_after == WAYSHUNT_CNV_IX_NONE ? &c->first[c->grp[i]] : &c->next[ix_p->ins_after];
  c->next[i] = *link_p;
  *link_p = i;
  ix_p->ins_after = WAYSHUNT_CNV_IX_NONE;
}
}
