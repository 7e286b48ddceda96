// Resolves the <store> argument to a store URL and its data file.
#include "store/store_arg.h"

#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "kvs_admin.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kScheme = "nonvolatile:";

std::string data_file(const std::string &url, const std::string &arg) {
  char buf[4096];
  retcode_t rc = kvs_store_file(url.c_str(), buf, sizeof buf);
  if (rc)
    throw ToolError("'" + arg + "' is not a store URL (" + retcode2str(rc) +
                    "); write nonvolatile:<dir>/<name>, e.g. nonvolatile:/var/kvs/" + kRuntimeStoreName);
  return buf;
}

// The URL of a store at path (without ".mdb"), relative to PLAT_KVS_ROOT
// when that is set.
std::string url_of_path(const fs::path &store_path, const std::string &arg) {
  const char *root = std::getenv("PLAT_KVS_ROOT");
  if (!root || !*root) return std::string(kScheme) + store_path.string();
  fs::path r = fs::absolute(root).lexically_normal();
  fs::path rel = store_path.lexically_relative(r);
  if (rel.empty() || *rel.begin() == "..")
    throw ToolError("'" + arg + "' lies outside PLAT_KVS_ROOT (" + r.string() +
                    "); unset PLAT_KVS_ROOT or give a nonvolatile: URL");
  return std::string(kScheme) + "/" + rel.string();
}

}  // namespace

StoreRef resolve_store(const std::string &arg, bool to_write) {
  StoreRef s;
  if (std::string_view(arg).substr(0, kScheme.size()) == kScheme) {
    s.url = arg;
  } else {
    if (arg.empty()) throw ToolError("empty store argument; give " + std::string(kStoreForms));
    fs::path p = fs::absolute(arg).lexically_normal();
    if (!p.has_filename()) p = p.parent_path();  // "dir/" names the folder
    std::error_code ec;
    if (fs::is_directory(p, ec) || (to_write && p.extension() != ".mdb" && !fs::exists(p, ec))) {
      s.url = url_of_path(p / kRuntimeStoreName, arg);
    } else if (p.extension() == ".mdb" && p.stem() != "") {
      s.url = url_of_path(p.parent_path() / p.stem(), arg);
    } else {
      throw ToolError("'" + arg + "' is no store: give " + std::string(kStoreForms));
    }
  }
  s.file = data_file(s.url, arg);
  return s;
}

}  // namespace wsc
