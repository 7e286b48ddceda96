// Speed of the toolkit table: inserts/s, finds/s and the time of a full walk
// for 1,000,000 keys shaped like worldwide names (the low five bytes alike,
// as 20:00:00:25:b5:xx:yy:zz read little-endian) and for random keys.
// Build: add_executable(toolkit_bench toolkit_bench.cc) linked with toolkit.
#include <chrono>
#include <cstdio>
#include <random>
#include <vector>

#include "toolkit.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

// Runs inserts, finds and a walk over keys; returns 0 when all went right.
int run(const char *name, const std::vector<uint64> &keys) {
  tk_hashtable_64_t ht;
  if (tk_hashtable_64_init(&ht, 256, tk_hashtable_64_modulo_size_hash_fn) != TK_OK) return 1;
  size_t inserted = 0;
  auto t0 = Clock::now();
  for (uint64 k : keys) inserted += tk_hashtable_64_insert(&ht, k, &ht) == TK_OK;
  double t_insert = seconds_since(t0);

  size_t found = 0;
  void *data;
  t0 = Clock::now();
  for (uint64 k : keys) found += tk_hashtable_64_find(&ht, k, &data) == TK_OK;
  double t_find = seconds_since(t0);

  size_t walked = 0;
  uint64 key;
  t0 = Clock::now();
  for (tk_err_t rc = tk_hashtable_64_get_first(&ht, &key, &data); rc == TK_OK; rc = tk_hashtable_64_traverse(&ht, key, &key, &data))
    walked++;
  double t_walk = seconds_since(t0);

  std::printf("%-16s %zu keys (%zu distinct), %u buckets: %.0f inserts/s, %.0f finds/s, walk %.3f s\n", name, keys.size(),
              inserted, ht.size, keys.size() / t_insert, keys.size() / t_find, t_walk);
  tk_hashtable_64_destroy(&ht);
  return (found == keys.size() && walked == inserted) ? 0 : 1;
}

}  // namespace

int main() {
  constexpr size_t kKeys = 1000000;
  std::vector<uint64> wwn, random;
  std::mt19937_64 rng(1);
  for (size_t i = 0; i < kKeys; i++) {
    wwn.push_back(0x000000b525000020ull | (uint64{i} << 40));
    random.push_back(rng());
  }
  int bad = run("worldwide names", wwn) | run("random", random);
  if (bad) std::fprintf(stderr, "toolkit_bench: counts did not match\n");
  return bad;
}
