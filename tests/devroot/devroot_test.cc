// devroot tests: every enter() runs in a forked child (one thread); the
// parent checks what landed in the host folders and that nothing appeared on
// the host's own root.
#include "devroot.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <thread>

#include "test_support.h"

namespace {

using testsupport::read_file;
using testsupport::TempDir;
using testsupport::write_file;
namespace fs = std::filesystem;

bool exists(const std::string &path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

std::string ns_of(const std::string &kind) {
  char buf[64];
  ssize_t n = readlink(("/proc/self/ns/" + kind).c_str(), buf, sizeof buf);
  return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
}

// Who the child runs as: this process's user, or nobody (from root only),
// which takes enter() through the user-namespace path.
enum class Who { Self, Nobody };
void PrintTo(Who w, std::ostream *os) { *os << (w == Who::Self ? "self" : "nobody"); }

// Runs fn in a forked child as `who`; returns its message ("" = all good).
std::string in_child(Who who, const std::function<std::string()> &fn) {
  int fds[2];
  if (pipe(fds) != 0) return "pipe failed";
  pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    std::string msg = "cannot become nobody";
    // nobody starts from "/": the run's own folder may be closed to it
    if (who == Who::Self || (chdir("/") == 0 && setgroups(0, nullptr) == 0 && setresgid(65534, 65534, 65534) == 0 &&
                             setresuid(65534, 65534, 65534) == 0 &&
                             // as after an exec: /proc/self stays ours, uid_map writable
                             prctl(PR_SET_DUMPABLE, 1) == 0))
      msg = fn();
    ssize_t n = write(fds[1], msg.data(), msg.size());
    _exit(msg.empty() && n == 0 ? 0 : 1);
  }
  close(fds[1]);
  std::string msg;
  char buf[512];
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) msg.append(buf, static_cast<size_t>(n));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  if (!WIFEXITED(status)) return "child died: " + msg;
  return WEXITSTATUS(status) == 0 ? "" : msg.empty() ? "child failed silently" : msg;
}

// What the host holds at the device paths: whether each is there, and the
// names and sizes of the files below it. The host may have either folder
// of its own, with files in it; a test must leave both as it found them.
std::string host_state() {
  std::string out;
  for (const char *p : {"/bootflash", "/mnt/kvs"}) {
    out += std::string(p) + (exists(p) ? " there\n" : " absent\n");
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(p, ec); !ec && it != fs::recursive_directory_iterator();
         it.increment(ec))
      out += it->path().string() + " " + std::to_string(it->is_regular_file(ec) ? it->file_size(ec) : 0) + "\n";
  }
  return out;
}

class DevrootMaps : public ::testing::TestWithParam<Who> {};

