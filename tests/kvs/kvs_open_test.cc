// Opening, closing and lasting: which URLs open, atomicity across a crash,
// growth of a store past its initial map, and one writer at a time.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "kvs_admin.h"
#include "kvs_fixture.h"

TEST_F(KvsTest, OpenFailsWithItsOwnStatusAndText) {
  create();
  testsupport::write_file(dir_ / "junk.mdb", std::string(20000, 'x'));
  struct Case {
    std::string url;
    retcode_t want;
  };
  const Case cases[] = {
      {"nonvolatile:" + dir_.path() + "/missing", KVS_ERR_NO_STORE},
      {"nonvolatile:" + dir_.path() + "/nofolder/store", KVS_ERR_NO_STORE},
      {"volatile:" + dir_.path() + "/store", KVS_ERR_BAD_URL},
      {"nonvolatile:store", KVS_ERR_BAD_URL},
      {"nonvolatile:" + dir_.path() + "/", KVS_ERR_BAD_URL},
      {"nonvolatile:" + dir_.path() + "/junk", KVS_ERR_CORRUPT},
  };
  for (const auto &c : cases) {
    retcode_t st = 0;
    kvs_open(c.url.c_str(), &st);
    EXPECT_EQ(st, c.want) << c.url << ": " << retcode2str(st);
    EXPECT_STRNE(retcode2str(st), retcode2str(0xdeadbeef)) << "a text of its own";
  }
  retcode_t st = 0;
  kvs_open(nullptr, &st);
  EXPECT_EQ(st, KVS_ERR_BAD_URL);
}

TEST_F(KvsTest, AdministrationCreatesOnceAndRemovesClosedStoresOnly) {
  ASSERT_EQ(kvs_create(url_.c_str()), 0u);
  EXPECT_EQ(kvs_create(url_.c_str()), KVS_ERR_EXISTS);
  kvs_service_t s = open();
  retcode_t st = 0;
  kvs_open(url_.c_str(), &st);
  EXPECT_EQ(st, KVS_ERR_BUSY) << "a second handle on the same store in one process";
  EXPECT_EQ(kvs_remove(url_.c_str()), KVS_ERR_BUSY);
  EXPECT_EQ(kvs_close(s), 0u);
  EXPECT_EQ(kvs_close(s), KVS_ERR_BAD_HANDLE) << "a handle closes once";
  EXPECT_EQ(kvs_remove(url_.c_str()), 0u);
  EXPECT_EQ(kvs_remove(url_.c_str()), KVS_ERR_NO_STORE);
  kvs_open(url_.c_str(), &st);
  EXPECT_EQ(st, KVS_ERR_NO_STORE);
}

TEST_F(KvsTest, StoreGrowsPastItsInitialMap) {
  testsupport::ScopedEnv small("PLAT_KVS_MAP_SIZE", "65536");
  create();
  Model m;
  kvs_service_t s = open();
  for (int i = 0; i < 20000; i++) {
    Bytes k = "k" + std::to_string(i * 7919 % 20000), v(100 + i % 50, 'v');
    kvs_datum_t kd = datum(k), vd = datum(v);
    ASSERT_EQ(kvs_store(s, KVS_STORE_REPLACE, &kd, &vd), 0u) << i;
    m[k] = v;
    if (i % 3 == 0) {  // deletes are replayed too
      ASSERT_EQ(kvs_delete(s, &kd), 0u);
      m.erase(k);
    }
  }
  ASSERT_EQ(kvs_close(s), 0u);
  EXPECT_TRUE(contents() == m);
}

// While one process holds a store open, another's kvs_open waits for it to
// close, and then sees its changes.
TEST_F(KvsTest, SecondProcessWaitsForTheFirstToClose) {
  create({{"k", "old"}});
  kvs_service_t s = open();
  Bytes k = "k", v = "new";
  kvs_datum_t kd = datum(k), vd = datum(v);
  ASSERT_EQ(kvs_store(s, KVS_STORE_REPLACE, &kd, &vd), 0u);
  std::string marker = dir_ / "opened";
  testsupport::Child probe({testsupport::bin_dir() + "/kvs_probe", url_, marker});
  EXPECT_EQ(probe.wait(300), -1) << "open must wait while the store is held";
  EXPECT_FALSE(testsupport::wait_for_path(marker, 0));
  ASSERT_EQ(kvs_close(s), 0u);
  int status = probe.wait(10000);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(testsupport::read_file(marker), "new");
}
