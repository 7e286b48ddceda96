// upgrade_bench [library.so]: records per second of the upgrade from 4.1.3
// or lower (wayshunt_cnv_config_upgrade_from_413_or_lower), with the debug
// gate shut, on two kinds of runtime store:
//  - a mixed store spread over many targets (flow-thru keys, RW and ELS ACL
//    entries, line card records) of 10,000 / 100,000 / 1,000,000 records;
//  - one target holding 1,000 / 10,000 / 100,000 RW ACL entries on ISLs,
//    in groups of 2 to 4 entries with the same slot and source pair, so
//    that the trunk fix-up has one long chain to resolve.
// Only the conversion is timed, not the building of the store. Slots come
// from the interface index encoding (fc<slot>/<port>). The library is the
// gate-shut build beside this program (../lib/gate-shut/) unless named.
#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "wayshunt_cnv.h"
#include "if_index.h"
#include "kvs_admin.h"
#include "kvs_defs.h"
#include "wayshunt.h"

namespace {

using Clock = std::chrono::steady_clock;
using upgrade_fn = retcode_t(const char *);

[[noreturn]] void die(const char *what, const std::string &detail) {
  std::fprintf(stderr, "upgrade_bench: %s: %s\n", what, detail.c_str());
  std::exit(1);
}

void check(const char *what, retcode_t st) {
  if (st) die(what, retcode2str(st));
}

struct Rng {  // splitmix64: the same stores on every run
  uint64_t s;
  uint64_t next() {
    uint64_t z = (s += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  uint32_t below(uint32_t n) { return uint32_t(next() % n); }
};

wwn_t wwn(uint64_t v) {
  wwn_t w;
  for (int i = 0; i < 8; i++) w.str[i] = uint8_t(v >> (56 - 8 * i));
  return w;
}

// Writes records into a fresh store, in one open.
class Builder {
 public:
  explicit Builder(const std::string &url) {
    kvs_remove(url.c_str());
    check("kvs_create", kvs_create(url.c_str()));
    retcode_t st = 0;
    s_ = kvs_open(url.c_str(), &st);
    check("kvs_open", st);
  }
  void put(const void *k, unsigned ks, const void *v, unsigned vs) {
    kvs_datum_t kd{const_cast<void *>(k), ks}, vd{const_cast<void *>(v), vs};
    check("kvs_store", kvs_store(s_, KVS_STORE_REPLACE, &kd, &vd));
    n_++;
  }
  size_t close() {
    check("kvs_close", kvs_close(s_));
    return n_;
  }

  // One RW ACL entry under key type 55, 56 or 57, with a fresh hash key.
  void rw(Rng &r, uint8_t type, uint64_t tgt, uint32_t flags, uint64_t sid, uint64_t did, uint32_t slot,
          uint32_t port) {
    wayshunt_kvs_key_rw_acl_entry_t k{{type, 0}, r.next()};
    wayshunt_kvs_data_rw_acl_entry_t v;
    std::memset(&v, 0, sizeof v);
    v.tgt_pwwn = wwn(tgt);
    v.acl_flags = flags;
    v.src_sid_wwn = wwn(sid);
    v.src_did_wwn = wwn(did);
    v.dst_sid_wwn = wwn(r.below(2) ? r.next() : 0);
    v.dst_did_wwn = wwn(r.next());
    v.if_index = IF_INDEX_FC(slot, port);
    put(&k, sizeof k, &v, sizeof v);
  }

 private:
  kvs_service_t s_ = 0;
  size_t n_ = 0;
};

constexpr uint32_t P = WAYSHUNT_ACL_FLAG_PHYSICAL, V = WAYSHUNT_ACL_FLAG_VIRTUAL, ISL = WAYSHUNT_ACL_FLAG_ISL;

// A mixed store of about n records over n / 25 targets: one in ten a
// flow-thru key, six in ten an RW entry (of which most are on ISLs, in
// small groups), a quarter ELS entries, the rest line card records.
size_t build_mixed(const std::string &url, size_t n, size_t *targets) {
  Builder b(url);
  Rng r{n};
  size_t ntgt = n / 25 ? n / 25 : 1;
  *targets = ntgt;
  for (size_t i = 0; i < n; i++) {
    uint64_t tgt = 0x5000000000000000ull + r.below(uint32_t(ntgt));
    uint32_t kind = r.below(20);
    if (kind < 2) {
      wayshunt_kvs_key_flow_thru_host_413_t k{{WAYSHUNT_KVS_KEY_FLOW_THRU_HOST, 0}, wwn(r.next()), wwn(tgt)};
      uint32_t v = 0;
      b.put(&k, sizeof k, &v, sizeof v);
    } else if (kind < 14) {
      static const uint32_t flags[] = {P | V | ISL, P | V | ISL, P | ISL, P | ISL, V | ISL, P, P | V, V};
      uint32_t g = r.below(4);  // a few source pairs per target, so groups form
      b.rw(r, uint8_t(WAYSHUNT_KVS_KEY_ACL_RW_1 + r.below(3)), tgt, flags[r.below(8)], tgt ^ g, tgt + g, 1 + g % 16,
           1 + r.below(48));
    } else if (kind < 19) {
      uint8_t k[10] = {uint8_t(WAYSHUNT_KVS_KEY_ACL_ELS_1 + r.below(3)), 0};
      uint64_t h = r.next();
      std::memcpy(k + 2, &h, 8);
      wayshunt_kvs_data_els_acl_entry_t v;
      std::memset(&v, 0, sizeof v);
      v.tgt_pwwn = wwn(tgt);
      v.src_pwwn = wwn(r.next());
      v.if_index = IF_INDEX_FC(1 + r.below(16), 1 + r.below(48));
      b.put(k, sizeof k, &v, sizeof v);
    } else {
      uint8_t k[6] = {WAYSHUNT_KVS_KEY_RUNTIME_LC_INFO, 0};
      uint32_t id = uint32_t(i);
      std::memcpy(k + 2, &id, 4);
      b.put(k, sizeof k, "lc", 2);
    }
  }
  return b.close();
}

// One target with n RW entries on ISLs, in groups of 2 to 4 with the same
// slot and source pair; each group starts with an entry that has both
// PHYSICAL and VIRTUAL, the others have both or PHYSICAL alone.
size_t build_one_target(const std::string &url, size_t n) {
  Builder b(url);
  Rng r{n + 7};
  const uint64_t tgt = 0x500000000000abcdull;
  for (size_t i = 0, g = 0; i < n; g++) {
    size_t size = 2 + r.below(3);
    for (size_t j = 0; j < size && i < n; j++, i++)
      b.rw(r, uint8_t(WAYSHUNT_KVS_KEY_ACL_RW_1 + (r.below(8) == 0)), tgt, j == 0 || r.below(2) ? P | V | ISL : P | ISL,
           0x2000000000000000ull + g, 0x2100000000000000ull + g * 7, 1 + g % 16, 1 + r.below(48));
  }
  return b.close();
}

double time_upgrade(upgrade_fn *upgrade, const std::string &url) {
  auto t0 = Clock::now();
  retcode_t st = upgrade(url.c_str());
  double s = std::chrono::duration<double>(Clock::now() - t0).count();
  check("wayshunt_cnv_config_upgrade_from_413_or_lower", st);
  return s > 0 ? s : 1e-9;
}

std::string default_library() {
  char exe[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n <= 0) return "libconvertwayshunt.so";
  exe[n] = 0;
  return (std::filesystem::path(exe).parent_path() / ".." / "lib" / "gate-shut" / "libconvertwayshunt.so").string();
}

}  // namespace

int main(int argc, char **argv) {
  std::string lib = argc > 1 ? argv[1] : default_library();
  void *h = dlopen(lib.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!h) die("cannot load the library", dlerror());
  auto *upgrade = reinterpret_cast<upgrade_fn *>(dlsym(h, "wayshunt_cnv_config_upgrade_from_413_or_lower"));
  if (!upgrade) die("no upgrade in the library", lib);

  const char *tmp = getenv("TMPDIR");
  std::string dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/upgrade_bench.XXXXXX";
  if (!mkdtemp(dir.data())) die("mkdtemp", std::strerror(errno));
  std::string url = "nonvolatile:" + dir + "/" WAYSHUNT_CNV_RUNTIME_KVS;

  std::printf("upgrade from 4.1.3 or lower, debug gate shut (%s)\n\n", lib.c_str());
  std::printf("mixed store over many targets\n%10s %9s %9s %12s %14s\n", "records", "targets", "seconds", "records/s",
              "us/record");
  for (size_t n : {10000, 100000, 1000000}) {
    size_t targets, records = build_mixed(url, n, &targets);
    double s = time_upgrade(upgrade, url);
    std::printf("%10zu %9zu %9.3f %12.0f %14.2f\n", records, targets, s, records / s, s * 1e6 / records);
    std::fflush(stdout);
  }
  std::printf("\none target, RW entries on ISLs in groups of 2-4 (same slot and source pair)\n%10s %9s %9s %12s %14s\n",
              "entries", "targets", "seconds", "records/s", "us/record");
  for (size_t n : {1000, 10000, 100000}) {
    size_t records = build_one_target(url, n);
    double s = time_upgrade(upgrade, url);
    std::printf("%10zu %9d %9.3f %12.0f %14.2f\n", records, 1, s, records / s, s * 1e6 / records);
    std::fflush(stdout);
  }
  kvs_remove(url.c_str());
  std::filesystem::remove_all(dir);
  dlclose(h);
  return 0;
}
