// Socket files of the hub's points. A socket file outlives a process that
// dies without unbinding; such a stale file refuses connections and is
// replaced by the next bind. Binds of all processes sharing a runtime
// directory are serialised by a lock file there, so two processes cannot both
// take over the same stale point.
#include "hub_point.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "hub_defs.h"
#include "hub_paths.h"

namespace plat::hub {

namespace {

// Holds the runtime directory's bind lock for the scope.
class DirLock {
 public:
  explicit DirLock(const std::string &dir) {
    fd_ = open((dir + "/.bind.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ < 0) {
      err_ = errno;
      return;
    }
    while (flock(fd_, LOCK_EX) != 0) {
      if (errno != EINTR) {
        err_ = errno;
        return;
      }
    }
  }
  ~DirLock() {
    if (fd_ >= 0) close(fd_);
  }
  DirLock(const DirLock &) = delete;
  DirLock &operator=(const DirLock &) = delete;
  int error() const { return err_; }

 private:
  int fd_ = -1;
  int err_ = 0;
};

enum class Holder { kNone, kLive, kStale };

// Who holds the socket file at path: a live process, a dead one, or nobody.
Holder holder_of(const std::string &path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) return Holder::kNone;
  if (!S_ISSOCK(st.st_mode)) return Holder::kLive;  // not ours to remove
  sockaddr_un addr;
  socklen_t len;
  if (unix_address(path, addr, len) != 0) return Holder::kLive;
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return Holder::kLive;
  int rc = connect(fd, reinterpret_cast<sockaddr *>(&addr), len);
  int err = errno;
  close(fd);
  if (rc == 0) return Holder::kLive;
  if (err == ENOENT) return Holder::kNone;
  return err == ECONNREFUSED ? Holder::kStale : Holder::kLive;
}

// Binds fd at path, replacing a stale socket file. 0 or an errno value.
int bind_at(int fd, const std::string &path) {
  sockaddr_un addr;
  socklen_t len;
  if (int err = unix_address(path, addr, len)) return err;
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (bind(fd, reinterpret_cast<sockaddr *>(&addr), len) == 0) return 0;
    if (errno != EADDRINUSE) return errno;
    Holder h = holder_of(path);
    if (h == Holder::kLive) return EADDRINUSE;
    if (h == Holder::kStale && unlink(path.c_str()) != 0 && errno != ENOENT) return errno;
  }
  return EADDRINUSE;
}

// Starting point of the dynamic search: varies by process, so processes
// binding at the same time rarely probe the same points.
int dynamic_start() {
  static std::atomic<unsigned> next{0};
  unsigned span = kDynamicLast - kDynamicFirst + 1;
  return kDynamicFirst + static_cast<int>((static_cast<unsigned>(getpid()) * 2654435761u + next++) % span);
}

int bind_locked(const std::string &dir, uint32 node, int sap, int fd, BoundPoint &out) {
  if (sap != HUB_SAP_DYNAMIC) {
    out.path = point_path(dir, node, sap);
    out.sap = sap;
    return bind_at(fd, out.path);
  }
  int span = kDynamicLast - kDynamicFirst + 1;
  int start = dynamic_start();
  for (int i = 0; i < span; ++i) {
    int candidate = kDynamicFirst + (start - kDynamicFirst + i) % span;
    std::string path = point_path(dir, node, candidate);
    int err = bind_at(fd, path);
    if (err == EADDRINUSE) continue;
    if (err) return err;
    out.path = path;
    out.sap = candidate;
    return 0;
  }
  return EADDRINUSE;
}

}  // namespace

int bind_point(const std::string &dir, uint32 node, int sap, BoundPoint &out) {
  if (int err = ensure_dir(dir)) return err;
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  int err = 0;
  {
    DirLock lock(dir);
    err = lock.error() ? lock.error() : bind_locked(dir, node, sap, fd, out);
  }
  if (err) {
    close(fd);
    return err;
  }
  out.fd = fd;
  return 0;
}

}  // namespace plat::hub
