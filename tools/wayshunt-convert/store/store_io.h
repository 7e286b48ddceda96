// Reading a whole store into memory, and writing a whole new store so that
// either all of it appears or nothing does.
#ifndef TOOLS_WAYSHUNT_CONVERT_STORE_IO_H
#define TOOLS_WAYSHUNT_CONVERT_STORE_IO_H

#include "records/record.h"
#include "store/store_arg.h"

namespace wsc {

// Every record of the store, in key order. Throws ToolError.
Records read_store(const StoreRef &store);

// Throws ToolError when the invoking user may not write file on the
// machine's own terms (a move runs in a private namespace that would let it
// write anyway): the file exists and access(2) denies writing it, or it has
// no write bit at all, which is taken as protected even for root; or its
// folder exists and denies writing. what names the file in the message.
void check_writable(const std::string &file, const std::string &what);

// Writes records as the store's whole contents, creating the store's folder
// when it is missing. The store is built under a
// temporary name in the same folder and renamed into place only when
// complete; on any failure (or SIGINT/SIGTERM/SIGHUP) the temporary files are
// removed and the old store, if any, is untouched. An existing store is
// replaced only with force, and only when check_writable lets it; the new
// file takes the old one's mode (and owner, for root). With progress, a bar
// shows on a terminal.
// Throws ToolError naming the record a store call failed on.
void write_store(const StoreRef &store, const Records &records, bool force, bool progress = false);

}  // namespace wsc

#endif
