// Which stores this process has open: the handles by number.
//
// Opening and closing take a lock; finding the handle of a store call takes
// none. A locked instruction on every call waits for the stores the caller
// has pending (a rewrite of store pages, say) and cost more than a short
// call. So the handles sit in a fixed table of atomic slots, found by
// number; numbers are never reused, so a stale number finds nothing. A
// handle serves one thread at a time, and closing a handle while a call on
// it runs in another thread is not supported; handles of different stores
// may be used from different threads.
#ifndef PLAT_KVS_REGISTRY_H
#define PLAT_KVS_REGISTRY_H

#include <cstddef>
#include <string>

#include "kvs_defs.h"

namespace kvs {

class Handle;

constexpr size_t kMaxOpen = 64;

// True when the data file is open through a handle of this process.
bool is_open(const std::string &file);

// Handles open now.
size_t open_count();

// Registers h under the next number, into *id: 0, or KVS_ERR_TOO_MANY.
retcode_t add_handle(Handle *h, kvs_service_t *id);

// The handle of id, or null when id is not open.
Handle *find_handle(kvs_service_t id);

// Takes id out of the table and gives its handle, or null when it was not open.
Handle *remove_handle(kvs_service_t id);

}  // namespace kvs

#endif
