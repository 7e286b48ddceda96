// A private folder for a harness's files, in memory where it can be:
// <base>/<name>.<pid>, removed at exit. A harness that ends in a crash
// cannot remove its own, and libFuzzer's fork mode crashes thousands of
// times, so the folders of processes that no longer run go first.
#ifndef TESTS_FUZZ_FUZZ_FOLDER_H
#define TESTS_FUZZ_FUZZ_FOLDER_H

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

inline std::string fuzz_folder(const std::string &name) {
  namespace fs = std::filesystem;
  static std::string folder;  // one per harness process
  fs::path base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  std::error_code ec;
  for (const auto &e : fs::directory_iterator(base, ec)) {
    std::string n = e.path().filename().string();
    if (n.rfind(name + ".", 0) != 0) continue;
    char *end = nullptr;
    long pid = std::strtol(n.c_str() + name.size() + 1, &end, 10);
    if (*end == '\0' && pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) fs::remove_all(e.path(), ec);
  }
  folder = (base / (name + "." + std::to_string(getpid()))).string();
  fs::remove_all(folder, ec);
  if (!fs::create_directory(folder, ec)) abort();
  atexit([] { std::filesystem::remove_all(folder); });
  return folder;
}

#endif
