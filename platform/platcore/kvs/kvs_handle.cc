// One open store on LMDB: see kvs_handle.h.
#include "kvs_handle.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "kvs_admin.h"
#include "kvs_env_keep.h"
#include "kvs_location.h"
#include "status.h"

namespace kvs {

namespace {

thread_local std::string g_detail;

// Values longer than this may go to overflow pages of their own.
constexpr size_t kInlineMax = 1000;

MDB_val as_val(const kvs_datum_t &d) { return MDB_val{d.siz, d.ptr}; }

}  // namespace

void set_detail(const std::string &text) { g_detail = text; }

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
  h->map_size_ = map_size_for(static_cast<size_t>(st.st_size));
  int rc = (h->env_ = take_kept_env(file, st, &h->lock_)) ? h->resize_kept() : h->open_env();
  if (rc || (rc = h->begin()) || (rc = h->start_bound())) return status_of(rc);
  *out = h.release();
  return 0;
}

// A fresh environment on file_ with the map chosen for it.
int Handle::open_env() {
  int rc = mdb_env_create(&env_);
  if (rc) return env_ = nullptr, rc;
  if ((rc = mdb_env_set_mapsize(env_, map_size_)) || (rc = mdb_env_open(env_, file_.c_str(), MDB_NOSUBDIR, 0644)))
    return rc;
  // The lock file it opened, for the check before the environment is used again.
  return stat(lock_file(file_).c_str(), &lock_) == 0 ? 0 : errno;
}

// A kept environment gets the map a fresh one would have had.
int Handle::resize_kept() {
  MDB_envinfo info;
  int rc = mdb_env_info(env_, &info);
  if (rc == 0 && info.me_mapsize != map_size_) rc = mdb_env_set_mapsize(env_, map_size_);
  return rc;
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
  if ((rc = mdb_dbi_open(txn_, nullptr, 0, &dbi_)) || (rc = mdb_cursor_open(txn_, dbi_, &cur_)) ||
      (rc = mdb_cursor_open(txn_, dbi_, &put_cur_))) {
    mdb_txn_abort(txn_);
    txn_ = nullptr;
    cur_ = put_cur_ = nullptr;
  }
  return rc;
}

// The pages a write transaction can take, bounded from above: every page of
// the store's trees copied once on write and split once, three bytes of
// pages for every byte a write adds (a split leaves pages half full, and
// branch pages come on top), and room for the free page lists written at
// commit.
int Handle::start_bound() {
  MDB_envinfo info;
  MDB_stat env, main, free_db;
  int rc;
  if ((rc = mdb_env_info(env_, &info)) || (rc = mdb_env_stat(env_, &env)) || (rc = mdb_stat(txn_, dbi_, &main)) ||
      (rc = mdb_stat(txn_, 0, &free_db)))
    return rc;
  psize_ = env.ms_psize;
  auto pages = [](const MDB_stat &s) { return s.ms_branch_pages + s.ms_leaf_pages + s.ms_overflow_pages; };
  size_t used = (info.me_last_pgno + 1) * psize_, trees = (pages(main) + pages(free_db)) * psize_;
  bound_ = used + 2 * trees + used / 64 + (size_t{1} << 20);
  return 0;
}

// What a put can add to the bound: a replacement of an inline value by one
// as long or shorter adds nothing.
size_t Handle::store_growth(const MDB_val &k, const MDB_val &v, bool at) {
  size_t whole = 3 * (k.mv_size + v.mv_size + 16) + (v.mv_size > kInlineMax ? v.mv_size + psize_ : 0);
  MDB_val ok, ov{val_buf_.size(), val_buf_.data()};
  // A walk reads the value before it replaces it, so its size is known.
  if (!at || v.mv_size > kInlineMax ||
      (!val_current_ && (sync() != 0 || mdb_cursor_get(cur_, &ok, &ov, MDB_GET_CURRENT) != 0)) ||
      ov.mv_size > kInlineMax)
    return whole;
  return v.mv_size > ov.mv_size ? 3 * (v.mv_size - ov.mv_size) : 0;
}

retcode_t Handle::close() {
  int rc = txn_ ? 0 : MDB_BAD_TXN;
  while (txn_) {
    rc = mdb_txn_commit(txn_);  // frees the transaction and its cursor, committed or not
    txn_ = nullptr;
    cur_ = put_cur_ = nullptr;
    // Without a log the commit cannot be redone; the bound makes that case
    // one that does not come, and should it, the store keeps nothing.
    if (rc != MDB_MAP_FULL || !log_.on()) break;
    if ((rc = grow_and_replay())) break;
  }
  // After a failed commit LMDB may refuse further transactions in this
  // environment: only one that committed is kept for the next open.
  if (rc == 0)
    keep_env(file_, env_, lock_);
  else
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
  val_current_ = false;
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
  val_current_ = true;
  return hand_out(val_, val_buf_, st);
}

