// The chains of a target table, as both upgrade paths keep them: every head
// that goes into a table is listed here as well, so that the release frees
// every chain even when its table walk is cut short by a failing status.
// The nodes of both eras begin with nxt_p, which is all this file reads.
#include <stdlib.h>

#include "wayshunt_cnv_log.h"

namespace {

struct Link {
  Link *nxt_p;
};

// The heads listed for one table, in the order they went in.
struct Listed {
  const tk_hashtable_64_t *ht;
  Link **head;
  uint32 n, cap;
  Listed *next;
};

// The tables being built now: one per conversion, more only when steps are
// called by themselves. Each leaves the list at its release.
Listed *tables = NULL;

WAYSHUNT_CNV_INLINE Listed **find(const tk_hashtable_64_t *ht) {
  Listed **l = &tables;
  while (*l != NULL && (*l)->ht != ht) l = &(*l)->next;
  return l;
}

WAYSHUNT_CNV_INLINE void free_chain(Link *p) {
  while (p != NULL) {
    Link *nxt_p = p->nxt_p;
    free(p);
    p = nxt_p;
  }
}

}  // namespace

extern "C" {

// Room to list one more head for ht: 0, or -1 when there is no memory.
WAYSHUNT_CNV_INLINE int reserve(const tk_hashtable_64_t *ht) {
  Listed **l = find(ht);
  if (*l == NULL) {
    *l = (Listed *)wayshunt_cnv_malloc(sizeof **l);
    if (*l == NULL) return -1;
    (*l)->ht = ht;
  }
  Listed *t = *l;
  if (t->n < t->cap) return 0;
  uint32 cap = t->cap ? 2 * t->cap : 64;
  Link **head = (Link **)realloc(t->head, cap * sizeof *head);
  if (head == NULL) return -1;
  t->head = head;
  t->cap = cap;
  return 0;
}

// The node goes right behind the head of its target's chain, or becomes the
// head of a new chain. Its traces carry the name of the caller, func, whose
// step this is. The trace of a new chain is written whatever the table's
// insert returns, as the build of both paths always did; a node the table
// refused, or that could not be listed for want of memory, is freed here,
// and its entry takes no part in the fix-up.
void wayshunt_cnv_tgt_chain_insert(tk_hashtable_64_t *ht, uint64 tgt_pwwn, void *node_p, const char *func) {
  void *prev_p = NULL;
  if (tk_hashtable_64_find(ht, tgt_pwwn, &prev_p) == 0) {
    Link *head_p = (Link *)prev_p;
    ((Link *)node_p)->nxt_p = head_p->nxt_p;
    head_p->nxt_p = (Link *)node_p;
    WAYSHUNT_CNV_TRACE_AS(func, "%s():%d Inserted after head\n");
    return;
  }
  if (reserve(ht) != 0) {
    free(node_p);
    return;
  }
  tk_err_t rc = tk_hashtable_64_insert(ht, tgt_pwwn, node_p);
  WAYSHUNT_CNV_TRACE_AS(func, "%s():%d Inserted new entry\n");
  if (rc != 0) {
    free(node_p);
    return;
  }
  Listed *t = *find(ht);
  t->head[t->n++] = (Link *)node_p;
}

// The walk frees each chain it reaches but its head, which it links to
// itself; the list then frees those heads, and whole the chains the walk
// did not reach.
void wayshunt_cnv_release_tgt_chains(tk_hashtable_64_t *ht) {
  uint64 key = 0;
  void *data_p = NULL;
  tk_err_t rc = tk_hashtable_64_get_first(ht, &key, &data_p);
  while (rc == 0) {
    Link *head_p = (Link *)data_p;
    free_chain(head_p->nxt_p);
    head_p->nxt_p = head_p;
    rc = tk_hashtable_64_traverse(ht, key, &key, &data_p);
  }
  Listed **l = find(ht), *t = *l;
  if (t == NULL) return;
  for (uint32 i = 0; i < t->n; i++) {
    Link *head_p = t->head[i];
    if (head_p->nxt_p == head_p) head_p->nxt_p = NULL;
    free_chain(head_p);
  }
  *l = t->next;
  free(t->head);
  free(t);
}
}
