// Runtime directory, socket names and wait limit of the hub.
#include "hub_paths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace plat::hub {

namespace {

constexpr int kDefaultWaitMs = 30000;

bool is_set(const char *v) { return v && *v; }

}  // namespace

std::string runtime_dir() {
  if (const char *dir = std::getenv("PLAT_HUB_DIR"); is_set(dir)) return dir;
  if (const char *xdg = std::getenv("XDG_RUNTIME_DIR"); is_set(xdg)) return std::string(xdg) + "/plathub";
  return "/tmp/plathub-" + std::to_string(getuid());
}

int ensure_dir(const std::string &dir) {
  if (mkdir(dir.c_str(), 0700) == 0) return 0;
  if (errno != EEXIST) return errno;
  struct stat st;
  if (stat(dir.c_str(), &st) != 0) return errno;
  return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

std::string point_path(const std::string &dir, uint32 node, int sap) {
  char name[32];
  std::snprintf(name, sizeof name, "/n%08x.s%d", static_cast<unsigned>(node), sap);
  return dir + name;
}

int unix_address(const std::string &path, sockaddr_un &addr, socklen_t &len) {
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  if (path.size() >= sizeof addr.sun_path) return ENAMETOOLONG;
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
  return 0;
}

int wait_limit_ms() {
  const char *v = std::getenv("PLAT_HUB_WAIT_MS");
  if (!is_set(v)) return kDefaultWaitMs;
  char *end = nullptr;
  long ms = std::strtol(v, &end, 10);
  if (*end || ms <= 0) return kDefaultWaitMs;
  return ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
}

}  // namespace plat::hub
