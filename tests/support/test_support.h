// Helpers shared by the tests: private temporary folders, scoped environment
// variables, fault rules that are reset between tests, and child processes.
#ifndef TESTS_SUPPORT_TEST_SUPPORT_H
#define TESTS_SUPPORT_TEST_SUPPORT_H

#include <string>
#include <vector>

namespace testsupport {

// A fresh folder under $TMPDIR, removed with everything in it at the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;
  const std::string &path() const { return path_; }
  std::string operator/(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Sets (or with a null value unsets) an environment variable for the scope.
class ScopedEnv {
 public:
  ScopedEnv(const char *name, const char *value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv &) = delete;
  ScopedEnv &operator=(const ScopedEnv &) = delete;

 private:
  std::string name_;
  bool had_ = false;
  std::string old_;
};

// Clears every fault rule and call count now and at the end of the scope.
class FaultScope {
 public:
  FaultScope();
  ~FaultScope();
  // Adds rules (plat_ctl.h syntax); fails the test on a bad rule.
  void add(const std::string &rules);
};

// A child process running argv, with its stdout and stderr sent to files.
class Child {
 public:
  explicit Child(const std::vector<std::string> &argv, const std::string &log = "/dev/null");
  ~Child();  // kills the child if it still runs
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;
  int pid() const { return pid_; }
  // Sends sig and waits; returns the wait status.
  int stop(int sig = 15);
  // Waits up to timeout_ms for the child to end; returns the wait status, or
  // -1 on time-out.
  int wait(int timeout_ms);

 private:
  int pid_ = -1;
  bool reaped_ = false;
  int status_ = 0;
};

// Folder of the programs built beside the tests.
std::string bin_dir();

// Whole contents of a file ("" if it cannot be read).
std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &text);

// Waits up to timeout_ms for path to exist.
bool wait_for_path(const std::string &path, int timeout_ms);

}  // namespace testsupport

#endif
