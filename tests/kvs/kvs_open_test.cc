// Opening and closing: which URLs open, administration, and growth of a
// store past its initial map.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <vector>
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

// Clearing empties a closed store in place: the same file, written on as
// usual afterwards; an open store is refused and keeps its records.
TEST_F(KvsTest, ClearEmptiesAClosedStoreInPlace) {
  create({{"a", "1"}, {"b", "2"}});
  const std::string file = dir_ / "store.mdb";
  auto inode = [&] {
    struct stat st {};
    EXPECT_EQ(stat(file.c_str(), &st), 0);
    return st.st_ino;
  };
  const ino_t ino = inode();
  const size_t base = kvs_open_count();
  kvs_service_t s = open();
  EXPECT_EQ(kvs_open_count(), base + 1);
  EXPECT_EQ(kvs_clear(url_.c_str()), KVS_ERR_BUSY);
  ASSERT_EQ(kvs_close(s), 0u);
  EXPECT_EQ(kvs_open_count(), base);
  EXPECT_EQ(contents(), (Model{{"a", "1"}, {"b", "2"}}));
  ASSERT_EQ(kvs_clear(url_.c_str()), 0u);
  EXPECT_EQ(kvs_open_count(), base) << "the clear leaves no handle open";
  EXPECT_EQ(contents(), Model{});
  EXPECT_EQ(inode(), ino);
  s = open();
  Bytes k = "c", v = "3";
  kvs_datum_t kd = datum(k), vd = datum(v);
  ASSERT_EQ(kvs_store(s, KVS_STORE_REPLACE, &kd, &vd), 0u);
  ASSERT_EQ(kvs_close(s), 0u);
  EXPECT_EQ(contents(), (Model{{"c", "3"}}));
  EXPECT_EQ(kvs_clear(("nonvolatile:" + dir_.path() + "/missing").c_str()), KVS_ERR_NO_STORE);
  EXPECT_EQ(kvs_clear("volatile:/x/store"), KVS_ERR_BAD_URL);
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


// A store closed in this process is opened again on what its file holds
// now, whatever happened to the file in between: the environment the stand-in
// keeps from the last close must not show an older or another store.
TEST_F(KvsTest, OpenAfterCloseSeesTheStoreAsItIsNow) {
  const std::string file = dir_ / "store.mdb", side = dir_ / "side.mdb";
  auto put = [&](const Model &m) {
    kvs_service_t s = open();
    for (const auto &[k, v] : m) {
      kvs_datum_t kd = datum(k), vd = datum(v);
      EXPECT_EQ(kvs_store(s, KVS_STORE_REPLACE, &kd, &vd), 0u);
    }
    EXPECT_EQ(kvs_close(s), 0u);
  };
  const Model a{{"a", "1"}}, ab{{"a", "1"}, {"b", "2"}};
  struct Case {
    const char *what;
    std::function<void()> between;  // runs after a close that left ab
    Model want;
  };
  const Case cases[] = {
      {"nothing", [] {}, ab},
      {"removed and created again", [&] {
         ASSERT_EQ(kvs_remove(url_.c_str()), 0u);
         create();
       }, {}},
      {"data file replaced by a copy made before", [&] { std::filesystem::rename(side, file); }, a},
      {"written by a child of fork() that inherited the kept environment",
       [&] {
         pid_t pid = fork();
         if (pid == 0) {
           retcode_t st = 1;
           kvs_service_t s = kvs_open(url_.c_str(), &st);
           Bytes k = "c", v = "3";
           kvs_datum_t kd = datum(k), vd = datum(v);
           _exit(st != 0 || kvs_store(s, KVS_STORE_REPLACE, &kd, &vd) != 0 || kvs_close(s) != 0);
         }
         int status = -1;
         ASSERT_EQ(waitpid(pid, &status, 0), pid);
         ASSERT_EQ(status, 0);
       },
       {{"a", "1"}, {"b", "2"}, {"c", "3"}}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    std::filesystem::remove(file);
    std::filesystem::remove(file + "-lock");
    create(a);
    std::filesystem::copy_file(file, side, std::filesystem::copy_options::overwrite_existing);
    put({{"b", "2"}});
    c.between();
    EXPECT_EQ(contents(), c.want);
  }
}

// The handle table: 64 stores open at once, each number finds its own store,
// a 65th open is refused, and a closed number stays dead after its slot was
// taken by a later handle.
TEST_F(KvsTest, SixtyFourHandlesEachFindTheirStoreAndNumbersAreNeverReused) {
  auto url = [&](int i) { return "nonvolatile:" + dir_.path() + "/s" + std::to_string(i); };
  auto first_key = [&](kvs_service_t s) {
    retcode_t st = 1;
    return bytes(kvs_move2location(s, KVS_LOC_FIRST, &st));
  };
  std::vector<kvs_service_t> open;
  for (int i = 0; i <= 64; i++) {
    ASSERT_EQ(kvs_create(url(i).c_str()), 0u);
    retcode_t st = 1;
    kvs_service_t s = kvs_open(url(i).c_str(), &st);
    Bytes k = "k" + std::to_string(i), v = "v";
    kvs_datum_t kd = datum(k), vd = datum(v);
    if (i < 64) {
      ASSERT_EQ(st, 0u) << i;
      ASSERT_EQ(kvs_store(s, KVS_STORE_REPLACE, &kd, &vd), 0u);
      open.push_back(s);
    } else {
      EXPECT_EQ(st, KVS_ERR_TOO_MANY);
    }
  }
  ASSERT_EQ(kvs_close(open[0]), 0u);
  retcode_t st = 1;
  kvs_service_t late = kvs_open(url(64).c_str(), &st);
  ASSERT_EQ(st, 0u);
  EXPECT_GT(late, open.back());
  kvs_getkey(open[0], &st);
  EXPECT_EQ(st, KVS_ERR_BAD_HANDLE) << "a closed number finds nothing, also once its slot is taken again";
  for (int i = 1; i < 64; i++) EXPECT_EQ(first_key(open[i]), "k" + std::to_string(i)) << i;
  for (int i = 1; i < 64; i++) EXPECT_EQ(kvs_close(open[i]), 0u);
  EXPECT_EQ(kvs_close(late), 0u);
}
