// The folder lock, and the holder found in /proc/locks.
#include "device/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tool_error.h"

namespace wsc {

namespace {

// "process 1234 (wayshunt-convert run --from 4.2(1) ...)", or "" when no
// process holds a lock on the folder.
std::string holder(int fd) {
  struct stat st {};
  if (fstat(fd, &st) != 0) return "";
  char dev[64];
  std::snprintf(dev, sizeof dev, "%02x:%02x:%llu", major(st.st_dev), minor(st.st_dev),
                static_cast<unsigned long long>(st.st_ino));
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream f(line);
    std::string id, kind, mode, access, pid, where;
    if (!(f >> id >> kind >> mode >> access >> pid >> where) || kind != "FLOCK" || where != dev) continue;
    std::ifstream cmd("/proc/" + pid + "/cmdline");
    std::string args, arg;
    while (std::getline(cmd, arg, '\0')) args += (args.empty() ? "" : " ") + arg;
    if (args.size() > 100) args = args.substr(0, 100) + " ...";
    return "process " + pid + (args.empty() ? "" : " (" + args + ")");
  }
  return "";
}

std::string existing(std::string folder) {
  std::error_code ec;
  std::filesystem::path p = std::filesystem::absolute(folder, ec);
  while (!p.empty() && !std::filesystem::is_directory(p, ec) && p != p.root_path()) p = p.parent_path();
  return p.empty() ? "/" : p.string();
}

}  // namespace

FolderLock::FolderLock(const std::string &folder, const std::string &what, double wait_seconds, bool across_exec) {
  std::string dir = existing(folder);
  fd_ = open(dir.c_str(), O_RDONLY | O_DIRECTORY | (across_exec ? 0 : O_CLOEXEC));
  if (fd_ < 0) throw ToolError("cannot open " + dir + " to lock it (" + std::strerror(errno) + "); check the path");
  auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(wait_seconds);
  while (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      close(fd_);
      throw ToolError("cannot lock " + dir + " (" + std::strerror(errno) + ")");
    }
    if (std::chrono::steady_clock::now() >= until) {
      std::string who = holder(fd_);
      // No holder listed: it let go between the two looks; try once more.
      if (who.empty() && flock(fd_, LOCK_EX | LOCK_NB) == 0) return;
      if (who.empty()) who = holder(fd_);
      if (who.empty()) who = "another process";
      close(fd_);
      throw ToolError(what + " is in use by " + who + "; wait for it to end, or give --wait SECONDS");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

FolderLock::~FolderLock() {
  if (fd_ >= 0) close(fd_);  // closing releases the lock
}

}  // namespace wsc
