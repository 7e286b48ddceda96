// Where a store lives: "nonvolatile:<dir>/<name>" is <root><dir>/<name>.mdb.
#include "kvs_location.h"

#include <cerrno>
#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "status.h"

namespace kvs {

namespace {
constexpr std::string_view kScheme = "nonvolatile:";
constexpr size_t kDefaultMapSize = size_t{1} << 30;
constexpr size_t kMinMapSize = size_t{64} << 10;
}  // namespace

retcode_t store_file(const char *url, std::string &file) {
  if (!url) return KVS_ERR_BAD_URL;
  std::string_view u(url);
  if (u.substr(0, kScheme.size()) != kScheme) return KVS_ERR_BAD_URL;
  std::string_view path = u.substr(kScheme.size());
  size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return KVS_ERR_BAD_URL;
  std::string_view name = path.substr(slash + 1);
  if (name.empty() || name == "." || name == "..") return KVS_ERR_BAD_URL;
  file.clear();
  if (const char *root = std::getenv("PLAT_KVS_ROOT"); root && *root) {
    file = root;
    if (path.front() != '/') file += '/';
  }
  file.append(path);
  file += ".mdb";
  return 0;
}

std::string lock_file(const std::string &file) { return file + "-lock"; }

size_t initial_map_size() {
  const char *s = std::getenv("PLAT_KVS_MAP_SIZE");
  if (!s || !*s) return kDefaultMapSize;
  errno = 0;
  char *end = nullptr;
  unsigned long long n = std::strtoull(s, &end, 0);
  // A setting that does not parse is ignored rather than failing every open.
  if (errno || *end || n == 0) return kDefaultMapSize;
  return n < kMinMapSize ? kMinMapSize : static_cast<size_t>(n);
}

size_t map_size_for(size_t file_size) {
  const char *s = std::getenv("PLAT_KVS_MAP_SIZE");
  if (s && *s) return initial_map_size();
  return std::max(kDefaultMapSize, 4 * file_size + (size_t{64} << 20));
}

}  // namespace kvs
