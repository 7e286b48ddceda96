// One open store: an LMDB write transaction held from open to close, one
// cursor, and the buffers that data handed to callers live in.
//
// The cursor's logical position is kept here (the key under it, or "behind
// the last key"), and LMDB's cursor is re-seated from it whenever a write
// could have disturbed it. That keeps the promises callers rely on (after a
// delete the cursor stands on the following key; storing the key under the
// cursor leaves it in place); where LMDB's cursor is already on the key a
// promise names, it is used after a check that it is.
//
// In the guarded test mode (PLAT_KVS_GUARD=1) keys and values go out as
// guarded copies (kvs_guard.h), retired whenever the cursor moves or its key
// is deleted.
//
// A store may outgrow its memory map within the transaction; the map is
// then grown and the transaction redone from its replay log
// (kvs_replay.h), so a store grows without a fixed limit and the change
// stays atomic. The log is kept only once the transaction could come near
// the end of the map.
//
// A closed handle leaves its environment to the next open of the store
// (kvs_env_keep.h).
#ifndef PLAT_KVS_HANDLE_H
#define PLAT_KVS_HANDLE_H

#include <lmdb.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "kvs_defs.h"
#include "kvs_guard.h"
#include "kvs_replay.h"

namespace kvs {

class Handle {
 public:
  // Opens the store whose data file is file. 0 or a KVS status.
  static retcode_t open(const std::string &file, Handle **out);
  ~Handle();
  Handle(const Handle &) = delete;
  Handle &operator=(const Handle &) = delete;

  // Commits and releases everything. A failed commit keeps nothing.
  retcode_t close();

  dev_t dev() const { return dev_; }
  ino_t ino() const { return ino_; }

  const kvs_datum_t *first(retcode_t &st);
  const kvs_datum_t *next(retcode_t &st);
  const kvs_datum_t *key(retcode_t &st);
  const kvs_datum_t *value(retcode_t &st);
  retcode_t store(const kvs_datum_t &key, const kvs_datum_t &value);
  retcode_t remove(const kvs_datum_t &key);
  // Deletes every record; the cursor then stands nowhere. Only while the
  // replay log is off (it has no entry for a clear), as after open.
  retcode_t clear();

  // The datum callers get for an injected empty result.
  const kvs_datum_t *empty() { return &empty_; }

 private:
  enum class Pos { kNone, kAt, kEnd };

  Handle() = default;
  int open_env();
  int resize_kept();
  int begin();
  int sync();
  const kvs_datum_t *take(int rc, MDB_val *k, retcode_t &st);
  const kvs_datum_t *hand_out(kvs_datum_t &d, std::vector<unsigned char> &buf, retcode_t &st);
  bool is_current(const kvs_datum_t &key) const;
  int following(bool by_cursor, MDB_val &k, MDB_val &v);
  int start_bound();
  size_t store_growth(const MDB_val &k, const MDB_val &v, bool at);
  template <typename Op>
  int write(size_t growth, Op op);
  int grow_and_replay();

  std::string file_;
  dev_t dev_ = 0;
  ino_t ino_ = 0;
  struct stat lock_ {};  // the lock file as the environment opened it
  MDB_env *env_ = nullptr;
  MDB_txn *txn_ = nullptr;
  MDB_dbi dbi_ = 0;
  MDB_cursor *cur_ = nullptr;
  MDB_cursor *put_cur_ = nullptr;  // the puts of keys not under cur_
  size_t map_size_ = 0;
  Pos pos_ = Pos::kNone;
  bool synced_ = false;  // LMDB's cursor stands on key_buf_
  std::vector<unsigned char> key_buf_, val_buf_;
  kvs_datum_t key_{}, val_{}, empty_{};
  ReplayLog log_;
  size_t bound_ = 0;    // upper bound of the map's bytes the transaction can have taken
  size_t psize_ = 4096;  // LMDB's page size
  std::vector<unsigned char> gone_;  // the key of a delete
  bool val_current_ = false;         // val_buf_ holds the value under the cursor
  std::unique_ptr<GuardedCopies> guard_;  // only in the guarded test mode
  const kvs_datum_t *guard_key_ = nullptr;  // the guarded copy of the key under the cursor
};

// Maps an LMDB or errno code to a store status and remembers its text for
// kvs_last_error_detail().
retcode_t status_of(int rc);
// Sets the text kvs_last_error_detail() gives.
void set_detail(const std::string &text);

}  // namespace kvs

#endif
