// Walking on after a delete.
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
}
