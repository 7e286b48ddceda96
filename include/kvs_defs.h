/* The runtime store: a persistent, ordered key-value store of byte strings.
 *
 * A store is named by a URL "nonvolatile:<dir>/<name>". kvs_open() gives a
 * handle with one cursor; everything done through the handle is one atomic
 * change that kvs_close() makes lasting. A process that ends without
 * kvs_close() leaves the store as it was at kvs_open().
 *
 * Data returned by the store (the kvs_datum_t and the bytes behind it) belong
 * to the store: do not free or write them. The key and the value under the
 * cursor stay readable together until the cursor moves or that key is
 * deleted; a value may change with a kvs_store(). Copy what you keep. */
#ifndef PLAT_KVS_DEFS_H
#define PLAT_KVS_DEFS_H

#include "status.h"
#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Handle of an open store; 0 is never a valid handle. */
typedef uint32_t kvs_service_t;

/* A key or a value. */
typedef struct kvs_datum_ {
  void *ptr;
  unsigned int siz;
} kvs_datum_t;

/* Cursor moves. */
#define KVS_LOC_FIRST 1
#define KVS_LOC_NEXT 3

/* Store mode: create the record, or replace its value when the key exists. */
#define KVS_STORE_REPLACE 1

/* Opens the store named by url. *status is 0 on success, else KVS_ERR_BAD_URL,
 * KVS_ERR_NO_STORE (it must have been created), KVS_ERR_BUSY (already open in
 * this process), KVS_ERR_CORRUPT, KVS_ERR_IO, KVS_ERR_TOO_MANY or KVS_ERR_DB.
 * Another process's open of the same store waits until this one closes. */
kvs_service_t kvs_open(const char *url, retcode_t *status);

/* Makes every store and delete of the handle lasting and releases the
 * handle. 0, KVS_ERR_BAD_HANDLE, or KVS_ERR_NO_SPACE / KVS_ERR_IO when the
 * change could not be written (then nothing of it is kept). */
retcode_t kvs_close(kvs_service_t service);

/* Moves the cursor to the first key (KVS_LOC_FIRST) or to the key behind the
 * one under it (KVS_LOC_NEXT) and returns that key. Null with KVS_ERR_NO_KEY
 * on an empty store or behind the last key. Keys are in byte-wise order. */
const kvs_datum_t *kvs_move2location(kvs_service_t service, int mode, retcode_t *status);

/* The key under the cursor, without a move. Behind a kvs_delete() of the key
 * under the cursor this is the key that followed it, or null with
 * KVS_ERR_NO_KEY when the deleted key was the last. */
const kvs_datum_t *kvs_getkey(kvs_service_t service, retcode_t *status);

/* The value of the key under the cursor, without a move. Null with
 * KVS_ERR_NO_KEY behind the last key, KVS_ERR_NO_CURSOR before the first move. */
const kvs_datum_t *kvs_getvalue(kvs_service_t service, retcode_t *status);

/* Creates the record, or replaces its value if the key exists. Both data are
 * copied. Storing the key under the cursor leaves the cursor where it is. */
retcode_t kvs_store(kvs_service_t service, int mode, const kvs_datum_t *key, const kvs_datum_t *value);

/* Deletes the record of key. When it is the key under the cursor, the cursor
 * then stands on the key that followed (see kvs_getkey()). KVS_ERR_NO_KEY if
 * there is no such record. */
retcode_t kvs_delete(kvs_service_t service, const kvs_datum_t *key);

#ifdef __cplusplus
}
#endif

#endif
