// Where a store lives: URL parsing, file names and settings from the
// environment.
#ifndef PLAT_KVS_LOCATION_H
#define PLAT_KVS_LOCATION_H

#include <cstddef>
#include <string>

#include "types.h"

namespace kvs {

// Path of the data file of the store named by url; 0 or KVS_ERR_BAD_URL.
retcode_t store_file(const char *url, std::string &file);

// The lock file LMDB keeps beside a data file.
std::string lock_file(const std::string &file);

// Address space a store starts with (PLAT_KVS_MAP_SIZE, default 1 GiB).
size_t initial_map_size();

// The map for a store whose data file has file_size bytes: PLAT_KVS_MAP_SIZE
// when set, or else enough for the whole store to be rewritten in one
// transaction with room to grow, and at least 1 GiB.
size_t map_size_for(size_t file_size);

}  // namespace kvs

#endif