TEST_P(DevrootMaps, HostFoldersAppearAtDevicePathsAndTheRestStays) {
  if (GetParam() == Who::Nobody && geteuid() != 0) GTEST_SKIP() << "only root can switch to nobody";
  std::string why = in_child(GetParam(), [] {
    std::string w;
    return devroot::available(&w) ? "" : "unavailable: " + w;
  });
  if (!why.empty()) GTEST_SKIP() << why;

  TempDir tmp;
  for (const char *d : {"bootflash", "kvs", "work"}) fs::create_directory(tmp / d);
  for (const std::string &d : {tmp.path(), tmp / "bootflash", tmp / "work"})
    fs::permissions(d, fs::perms::all);  // writable for nobody too
  if (!in_child(GetParam(), [&] { return access((tmp / "work").c_str(), W_OK) == 0 ? "" : "no"; }).empty())
    GTEST_SKIP() << tmp.path() << " lies in a folder closed to " << (GetParam() == Who::Self ? "us" : "nobody");
  write_file(tmp / "kvs/y", "kvs content");
  write_file(tmp / "work/here", "cwd file");
  std::string host_before = host_state();
  // Host paths that must look the same inside: found on the host now.
  std::vector<std::pair<std::string, bool>> seen;
  for (const char *p : {"/usr/bin", "/dev/null", "/proc/self/status", "/tmp", "/mnt"})
    seen.emplace_back(p, exists(p));
  seen.emplace_back(tmp / "kvs/y", true);
  std::error_code ec;
  for (const auto &e : fs::directory_iterator("/mnt", ec))
    if (e.path() != "/mnt/kvs") seen.emplace_back(e.path(), true);
  // The host's own files at the device paths are hidden inside.
  for (const char *d : {"/bootflash", "/mnt/kvs"})
    for (const auto &e : fs::directory_iterator(d, ec))
      if (e.path() != "/bootflash/x" && e.path() != "/mnt/kvs/y") seen.emplace_back(e.path(), false);

  std::string err = in_child(GetParam(), [&]() -> std::string {
    if (chdir((tmp / "work").c_str()) != 0) return "chdir";
    std::string e = devroot::enter({{"/bootflash", tmp / "bootflash"}, {"/mnt/kvs/", tmp / "kvs"}});
    if (!e.empty()) return "enter: " + e;
    if (fs::current_path(ec) != tmp / "work" || read_file("here") != "cwd file") return "cwd lost";
    write_file("/bootflash/x", "written inside");
    if (read_file("/bootflash/x") != "written inside") return "/bootflash not writable";
    if (read_file("/mnt/kvs/y") != "kvs content") return "/mnt/kvs/y unreadable";
    for (const auto &[path, there] : seen)
      if (exists(path) != there) return path + (there ? " vanished" : " appeared");
    int fd = open("/devroot-test-file", O_WRONLY | O_CREAT | O_EXCL, 0644);
    if (fd >= 0 || errno != EROFS) return "root is writable";
    return "";
  });
  EXPECT_EQ(err, "");
  EXPECT_EQ(read_file(tmp / "bootflash/x"), "written inside");
  EXPECT_EQ(host_state(), host_before);
  EXPECT_FALSE(exists("/devroot-test-file"));
}

INSTANTIATE_TEST_SUITE_P(Users, DevrootMaps, ::testing::Values(Who::Self, Who::Nobody),
                         [](const auto &info) { return info.param == Who::Self ? "Self" : "Nobody"; });

struct Refusal {
  const char *name;
  std::vector<devroot::Mapping> maps;  // "@" in a host folder stands for the temp dir
  const char *reason;                  // part of the expected reason
  bool extra_thread = false;
};

TEST(DevrootRefuses, BadRequestsLeaveTheCallerAsItWas) {
  TempDir tmp;
  write_file(tmp / "file", "");
  std::string host_before = host_state();
  const std::vector<Refusal> table = {
      {"missing host folder", {{"/bootflash", "@/missing"}}, "No such file"},
      {"host folder is a file", {{"/bootflash", "@/file"}}, "not a directory"},
      {"relative device path", {{"bootflash", "@"}}, "not absolute"},
      {"dot-dot in device path", {{"/mnt/../bootflash", "@"}}, "\"..\" part"},
      {"device path is root", {{"//", "@"}}, "cannot be the root"},
      {"nested device paths", {{"/mnt", "@"}, {"/mnt/kvs", "@"}}, "overlap"},
      {"second thread", {{"/bootflash", "@"}}, "2 threads", true},
  };
  for (Refusal r : table) {
    for (auto &m : r.maps)
      if (m.host_dir[0] == '@') m.host_dir = tmp.path() + m.host_dir.substr(1);
    std::string err = in_child(Who::Self, [&]() -> std::string {
      if (r.extra_thread) std::thread([] { pause(); }).detach();
      std::string mnt = ns_of("mnt"), user = ns_of("user");
      std::string e = devroot::enter(r.maps);
      if (e.find(r.reason) == std::string::npos || e.find('\n') != std::string::npos)
        return "reason \"" + e + "\"";
      return ns_of("mnt") == mnt && ns_of("user") == user ? "" : "namespace changed";
    });
    EXPECT_EQ(err, "") << r.name;
  }
  EXPECT_EQ(host_state(), host_before);
}

}  // namespace
