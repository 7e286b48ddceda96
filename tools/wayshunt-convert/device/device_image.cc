// Device images: their folders, the release descriptors of a move, the
// private device root, and the conversion library called as the upgrade
// manager calls it.
#include "device/device_image.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <regex>
#include <sstream>

#include "devroot.h"
#include "status.h"
#include "tool_error.h"
#include "wayshunt_stored_files.h"

namespace wsc {

namespace fs = std::filesystem;

// The names of the service's stored files below /mnt/kvs.
const std::vector<std::string> kServiceFiles = [] {
  std::vector<std::string> names;
  for (const char *path : wayshunt_stored_files) names.push_back(path + std::strlen(WAYSHUNT_STORED_FILE_DIR));
  return names;
}();

namespace {

constexpr const char *kDevicePath = "/mnt/kvs";
constexpr const char *kPackage = "wayshunt";
constexpr const char *kLibraryName = "libconvertwayshunt.so";

void write_text(const std::string &path, const std::string &text) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f << text;
  f.close();
  if (!f) throw ToolError("cannot write " + path + "; check the folder's permissions");
}

std::string read_from(const std::string &path, std::uintmax_t offset) {
  std::ifstream f(path, std::ios::binary);
  if (!f) return "";
  f.seekg(static_cast<std::streamoff>(offset));
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

std::uintmax_t size_of(const std::string &path) {
  std::error_code ec;
  std::uintmax_t n = fs::file_size(path, ec);
  return ec ? 0 : n;
}

// Folders where the libraries may lie: beside the tool's bin/ folder, and
// where the platform library this tool runs with was found.
std::vector<fs::path> library_dirs() {
  std::vector<fs::path> dirs;
  fs::path prefix = fs::path(program_dir()).parent_path();
  dirs.push_back(prefix / "lib");
  dirs.push_back(prefix / "lib64");
  Dl_info info{};
  if (dladdr(reinterpret_cast<void *>(&retcode2str), &info) && info.dli_fname)
    dirs.push_back(fs::absolute(info.dli_fname).parent_path());
  return dirs;
}

}  // namespace

DeviceImage image_at(const std::string &dir, bool need_store) {
  DeviceImage img{fs::absolute(dir).lexically_normal().string()};
  while (img.dir.size() > 1 && img.dir.back() == '/') img.dir.pop_back();
  std::error_code ec;
  if (!fs::is_directory(img.dir, ec))
    throw ToolError("image folder " + img.dir + " does not exist; give a device image folder (see 'run --help')");
  if (need_store && !fs::is_regular_file(img.store_file(), ec))
    throw ToolError("image " + img.dir + " holds no runtime store (mnt/kvs/wayshunt_runtime_ha.mdb); create one with " +
                    "'wayshunt-convert gen --era 3.2 --records 1000 " + img.store_file() + "' (after mkdir -p " + img.mnt_kvs() + ") or 'load'");
  return img;
}

void make_image_folders(const DeviceImage &img) {
  for (const std::string &d : {img.bootflash(), img.mnt_kvs(), img.standby(), img.hub(), img.reldesc()}) {
    std::error_code ec;
    fs::create_directories(d, ec);
    if (ec) throw ToolError("cannot create " + d + " (" + ec.message() + "); check the image folder's permissions");
  }
}

void check_version(const std::string &option, const std::string &text) {
  static const std::regex kVersion(R"([0-9]+\.[0-9]+\([0-9]+[A-Za-z0-9]*\))");
  if (!std::regex_match(text, kVersion))
    throw ToolError(option + " '" + text + "' is no release version; write major.minor(patch), e.g. 4.2(1a)");
}

void check_hub_dir(const std::string &hub_dir) {
  // A socket is named <hub>/n<node>.s<point>: up to 24 characters after the folder.
  constexpr size_t kLongestName = 24;
  if (hub_dir.size() + kLongestName >= sizeof(sockaddr_un{}.sun_path))
    throw ToolError("hub folder " + hub_dir + " is too long for a socket path (at most " +
                    std::to_string(sizeof(sockaddr_un{}.sun_path) - kLongestName - 1) +
                    " characters); use an image folder with a shorter path");
}

void prepare_move(const DeviceImage &img, const std::string &from, const std::string &to) {
  std::string from_file = img.reldesc() + "/from.reldesc", to_file = img.reldesc() + "/to.reldesc";
  write_text(from_file, "NAME=release being left\nSW_VERSION=" + from + "\n");
  write_text(to_file, "NAME=release being entered\nSW_VERSION=" + to + "\n");
  setenv("OVERSEER_FROM_RELDESC_PATH", from_file.c_str(), 1);
  setenv("OVERSEER_TO_RELDESC_PATH", to_file.c_str(), 1);
  setenv("PLAT_STANDBY_ROOT", img.standby().c_str(), 1);
  setenv("PLAT_HUB_DIR", img.hub().c_str(), 1);
  unsetenv("PLAT_KVS_ROOT");
}

void enter_device_root(const DeviceImage &img) {
  std::string why = devroot::enter({{"/bootflash", img.bootflash()}, {kDevicePath, img.mnt_kvs()}});
  if (!why.empty())
    throw ToolError("cannot show the image at /bootflash and /mnt/kvs: " + why +
                    "; allow unprivileged user namespaces (sysctl kernel.unprivileged_userns_clone=1) or run as root");
}

std::string program_dir() {
  std::error_code ec;
  fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (ec) throw ToolError("cannot find this program's folder (/proc/self/exe: " + ec.message() + "); give --library PATH");
  return exe.parent_path().string();
}

std::string find_library(bool trace) {
  std::vector<fs::path> tried;
  for (const fs::path &dir : library_dirs()) {
    std::vector<fs::path> names = {dir / kLibraryName};
    if (trace) names = {dir / "gate-open" / kLibraryName, dir / "convertwayshunt-trace" / kLibraryName};
    for (const fs::path &p : names) {
      std::error_code ec;
      if (fs::is_regular_file(p, ec)) return p.lexically_normal().string();
      tried.push_back(p.lexically_normal());
    }
  }
  std::string where;
  for (const fs::path &p : tried) where += (where.empty() ? "" : ", ") + p.string();
  throw ToolError(std::string("cannot find the ") + (trace ? "trace build of " : "") + kLibraryName + " (looked at " +
                  where + "); build it or give --library PATH");
}

std::string step_name(Step s) {
  switch (s) {
    case Step::running: return "running";
    case Step::startup: return "startup";
    case Step::gsync: return "gsync";
    case Step::fs_upg: return "fs_upg";
  }
  return "?";
}

ConversionLibrary::ConversionLibrary(const std::string &path) : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (!handle_) {
    const char *why = dlerror();
    throw ToolError(std::string("cannot load the conversion library: ") + (why ? why : path) +
                    "; build it or give --library PATH");
  }
  for (const char *name : {"convert_running", "convert_startup", "convert_gsync", "convert_running_fs_upg"}) {
    if (!dlsym(handle_, name)) {
      dlclose(handle_);
      throw ToolError(path + " is not the conversion library (no " + name + "); give the path of " + kLibraryName);
    }
  }
}

