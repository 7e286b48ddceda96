// Finding and loading the conversion library, calling its entry points and
// asking it about releases, slots and statuses.
#include "device/conversion_library.h"

#include <dlfcn.h>
#include <link.h>

#include <cstring>
#include <filesystem>
#include <vector>

#include "device/device_image.h"
#include "status.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

constexpr const char *kPackage = "wayshunt";
constexpr const char *kLibraryName = "libconvertwayshunt.so";

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

// The library's conversions of the store, each one rung of the ladder of
// stored forms, as its header names them.
struct Rung {
  const char *conversion;
  const char *where;
};
constexpr Rung kRungs[] = {
    {"wayshunt_cnv_config_downgrade_to_413_or_lower", "the rung down to the forms of 4.1.3 or lower"},
    {"wayshunt_cnv_config_downgrade_to_3_2", "the rung down to the forms of 3.2"},
    {"wayshunt_cnv_config_upgrade_from_32", "the rung up from the forms of 3.2"},
    {"wayshunt_cnv_config_upgrade_from_413_or_lower", "the rung up from the forms of 4.1.3 or lower"},
};

std::string quoted(const std::vector<std::string> &args) {
  std::string s;
  for (const std::string &a : args) s += (s.empty() ? "\"" : ", \"") + a + "\"";
  return s;
}

}  // namespace

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

ConversionLibrary::ConversionLibrary(const std::string &path)
    : path_(path), handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
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

void *ConversionLibrary::sym(const char *name) {
  void *p = dlsym(handle_, name);
  if (!p) throw ToolError(path_ + " lacks " + name + "; give a conversion library of this build with --library");
  return p;
}

uint32_t ConversionLibrary::call(Step step, const std::string &from, const std::string &to, std::string &call_text) {
  using Running = uint32_t(char *, char *, char *);
  using Convert = uint32_t(char *, char *, char *, char *);
  using FsUpg = uint32_t(char *, char *);
  // The entry points take char *: hand them copies that they may not write anyway.
  std::string path = device_kvs_dir(), pkg = kPackage, f = from, t = to;
  switch (step) {
    case Step::running:
      call_text = "convert_running(" + quoted({pkg, from, to}) + ")";
      return reinterpret_cast<Running *>(sym("convert_running"))(pkg.data(), f.data(), t.data());
    case Step::startup:
      call_text = "convert_startup(" + quoted({path, pkg, to, from}) + ")";
      return reinterpret_cast<Convert *>(sym("convert_startup"))(path.data(), pkg.data(), t.data(), f.data());
    case Step::gsync:
      call_text = "convert_gsync(" + quoted({path, pkg, to, from}) + ")";
      return reinterpret_cast<Convert *>(sym("convert_gsync"))(path.data(), pkg.data(), t.data(), f.data());
    case Step::fs_upg:
      call_text = "convert_running_fs_upg(" + quoted({path, pkg}) + ")";
      return reinterpret_cast<FsUpg *>(sym("convert_running_fs_upg"))(path.data(), pkg.data());
  }
  return 0;
}

void ConversionLibrary::set_releases(const std::string &from, const std::string &to) {
  using Split = int(char *, int32_t *, int32_t *, int32_t *);
  auto split = reinterpret_cast<Split *>(sym("split_version"));
  std::string f = from, t = to;
  int32_t patch = 0;
  split(f.data(), static_cast<int32_t *>(sym("from_major")), static_cast<int32_t *>(sym("from_minor")), &patch);
  split(t.data(), static_cast<int32_t *>(sym("to_major")), static_cast<int32_t *>(sym("to_minor")), &patch);
}

std::optional<Era> ConversionLibrary::era_of_release(const std::string &release) {
  set_releases(release, release);
  auto ask = [this](const char *name) { return reinterpret_cast<uint32_t (*)()>(sym(name))() != 0; };
  if (ask("wayshunt_cnv_from_31_or_lower")) return std::nullopt;
  if (ask("wayshunt_cnv_from_32")) return Era::v32;
  return ask("wayshunt_cnv_from_413_or_lower") ? Era::v41 : Era::v42;
}

Direction ConversionLibrary::direction(const std::string &from, const std::string &to) {
  set_releases(from, to);
  auto ask = [this](const char *name) { return reinterpret_cast<uint32_t (*)()>(sym(name))() != 0; };
  return ask("wayshunt_cnv_is_upgrade") ? Direction::up : ask("wayshunt_cnv_is_downgrade") ? Direction::down : Direction::none;
}

uint8_t ConversionLibrary::slot_of(uint32_t if_index) {
  return reinterpret_cast<uint8_t (*)(uint32_t)>(sym("wayshunt_cnv_get_slot_no_from_if_index"))(if_index);
}

std::string ConversionLibrary::status_text(uint32_t status) {
  void *own = dlsym(handle_, "wayshunt_cnv_strerror");  // a library of an older build has none
  const char *text = own ? reinterpret_cast<const char *(*)(uint32_t)>(own)(status) : retcode2str(status);
  return text ? text : "";
}

std::string ConversionLibrary::rung_at(const std::vector<uintptr_t> &frames) const {
  for (uintptr_t ret : frames) {
    // A return address may lie just past its function's last call: look
    // at the call itself.
    void *at = reinterpret_cast<void *>(ret - 1);
    Dl_info info{};
    void *extra = nullptr;
    if (!dladdr1(at, &info, &extra, RTLD_DL_SYMENT) || !info.dli_sname || !extra) continue;
    auto entry = static_cast<const ElfW(Sym) *>(extra);
    auto start = reinterpret_cast<uintptr_t>(info.dli_saddr);
    if (ret - 1 >= start + entry->st_size) continue;  // in a function with no name of its own
    for (const Rung &r : kRungs)
      if (std::strcmp(info.dli_sname, r.conversion) == 0 && dlsym(handle_, r.conversion) == info.dli_saddr)
        return std::string(r.conversion) + ", " + r.where;
  }
  return "";
}

}  // namespace wsc
