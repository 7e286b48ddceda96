/* Store administration, beside the service calls of kvs_defs.h: creating,
 * clearing, removing and locating stores. The service calls never create a
 * store, so that a wrong URL fails instead of converting an empty store.
 *
 * A store "nonvolatile:<dir>/<name>" is the LMDB file <dir>/<name>.mdb with
 * its lock file <dir>/<name>.mdb-lock. Settings, read from the environment:
 *   PLAT_KVS_ROOT      folder prepended to <dir> (default: none)
 *   PLAT_KVS_MAP_SIZE  bytes of address space a store starts with (default
 *                      four times its data file and 64 MiB more, at least
 *                      1 GiB); a store that fills it grows by doubling, so
 *                      the size of the file system is the only limit
 *   PLAT_KVS_GUARD     "1": guarded data, a test mode (default off). Every
 *                      key and value the walk calls hand out is then a
 *                      read-only copy in pages of its own, placed so that
 *                      its last byte is the last byte before an
 *                      inaccessible page, and the datum struct lies in the
 *                      same pages. When the cursor moves (kvs_move2location)
 *                      or its key is deleted, the copies of the key and its
 *                      values become inaccessible (they are unmapped some
 *                      time later). So a read past siz, a write into store
 *                      data or a use of a datum after the cursor moved ends
 *                      the process with SIGSEGV at once. A store under the
 *                      cursor's key leaves them readable. Read at each open;
 *                      slow, for tests only. */
#ifndef PLAT_KVS_ADMIN_H
#define PLAT_KVS_ADMIN_H

#include <stddef.h>

#include "kvs_defs.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Creates an empty store; its folder must exist. 0, KVS_ERR_EXISTS,
 * KVS_ERR_BAD_URL, KVS_ERR_NO_STORE (no such folder), KVS_ERR_IO, KVS_ERR_DB. */
retcode_t kvs_create(const char *url);

/* Removes a store's files. 0, KVS_ERR_NO_STORE, KVS_ERR_BUSY (open in this
 * process), KVS_ERR_BAD_URL, KVS_ERR_IO. */
retcode_t kvs_remove(const char *url);

/* Deletes every record of a store in one write transaction, keeping its
 * files (and the environment this process keeps for its next open), so that
 * a test can start each case from an empty store without making one anew.
 * 0, KVS_ERR_NO_STORE, KVS_ERR_BUSY (open in this process), KVS_ERR_BAD_URL,
 * or the status of the failed transaction (the store then keeps its records). */
retcode_t kvs_clear(const char *url);

/* The number of handles kvs_open gave in this process that are not closed
 * yet, on any store. */
size_t kvs_open_count(void);

/* Writes the path of the store's data file into buf (len bytes with the
 * terminator). 0, KVS_ERR_BAD_URL, or KVS_ERR_BAD_ARG when buf is too small. */
retcode_t kvs_store_file(const char *url, char *buf, size_t len);

/* Reads every record of a store in key order, read-only and without
 * opening it for service: no lock is taken and no lock file is made, the
 * file is never written, and no service handle is used, so that the calls
 * of kvs_open that follow get the numbers they would have got without it.
 * each is called per record, its data valid for that call only; a non-zero
 * return stops the walk and is returned. 0, KVS_ERR_NO_STORE,
 * KVS_ERR_BAD_URL, KVS_ERR_CORRUPT, KVS_ERR_IO, or what each returned.
 * A file shorter than the pages its header says the store uses is refused
 * (KVS_ERR_CORRUPT, "truncated: 8,192 of 2,293,760 bytes" in
 * kvs_last_error_detail) before a page is read; a damaged page that makes
 * the read fault ends the walk with KVS_ERR_CORRUPT rather than the process
 * (SIGBUS and SIGSEGV are caught while the walk runs: call it from one
 * thread).
 * Taking no lock, it may read a store that another process writes at the
 * same moment as it was at no one time: read a store nobody is writing. */
typedef retcode_t (*kvs_record_fn)(const kvs_datum_t *key, const kvs_datum_t *value, void *arg);
retcode_t kvs_read_records(const char *url, kvs_record_fn each, void *arg);

/* The database's own words for the last failure of a store call on this
 * thread ("" if none), for messages that need more than retcode2str. */
const char *kvs_last_error_detail(void);

#ifdef __cplusplus
}
#endif

#endif
