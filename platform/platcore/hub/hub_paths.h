// Where the hub keeps its sockets and how long it waits. Both come from the
// environment, read at each use, so a process (or a test) can switch them.
#ifndef PLATCORE_HUB_PATHS_H
#define PLATCORE_HUB_PATHS_H

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

#include "types.h"

namespace plat::hub {

// PLAT_HUB_DIR, else $XDG_RUNTIME_DIR/plathub, else /tmp/plathub-<uid>.
std::string runtime_dir();

// Creates dir (mode 0700) if missing. 0 or an errno value.
int ensure_dir(const std::string &dir);

// The socket file of (node, sap) in dir.
std::string point_path(const std::string &dir, uint32 node, int sap);

// Fills a unix socket address for path. 0, or ENAMETOOLONG.
int unix_address(const std::string &path, sockaddr_un &addr, socklen_t &len);

// The longest any hub wait lasts: PLAT_HUB_WAIT_MS (a positive number of
// milliseconds), default 30000.
int wait_limit_ms();

}  // namespace plat::hub

#endif
