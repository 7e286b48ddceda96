// First-in first-out queue: a doubly linked list of nodes, one malloc'd node
// per item. The queue never touches the data pointers it carries.
#include <cstdlib>
#include <ctime>

#include "tk_fault.h"
#include "toolkit.h"

extern "C" tk_err_t tk_cq_init(tk_cqueue_t *q, uint32 max_len) {
  tk_err_t rc;
  if (TK_FAULT_HIT("tk_cq_init", &rc)) {
    if (q) *q = tk_cqueue_t{};  // a failed init leaves an empty, zeroed head
    return rc;
  }
  if (!q) return TK_ERR_INVALID;
  *q = tk_cqueue_t{};
  q->max_len = max_len;
  return TK_OK;
}

extern "C" tk_err_t tk_cq_enqueue_tail(tk_cqueue_t *q, const void *data, tk_cq_cookie_t cookie) {
  tk_err_t rc;
  if (TK_FAULT_HIT("tk_cq_enqueue_tail", &rc)) return rc;
  if (!q) return TK_ERR_INVALID;
  if (q->max_len != 0 && q->len >= q->max_len) return TK_ERR_FULL;
  auto *n = static_cast<tk_cq_node_t *>(std::malloc(sizeof(tk_cq_node_t)));
  if (!n) return TK_ERR_NO_MEMORY;
  n->next = nullptr;
  n->prev = q->tail;
  n->data = data;
  n->cookie = cookie;
  n->enqueue_time = std::time(nullptr);
  n->cq = q;
  if (q->tail)
    q->tail->next = n;
  else
    q->head = n;
  q->tail = n;
  if (++q->len > q->max_len_ever) q->max_len_ever = q->len;
  return TK_OK;
}

extern "C" tk_err_t tk_cq_dequeue_head(tk_cqueue_t *q, const void **data, tk_cq_cookie_t *cookie) {
  tk_err_t rc;
  if (TK_FAULT_HIT("tk_cq_dequeue_head", &rc)) return rc;
  if (!q || !data) return TK_ERR_INVALID;
  tk_cq_node_t *n = q->head;
  if (!n) return TK_ERR_EMPTY;
  q->head = n->next;
  if (q->head)
    q->head->prev = nullptr;
  else
    q->tail = nullptr;
  q->len--;
  *data = n->data;
  if (cookie) *cookie = n->cookie;
  std::free(n);
  return TK_OK;
}

// Frees the nodes still queued (never their data) and leaves q empty; the
// limit and the high-water mark stay as they were.
extern "C" tk_err_t tk_cq_destroy(tk_cqueue_t *q) {
  tk_err_t rc;
  if (TK_FAULT_HIT("tk_cq_destroy", &rc)) return rc;
  if (!q) return TK_ERR_INVALID;
  bool had_items = q->head != nullptr;
  for (tk_cq_node_t *n = q->head; n;) {
    tk_cq_node_t *next = n->next;
    std::free(n);
    n = next;
  }
  q->head = q->tail = nullptr;
  q->len = 0;
  return had_items ? TK_ERR_NOT_EMPTY : TK_OK;
}
