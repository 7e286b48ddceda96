// upgrade32_bench [--lib <libconvertwayshunt.so>] [entries...]: figures for
// the first pass of the upgrade from 3.2. For each size it builds a 3.2
// runtime store with one target holding that many RW ACL entries (key type
// 55, 84-byte values, all on an ISL), in groups of six with the same source
// pair and a mix of physical, virtual, both and neither on two or three
// slots, then times wayshunt_cnv_config_upgrade_from_32 on it (best of three
// runs). Prints entries per second, slot lookups and stores per entry. The
// library is loaded from lib/gate-shut/ beside the program's folder unless
// --lib names another.
// Default sizes: 1000 10000 100000. The small sizes carry the fixed cost of
// opening and closing the store. The heap hands freed memory back between
// runs, so each run pays its first touch again; with
// MALLOC_TRIM_THRESHOLD_=1000000000 MALLOC_MMAP_THRESHOLD_=1000000000 in the
// environment that cost leaves the figures.
#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "wayshunt_cnv.h"
#include "if_index.h"
#include "kvs_admin.h"
#include "kvs_defs.h"
#include "plat_ctl.h"

namespace {

using Clock = std::chrono::steady_clock;
using upgrade_fn = int32_t (*)(const char *);

constexpr uint32_t kIsl = 0x40000, kPhy = 0x100000, kVir = 0x200000;

[[noreturn]] void die(const std::string &what) {
  std::fprintf(stderr, "upgrade32_bench: %s\n", what.c_str());
  std::exit(1);
}

void check(const char *what, retcode_t st) {
  if (st) die(std::string(what) + ": " + retcode2str(st));
}

std::string default_lib() {
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) die("cannot find the program's folder");
  self[n] = 0;
  return std::filesystem::path(self).parent_path().string() + "/../lib/gate-shut/libconvertwayshunt.so";
}

void put32(unsigned char *p, uint32_t v) { std::memcpy(p, &v, 4); }

// Entry i: group g = i / 6 shares src_sid_wwn and src_did_wwn; in each
// group a physical entry, a virtual one beside it (a partner is found), a
// virtual one on the next slot (none: it turns physical), one with both
// flags, one with neither beside it, and a virtual one that finds the one
// turned physical.
void make_value(size_t i, unsigned char *v) {
  static const uint32_t kFlags[6] = {kPhy, kVir, kVir, kPhy | kVir, 0, kVir};
  static const unsigned kSlotStep[6] = {0, 0, 1, 2, 2, 1};
  size_t g = i / 6;
  unsigned slot = 1 + (g + kSlotStep[i % 6]) % 16, port = 1 + i % 256;
  std::memset(v, 0, 84);
  v[0] = 0x50;
  v[7] = 0x01;  // one target
  put32(v + 8, kIsl | kFlags[i % 6]);
  v[12] = 0x20;
  std::memcpy(v + 13, &g, 7);  // src_sid_wwn
  v[20] = 0x21;
  std::memcpy(v + 21, &g, 7);  // src_did_wwn
  put32(v + 44, IF_INDEX_FC(slot, port));
}

void make_store(const std::string &url, size_t n) {
  kvs_remove(url.c_str());
  check("create", kvs_create(url.c_str()));
  retcode_t st = 0;
  kvs_service_t s = kvs_open(url.c_str(), &st);
  check("open", st);
  unsigned char key[10], val[84];
  kvs_datum_t kd{key, 10}, vd{val, 84};
  for (size_t i = 0; i < n; i++) {
    key[0] = 55;
    key[1] = 0;
    uint64_t h = (i + 1) * 0x9e3779b97f4a7c15ull;
    std::memcpy(key + 2, &h, 8);
    make_value(i, val);
    check("store", kvs_store(s, KVS_STORE_REPLACE, &kd, &vd));
  }
  check("close", kvs_close(s));
}

}  // namespace

int main(int argc, char **argv) {
  std::string lib = default_lib();
  std::vector<size_t> sizes;
  for (int i = 1; i < argc; i++) {
    if (std::strcmp(argv[i], "--lib") == 0 && i + 1 < argc)
      lib = argv[++i];
    else
      sizes.push_back(std::strtoull(argv[i], nullptr, 10));
  }
  if (sizes.empty()) sizes = {1000, 10000, 100000};
  void *h = dlopen(lib.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!h) die(std::string("cannot load ") + lib + ": " + dlerror());
  auto upgrade = reinterpret_cast<upgrade_fn>(dlsym(h, "wayshunt_cnv_config_upgrade_from_32"));
  if (!upgrade) die("no wayshunt_cnv_config_upgrade_from_32 in " + lib);

  const char *tmp = std::getenv("TMPDIR");
  std::string dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/upgrade32_bench.XXXXXX";
  if (!mkdtemp(dir.data())) die("cannot make a temporary folder");
  std::string url = "nonvolatile:" + dir + "/" WAYSHUNT_CNV_RUNTIME_KVS;

  std::printf("%10s %12s %14s %16s %16s\n", "entries", "seconds", "entries/s", "lookups/entry", "stores/entry");
  for (size_t n : sizes) {
    // Best of three, each on a fresh store: the pass rewrites what it fixes.
    double s = 1e30;
    for (int rep = 0; rep < 3; rep++) {
      make_store(url, n);
      plat_fault_reset();
      auto t0 = Clock::now();
      int32_t rc = upgrade(url.c_str());
      s = std::min(s, std::chrono::duration<double>(Clock::now() - t0).count());
      if (rc) die("the pass failed: " + std::string(retcode2str(static_cast<retcode_t>(rc))));
    }
    std::printf("%10zu %12.4f %14.0f %16.2f %16.2f\n", n, s, n / (s > 0 ? s : 1e-9),
                double(plat_call_count("portmap_get_slot")) / n, double(plat_call_count("kvs_store")) / n);
  }
  kvs_remove(url.c_str());
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
  dlclose(h);
  return 0;
}