ConversionLibrary::~ConversionLibrary() { dlclose(handle_); }

uint32_t ConversionLibrary::call(Step step, const std::string &from, const std::string &to, std::string &call_text) {
  using Running = uint32_t(char *, char *, char *);
  using Convert = uint32_t(char *, char *, char *, char *);
  using FsUpg = uint32_t(char *, char *);
  // The entry points take char *: hand them copies that they may not write anyway.
  std::string path = kDevicePath, pkg = kPackage, f = from, t = to;
  auto quoted = [](const std::vector<std::string> &args) {
    std::string s;
    for (const std::string &a : args) s += (s.empty() ? "\"" : ", \"") + a + "\"";
    return s;
  };
  switch (step) {
    case Step::running:
      call_text = "convert_running(" + quoted({pkg, from, to}) + ")";
      return reinterpret_cast<Running *>(dlsym(handle_, "convert_running"))(pkg.data(), f.data(), t.data());
    case Step::startup:
      call_text = "convert_startup(" + quoted({path, pkg, to, from}) + ")";
      return reinterpret_cast<Convert *>(dlsym(handle_, "convert_startup"))(path.data(), pkg.data(), t.data(), f.data());
    case Step::gsync:
      call_text = "convert_gsync(" + quoted({path, pkg, to, from}) + ")";
      return reinterpret_cast<Convert *>(dlsym(handle_, "convert_gsync"))(path.data(), pkg.data(), t.data(), f.data());
    case Step::fs_upg:
      call_text = "convert_running_fs_upg(" + quoted({path, pkg}) + ")";
      return reinterpret_cast<FsUpg *>(dlsym(handle_, "convert_running_fs_upg"))(path.data(), pkg.data());
  }
  return 0;
}

