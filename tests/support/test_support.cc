// Helpers shared by the tests.
#include "test_support.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "plat_ctl.h"

namespace testsupport {

TempDir::TempDir() {
  const char *base = std::getenv("TMPDIR");
  std::string tmpl = std::string(base && *base ? base : "/tmp") + "/wstest.XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) ADD_FAILURE() << "mkdtemp failed for " << tmpl;
  path_ = buf.data();
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

ScopedEnv::ScopedEnv(const char *name, const char *value) : name_(name) {
  if (const char *old = std::getenv(name)) {
    had_ = true;
    old_ = old;
  }
  if (value)
    setenv(name, value, 1);
  else
    unsetenv(name);
}

ScopedEnv::~ScopedEnv() {
  if (had_)
    setenv(name_.c_str(), old_.c_str(), 1);
  else
    unsetenv(name_.c_str());
}

FaultScope::FaultScope() { plat_fault_reset(); }
FaultScope::~FaultScope() { plat_fault_reset(); }
void FaultScope::add(const std::string &rules) {
  ASSERT_EQ(plat_fault_add(rules.c_str()), 0) << plat_fault_error();
}

Child::Child(const std::vector<std::string> &argv, const std::string &log) {
  pid_ = fork();
  if (pid_ == 0) {
    int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd >= 0) {
      dup2(fd, 1);
      dup2(fd, 2);
    }
    std::vector<char *> args;
    for (const auto &a : argv) args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  if (pid_ < 0) ADD_FAILURE() << "fork failed";
}

Child::~Child() {
  if (pid_ > 0 && !reaped_) stop(SIGKILL);
}

int Child::stop(int sig) {
  if (pid_ <= 0 || reaped_) return status_;
  kill(pid_, sig);
  waitpid(pid_, &status_, 0);
  reaped_ = true;
  return status_;
}

int Child::wait(int timeout_ms) {
  if (reaped_) return status_;
  auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (std::chrono::steady_clock::now() < end) {
    if (waitpid(pid_, &status_, WNOHANG) == pid_) {
      reaped_ = true;
      return status_;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return -1;
}

std::string bin_dir() {
  char buf[4096];
  ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) return ".";
  buf[n] = '\0';
  return std::filesystem::path(buf).parent_path().string();
}

std::string read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void write_file(const std::string &path, const std::string &text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

bool wait_for_path(const std::string &path, int timeout_ms) {
  auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  struct stat st;
  while (std::chrono::steady_clock::now() < end) {
    if (stat(path.c_str(), &st) == 0) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

}  // namespace testsupport
