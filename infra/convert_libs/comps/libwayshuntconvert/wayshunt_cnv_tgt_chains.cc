// The chains of a target table, as both upgrade paths keep them. A
// conversion's driver, which owns its table for one call, also lists the head
// of every chain it puts in (wayshunt_cnv_tgt_heads_t, a local of the
// driver), so that its release frees every chain even when its table walk is
// cut short by a failing status. A step called on its own lists nothing: its
// release is the table walk alone, and nothing outlives the call.
// The nodes of both eras begin with nxt_p, which is all this file reads.
#include <stdlib.h>
#include <string.h>

#include "wayshunt_cnv_log.h"

namespace {

struct Link {
  Link *nxt_p;
};

WAYSHUNT_CNV_INLINE void free_chain(Link *p) {
  while (p != NULL) {
    Link *nxt_p = p->nxt_p;
    free(p);
    p = nxt_p;
  }
}

// Lists head_p in heads_p: 0, or -1 when there is no memory for the list.
WAYSHUNT_CNV_INLINE int list_head(wayshunt_cnv_tgt_heads_t *heads_p, void *head_p) {
  if (heads_p->n == heads_p->cap) {
    uint32 cap = heads_p->cap ? 2 * heads_p->cap : 64;
    void **head = (void **)wayshunt_cnv_malloc(cap * (uint32)sizeof *head);
    if (head == NULL) return -1;
    if (heads_p->n) memcpy(head, heads_p->head, heads_p->n * sizeof *head);
    free(heads_p->head);
    heads_p->head = head;
    heads_p->cap = cap;
  }
  heads_p->head[heads_p->n++] = head_p;
  return 0;
}

// Whether the release's list will free head_p: every head, unless one
// found no memory; then only those in it (a search, on that rare path alone).
WAYSHUNT_CNV_INLINE int listed(const wayshunt_cnv_tgt_heads_t *heads_p, const void *head_p) {
  if (heads_p == NULL) return 0;
  if (!heads_p->unlisted) return 1;
  for (uint32 i = 0; i < heads_p->n; i++)
    if (heads_p->head[i] == head_p) return 1;
  return 0;
}

}  // namespace

extern "C" {

// The node goes right behind the head of its target's chain, or becomes the
// head of a new chain: the table's insert is called and its trace written
// whatever the insert returns. A node the table refused is in no chain and
// no walk could reach it, so it is freed here, and its entry takes no part
// in the fix-up. A head that finds no memory in the owner's list stays in
// the table all the same; only a release walk cut short as well could then
// miss its chain.
void wayshunt_cnv_tgt_chain_insert(tk_hashtable_64_t *ht, uint64 tgt_pwwn, void *node_p,
                                   wayshunt_cnv_tgt_heads_t *heads_p, const char *func) {
  void *prev_p = NULL;
  if (tk_hashtable_64_find(ht, tgt_pwwn, &prev_p) == 0) {
    // An item with no chain behind it (a table its caller filled) has no
    // head to link behind: the node takes no part and is freed.
    if (prev_p == NULL) {
      free(node_p);
      return;
    }
    Link *head_p = (Link *)prev_p;
    ((Link *)node_p)->nxt_p = head_p->nxt_p;
    head_p->nxt_p = (Link *)node_p;
    WAYSHUNT_CNV_TRACE_AS(func, "%s():%d Inserted after head\n");
    return;
  }
  tk_err_t rc = tk_hashtable_64_insert(ht, tgt_pwwn, node_p);
  WAYSHUNT_CNV_TRACE_AS(func, "%s():%d Inserted new entry\n");
  if (rc != 0) {
    free(node_p);
    return;
  }
  if (heads_p != NULL && list_head(heads_p, node_p) != 0) heads_p->unlisted = 1;
}

// The walk frees each chain it reaches; an item with no chain behind it is
// passed over. The walk leaves a head that the list holds linked to itself,
// and the list then frees those heads, and whole the chains the walk did not
// reach; the list itself goes too.
void wayshunt_cnv_release_tgt_chains(tk_hashtable_64_t *ht, wayshunt_cnv_tgt_heads_t *heads_p) {
  uint64 key = 0;
  void *data_p = NULL;
  tk_err_t rc = tk_hashtable_64_get_first(ht, &key, &data_p);
  while (rc == 0) {
    Link *head_p = (Link *)data_p;
    if (head_p != NULL && listed(heads_p, head_p)) {
      free_chain(head_p->nxt_p);
      head_p->nxt_p = head_p;
    } else {
      free_chain(head_p);
    }
    rc = tk_hashtable_64_traverse(ht, key, &key, &data_p);
  }
  if (heads_p == NULL) return;
  for (uint32 i = 0; i < heads_p->n; i++) {
    Link *head_p = (Link *)heads_p->head[i];
    if (head_p->nxt_p == head_p) head_p->nxt_p = NULL;
    free_chain(head_p);
  }
  free(heads_p->head);
  memset(heads_p, 0, sizeof *heads_p);
}
}
