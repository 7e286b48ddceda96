// Lexical normalisation of standby paths. Nothing on disk is consulted, so a
// path is accepted or refused the same way whatever the standby holds.
#include "standby_path.h"

namespace plat::overseer {

bool standby_components(const char *dst, std::vector<std::string> &parts) {
  parts.clear();
  if (!dst || dst[0] != '/') return false;
  std::string path(dst);
  size_t pos = 0;
  while (pos < path.size()) {
    size_t end = path.find('/', pos);
    if (end == std::string::npos) end = path.size();
    std::string part = path.substr(pos, end - pos);
    pos = end + 1;
    if (part.empty() || part == ".") continue;
    if (part != "..") {
      parts.push_back(std::move(part));
    } else if (parts.empty()) {
      return false;  // would leave the root
    } else {
      parts.pop_back();
    }
  }
  return !parts.empty();
}

}  // namespace plat::overseer
