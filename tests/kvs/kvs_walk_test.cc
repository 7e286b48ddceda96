// The walk: order, end of walk, deletes under the cursor, stores during the
// walk, and a randomized run against a model.
#include <random>
#include <set>
#include <vector>

#include "kvs_fixture.h"

namespace {

Model letters(const std::string &keys) {
  Model m;
  for (char c : keys) m[Bytes(1, c)] = "value-" + Bytes(1, c);
  return m;
}

}  // namespace

TEST_F(KvsTest, EmptyStoreAndEndOfWalkGiveNullWithNoKey) {
  create();
  kvs_service_t s = open();
  retcode_t st = 0;
  EXPECT_EQ(kvs_move2location(s, KVS_LOC_FIRST, &st), nullptr);
  EXPECT_EQ(st, KVS_ERR_NO_KEY);
  EXPECT_EQ(kvs_getvalue(s, &st), nullptr);
  EXPECT_NE(st, 0u);
  ASSERT_EQ(kvs_close(s), 0u);
}

TEST_F(KvsTest, WalkVisitsKeysInByteOrderWithTheirValues) {
  Model m = {{"\x37\x00", "a"}, {"\x36", "b"}, {"\x36\x00\x01", "c"}, {"\xff", ""}, {"\x01\x02\x03", "dd"}};
  create(m);
  kvs_service_t s = open();
  retcode_t st;
  auto it = m.begin();
  for (auto k = kvs_move2location(s, KVS_LOC_FIRST, &st); k; k = kvs_move2location(s, KVS_LOC_NEXT, &st), ++it) {
    ASSERT_NE(it, m.end());
    EXPECT_EQ(bytes(k), it->first);
    const kvs_datum_t *v = kvs_getvalue(s, &st);
    ASSERT_EQ(st, 0u);
    EXPECT_EQ(bytes(v), it->second);
    EXPECT_EQ(bytes(k), it->first) << "key must stay readable beside its value";
  }
  EXPECT_EQ(it, m.end());
  EXPECT_EQ(st, KVS_ERR_NO_KEY);
  EXPECT_EQ(kvs_move2location(s, KVS_LOC_NEXT, &st), nullptr) << "walking on behind the end stays at the end";
  EXPECT_EQ(kvs_close(s), 0u);
}

// Deletes during a walk, the way the conversions make them: delete the key
// under the cursor, then take the following one with kvs_getkey.
TEST_F(KvsTest, DeleteUnderCursorStandsOnFollowingKey) {
  struct Case {
    const char *name, *keys, *doomed;
  };
  const Case cases[] = {
      {"first", "abcde", "a"},  {"middle", "abcde", "c"},      {"last", "abcde", "e"},
      {"only", "a", "a"},       {"adjacent run", "abcdef", "bcd"}, {"run to end", "abcdef", "def"},
      {"all", "abcdef", "abcdef"}, {"alternate", "abcdefgh", "aceg"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    testsupport::TempDir d;
    url_ = "nonvolatile:" + d.path() + "/store";
    Model m = letters(c.keys);
    create(m);
    std::set<char> doomed(c.doomed, c.doomed + strlen(c.doomed));
    kvs_service_t s = open();
    retcode_t st;
    std::string seen;
    const kvs_datum_t *k = kvs_move2location(s, KVS_LOC_FIRST, &st);
    while (k) {
      char key = bytes(k)[0];
      seen += key;
      if (doomed.count(key)) {
        ASSERT_EQ(kvs_delete(s, k), 0u);
        k = kvs_getkey(s, &st);
        if (!k) {
          EXPECT_NE(st, 0u);
        }
      } else {
        k = kvs_move2location(s, KVS_LOC_NEXT, &st);
      }
    }
    EXPECT_EQ(seen, c.keys) << "every key visited once, in order";
    ASSERT_EQ(kvs_close(s), 0u);
    for (char key : doomed) m.erase(Bytes(1, key));
    EXPECT_EQ(contents(), m);
  }
}

TEST_F(KvsTest, StoreDuringWalkReplacesInPlaceAndNewKeysAfterward) {
  create(letters("abcd"));
  kvs_service_t s = open();
  retcode_t st;
  std::string seen;
  for (auto k = kvs_move2location(s, KVS_LOC_FIRST, &st); k; k = kvs_move2location(s, KVS_LOC_NEXT, &st)) {
    seen += bytes(k);
    Bytes nv(seen.size() * 40, seen.back());  // values grow, forcing page changes
    kvs_datum_t vd = datum(nv);
    ASSERT_EQ(kvs_store(s, KVS_STORE_REPLACE, k, &vd), 0u);
    EXPECT_EQ(bytes(k), seen.substr(seen.size() - 1)) << "key datum stays readable";
    EXPECT_EQ(bytes(kvs_getkey(s, &st)), bytes(k)) << "cursor stays";
    EXPECT_EQ(bytes(kvs_getvalue(s, &st)), nv);
  }
  EXPECT_EQ(seen, "abcd");
  Bytes nk = "b2", nv = "new";
  kvs_datum_t kd = datum(nk), vd = datum(nv);
  ASSERT_EQ(kvs_store(s, KVS_STORE_REPLACE, &kd, &vd), 0u);
  ASSERT_EQ(kvs_close(s), 0u);
  Model m = contents();
  ASSERT_EQ(m.size(), 5u);
  EXPECT_EQ(m["b2"], "new");
  EXPECT_EQ(m["c"], Bytes(120, 'c'));
}