retcode_t Handle::store(const kvs_datum_t &key, const kvs_datum_t &value) {
  if (!txn_) return KVS_ERR_DB;
  if (key.siz > static_cast<unsigned>(mdb_env_get_maxkeysize(env_))) return KVS_ERR_KEY_TOO_BIG;
  MDB_val k = as_val(key), v = as_val(value);
  bool at = is_current(key);
  int rc = write(store_growth(k, v, at), [&] {
    if (at && sync() == 0) return mdb_cursor_put(cur_, &k, &v, MDB_CURRENT);
    synced_ = false;
    // A put through a cursor of its own, as mdb_put() would make one for the
    // call: left where the last put was, it finds a key on the same leaf
    // page without a search from the root (keys stored in order).
    return mdb_cursor_put(put_cur_, &k, &v, 0);
  });
  if (rc == 0) log_.add(as_val(key), &v);
  if (at) val_current_ = false;
  return status_of(rc);
}

retcode_t Handle::remove(const kvs_datum_t &key) {
  if (!txn_) return KVS_ERR_DB;
  if (key.siz > static_cast<unsigned>(mdb_env_get_maxkeysize(env_))) return KVS_ERR_NO_KEY;
  // Copy first: key may be the very buffer the cursor's key lives in.
  const auto *p = static_cast<const unsigned char *>(key.ptr);
  gone_.assign(p, p + key.siz);
  MDB_val k{gone_.size(), gone_.data()}, v;
  bool at = is_current(key), by_cursor = false;
  int rc = write(0, [&] {
    if (at && sync() == 0) return by_cursor = true, mdb_cursor_del(cur_, 0);
    by_cursor = false;
    synced_ = false;
    return mdb_del(txn_, dbi_, &k, nullptr);
  });
  if (rc) return status_of(rc);
  log_.add(MDB_val{gone_.size(), gone_.data()}, nullptr);
  if (!at) return 0;
  // The cursor now stands on the key that followed the deleted one.
  retcode_t st;
  take(following(by_cursor, k, v), &k, st);
  return st == KVS_ERR_NO_KEY ? 0 : st;
}

retcode_t Handle::clear() {
  if (!txn_ || log_.on()) return KVS_ERR_DB;
  if (int rc = mdb_drop(txn_, dbi_, 0)) return status_of(rc);
  if (guard_) guard_->retire_all();
  guard_key_ = nullptr;
  pos_ = Pos::kNone;
  synced_ = val_current_ = false;
  return 0;
}

// The key that followed the deleted key gone_, into k. A delete through the
// cursor leaves LMDB's cursor on it already, which saves a search from the
// root; that key is taken only when it sorts after gone_, and the search
// finds it otherwise (at the end of the store as well), so a cursor LMDB
// left elsewhere cannot make the walk go back.
int Handle::following(bool by_cursor, MDB_val &k, MDB_val &v) {
  MDB_val gone{gone_.size(), gone_.data()};
  if (by_cursor && mdb_cursor_get(cur_, &k, &v, MDB_GET_CURRENT) == 0 && mdb_cmp(txn_, dbi_, &k, &gone) > 0) return 0;
  k = gone;
  return mdb_cursor_get(cur_, &k, &v, MDB_SET_RANGE);
}

// Runs a write that can add growth bytes to the bound. The log starts
// before the write that could bring the bound past the map's size; when the
// map is full, it is grown, the transaction replayed and the write run again.
template <typename Op>
int Handle::write(size_t growth, Op op) {
  bound_ += growth;
  if (!log_.on() && bound_ >= map_size_) {
    if (int rc = log_.start(txn_, dbi_)) return rc;
  }
  for (;;) {
    int rc = op();
    if (rc != MDB_MAP_FULL || !log_.on()) return rc;
    if ((rc = grow_and_replay())) return rc;
  }
}

int Handle::grow_and_replay() {
  if (txn_) mdb_txn_abort(txn_);
  txn_ = nullptr;
  cur_ = put_cur_ = nullptr;
  synced_ = false;
  for (;;) {
    map_size_ *= 2;
    int rc = mdb_env_set_mapsize(env_, map_size_);
    if (rc || (rc = begin())) return rc;
    if ((rc = log_.replay(txn_, dbi_)) == 0) return 0;
    mdb_txn_abort(txn_);
    txn_ = nullptr;
    cur_ = put_cur_ = nullptr;
    if (rc != MDB_MAP_FULL) return rc;
  }
}

}  // namespace kvs

extern "C" const char *kvs_last_error_detail(void) { return kvs::g_detail.c_str(); }
