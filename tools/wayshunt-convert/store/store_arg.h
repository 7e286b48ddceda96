// The <store> argument of every command: a store URL
// "nonvolatile:<dir>/<name>", the store's data file "<dir>/<name>.mdb", or a
// folder that holds (or will hold) the runtime store wayshunt_runtime_ha.
#ifndef TOOLS_WAYSHUNT_CONVERT_STORE_ARG_H
#define TOOLS_WAYSHUNT_CONVERT_STORE_ARG_H

#include <string>

#include "wayshunt_cnv.h"

namespace wsc {

// The name of the service's runtime store, taken when a folder is given.
inline constexpr const char *kRuntimeStoreName = WAYSHUNT_CNV_RUNTIME_KVS;
// What the store's name takes to name its data file.
inline constexpr const char *kStoreFileExtension = ".mdb";

struct StoreRef {
  std::string url;   // nonvolatile:<dir>/<name>
  std::string file;  // its data file, PLAT_KVS_ROOT applied
};

// Throws ToolError when arg is none of the three forms. A path is made
// absolute; with PLAT_KVS_ROOT set it must lie below that folder, since the
// store then takes every URL relative to it.
// With to_write, a path that does not exist yet and does not end in .mdb is
// taken for a folder to hold the runtime store ('gen' and 'load' create it).
StoreRef resolve_store(const std::string &arg, bool to_write = false);

// The three forms of a <store> argument, and its help text.
inline const std::string kStoreForms = std::string("nonvolatile:<dir>/<name>, <dir>/<name>") + kStoreFileExtension +
                                       ", or a folder holding " + kRuntimeStoreName + kStoreFileExtension;
inline const std::string kStoreArgHelp = "The store: " + kStoreForms;

}  // namespace wsc

#endif
