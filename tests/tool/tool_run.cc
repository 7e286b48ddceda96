// Runs the tool with posix_spawn, its stdout and stderr sent to files of a
// private temporary folder that are read back when it ends.
#include "tool_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "test_support.h"

extern char **environ;

namespace tooltest {

Run run_tool(const std::vector<std::string> &args, const std::string &stdin_path) {
  testsupport::TempDir dir;
  std::string out = dir / "out", err = dir / "err";
  std::vector<std::string> argv = {testsupport::bin_dir() + "/wayshunt-convert"};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char *> cargs;
  for (std::string &a : argv) cargs.push_back(a.data());
  cargs.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, stdin_path.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  Run r;
  pid_t pid;
  int wstatus = 0;
  if (posix_spawn(&pid, cargs[0], &actions, nullptr, cargs.data(), environ) == 0 && waitpid(pid, &wstatus, 0) == pid)
    r.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
  posix_spawn_file_actions_destroy(&actions);
  r.out = testsupport::read_file(out);
  r.err = testsupport::read_file(err);
  return r;
}

void expect_golden(const std::string &name, const std::string &text) {
  std::string path = std::string(TOOL_GOLDEN_DIR) + "/" + name + ".txt";
  const char *update = std::getenv("WAYSHUNT_UPDATE_GOLDEN");
  if (update && std::string(update) == "1") {
    std::filesystem::create_directories(TOOL_GOLDEN_DIR);
    testsupport::write_file(path, text);
    return;
  }
  EXPECT_EQ(testsupport::read_file(path), text) << "golden file " << path << " differs; WAYSHUNT_UPDATE_GOLDEN=1 rewrites it";
}

}  // namespace tooltest
