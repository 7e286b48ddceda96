// kvs_bench [records...]: figures for the runtime store stand-in. For each
// size it creates a store of access-control-like records (10-byte keys,
// 84-byte values) in one transaction, walks it reading every value, and
// rewrites it the way a conversion does (every value replaced by an 82-byte
// one under the cursor, one record in ten deleted and stored again under a
// new key after the walk). Prints records per second for each phase and the
// file size. Default sizes: 10000 100000 1000000.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "kvs_admin.h"
#include "kvs_defs.h"

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void die(const char *what, retcode_t st) {
  std::fprintf(stderr, "kvs_bench: %s: %s (%s)\n", what, retcode2str(st), kvs_last_error_detail());
  std::exit(1);
}

void check(const char *what, retcode_t st) {
  if (st) die(what, st);
}

// Key i: type 55, sub type 0, then 8 bytes that spread like hash keys.
void make_key(uint64_t i, unsigned char *k) {
  k[0] = 55;
  k[1] = 0;
  uint64_t h = i * 0x9e3779b97f4a7c15ull;
  std::memcpy(k + 2, &h, 8);
}

double rate(size_t n, Clock::time_point t0) {
  double s = std::chrono::duration<double>(Clock::now() - t0).count();
  return n / (s > 0 ? s : 1e-9);
}

void run(const std::string &dir, size_t n) {
  std::string url = "nonvolatile:" + dir + "/bench" + std::to_string(n);
  check("create", kvs_create(url.c_str()));
  retcode_t st = 0;
  unsigned char key[10], val[84] = {};
  kvs_datum_t kd{key, 10}, vd{val, 84};

  auto t0 = Clock::now();
  kvs_service_t s = kvs_open(url.c_str(), &st);
  check("open", st);
  for (size_t i = 0; i < n; i++) {
    make_key(i, key);
    std::memcpy(val, key + 2, 8);
    check("store", kvs_store(s, KVS_STORE_REPLACE, &kd, &vd));
  }
  check("close", kvs_close(s));
  double fill = rate(n, t0);

  t0 = Clock::now();
  s = kvs_open(url.c_str(), &st);
  size_t seen = 0, bytes = 0;
  for (auto k = kvs_move2location(s, KVS_LOC_FIRST, &st); k; k = kvs_move2location(s, KVS_LOC_NEXT, &st)) {
    const kvs_datum_t *v = kvs_getvalue(s, &st);
    bytes += v ? v->siz : 0;
    seen++;
  }
  check("close", kvs_close(s));
  double walk = rate(n, t0);
  if (seen != n || bytes != n * 84) die("walk saw the wrong records", KVS_ERR_DB);

  t0 = Clock::now();
  s = kvs_open(url.c_str(), &st);
  std::vector<std::vector<unsigned char>> later;
  size_t i = 0;
  const kvs_datum_t *k = kvs_move2location(s, KVS_LOC_FIRST, &st);
  while (k) {
    if (i++ % 10 == 0) {
      auto *p = static_cast<const unsigned char *>(k->ptr);
      later.emplace_back(p, p + k->siz);
      later.back()[1] = 1;  // stored again under a new sub type
      check("delete", kvs_delete(s, k));
      k = kvs_getkey(s, &st);
      continue;
    }
    const kvs_datum_t *v = kvs_getvalue(s, &st);
    unsigned char nv[82];
    std::memcpy(nv, v->ptr, 82);
    nv[81] = 3;
    kvs_datum_t nd{nv, 82};
    check("store", kvs_store(s, KVS_STORE_REPLACE, k, &nd));
    k = kvs_move2location(s, KVS_LOC_NEXT, &st);
  }
  for (auto &nk : later) {
    kvs_datum_t a{nk.data(), static_cast<unsigned>(nk.size())}, b{val, 4};
    check("store", kvs_store(s, KVS_STORE_REPLACE, &a, &b));
  }
  check("close", kvs_close(s));
  double rewrite = rate(n, t0);

  char file[4096];
  check("file", kvs_store_file(url.c_str(), file, sizeof file));
  struct stat sb {};
  stat(file, &sb);
  std::printf("%10zu  %12.0f  %12.0f  %12.0f  %8.1f\n", n, fill, walk, rewrite, sb.st_size / 1048576.0);
  std::fflush(stdout);
  check("remove", kvs_remove(url.c_str()));
}

}  // namespace

int main(int argc, char **argv) {
  std::vector<size_t> sizes;
  for (int i = 1; i < argc; i++) sizes.push_back(std::strtoull(argv[i], nullptr, 10));
  if (sizes.empty()) sizes = {10000, 100000, 1000000};
  char tmpl[] = "/tmp/kvs_bench.XXXXXX";
  if (!mkdtemp(tmpl)) {
    std::perror("kvs_bench: mkdtemp");
    return 1;
  }
  std::printf("%10s  %12s  %12s  %12s  %8s\n", "records", "create/s", "walk/s", "rewrite/s", "MiB");
  for (size_t n : sizes) run(tmpl, n);
  std::filesystem::remove_all(tmpl);
  return 0;
}
