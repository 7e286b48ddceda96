// Device images: their folders, the release descriptors of a move, the
// private device root, and the conversion library called as the upgrade
// manager calls it.
#include "device/device_image.h"

#include <sys/stat.h>
#include <unistd.h>
#include <sys/un.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "devroot.h"
#include "records/formats.h"
#include "store/store_arg.h"
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

// Written under a temporary name and renamed, so that a reader never sees a
// file half written, and two writers leave one whole file.
void write_text(const std::string &path, const std::string &text) {
  std::string tmp = path + ".tmp-" + std::to_string(getpid());
  std::ofstream f(tmp, std::ios::binary | std::ios::trunc);
  f << text;
  f.close();
  std::error_code ec;
  if (f) fs::rename(tmp, path, ec);
  if (!f || ec) {
    fs::remove(tmp, ec);
    throw ToolError("cannot write " + path + "; check the folder's permissions");
  }
}

}  // namespace

std::string device_kvs_dir() {
  std::string dir = WAYSHUNT_STORED_FILE_DIR;  // "/mnt/kvs/"
  return dir.substr(0, dir.find_last_not_of('/') + 1);
}

std::string device_log_dir() { return fs::path(WAYSHUNT_CNV_LOG_PATH).parent_path().string(); }

std::string DeviceImage::store_file() const {
  return mnt_kvs() + "/" + WAYSHUNT_CNV_RUNTIME_KVS + kStoreFileExtension;
}

StoreRef DeviceImage::store() const {
  return {"nonvolatile:" + mnt_kvs() + "/" + kRuntimeStoreName, store_file()};
}

std::string DeviceImage::log_file() const { return dir + WAYSHUNT_CNV_LOG_PATH; }

DeviceImage image_at(const std::string &dir, bool need_store) {
  DeviceImage img{fs::absolute(dir).lexically_normal().string()};
  while (img.dir.size() > 1 && img.dir.back() == '/') img.dir.pop_back();
  std::error_code ec;
  if (!fs::is_directory(img.dir, ec))
    throw ToolError("image folder " + img.dir + (fs::exists(img.dir, ec) ? " is a file, not a folder" : " does not exist") +
                    "; give a device image folder (see 'run --help')");
  if (need_store && !fs::is_regular_file(img.store_file(), ec))
    throw ToolError("image " + img.dir + " holds no runtime store (" + img.store_file() + "); create one with " +
                    "'wayshunt-convert gen --era 3.2 --records 1000 " + shell_word(img.mnt_kvs()) + "' or 'load'");
  return img;
}

void make_image_folders(const DeviceImage &img) {
  for (const std::string &d : {img.bootflash(), img.mnt_kvs(), img.standby(), img.hub(), img.reldesc()}) {
    std::error_code ec;
    fs::create_directories(d, ec);
    if (ec) throw ToolError("cannot create " + d + " (" + ec.message() + "); check the image folder's permissions");
  }
}

DeviceImage copy_image(const DeviceImage &img, const std::string &to) {
  DeviceImage copy{to};
  try {
    fs::create_directories(to);
    for (auto it = fs::recursive_directory_iterator(img.dir); it != fs::recursive_directory_iterator(); ++it) {
      fs::path dst = to / it->path().lexically_relative(img.dir);
      fs::file_status st = it->symlink_status();
      if (fs::is_directory(st))
        fs::create_directory(dst);
      else if (fs::is_regular_file(st))
        fs::copy_file(it->path(), dst);
      else if (fs::is_symlink(st))
        fs::copy_symlink(it->path(), dst);
    }
  } catch (const fs::filesystem_error &e) {
    throw ToolError(std::string("cannot copy the image: ") + e.what() + "; check free space in TMPDIR");
  }
  return copy;
}

TempFolder::TempFolder(const std::string &what) {
  const char *tmp = std::getenv("TMPDIR");
  std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/wayshunt-" + what + ".XXXXXX";
  if (!mkdtemp(tmpl.data())) throw ToolError("cannot create a temporary folder in " + tmpl + "; set TMPDIR to a writable folder");
  path_ = tmpl;
}

TempFolder::~TempFolder() {
  std::error_code ec;
  fs::remove_all(path_, ec);
}

namespace {

// Whether text is major.minor(patch): digits, '.', digits, '(', digits and
// then letters or digits, ')'. Read by hand, since std::regex recurses once
// per character and a text of some ten thousand would overrun the stack.
bool is_release_version(const std::string &text) {
  size_t i = 0;
  auto skip = [&](auto in_class) {
    size_t from = i;
    while (i < text.size() && in_class(static_cast<unsigned char>(text[i]))) ++i;
    return i > from;
  };
  auto digit = [](unsigned char c) { return c >= '0' && c <= '9'; };
  auto alnum = [&](unsigned char c) { return digit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
  auto next_is = [&](char c) { return i < text.size() && text[i++] == c; };
  if (!skip(digit) || !next_is('.') || !skip(digit) || !next_is('(') || !skip(digit)) return false;
  skip(alnum);
  return next_is(')') && i == text.size();
}

}  // namespace

void check_version(const std::string &option, const std::string &text) {
  if (!is_release_version(text))
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
  std::string why = devroot::enter({{device_log_dir(), img.bootflash()}, {device_kvs_dir(), img.mnt_kvs()}});
  if (!why.empty())
    throw ToolError("cannot show the image at /bootflash and /mnt/kvs: " + why +
                    "; allow unprivileged user namespaces (sysctl kernel.unprivileged_userns_clone=1) or run as root");
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

}  // namespace wsc
