// Reading a whole store into memory, and writing a whole new store so that
// either all of it appears or nothing does.
#ifndef TOOLS_WAYSHUNT_CONVERT_STORE_IO_H
#define TOOLS_WAYSHUNT_CONVERT_STORE_IO_H

#include "records/record.h"
#include "store/store_arg.h"

namespace wsc {

// Every record of the store, in key order. Throws ToolError.
Records read_store(const StoreRef &store);

// Writes records as the store's whole contents, creating the store's folder
// when it is missing. The store is built under a
// temporary name in the same folder and renamed into place only when
// complete; on any failure (or SIGINT/SIGTERM/SIGHUP) the temporary files are
// removed and the old store, if any, is untouched. An existing store is
// replaced only with force. With progress, a bar shows on a terminal.
// Throws ToolError naming the record a store call failed on.
void write_store(const StoreRef &store, const Records &records, bool force, bool progress = false);

}  // namespace wsc

#endif
