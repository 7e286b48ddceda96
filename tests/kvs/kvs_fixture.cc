// A test fixture around one store in a private folder.
#include "kvs_fixture.h"

#include "kvs_admin.h"

KvsTest::KvsTest() : url_("nonvolatile:" + dir_.path() + "/store") {}

void KvsTest::create(const Model &model) {
  ASSERT_EQ(kvs_create(url_.c_str()), 0u);
  kvs_service_t s = open();
  for (const auto &[k, v] : model) {
    kvs_datum_t kd = datum(k), vd = datum(v);
    ASSERT_EQ(kvs_store(s, KVS_STORE_REPLACE, &kd, &vd), 0u);
  }
  ASSERT_EQ(kvs_close(s), 0u);
}

kvs_service_t KvsTest::open() {
  retcode_t st = 1;
  kvs_service_t s = kvs_open(url_.c_str(), &st);
  EXPECT_EQ(st, 0u) << retcode2str(st);
  return s;
}

Model KvsTest::contents() {
  Model m;
  kvs_service_t s = open();
  retcode_t st;
  for (auto k = kvs_move2location(s, KVS_LOC_FIRST, &st); k; k = kvs_move2location(s, KVS_LOC_NEXT, &st))
    m[bytes(k)] = bytes(kvs_getvalue(s, &st));
  EXPECT_EQ(st, KVS_ERR_NO_KEY);
  EXPECT_EQ(kvs_close(s), 0u);
  return m;
}
