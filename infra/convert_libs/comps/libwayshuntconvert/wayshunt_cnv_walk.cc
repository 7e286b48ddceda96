// Steps shared by the walks: walking on after a delete, keeping a copy of
// the key to delete, and freeing the keys a drain left queued.
#include <stdlib.h>
#include <string.h>

#include "wayshunt_cnv_log.h"

extern "C" {

// The key that follows a delete: the store leaves its cursor on the
// following key, so kvs_getkey gives it. A delete that failed may leave the
// cursor on the deleted key itself; the walk must not spin on it, so that key
// is passed with a move to the next one. deleted is a copy of the key's bytes
// taken before the delete, or null for a key too long to copy: then a failed
// delete (del_rc non-zero) is taken to have left the cursor where it was.
const kvs_datum_t *wayshunt_cnv_key_after_delete(kvs_service_t service, const void *deleted,
                                                 unsigned int deleted_siz, retcode_t del_rc, retcode_t *rcode) {
  const kvs_datum_t *pkey = kvs_getkey(service, rcode);
  if (pkey == NULL || pkey->ptr == NULL) return pkey;
  if (deleted == NULL ? del_rc == 0
                      : pkey->siz != deleted_siz || memcmp(pkey->ptr, deleted, deleted_siz) != 0)
    return pkey;
  return kvs_move2location(service, KVS_LOC_NEXT, rcode);
}

// A copy of the key about to be deleted, for wayshunt_cnv_key_after_delete:
// in buf when it fits, else in a block of its own, left in *heap_p for the
// caller to free after the step (null otherwise). With a copy the step can
// tell whether a failed delete left the cursor on the key or had moved it
// on already; without one it could only guess and skip a key. Null only
// when there is no memory for the block.
const void *wayshunt_cnv_keep_key(const kvs_datum_t *pkey, void *buf, uint32 buf_siz, void **heap_p) {
  *heap_p = NULL;
  if (pkey->siz <= buf_siz) return memcpy(buf, pkey->ptr, pkey->siz);
  *heap_p = wayshunt_cnv_malloc(pkey->siz);
  return *heap_p != NULL ? memcpy(*heap_p, pkey->ptr, pkey->siz) : NULL;
}

// A dequeue that failed with keys still queued leaves them to the destroy,
// which drops them unfreed: they are taken out and freed unstored, up to the
// next failure. rc is the status that ended the drain.
void wayshunt_cnv_free_queued_keys(tk_cqueue_t *q, tk_err_t rc) {
  const void *key_p = NULL;
  tk_cq_cookie_t cookie = 0;
  if (rc == TK_ERR_EMPTY) return;
  while (tk_cq_dequeue_head(q, &key_p, &cookie) == 0) free((void *)key_p);
}
}
