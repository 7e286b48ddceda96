// Runs `chromium --headless --dump-dom` in its own process group with a
// throwaway profile, stdout (the DOM) and stderr (the log, where console
// messages appear as "...:CONSOLE..." lines) sent to files.
#include "browser_page.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <thread>

#include "test_support.h"

extern char **environ;

namespace tooltest {

namespace {

// Waits for pid up to timeout_ms; on time-out kills its group. True if it
// ended by itself with status 0.
bool wait_or_kill(pid_t pid, int timeout_ms, std::string &error) {
  auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  int status = 0;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > end) {
      kill(-pid, SIGKILL);
      waitpid(pid, &status, 0);
      error = "chromium did not end within " + std::to_string(timeout_ms) + " ms";
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(-pid, SIGKILL);  // helpers the browser left behind, if any
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
  error = "chromium ended with wait status " + std::to_string(status);
  return false;
}

}  // namespace

BrowserPage load_in_browser(const std::string &html_path, int timeout_ms) {
  testsupport::TempDir dir;
  std::string out = dir / "dom", err = dir / "log";
  std::vector<std::string> argv = {"chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                                   "--no-first-run", "--disable-extensions", "--user-data-dir=" + (dir / "profile"),
                                   "--enable-logging=stderr", "--v=0", "--dump-dom",
                                   "file://" + std::filesystem::absolute(html_path).string()};
  std::vector<char *> cargs;
  for (std::string &a : argv) cargs.push_back(a.data());
  cargs.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&attr, 0);

  BrowserPage page;
  pid_t pid;
  auto start = std::chrono::steady_clock::now();
  int rc = posix_spawnp(&pid, cargs[0], &actions, &attr, cargs.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  if (rc != 0) {
    page.error = std::string("cannot run chromium (") + std::strerror(rc) + "): scripts/setup.sh installs it";
    return page;
  }
  bool ok = wait_or_kill(pid, timeout_ms, page.error);
  page.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  page.dom = testsupport::read_file(out);
  std::istringstream log(testsupport::read_file(err));
  for (std::string line; std::getline(log, line);)
    if (line.find(":CONSOLE") != std::string::npos) page.console.push_back(line);
  if (ok && page.dom.empty()) page.error = "chromium wrote no DOM";
  return page;
}

}  // namespace tooltest
