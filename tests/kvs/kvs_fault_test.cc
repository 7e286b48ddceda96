// Faults injected into store calls: each kind the conversions must survive.
#include "kvs_fixture.h"
#include "plat_ctl.h"

// A walk that deletes every key, with one delete failing: the failed key
// stays, the cursor stays on it, and the walk must be able to go on.
TEST_F(KvsTest, FailedDeleteLeavesCursorAndRecord) {
  create({{"a", "1"}, {"b", "2"}, {"c", "3"}});
  faults_.add("kvs_delete:2=0x4048000a");
  kvs_service_t s = open();
  retcode_t st;
  std::string seen;
  const kvs_datum_t *k = kvs_move2location(s, KVS_LOC_FIRST, &st);
  while (k) {
    seen += bytes(k);
    retcode_t rc = kvs_delete(s, k);
    k = kvs_getkey(s, &st);
    if (rc) {
      EXPECT_EQ(rc, KVS_ERR_IO);
      EXPECT_EQ(bytes(k), "b") << "cursor stays on the key whose delete failed";
      k = kvs_move2location(s, KVS_LOC_NEXT, &st);
    }
  }
  EXPECT_EQ(seen, "abc");
  ASSERT_EQ(kvs_close(s), 0u);
  EXPECT_EQ(contents(), (Model{{"b", "2"}}));
}

TEST_F(KvsTest, InjectedResultsOfDatumCalls) {
  create({{"a", "1"}, {"b", "2"}, {"c", "3"}});
  struct Case {
    const char *rule;
    bool null_result;
    retcode_t status;
  };
  const Case cases[] = {
      {"kvs_getvalue:1=null", true, 0},
      {"kvs_getvalue:1", true, PLAT_ERR_INJECTED},
      {"kvs_getvalue:1=empty", false, 0},
      {"kvs_getkey:1=0x40480003", true, KVS_ERR_NO_KEY},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.rule);
    plat_fault_reset();
    faults_.add(c.rule);
    kvs_service_t s = open();
    retcode_t st;
    kvs_move2location(s, KVS_LOC_FIRST, &st);
    st = 0xffff;
    const kvs_datum_t *d = std::string(c.rule).rfind("kvs_getkey", 0) == 0 ? kvs_getkey(s, &st) : kvs_getvalue(s, &st);
    EXPECT_EQ(st, c.status);
    if (c.null_result) {
      EXPECT_EQ(d, nullptr);
    } else {
      ASSERT_NE(d, nullptr);
      EXPECT_EQ(d->ptr, nullptr);
      EXPECT_EQ(d->siz, 0u);
    }
    EXPECT_EQ(bytes(kvs_getvalue(s, &st)), "1") << "the next call works again";
    EXPECT_EQ(kvs_close(s), 0u);
  }
}

// An empty datum from a move hides the key, but the walk goes on from it.
TEST_F(KvsTest, EmptyDatumFromMoveKeepsTheWalkGoing) {
  create({{"a", "1"}, {"b", "2"}, {"c", "3"}});
  faults_.add("kvs_move2location:2=empty");
  kvs_service_t s = open();
  retcode_t st;
  std::string seen;
  for (auto k = kvs_move2location(s, KVS_LOC_FIRST, &st); k; k = kvs_move2location(s, KVS_LOC_NEXT, &st))
    seen += k->siz ? bytes(k) : "-";
  EXPECT_EQ(seen, "a-c");
  EXPECT_EQ(kvs_close(s), 0u);
}

TEST_F(KvsTest, FailedStoreAndCloseKeepNothing) {
  create({{"a", "1"}});
  plat_fault_reset();  // count calls from here
  faults_.add("kvs_store:2=0x40480009 kvs_close:1");
  kvs_service_t s = open();
  Bytes k1 = "x", k2 = "y", v = "v";
  kvs_datum_t d1 = datum(k1), d2 = datum(k2), dv = datum(v);
  EXPECT_EQ(kvs_store(s, KVS_STORE_REPLACE, &d1, &dv), 0u);
  EXPECT_EQ(kvs_store(s, KVS_STORE_REPLACE, &d2, &dv), KVS_ERR_NO_SPACE);
  EXPECT_EQ(kvs_close(s), PLAT_ERR_INJECTED);
  EXPECT_EQ(contents(), (Model{{"a", "1"}})) << "a failed close keeps nothing and frees the store";
  plat_fault_reset();
  faults_.add("kvs_open:1=0x40480001");
  retcode_t st = 0;
  EXPECT_EQ(kvs_open(url_.c_str(), &st), 0u);
  EXPECT_EQ(st, KVS_ERR_NO_STORE);
  EXPECT_EQ(plat_call_count("kvs_open"), 1u);
}
