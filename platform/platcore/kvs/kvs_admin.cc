// Store administration: creating, clearing, removing and locating stores.
#include "kvs_admin.h"

#include <lmdb.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "kvs_env_keep.h"
#include "kvs_handle.h"
#include "kvs_location.h"
#include "kvs_read_only.h"
#include "kvs_registry.h"
#include "plat_hooks.h"
#include "status.h"

namespace {

bool folder_exists(const std::string &file) {
  std::string dir = file.substr(0, file.rfind('/') + 1);
  struct stat st;
  return dir.empty() || (stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode));
}

// Writes an empty LMDB file at file (which does not exist yet).
retcode_t create_file(const std::string &file) {
  MDB_env *env = nullptr;
  MDB_txn *txn = nullptr;
  MDB_dbi dbi;
  int rc = mdb_env_create(&env);
  if (rc == 0) rc = mdb_env_open(env, file.c_str(), MDB_NOSUBDIR, 0644);
  if (rc == 0) rc = mdb_txn_begin(env, nullptr, 0, &txn);
  if (rc == 0) rc = mdb_dbi_open(txn, nullptr, 0, &dbi);
  if (txn) rc = rc ? (mdb_txn_abort(txn), rc) : mdb_txn_commit(txn);
  if (env) mdb_env_close(env);
  if (rc) {
    unlink(file.c_str());
    unlink(kvs::lock_file(file).c_str());
  }
  return kvs::status_of(rc);
}

}  // namespace

extern "C" retcode_t kvs_read_records(const char *url, kvs_record_fn each, void *arg) {
  std::string file;
  retcode_t st = kvs::store_file(url, file);
  struct stat sb;
  if (st == 0 && stat(file.c_str(), &sb) != 0) st = errno == ENOENT ? KVS_ERR_NO_STORE : KVS_ERR_IO;
  if (st == 0 && !each) st = KVS_ERR_BAD_ARG;
  return st ? st : kvs::read_records(file, each, arg);
}

extern "C" retcode_t kvs_create(const char *url) {
  std::string file;
  retcode_t st = kvs::store_file(url, file);
  struct stat sb;
  if (st == 0 && !folder_exists(file)) st = KVS_ERR_NO_STORE;
  if (st == 0 && stat(file.c_str(), &sb) == 0) st = KVS_ERR_EXISTS;
  if (st == 0) st = create_file(file);
  plat_journal("kvs_create(%s) = 0x%x", url ? url : "(null)", st);
  return st;
}

extern "C" retcode_t kvs_remove(const char *url) {
  std::string file;
  retcode_t st = kvs::store_file(url, file);
  if (st == 0 && kvs::is_open(file)) st = KVS_ERR_BUSY;
  if (st == 0) kvs::drop_kept_env(file);
  if (st == 0 && unlink(file.c_str()) != 0) st = errno == ENOENT ? KVS_ERR_NO_STORE : KVS_ERR_IO;
  if (st == 0) unlink(kvs::lock_file(file).c_str());  // may never have been made
  plat_journal("kvs_remove(%s) = 0x%x", url ? url : "(null)", st);
  return st;
}

extern "C" retcode_t kvs_clear(const char *url) {
  std::string file;
  retcode_t st = kvs::store_file(url, file);
  if (st == 0 && kvs::is_open(file)) st = KVS_ERR_BUSY;
  kvs::Handle *h = nullptr;
  try {
    if (st == 0) st = kvs::Handle::open(file, &h);
  } catch (const std::bad_alloc &) {
    st = PLAT_ERR_NO_MEMORY;
  }
  if (st == 0) {
    st = h->clear();
    if (st == 0) st = h->close();
    delete h;  // after a failed clear this aborts the transaction: nothing is deleted
  }
  plat_journal("kvs_clear(%s) = 0x%x", url ? url : "(null)", st);
  return st;
}

extern "C" size_t kvs_open_count(void) { return kvs::open_count(); }

extern "C" retcode_t kvs_store_file(const char *url, char *buf, size_t len) {
  std::string file;
  retcode_t st = kvs::store_file(url, file);
  if (st) return st;
  if (!buf || file.size() + 1 > len) return KVS_ERR_BAD_ARG;
  std::memcpy(buf, file.c_str(), file.size() + 1);
  return 0;
}
