// Copying one file into the standby folder so that it arrives whole or not
// at all.
#ifndef PLATCORE_OVERSEER_STANDBY_COPY_H
#define PLATCORE_OVERSEER_STANDBY_COPY_H

#include <string>
#include <vector>

#include "status.h"

namespace plat::overseer {

// Copies src to root_fd/parts..., creating missing parent folders. The copy
// is written to a temporary file beside the target, synced and renamed over
// it; the folder is synced after. Without replace an existing target is
// kept and the copy fails. A positive timeout_s bounds the copy. 0, or
// OVERSEER_ERR_NO_SOURCE, OVERSEER_ERR_BAD_PATH (a symbolic link on the way,
// which could lead out of the root) or OVERSEER_ERR_IO. A failure leaves no
// temporary file.
retcode_t copy_to_standby(int root_fd, const std::string &src, const std::vector<std::string> &parts, bool replace,
                          int timeout_s);

}  // namespace plat::overseer

#endif
