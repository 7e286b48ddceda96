// Test harness for the conversion library: the library is loaded with
// dlopen, as the upgrade manager loads it, inside a private device root in
// which /bootflash and /mnt/kvs are temporary folders. The test program runs
// once per debug gate (--gate=shut or --gate=open).
#ifndef TESTS_LIBRARY_CNV_ENV_H
#define TESTS_LIBRARY_CNV_ENV_H

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "kvs_defs.h"

namespace cnv {

using Bytes = std::string;
using Records = std::map<Bytes, Bytes>;

struct Env {
  static Env &get();

  bool ready = false;
  std::string why_not;  // why the library cannot be run here
  bool gate_open = false;
  void *handle = nullptr;
  std::string root;       // host folder of the device root
  std::string bootflash;  // host folder shown at /bootflash
  std::string mnt_kvs;    // host folder shown at /mnt/kvs
  std::string store_dir;  // host folder of the runtime store (the path given to convert_gsync)
  std::string standby;    // host folder playing the standby supervisor
  std::string hub_dir;    // the hub's runtime folder

  // An exported symbol of the library, or null.
  void *sym(const char *name) const;
  template <typename F>
  F *fn(const char *name) const {
    return reinterpret_cast<F *>(sym(name));
  }
};

// Makes the private device root (before any thread exists) and loads the
// library of the gate into Env; Env::ready tells whether it worked.
void setup(bool gate_open);
// Unloads the library and removes the device root's folders.
void teardown();
// Loads the library of one gate beside any other (null, why_not set, if
// it cannot be loaded).
void *load_library(bool gate_open);

// Leaks found so far, in the sanitized build (0 in the plain one).
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#define LEAKS_FOUND() __lsan_do_recoverable_leak_check()
#else
#define LEAKS_FOUND() 0
#endif

// Skips the test, visibly, where the library cannot be run.
#define CNV_REQUIRE()                                                          \
  do {                                                                         \
    if (!cnv::Env::get().ready) GTEST_SKIP() << cnv::Env::get().why_not;      \
  } while (0)

// Writes the two release descriptor files with these version texts (e.g.
// "4.2(1a)") and points the environment at them; an empty text writes a
// file without a version.
void set_move(const std::string &from_version, const std::string &to_version);

// The conversion log's text ("" when there is none), which is then removed.
std::string take_log();
// The log with every source line number replaced by N and every time text
// by <time>, so that it can be compared with expected records.
std::string normalized(const std::string &log);

// Compares text with the golden file golden/<name>.log (only with its part
// before "-- log\n" when head_only), or with WAYSHUNT_UPDATE_GOLDEN=1 in the
// environment writes the file (never from a head_only call).
void expect_golden(const std::string &name, const std::string &text, bool head_only = false);

// The runtime store: its URL, a fresh one holding records, its contents.
std::string runtime_url();
void make_store(const Records &records);
Records read_store();
bool store_exists();

// Bytes from hex text, white space ignored: hx("37 00 01").
Bytes hx(const std::string &hex);
// Hex text of bytes, for messages.
std::string hex(const Bytes &b);

// Calls of the entry points with the caller's strings.
retcode_t gsync(const char *to = "to", const char *from = "from");
retcode_t gsync_at(const std::string &path);

}  // namespace cnv

#endif
