// One open store on LMDB: see kvs_handle.h.
#include "kvs_handle.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "kvs_admin.h"
#include "kvs_location.h"
#include "status.h"

namespace kvs {

namespace {

thread_local std::string g_detail;

constexpr size_t kHeadroom = size_t{64} << 20;

MDB_val as_val(const kvs_datum_t &d) { return MDB_val{d.siz, d.ptr}; }

}  // namespace

retcode_t status_of(int rc) {
  if (rc == 0) return 0;
  g_detail = mdb_strerror(rc);
  switch (rc) {
    case MDB_NOTFOUND:
      return KVS_ERR_NO_KEY;
    case MDB_BAD_VALSIZE:
      return KVS_ERR_KEY_TOO_BIG;
    case MDB_INVALID:
    case MDB_CORRUPTED:
    case MDB_PAGE_NOTFOUND:
    case MDB_VERSION_MISMATCH:
      return KVS_ERR_CORRUPT;
    case ENOSPC:
      return KVS_ERR_NO_SPACE;
    case EIO:
    case EACCES:
    case EROFS:
      return KVS_ERR_IO;
    case ENOENT:
      return KVS_ERR_NO_STORE;
    case ENOMEM:
      return PLAT_ERR_NO_MEMORY;
    default:
      return KVS_ERR_DB;
  }
}

retcode_t Handle::open(const std::string &file, Handle **out) {
  struct stat st;
  if (stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return KVS_ERR_NO_STORE;
  std::unique_ptr<Handle> h(new Handle);
  h->file_ = file;
  h->dev_ = st.st_dev;
  h->ino_ = st.st_ino;
  if (guard_wanted()) h->guard_ = std::make_unique<GuardedCopies>();
  h->key_buf_.reserve(512);
  h->val_buf_.reserve(256);
  int rc = mdb_env_create(&h->env_);
  if (rc) return status_of(rc);
  // Room for the whole store to be rewritten within one transaction.
  h->map_size_ = std::max(initial_map_size(), 2 * static_cast<size_t>(st.st_size) + kHeadroom);
  if ((rc = mdb_env_set_mapsize(h->env_, h->map_size_)) ||
      (rc = mdb_env_open(h->env_, file.c_str(), MDB_NOSUBDIR, 0644)) || (rc = h->begin()))
    return status_of(rc);
  *out = h.release();
  return 0;
}

Handle::~Handle() {
  if (txn_) mdb_txn_abort(txn_);
  if (env_) mdb_env_close(env_);
}

// Starts the write transaction (waiting for a writer of another process to
// finish) and opens the cursor.
int Handle::begin() {
  int rc;
  while ((rc = mdb_txn_begin(env_, nullptr, 0, &txn_)) == MDB_MAP_RESIZED) {
    // Another process grew the map: adopt its size.
    if ((rc = mdb_env_set_mapsize(env_, 0))) return rc;
  }
  if (rc) {
    txn_ = nullptr;
    return rc;
  }
  if ((rc = mdb_dbi_open(txn_, nullptr, 0, &dbi_)) || (rc = mdb_cursor_open(txn_, dbi_, &cur_))) {
    mdb_txn_abort(txn_);
    txn_ = nullptr;
    cur_ = nullptr;
  }
  return rc;
}

retcode_t Handle::close() {
  int rc = txn_ ? 0 : MDB_BAD_TXN;
  while (txn_) {
    rc = mdb_txn_commit(txn_);  // frees the transaction and its cursor, committed or not
    txn_ = nullptr;
    cur_ = nullptr;
    if (rc != MDB_MAP_FULL) break;
    if ((rc = grow_and_replay())) break;
  }
  mdb_env_close(env_);
  env_ = nullptr;
  return status_of(rc);
}

// The datum on buf that goes out to the caller: d itself, or in the guarded
// mode a guarded copy (null with PLAT_ERR_NO_MEMORY when none can be made).
const kvs_datum_t *Handle::hand_out(kvs_datum_t &d, std::vector<unsigned char> &buf, retcode_t &st) {
  d = {buf.data(), static_cast<unsigned int>(buf.size())};
  st = 0;
  if (!guard_) return &d;
  const kvs_datum_t *g = guard_->copy(buf.data(), buf.size());
  if (!g) st = PLAT_ERR_NO_MEMORY;
  return g;
}

// Copies the key LMDB found into the key buffer and stands the cursor on it.
// The data handed out for the key before are retired in the guarded mode.
const kvs_datum_t *Handle::take(int rc, MDB_val *k, retcode_t &st) {
  if (guard_) guard_->retire_all();
  guard_key_ = nullptr;
  if (rc == MDB_NOTFOUND) pos_ = Pos::kEnd;
  if (rc) {
    st = status_of(rc);
    return nullptr;
  }
  const auto *p = static_cast<const unsigned char *>(k->mv_data);
  key_buf_.assign(p, p + k->mv_size);
  pos_ = Pos::kAt;
  synced_ = true;
  const kvs_datum_t *out = hand_out(key_, key_buf_, st);
  if (guard_) guard_key_ = out;
  return out;
}

// Re-seats LMDB's cursor on the key under the logical cursor.
int Handle::sync() {
  if (synced_) return 0;
  MDB_val k{key_buf_.size(), key_buf_.data()}, v;
  int rc = mdb_cursor_get(cur_, &k, &v, MDB_SET);
  synced_ = rc == 0;
  return rc;
}

bool Handle::is_current(const kvs_datum_t &key) const {
  return pos_ == Pos::kAt && key.siz == key_buf_.size() && std::memcmp(key.ptr, key_buf_.data(), key.siz) == 0;
}

const kvs_datum_t *Handle::first(retcode_t &st) {
  if (!txn_) return st = KVS_ERR_DB, nullptr;
  MDB_val k, v;
  return take(mdb_cursor_get(cur_, &k, &v, MDB_FIRST), &k, st);
}

const kvs_datum_t *Handle::next(retcode_t &st) {
  if (!txn_) return st = KVS_ERR_DB, nullptr;
  if (pos_ == Pos::kNone) return st = KVS_ERR_NO_CURSOR, nullptr;
  if (pos_ == Pos::kEnd) return st = KVS_ERR_NO_KEY, nullptr;
  MDB_val k, v;
  if (synced_) return take(mdb_cursor_get(cur_, &k, &v, MDB_NEXT), &k, st);
  k = MDB_val{key_buf_.size(), key_buf_.data()};
  int rc = mdb_cursor_get(cur_, &k, &v, MDB_SET_RANGE);
  if (rc == 0 && k.mv_size == key_buf_.size() && std::memcmp(k.mv_data, key_buf_.data(), k.mv_size) == 0)
    rc = mdb_cursor_get(cur_, &k, &v, MDB_NEXT);
  return take(rc, &k, st);
}

const kvs_datum_t *Handle::key(retcode_t &st) {
  if (pos_ == Pos::kAt && guard_) return (st = guard_key_ ? 0 : PLAT_ERR_NO_MEMORY), guard_key_;
  if (pos_ == Pos::kAt) return st = 0, &key_;
  st = pos_ == Pos::kEnd ? KVS_ERR_NO_KEY : KVS_ERR_NO_CURSOR;
  return nullptr;
}

const kvs_datum_t *Handle::value(retcode_t &st) {
  if (!txn_) return st = KVS_ERR_DB, nullptr;
  if (pos_ != Pos::kAt) return st = pos_ == Pos::kEnd ? KVS_ERR_NO_KEY : KVS_ERR_NO_CURSOR, nullptr;
  MDB_val k, v;
  int rc = sync();
  if (rc == 0) rc = mdb_cursor_get(cur_, &k, &v, MDB_GET_CURRENT);
  if (rc) return st = status_of(rc), nullptr;
  const auto *p = static_cast<const unsigned char *>(v.mv_data);
  val_buf_.assign(p, p + v.mv_size);
  return hand_out(val_, val_buf_, st);
}

retcode_t Handle::store(const kvs_datum_t &key, const kvs_datum_t &value) {
  if (!txn_) return KVS_ERR_DB;
  if (key.siz > static_cast<unsigned>(mdb_env_get_maxkeysize(env_))) return KVS_ERR_KEY_TOO_BIG;
  MDB_val k = as_val(key), v = as_val(value);
  bool at = is_current(key);
  int rc = write([&] {
    if (at && sync() == 0) return mdb_cursor_put(cur_, &k, &v, MDB_CURRENT);
    synced_ = false;
    return mdb_put(txn_, dbi_, &k, &v, 0);
  });
  if (rc == 0) log_op('p', key, &value);
  return status_of(rc);
}

retcode_t Handle::remove(const kvs_datum_t &key) {
  if (!txn_) return KVS_ERR_DB;
  if (key.siz > static_cast<unsigned>(mdb_env_get_maxkeysize(env_))) return KVS_ERR_NO_KEY;
  // Copy first: key may be the very buffer the cursor's key lives in.
  const auto *p = static_cast<const unsigned char *>(key.ptr);
  std::vector<unsigned char> gone(p, p + key.siz);
  MDB_val k{gone.size(), gone.data()}, v;
  bool at = is_current(key);
  int rc = write([&] {
    if (at && sync() == 0) return mdb_cursor_del(cur_, 0);
    synced_ = false;
    return mdb_del(txn_, dbi_, &k, nullptr);
  });
  if (rc) return status_of(rc);
  log_op('d', kvs_datum_t{gone.data(), static_cast<unsigned>(gone.size())}, nullptr);
  if (!at) return 0;
  // The cursor now stands on the key that followed the deleted one.
  retcode_t st;
  k = MDB_val{gone.size(), gone.data()};
  rc = mdb_cursor_get(cur_, &k, &v, MDB_SET_RANGE);
  take(rc, &k, st);
  return st == KVS_ERR_NO_KEY ? 0 : st;
}

// Runs a write; when the map is full, grows it, replays the transaction so
// far and runs the write again.
template <typename Op>
int Handle::write(Op op) {
  for (;;) {
    int rc = op();
    if (rc != MDB_MAP_FULL) return rc;
    if ((rc = grow_and_replay())) return rc;
  }
}

int Handle::grow_and_replay() {
  if (txn_) mdb_txn_abort(txn_);
  txn_ = nullptr;
  cur_ = nullptr;
  synced_ = false;
  for (;;) {
    map_size_ *= 2;
    int rc = mdb_env_set_mapsize(env_, map_size_);
    if (rc || (rc = begin())) return rc;
    for (size_t i = 0; rc == 0 && i < oplog_.size();) {
      char op = oplog_[i];
      uint32_t klen, vlen;
      std::memcpy(&klen, &oplog_[i + 1], 4);
      std::memcpy(&vlen, &oplog_[i + 5], 4);
      MDB_val k{klen, &oplog_[i + 9]}, v{vlen, &oplog_[i + 9 + klen]};
      rc = op == 'p' ? mdb_put(txn_, dbi_, &k, &v, 0) : mdb_del(txn_, dbi_, &k, nullptr);
      i += 9 + klen + vlen;
    }
    if (rc == 0) return 0;
    mdb_txn_abort(txn_);
    txn_ = nullptr;
    cur_ = nullptr;
    if (rc != MDB_MAP_FULL) return rc;
  }
}

void Handle::log_op(char op, const kvs_datum_t &key, const kvs_datum_t *value) {
  uint32_t klen = key.siz, vlen = value ? value->siz : 0;
  oplog_.push_back(op);
  oplog_.append(reinterpret_cast<const char *>(&klen), 4);
  oplog_.append(reinterpret_cast<const char *>(&vlen), 4);
  oplog_.append(static_cast<const char *>(key.ptr), klen);
  if (vlen) oplog_.append(static_cast<const char *>(value->ptr), vlen);
}

}  // namespace kvs

extern "C" const char *kvs_last_error_detail(void) { return kvs::g_detail.c_str(); }
