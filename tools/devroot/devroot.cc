// Private file-system view with host folders at device paths: a mount
// namespace whose root is a tmpfs rebuilt from the host's "/" (see devroot.h
// for the layout choices).
#include "devroot.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <exception>

namespace devroot {
namespace {

// The temporary mount point of the new root lives here on the host; it is
// removed again once the process has switched to the new root.
constexpr const char *kTempParent = "/tmp";
// Where the old root is parked during pivot_root, inside the new root.
constexpr const char *kOldRoot = "/.devroot-old";

// "<what>[: <path>]: <errno text>".
std::string fail(const std::string &what, const std::string &path = "") {
  std::string s = what;
  if (!path.empty()) s += ": " + path;
  return s + ": " + std::strerror(errno);
}

// True when path is dir or lies under it.
bool under(const std::string &path, const std::string &dir) {
  return path.compare(0, dir.size(), dir) == 0 &&
         (path.size() == dir.size() || path[dir.size()] == '/');
}

// The non-empty parts of a slash-separated path.
std::vector<std::string> parts(const std::string &path) {
  std::vector<std::string> out;
  size_t at = 0;
  while (at < path.size()) {
    size_t end = path.find('/', at);
    if (end == std::string::npos) end = path.size();
    if (end > at) out.push_back(path.substr(at, end - at));
    at = end + 1;
  }
  return out;
}

// Checks the mappings and returns them with device paths normalized
// ("//mnt/kvs/" -> "/mnt/kvs") and host folders made absolute.
std::string validate(const std::vector<Mapping> &in, std::vector<Mapping> *out) {
  for (const Mapping &m : in) {
    const std::string &dev = m.device_path;
    if (dev.empty() || dev[0] != '/') return "device path is not absolute: \"" + dev + "\"";
    std::string norm;
    for (const std::string &p : parts(dev)) {
      if (p == "." || p == "..") return "device path has a \".\" or \"..\" part: " + dev;
      norm += "/" + p;
    }
    if (norm.empty()) return "device path cannot be the root: " + dev;
    char *real = realpath(m.host_dir.c_str(), nullptr);
    if (!real) return fail("host folder for " + norm, "\"" + m.host_dir + "\"");
    std::string host = real;
    std::free(real);
    struct stat st;
    if (stat(host.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
      return "host folder for " + norm + " is not a directory: " + m.host_dir;
    for (const Mapping &o : *out)
      if (under(norm, o.device_path) || under(o.device_path, norm))
        return "device paths overlap: " + o.device_path + " and " + norm;
    out->push_back({norm, host});
  }
  return "";
}

// Number of threads of this process (1 when /proc cannot tell).
int thread_count() {
  DIR *d = opendir("/proc/self/task");
  if (!d) return 1;
  int n = 0;
  while (dirent *e = readdir(d))
    if (e->d_name[0] != '.') ++n;
  closedir(d);
  return n > 0 ? n : 1;
}

std::string write_text(const char *path, const std::string &text) {
  int fd = open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) return fail("open", path);
  ssize_t n = write(fd, text.data(), text.size());
  int err = errno;
  close(fd);
  errno = err;
  return n == static_cast<ssize_t>(text.size()) ? "" : fail("write", path);
}

// Private mount namespace; root in a new user namespace first when not root.
std::string enter_namespaces() {
  uid_t uid = geteuid();
  gid_t gid = getegid();
  if (uid == 0) {
    if (unshare(CLONE_NEWNS) != 0) return fail("mount namespaces are not available: unshare");
  } else {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
      return fail("user namespaces are not available: unshare");
    // setgroups must be denied before an unprivileged process may map its gid.
    std::string err = write_text("/proc/self/setgroups", "deny");
    if (err.empty()) err = write_text("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n");
    if (err.empty()) err = write_text("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n");
    if (!err.empty()) return err;
  }
  // Nothing mounted from here on may propagate back to the host.
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return fail("make mounts private: mount", "/");
  return "";
}

// Recreates the host entry `host` at `dst` in the new root.
std::string copy_entry(const std::string &host, const std::string &dst) {
  struct stat st;
  if (lstat(host.c_str(), &st) != 0) return errno == ENOENT ? "" : fail("lstat", host);
  if (S_ISLNK(st.st_mode)) {
    char target[PATH_MAX];
    ssize_t n = readlink(host.c_str(), target, sizeof target - 1);
    if (n < 0) return fail("readlink", host);
    target[n] = '\0';
    return symlink(target, dst.c_str()) == 0 ? "" : fail("symlink", dst);
  }
  if (S_ISDIR(st.st_mode)) {
    if (mkdir(dst.c_str(), 0755) != 0) return fail("mkdir", dst);
  } else {
    int fd = open(dst.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) return fail("create", dst);
    close(fd);
  }
  // Recursive, so mounts below (e.g. /dev/pts) come along; an unprivileged
  // user may not bind a folder without the mounts locked beneath it anyway.
  return mount(host.c_str(), dst.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0
             ? ""
             : fail("bind " + host + " at", dst);
}

// Fills the new-root folder `dst` with the entries of host folder `src`,
// leaving out device paths and rebuilding the folders that lead to one.
std::string fill(const std::string &src, const std::string &dst, const std::vector<Mapping> &maps) {
  std::vector<std::string> names;
  if (DIR *d = opendir(src.c_str())) {
    while (dirent *e = readdir(d))
      if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
        names.push_back(e->d_name);
    closedir(d);
  } else if (errno != ENOENT && errno != ENOTDIR) {
    return fail("opendir", src);
  }  // a dangling link or a plain file on the way to a device path: left empty
  for (const std::string &name : names) {
    std::string host = (src == "/" ? "" : src) + "/" + name;
    std::string to = dst + "/" + name;
    bool replaced = false, leads = false;
    for (const Mapping &m : maps) {
      replaced = replaced || m.device_path == host;
      leads = leads || (m.device_path.size() > host.size() && under(m.device_path, host));
    }
    std::string err;
    if (leads)
      err = mkdir(to.c_str(), 0755) == 0 ? fill(host, to, maps) : fail("mkdir", to);
    else if (!replaced)
      err = copy_entry(host, to);
    if (!err.empty()) return err;
  }
  return "";
}

// Builds the new root on a tmpfs mounted at `root`.
std::string build(const std::string &root, const std::vector<Mapping> &maps) {
  if (mount("devroot", root.c_str(), "tmpfs", 0, "mode=0755") != 0) return fail("mount tmpfs at", root);
  std::string err = fill("/", root, maps);
  if (!err.empty()) return err;
  // The rbind of the folder holding `root` (/tmp) copied the new root into
  // itself; drop that copy.
  umount2((root + root).c_str(), MNT_DETACH);
  for (const Mapping &m : maps) {
    std::string at = root;
    for (const std::string &p : parts(m.device_path)) {
      at += "/" + p;
      if (mkdir(at.c_str(), 0755) != 0 && errno != EEXIST) return fail("mkdir", at);
    }
    if (mount(m.host_dir.c_str(), at.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
      return fail("bind " + m.host_dir + " at", m.device_path);
  }
  return mkdir((root + kOldRoot).c_str(), 0700) == 0 ? "" : fail("mkdir", root + kOldRoot);
}

// Makes `root` the process's "/" and lets go of the old one.
std::string switch_root(const std::string &root) {
  if (syscall(SYS_pivot_root, root.c_str(), (root + kOldRoot).c_str()) != 0)
    return fail("pivot_root", root);
  if (chdir("/") != 0) return fail("chdir", "/");
  if (umount2(kOldRoot, MNT_DETACH) != 0) return fail("detach old root", kOldRoot);
  rmdir(kOldRoot);
  if (mount(nullptr, "/", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
    return fail("make new root read-only: mount", "/");
  return "";
}

std::string enter_checked(const std::vector<Mapping> &mappings) {
  std::vector<Mapping> maps;
  std::string err = validate(mappings, &maps);
  if (!err.empty()) return err;
  if (int n = thread_count(); n > 1)
    return "the process has " + std::to_string(n) + " threads; namespaces need a single one";
  char *cwd_buf = getcwd(nullptr, 0);
  if (!cwd_buf) return fail("getcwd");
  std::string cwd = cwd_buf;
  std::free(cwd_buf);
  err = enter_namespaces();
  if (!err.empty()) return err;

  std::string tmpl = std::string(kTempParent) + "/devroot.XXXXXX";
  if (!mkdtemp(tmpl.data())) return fail("mkdtemp", tmpl);
  const std::string root = tmpl;
  // Held to remove the mount point once the host's root is out of sight.
  int parent = open(kTempParent, O_PATH | O_DIRECTORY | O_CLOEXEC);
  err = build(root, maps);
  if (err.empty()) err = switch_root(root);
  if (!err.empty()) umount2(root.c_str(), MNT_DETACH);  // no-op once pivoted
  if (parent >= 0) {
    unlinkat(parent, root.c_str() + std::strlen(kTempParent) + 1, AT_REMOVEDIR);
    close(parent);
  }
  if (err.empty() && chdir(cwd.c_str()) != 0) err = fail("chdir back", cwd);
  return err;
}

}  // namespace

std::string enter(const std::vector<Mapping> &mappings) {
  try {
    return enter_checked(mappings);
  } catch (const std::exception &e) {
    return std::string("devroot: ") + e.what();
  }
}

bool available(std::string *why) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    if (why) *why = fail("pipe");
    return false;
  }
  pid_t pid = fork();
  if (pid < 0) {
    if (why) *why = fail("fork");
    close(fds[0]);
    close(fds[1]);
    return false;
  }
  if (pid == 0) {  // the probe: a real enter() with nothing mapped
    close(fds[0]);
    std::string err = enter({});
    ssize_t n = write(fds[1], err.data(), err.size());
    _exit(err.empty() && n == 0 ? 0 : 1);
  }
  close(fds[1]);
  std::string err;
  char buf[256];
  ssize_t n;
  while ((n = read(fds[0], buf, sizeof buf)) != 0) {
    if (n > 0)
      err.append(buf, static_cast<size_t>(n));
    else if (errno != EINTR)
      break;
  }
  close(fds[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  bool ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (!ok && err.empty()) err = "the namespace probe ended abnormally";
  if (why) *why = ok ? "" : err;
  return ok;
}

}  // namespace devroot
