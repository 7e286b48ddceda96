// reldesc_sw_ver_file_get(): the SW_VERSION value of a release descriptor
// file (format in reldesc.h). Lines without '=' are ignored like unknown
// keys; when SW_VERSION appears more than once the last one counts, as it
// would for a shell that sources the file.
#include <cstdio>
#include <fstream>
#include <new>
#include <string>
#include <string_view>

#include "plat_hooks.h"
#include "reldesc.h"

namespace {

std::string_view trim(std::string_view s) {
  constexpr std::string_view blanks = " \t\r\n\f\v";
  size_t first = s.find_first_not_of(blanks);
  if (first == s.npos) return {};
  return s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

// The last SW_VERSION value of the file into out; false when the file cannot
// be read (opened, or read to its end) or has no non-empty SW_VERSION.
bool read_sw_version(const char *path, std::string &out) {
  std::ifstream in(path);
  if (!in) return false;
  out.clear();
  std::string line;
  while (std::getline(in, line)) {
    std::string_view l = trim(line);
    if (l.empty() || l[0] == '#') continue;
    size_t eq = l.find('=');
    if (eq == l.npos || trim(l.substr(0, eq)) != "SW_VERSION") continue;
    out = trim(l.substr(eq + 1));
  }
  return in.eof() && !in.bad() && !out.empty();
}

}  // namespace

extern "C" char *reldesc_sw_ver_file_get(const char *path) {
  plat_fault_t f;
  if (plat_fault_hit("reldesc_sw_ver_file_get", &f)) return nullptr;
  static thread_local std::string version;
  bool ok = false;
  try {
    ok = path && read_sw_version(path, version);
  } catch (const std::bad_alloc &) {
    ok = false;
  }
  if (!ok) {
    plat_journal("reldesc_sw_ver_file_get(%s) = null", path ? path : "null");
    return nullptr;
  }
  plat_journal("reldesc_sw_ver_file_get(%s) = %s", path, version.c_str());
  return version.data();
}
