// Mapping a path on the standby supervisor into the folder that models it.
#ifndef PLATCORE_OVERSEER_STANDBY_PATH_H
#define PLATCORE_OVERSEER_STANDBY_PATH_H

#include <string>
#include <vector>

namespace plat::overseer {

// Splits the absolute path dst into its components after resolving "." and
// ".." lexically. False when dst is null, relative, names no file (e.g. "/")
// or would climb above "/" (e.g. "/../x", "/a/../../x").
bool standby_components(const char *dst, std::vector<std::string> &parts);

}  // namespace plat::overseer

#endif
