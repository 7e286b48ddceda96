// Main of the library tests: sets up the device root (before any thread
// exists), loads the library of the chosen gate and runs the tests.
//   cnv_test [--gate=shut|open] [gtest options]
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>

#include "cnv_env.h"
#include "devroot.h"
#include "test_support.h"

namespace {

void prepare(bool gate_open) {
  cnv::Env &e = cnv::Env::get();
  e.gate_open = gate_open;
  const char *tmp = getenv("TMPDIR");
  std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/cnvtest.XXXXXX";
  if (!mkdtemp(tmpl.data())) {
    e.why_not = "cannot make a temporary folder";
    return;
  }
  e.root = tmpl;
  e.bootflash = e.root + "/bootflash";
  e.mnt_kvs = e.root + "/mnt_kvs";
  e.store_dir = e.root + "/store";
  e.standby = e.root + "/standby";
  e.hub_dir = e.root + "/hub";
  for (const auto &d : {e.bootflash, e.mnt_kvs, e.store_dir, e.standby, e.hub_dir})
    std::filesystem::create_directories(d);
  setenv("PLAT_STANDBY_ROOT", e.standby.c_str(), 1);
  setenv("PLAT_HUB_DIR", e.hub_dir.c_str(), 1);
  std::string err = devroot::enter({{"/bootflash", e.bootflash}, {"/mnt/kvs", e.mnt_kvs}});
  if (!err.empty()) {
    e.why_not = "no private device root on this machine (" + err + "): library tests skipped";
    return;
  }
  std::string lib = testsupport::bin_dir() + "/../lib/gate-" + (gate_open ? "open" : "shut") + "/libconvertwayshunt.so";
  e.handle = dlopen(lib.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!e.handle) {
    e.why_not = std::string("cannot load the library: ") + dlerror();
    return;
  }
  e.ready = true;
}

}  // namespace

int main(int argc, char **argv) {
  bool gate_open = false;
  for (int i = 1; i < argc; i++)
    if (std::strcmp(argv[i], "--gate=open") == 0) gate_open = true;
  ::testing::InitGoogleTest(&argc, argv);
  prepare(gate_open);
  int rc = RUN_ALL_TESTS();
  cnv::Env &e = cnv::Env::get();
  if (e.handle) dlclose(e.handle);
  std::error_code ec;
  if (!e.root.empty()) std::filesystem::remove_all(e.root, ec);
  return rc;
}
