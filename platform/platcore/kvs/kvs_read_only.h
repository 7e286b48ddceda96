// Reading a whole store read-only, beside the service calls (kvs_read_records
// in kvs_admin.h): the file checked against what its header says before a
// page is read, and a fault on a damaged page turned into a status.
#ifndef PLAT_KVS_READ_ONLY_H
#define PLAT_KVS_READ_ONLY_H

#include <string>

#include "kvs_admin.h"

namespace kvs {

// Walks the store's data file in key order. 0, KVS_ERR_CORRUPT (with the
// reason in kvs_last_error_detail: "truncated: 8,192 of 2,293,760 bytes",
// "reading a damaged page faulted", LMDB's words), KVS_ERR_IO, or each's.
retcode_t read_records(const std::string &file, kvs_record_fn each, void *arg);

}  // namespace kvs

#endif
