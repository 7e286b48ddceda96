// What the store keeps whatever happens within an open: a walk that
// rewrites the store completes whether or not it outgrows the memory map on
// the way; and the guarded test mode, where every misuse of handed-out data
// that the mode exists to catch ends the process at once.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "kvs_admin.h"
#include "kvs_fixture.h"

namespace {

volatile char sink;

using Misuse = std::function<void(kvs_service_t, const kvs_datum_t *)>;

struct GuardCase {
  const char *name;
  bool dies;
  Misuse use;  // given the open store and the first key under the cursor
};

const char *last(const kvs_datum_t *d) { return static_cast<const char *>(d->ptr) + d->siz - 1; }

const GuardCase kGuardCases[] = {
    {"last key and value bytes", false,
     [](kvs_service_t s, const kvs_datum_t *k) {
       retcode_t st;
       sink = *last(k) + *last(kvs_getvalue(s, &st));
     }},
    {"key read after a store under it", false,
     [](kvs_service_t s, const kvs_datum_t *k) {
       kvs_datum_t v{const_cast<char *>("new"), 3};
       kvs_store(s, KVS_STORE_REPLACE, k, &v);
       sink = *last(k);
     }},
    {"one byte past the key", true, [](kvs_service_t, const kvs_datum_t *k) { sink = last(k)[1]; }},
    {"one byte past the value", true,
     [](kvs_service_t s, const kvs_datum_t *) {
       retcode_t st;
       sink = last(kvs_getvalue(s, &st))[1];
     }},
    {"write into the value", true,
     [](kvs_service_t s, const kvs_datum_t *) {
       retcode_t st;
       *const_cast<char *>(last(kvs_getvalue(s, &st))) = 0;
     }},
    {"key datum after the cursor moved", true,
     [](kvs_service_t s, const kvs_datum_t *k) {
       retcode_t st;
       kvs_move2location(s, KVS_LOC_NEXT, &st);
       sink = *static_cast<const char *>(k->ptr);
     }},
    {"value after its key was deleted", true,
     [](kvs_service_t s, const kvs_datum_t *k) {
       retcode_t st;
       const char *v = static_cast<const char *>(kvs_getvalue(s, &st)->ptr);
       kvs_delete(s, k);
       sink = *v;
     }},
};

struct RewriteCase {
  const char *name;
  const char *map_size;
  size_t new_size;  // of every value; the store starts with 100-byte values
  bool outgrows;    // the data file ends larger than the first map
};

const RewriteCase kRewriteCases[] = {
    {"same sizes within the map", "4194304", 100, false},
    {"growing values outgrow the map mid-walk", "4194304", 900, true},
    {"a map of 64 KiB", "65536", 150, true},
};

// One walk stores a new value under every key and deletes every fifth key;
// after the walk new keys are stored. The store must end as the model says.
TEST_F(KvsTest, RewriteWalkCompletesWhetherOrNotItOutgrowsTheMap) {
  for (const RewriteCase &c : kRewriteCases) {
    SCOPED_TRACE(c.name);
    testsupport::ScopedEnv map("PLAT_KVS_MAP_SIZE", c.map_size);
    kvs_remove(url_.c_str());
    Model m;
    for (int i = 0; i < 5000; i++) m["key" + std::to_string(i * 7919 % 100000)] = Bytes(100, 'a' + i % 26);
    create(m);
    kvs_service_t s = open();
    retcode_t st;
    size_t seen = 0;
    for (auto k = kvs_move2location(s, KVS_LOC_FIRST, &st); k; seen++) {
      Bytes key = bytes(k);
      ASSERT_TRUE(m.count(key)) << key;
      if (seen % 5 == 0) {
        ASSERT_EQ(kvs_delete(s, k), 0u);
        m.erase(key);
        k = kvs_getkey(s, &st);
        continue;
      }
      Bytes v(c.new_size, key.back());
      kvs_datum_t vd = datum(v);
      ASSERT_EQ(kvs_store(s, KVS_STORE_REPLACE, k, &vd), 0u);
      m[key] = v;
      k = kvs_move2location(s, KVS_LOC_NEXT, &st);
    }
    EXPECT_EQ(seen, 5000u);
    for (int i = 0; i < 2000; i++) {
      Bytes k = "new" + std::to_string(i), v(c.new_size, 'n');
      kvs_datum_t kd = datum(k), vd = datum(v);
      ASSERT_EQ(kvs_store(s, KVS_STORE_REPLACE, &kd, &vd), 0u);
      m[k] = v;
    }
    ASSERT_EQ(kvs_close(s), 0u);
    EXPECT_TRUE(contents() == m);
    size_t file = std::filesystem::file_size(dir_.path() + "/store.mdb");
    EXPECT_EQ(file > std::stoul(c.map_size), c.outgrows) << file;
  }
}

TEST_F(KvsTest, GuardedDataCatchesEveryMisuseAtOnce) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  testsupport::ScopedEnv guard("PLAT_KVS_GUARD", "1");
  // The children die on purpose: under AddressSanitizer their fault report
  // goes to the stderr the death test reads, not to the run's report folder.
  std::string asan = getenv("ASAN_OPTIONS") ? getenv("ASAN_OPTIONS") : "";
  testsupport::ScopedEnv quiet("ASAN_OPTIONS", (asan + ":log_path=stderr").c_str());
  // Each child runs this test again up to its death, fixture and all: its
  // own folder goes inside this one, which is removed at the end.
  testsupport::ScopedEnv tmp("TMPDIR", dir_.path().c_str());
  create({{"a", "12345"}, {"b", "xy"}});
  for (const GuardCase &c : kGuardCases) {
    SCOPED_TRACE(c.name);
    auto run = [&] {
      retcode_t st;
      kvs_service_t s = open();
      c.use(s, kvs_move2location(s, KVS_LOC_FIRST, &st));
      kvs_close(s);
    };
    if (c.dies)
      EXPECT_DEATH(run(), "");
    else
      run();
  }
}

}  // namespace
