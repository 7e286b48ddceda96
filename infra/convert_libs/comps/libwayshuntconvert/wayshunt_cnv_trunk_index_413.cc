// The trunk fix-up of one target chain through an index of its groups: the
// entries with the same slot_num, src_sid_wwn and src_did_wwn, each group
// kept in chain order (the index itself is wayshunt_cnv_chain_index.cc).
// Used while the debug gate is shut, where the full scan would cost the
// square of the chain's length.
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
//
// Why it is linear also within one large group: the scan of an entry stops
// at the first plain physical member, and passes over only members that
// lost PHYSICAL. An entry loses PHYSICAL only when its own scan met a plain
// physical member, and that scan first turned every member with both bits
// on its way into a plain physical one; so before the first plain physical
// member of a group stands at most one member without PHYSICAL.
#include <stddef.h>

#include "wayshunt_cnv_chain_index.h"
#include "wayshunt_cnv_upgrade_413.h"

static_assert(offsetof(wayshunt_cnv_413_acl_rw_node_t, nxt_p) == 0, "the index walks nodes by their first field");

extern "C" {

void wayshunt_cnv_413_group_key(const void *node_p, wayshunt_cnv_group_key_t *key_p) {
  const wayshunt_kvs_data_rw_acl_entry_t *e = &((const wayshunt_cnv_413_acl_rw_node_t *)node_p)->entry;
  key_p->a = e->src_sid_wwn.num;
  key_p->b = e->src_did_wwn.num;
  key_p->c = e->slot_num;
}

void wayshunt_cnv_413_chain_index_free(wayshunt_cnv_413_chain_index_t *ix_p) { wayshunt_cnv_chain_index_free(ix_p); }

// Each group's list in chain order: first[] holds a group's last entry so
// far while the lists are threaded.
int wayshunt_cnv_413_fix_chain_indexed(kvs_service_t service, wayshunt_cnv_413_acl_rw_node_t *head_p,
                                       wayshunt_cnv_413_chain_index_t *ix_p) {
  const uint32 both = WAYSHUNT_ACL_FLAG_PHYSICAL | WAYSHUNT_ACL_FLAG_VIRTUAL;
  uint32 i, j;

  if (wayshunt_cnv_chain_index_build(ix_p, head_p, wayshunt_cnv_413_group_key) != 0) return -1;
  for (i = 0; i < ix_p->n; i++) {
    uint32 g = ix_p->grp[i];
    ix_p->next[i] = WAYSHUNT_CNV_IX_NONE;
    if (g != i) ix_p->next[ix_p->first[g]] = i;
    ix_p->first[g] = i;
  }

  for (i = 0; i < ix_p->n; i++) {
    wayshunt_cnv_413_acl_rw_node_t *phy_node_p = (wayshunt_cnv_413_acl_rw_node_t *)ix_p->node[i];
    wayshunt_kvs_data_rw_acl_entry_t *phy_entry_p = &phy_node_p->entry;
    if ((phy_entry_p->acl_flags & both) != both) continue;
    for (j = ix_p->grp[i]; j != WAYSHUNT_CNV_IX_NONE; j = ix_p->next[j]) {
      if (j == i) continue;
      wayshunt_cnv_413_acl_rw_node_t *virt_node_p = (wayshunt_cnv_413_acl_rw_node_t *)ix_p->node[j];
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
