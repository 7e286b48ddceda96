// The atomic file copy behind overseercmn_file_gsync(). All paths below the
// root are opened relative to folder descriptors without following symbolic
// links, so the copy cannot land outside the root.
#include "standby_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <utility>

namespace plat::overseer {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kChunk = 64 * 1024;

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) close(fd_);
  }
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;
  Fd &operator=(Fd &&o) noexcept {
    std::swap(fd_, o.fd_);
    return *this;
  }
  int get() const { return fd_; }
  // Closes now, reporting the error close() may give for written data.
  bool close_checked() {
    int fd = fd_;
    fd_ = -1;
    return close(fd) == 0;
  }

 private:
  int fd_;
};

// Removes the temporary file on every way out but success.
class TempGuard {
 public:
  TempGuard(int dir_fd, std::string name) : dir_fd_(dir_fd), name_(std::move(name)) {}
  ~TempGuard() {
    if (armed_) unlinkat(dir_fd_, name_.c_str(), 0);
  }
  TempGuard(const TempGuard &) = delete;
  TempGuard &operator=(const TempGuard &) = delete;
  void disarm() { armed_ = false; }

 private:
  int dir_fd_;
  std::string name_;
  bool armed_ = true;
};

// Why the folder name could not be opened: a symbolic link (refused, it
// could lead out of the root) or anything else.
retcode_t open_error(int dir_fd, const std::string &name) {
  struct stat st;
  bool link = fstatat(dir_fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode);
  return link ? OVERSEER_ERR_BAD_PATH : OVERSEER_ERR_IO;
}

// Opens (creating where missing) the parent folders of the target, one
// component at a time below root_fd.
retcode_t open_parent(int root_fd, const std::vector<std::string> &parts, Fd &dir) {
  dir = Fd(fcntl(root_fd, F_DUPFD_CLOEXEC, 0));
  if (dir.get() < 0) return OVERSEER_ERR_IO;
  for (size_t i = 0; i + 1 < parts.size(); ++i) {
    if (mkdirat(dir.get(), parts[i].c_str(), 0755) != 0 && errno != EEXIST) return OVERSEER_ERR_IO;
    Fd next(openat(dir.get(), parts[i].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (next.get() < 0) return open_error(dir.get(), parts[i]);
    dir = std::move(next);
  }
  return PLAT_OK;
}

bool write_all(int fd, const char *p, size_t n) {
  while (n > 0) {
    ssize_t w = write(fd, p, n);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return false;
    p += w;
    n -= static_cast<size_t>(w);
  }
  return true;
}

// Copies every byte of in to out, giving up at deadline (if any).
bool copy_bytes(int in, int out, bool bounded, Clock::time_point deadline) {
  std::vector<char> buf(kChunk);
  for (;;) {
    if (bounded && Clock::now() > deadline) return false;
    ssize_t r = read(in, buf.data(), buf.size());
    if (r < 0 && errno == EINTR) continue;
    if (r < 0) return false;
    if (r == 0) return true;
    if (!write_all(out, buf.data(), static_cast<size_t>(r))) return false;
  }
}

std::string temp_name(const std::string &target) {
  static std::atomic<unsigned> seq{0};
  return "." + target + ".gsync." + std::to_string(getpid()) + "." + std::to_string(seq.fetch_add(1));
}

// Puts the finished temporary file in place of the target.
bool commit(int dir_fd, const std::string &tmp, const std::string &target, bool replace) {
  if (replace) return renameat(dir_fd, tmp.c_str(), dir_fd, target.c_str()) == 0;
  // A hard link never replaces an existing file; the temporary name goes
  // after (by the caller's guard).
  return linkat(dir_fd, tmp.c_str(), dir_fd, target.c_str(), 0) == 0;
}

}  // namespace

retcode_t copy_to_standby(int root_fd, const std::string &src, const std::vector<std::string> &parts, bool replace,
                          int timeout_s) {
  auto deadline = Clock::now() + std::chrono::seconds(timeout_s > 0 ? timeout_s : 0);
  // O_NONBLOCK keeps a FIFO from blocking the open; the type check follows.
  Fd in(open(src.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (in.get() < 0) return errno == ENOENT || errno == ENOTDIR ? OVERSEER_ERR_NO_SOURCE : OVERSEER_ERR_IO;
  struct stat st;
  if (fstat(in.get(), &st) != 0) return OVERSEER_ERR_IO;
  if (!S_ISREG(st.st_mode)) return OVERSEER_ERR_NO_SOURCE;
  Fd dir;
  if (retcode_t rc = open_parent(root_fd, parts, dir)) return rc;
  const std::string &target = parts.back();
  std::string tmp = temp_name(target);
  Fd out(openat(dir.get(), tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (out.get() < 0) return OVERSEER_ERR_IO;
  TempGuard guard(dir.get(), tmp);
  if (!copy_bytes(in.get(), out.get(), timeout_s > 0, deadline) || fchmod(out.get(), st.st_mode & 07777) != 0 ||
      fsync(out.get()) != 0 || !out.close_checked())
    return OVERSEER_ERR_IO;
  if (!commit(dir.get(), tmp, target, replace)) return OVERSEER_ERR_IO;
  if (replace) guard.disarm();
  return fsync(dir.get()) == 0 ? PLAT_OK : OVERSEER_ERR_IO;
}

}  // namespace plat::overseer
