// The store's guarded test mode: every misuse of handed-out data that the
// mode exists to catch ends the process at once, and proper use does not.
#include <gtest/gtest.h>

#include <functional>

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

TEST_F(KvsTest, GuardedDataCatchesEveryMisuseAtOnce) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  testsupport::ScopedEnv guard("PLAT_KVS_GUARD", "1");
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
