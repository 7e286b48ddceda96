// Tests of the toolkit queue and table against std::deque / std::map models,
// including keys shaped like worldwide names, bad arguments and faults.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <random>
#include <set>
#include <string>

#include "plat_ctl.h"
#include "status.h"
#include "test_support.h"
#include "toolkit.h"

namespace {

using testsupport::FaultScope;
constexpr tk_err_t INJ = PLAT_ERR_INJECTED;

void *ptr(uintptr_t v) { return reinterpret_cast<void *>(v); }

// Random enqueue/dequeue runs checked item by item against a std::deque.
TEST(Queue, FollowsFifoModelWithLimitAndCounters) {
  for (uint32 max_len : {0u, 1u, 5u}) {
    SCOPED_TRACE("max_len " + std::to_string(max_len));
    tk_cqueue_t q;
    ASSERT_EQ(tk_cq_init(&q, max_len), TK_OK);
    std::deque<uint32> model;
    uint32 high = 0, next = 1;
    std::mt19937 rng(max_len);
    time_t t0 = time(nullptr);
    for (int step = 0; step < 2000; step++) {
      const void *data = nullptr;
      tk_cq_cookie_t cookie = 0;
      if (rng() % 2) {
        bool full = max_len && model.size() >= max_len;
        ASSERT_EQ(tk_cq_enqueue_tail(&q, ptr(next), next + 7), full ? TK_ERR_FULL : TK_OK);
        if (!full) model.push_back(next);
        next++;
        ASSERT_EQ(q.tail->cq, &q);
        ASSERT_GE(q.tail->enqueue_time, t0);
      } else if (model.empty()) {
        ASSERT_EQ(tk_cq_dequeue_head(&q, &data, &cookie), TK_ERR_EMPTY);
      } else {
        ASSERT_EQ(tk_cq_dequeue_head(&q, &data, step % 3 ? &cookie : nullptr), TK_OK);
        ASSERT_EQ(data, ptr(model.front()));
        ASSERT_EQ(cookie, step % 3 ? model.front() + 7 : 0);
        model.pop_front();
      }
      high = std::max<uint32>(high, model.size());
      ASSERT_EQ(q.len, model.size());
      ASSERT_EQ(q.max_len_ever, high);
    }
    ASSERT_EQ(tk_cq_destroy(&q), model.empty() ? TK_OK : TK_ERR_NOT_EMPTY);  // leftovers: ASan sees leaks
    const void *data;
    EXPECT_EQ(tk_cq_dequeue_head(&q, &data, nullptr), TK_ERR_EMPTY);
    EXPECT_EQ(tk_cq_destroy(&q), TK_OK);
  }
}

// 20:00:00:25:b5:xx:yy:zz read as a little-endian number: the low five bytes
// are the same for every key.
uint64 wwn_key(std::mt19937_64 &rng) { return 0x000000b525000020ull | ((rng() & 0xffffffull) << 40); }
uint64 random_key(std::mt19937_64 &rng) { return rng(); }
uint64 dense_key(std::mt19937_64 &rng) { return rng() % 10000; }
uint32 out_of_range_hash(tk_hashtable_64_t *, uint64 key) { return 0xffffff00u | static_cast<uint32>(key & 0xff); }

// All keys of a walk, failing on an error or a repeated key.
std::set<uint64> walk(tk_hashtable_64_t *ht) {
  std::set<uint64> seen;
  uint64 key;
  void *data;
  tk_err_t rc = tk_hashtable_64_get_first(ht, &key, &data);
  for (; rc == TK_OK && seen.insert(key).second; rc = tk_hashtable_64_traverse(ht, key, &key, &data)) {
  }
  EXPECT_EQ(rc, TK_HASHTABLE_END) << "at key " << key;
  return seen;
}

size_t longest_chain(const tk_hashtable_64_t &ht) {
  size_t longest = 0;
  for (uint32 b = 0; b < ht.size; b++) {
    size_t n = 0;
    for (auto *node = ht.hash_array[b]; node; node = node->p_next) n++;
    longest = std::max(longest, n);
  }
  return longest;
}

TEST(Table, FollowsMapModelAcrossGrowth) {
  struct Case {
    const char *name;
    uint64 (*key)(std::mt19937_64 &);
    tk_hashtable_64_hash_fn_t hash;
    int inserts;
    size_t max_chain;  // 0: not checked
  } cases[] = {
      {"worldwide names", wwn_key, tk_hashtable_64_modulo_size_hash_fn, 30000, 16},
      {"random", random_key, tk_hashtable_64_modulo_size_hash_fn, 30000, 16},
      {"dense with repeats", dense_key, tk_hashtable_64_modulo_size_hash_fn, 30000, 16},
      {"hash out of range", wwn_key, out_of_range_hash, 2000, 0},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    tk_hashtable_64_t ht;
    ASSERT_EQ(tk_hashtable_64_init(&ht, 256, c.hash), TK_OK);
    std::map<uint64, uintptr_t> model;
    std::set<uint64> keys;
    std::mt19937_64 rng(42);
    for (int i = 1; i <= c.inserts; i++) {
      uint64 k = c.key(rng);
      ASSERT_EQ(tk_hashtable_64_insert(&ht, k, ptr(i)), keys.insert(k).second ? TK_OK : TK_ERR_EXISTS);
      model.emplace(k, i);  // keeps the first data of a key
    }
    for (auto [k, v] : model) {
      void *data = nullptr;
      ASSERT_EQ(tk_hashtable_64_find(&ht, k, &data), TK_OK);
      ASSERT_EQ(data, ptr(v));
      ASSERT_EQ(tk_hashtable_64_find(&ht, k ^ (1ull << 63), &data), keys.count(k ^ (1ull << 63)) ? TK_OK : TK_ERR_NOT_FOUND);
    }
    EXPECT_EQ(walk(&ht), keys);
    if (c.max_chain) {
      EXPECT_LE(longest_chain(ht), c.max_chain) << "buckets " << ht.size;
    }
    EXPECT_EQ(tk_hashtable_64_destroy(&ht), TK_OK);
  }
}

TEST(Table, WalkToleratesFreedDataAndRejectsUnknownKeys) {
  tk_hashtable_64_t ht;
  ASSERT_EQ(tk_hashtable_64_init(&ht, 7, tk_hashtable_64_modulo_size_hash_fn), TK_OK);
  uint64 key;
  void *data;
  EXPECT_EQ(tk_hashtable_64_get_first(&ht, &key, &data), TK_HASHTABLE_END);
  for (uint64 k = 1; k <= 500; k++) ASSERT_EQ(tk_hashtable_64_insert(&ht, k * 1000003, std::malloc(16)), TK_OK);
  EXPECT_EQ(tk_hashtable_64_traverse(&ht, 999, &key, &data), TK_ERR_NOT_FOUND);
  size_t visited = 0;
  tk_err_t rc = tk_hashtable_64_get_first(&ht, &key, &data);
  for (; rc == TK_OK; rc = tk_hashtable_64_traverse(&ht, key, &key, &data), visited++) std::free(data);
  EXPECT_EQ(rc, TK_HASHTABLE_END);
  EXPECT_EQ(visited, 500u);
  EXPECT_EQ(tk_hashtable_64_destroy(&ht), TK_OK);
}

}  // namespace
