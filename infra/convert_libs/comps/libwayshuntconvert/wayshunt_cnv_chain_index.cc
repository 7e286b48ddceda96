// The index of one target chain shared by the two trunk fix-ups: see
// wayshunt_cnv_chain_index.h. One pass along the chain; the groups are
// found through an open-addressing table that doubles as groups come, so
// the build is linear in the chain whatever the shape of its groups. Only
// the part of the table that the chain needs is cleared and used, so a long
// chain met earlier does not slow the short ones after it.
#include "wayshunt_cnv_chain_index.h"

#include <stdlib.h>
#include <string.h>

extern "C" {

void wayshunt_cnv_chain_index_free(wayshunt_cnv_chain_index_t *ix_p) {
  free(ix_p->node);
  free(ix_p->grp);
  free(ix_p->first);
  free(ix_p->next);
  free(ix_p->slot);
  memset(ix_p, 0, sizeof *ix_p);
}

// Room for n entries, by doubling. 0 when there is no memory or n is too
// large to count in bytes; what was indexed so far stays.
int wayshunt_cnv_chain_index_room(wayshunt_cnv_chain_index_t *ix_p, uint64 n) {
  if (n <= ix_p->cap) return 1;
  uint64 cap = ix_p->cap ? 2 * (uint64)ix_p->cap : 64;
  if (cap < n) cap = n;
  if (cap * sizeof(void *) > UINT32_MAX) return 0;
  void **node = (void **)realloc(ix_p->node, cap * sizeof(void *));
  if (node) ix_p->node = node;
  uint32 *grp = (uint32 *)realloc(ix_p->grp, cap * sizeof(uint32));
  if (grp) ix_p->grp = grp;
  uint32 *first = (uint32 *)realloc(ix_p->first, cap * sizeof(uint32));
  if (first) ix_p->first = first;
  uint32 *next = (uint32 *)realloc(ix_p->next, cap * sizeof(uint32));
  if (next) ix_p->next = next;
  if (!node || !grp || !first || !next) return 0;
  ix_p->cap = (uint32)cap;
  return 1;
}

uint64 wayshunt_cnv_group_hash(const wayshunt_cnv_group_key_t *k) {
  uint64 h = k->a * 0x9e3779b97f4a7c15ull;
  h ^= (k->b + k->c) * 0xc2b2ae3d27d4eb4full;
  return h ^ (h >> 29) ^ (h >> 47);
}

uint32 wayshunt_cnv_chain_index_group_of(wayshunt_cnv_chain_index_t *ix_p, uint32 i, uint32 used,
                                         wayshunt_cnv_group_key_fn_t key_fn) {
  wayshunt_cnv_group_key_t k, f;
  uint32 mask = used - 1;
  key_fn(ix_p->node[i], &k);
  for (uint32 s = (uint32)wayshunt_cnv_group_hash(&k) & mask;; s = (s + 1) & mask) {
    uint32 g = ix_p->slot[s];
    if (g == WAYSHUNT_CNV_IX_NONE) {
      ix_p->slot[s] = i;
      return i;
    }
    key_fn(ix_p->node[g], &f);
    if (f.a == k.a && f.b == k.b && f.c == k.c) return g;
  }
}

void wayshunt_cnv_chain_index_rehash(wayshunt_cnv_chain_index_t *ix_p, uint32 used,
                                     wayshunt_cnv_group_key_fn_t key_fn) {
  memset(ix_p->slot, 0xff, (size_t)used * sizeof(uint32));
  for (uint32 i = 0; i < ix_p->n; i++)
    if (ix_p->grp[i] == i) wayshunt_cnv_chain_index_group_of(ix_p, i, used, key_fn);
}

// The table in use keeps at most half of its slots taken; it starts at 16
// slots for each chain and doubles when the groups need it.
int wayshunt_cnv_chain_index_build(wayshunt_cnv_chain_index_t *ix_p, void *head_p,
                                   wayshunt_cnv_group_key_fn_t key_fn) {
  uint32 used = 16, groups = 0;

  if (ix_p->slots < used) {
    free(ix_p->slot);
    ix_p->slots = 0;
    ix_p->slot = (uint32 *)malloc(used * sizeof(uint32));
    if (ix_p->slot == NULL) return -1;
    ix_p->slots = used;
  }
  ix_p->n = 0;
  wayshunt_cnv_chain_index_rehash(ix_p, used, key_fn);
  for (void *p = head_p; p != NULL; p = *(void **)p) {
    uint32 i = ix_p->n;
    if (i == WAYSHUNT_CNV_IX_NONE - 1 || !wayshunt_cnv_chain_index_room(ix_p, (uint64)i + 1)) return -1;
    if (2 * ((uint64)groups + 1) > used) {
      if ((uint64)used * 2 * sizeof(uint32) > UINT32_MAX) return -1;
      if (ix_p->slots < used * 2) {
        uint32 *slot = (uint32 *)realloc(ix_p->slot, (size_t)used * 2 * sizeof(uint32));
        if (slot == NULL) return -1;
        ix_p->slot = slot;
        ix_p->slots = used * 2;
      }
      used *= 2;
      wayshunt_cnv_chain_index_rehash(ix_p, used, key_fn);
    }
    ix_p->node[i] = p;
    ix_p->n = i + 1;
    ix_p->grp[i] = wayshunt_cnv_chain_index_group_of(ix_p, i, used, key_fn);
    if (ix_p->grp[i] == i) groups++;
  }
  return 0;
}
}