std::vector<std::string> ConversionLibrary::store_conversions(const std::string &from, const std::string &to,
                                                             bool &down) {
  using Split = int(char *, int32_t *, int32_t *, int32_t *);
  using Predicate = uint32_t();
  auto sym = [this](const char *name) {
    void *p = dlsym(handle_, name);
    if (!p) throw ToolError(std::string("the conversion library lacks ") + name + "; give a library of this build");
    return p;
  };
  auto ask = [&](const char *name) { return reinterpret_cast<Predicate *>(sym(name))() != 0; };
  std::string f = from, t = to;
  int32_t patch = 0;
  auto split = reinterpret_cast<Split *>(sym("split_version"));
  split(f.data(), static_cast<int32_t *>(sym("from_major")), static_cast<int32_t *>(sym("from_minor")), &patch);
  split(t.data(), static_cast<int32_t *>(sym("to_major")), static_cast<int32_t *>(sym("to_minor")), &patch);
  std::vector<std::string> out;
  down = ask("wayshunt_cnv_is_downgrade");
  if (down && ask("wayshunt_cnv_to_413_or_lower")) out.push_back("to 4.1.3 or lower");
  if (down && ask("wayshunt_cnv_to_32")) out.push_back("to 3.2");
  if (!ask("wayshunt_cnv_is_upgrade") || ask("wayshunt_cnv_from_31_or_lower")) return out;
  if (ask("wayshunt_cnv_from_32")) out.push_back("from 3.2");
  if (ask("wayshunt_cnv_from_413_or_lower")) out.push_back("from 4.1.3 or lower");
  return out;
}

FileSet files_below(const std::string &dir) {
  FileSet files;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(dir, ec); !ec && it != fs::recursive_directory_iterator();
       it.increment(ec)) {
    if (!it->is_regular_file(ec)) continue;
    struct stat st {};
    if (stat(it->path().c_str(), &st) != 0) continue;
    std::ifstream f(it->path(), std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    files[it->path().lexically_relative(dir).string()] = {
        s.str(), std::to_string(st.st_ino) + "@" + std::to_string(st.st_ctim.tv_sec) + "." + std::to_string(st.st_ctim.tv_nsec)};
  }
  return files;
}

std::vector<std::string> file_changes(const FileSet &before, const FileSet &after, const std::string &indent) {
  std::vector<std::string> lines;
  for (const auto &[path, now] : after) {
    auto it = before.find(path);
    if (it == before.end())
      lines.push_back(indent + "+ " + path + " (" + std::to_string(now.data.size()) + " bytes)");
    else if (it->second.data != now.data || it->second.stamp != now.stamp)
      lines.push_back(indent + "~ " + path + " (" + std::to_string(it->second.data.size()) + " -> " +
                      std::to_string(now.data.size()) + " bytes" +
                      (it->second.data == now.data ? ", same contents" : "") + ")");
  }
  for (const auto &[path, state] : before)
    if (!after.count(path)) lines.push_back(indent + "- " + path);
  return lines;
}

bool run_steps(ConversionLibrary &lib, const DeviceImage &img, const std::vector<Step> &steps, const std::string &from,
               const std::string &to, std::ostream &out, std::vector<StepResult> *results) {
  for (Step step : steps) {
    std::uintmax_t log_start = size_of(img.log_file());
    FileSet standby_before = files_below(img.standby());
    std::string call;
    uint32_t rc = lib.call(step, from, to, call);
    char code[16];
    std::snprintf(code, sizeof code, "0x%08x", rc);
    out << call << " = " << code << " (" << retcode2str(rc) << ")\n";
    std::vector<std::string> arrived = file_changes(standby_before, files_below(img.standby()), "    ");
    if (!arrived.empty()) {
      out << "  standby (" << img.standby() << "):\n";
      for (const std::string &line : arrived) out << line << "\n";
    }
    std::string log = read_from(img.log_file(), log_start);
    if (results) {
      results->push_back({call, rc, retcode2str(rc), {}, log});
      for (const std::string &line : arrived) results->back().standby.push_back(line.substr(4));
    }
    if (!log.empty()) {
      out << "  conversion log (/bootflash/wayshunt_cnv.log), written by this call:\n";
      std::istringstream lines(log);
      for (std::string line; std::getline(lines, line);)
        if (!line.empty()) out << "    " << line << "\n";
    }
    if (rc != 0 && step == Step::startup)
      out << "  convert_startup fails only when it cannot bind a hub queue: check " << img.hub() << "\n";
    if (rc != 0) {
      out << "stopped: " << step_name(step) << " failed, as an upgrade manager stops the move\n";
      out.flush();
      return false;
    }
  }
  out.flush();
  return true;
}

}  // namespace wsc
