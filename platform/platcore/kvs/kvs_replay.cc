// The replay log of an open store: see kvs_replay.h.
#include "kvs_replay.h"

#include <cstdint>
#include <cstring>

namespace kvs {

void ReplayLog::append(char op, const MDB_val &key, const MDB_val *value) {
  uint32_t klen = static_cast<uint32_t>(key.mv_size), vlen = value ? static_cast<uint32_t>(value->mv_size) : 0;
  ops_.push_back(op);
  ops_.append(reinterpret_cast<const char *>(&klen), 4);
  ops_.append(reinterpret_cast<const char *>(&vlen), 4);
  ops_.append(static_cast<const char *>(key.mv_data), klen);
  if (vlen) ops_.append(static_cast<const char *>(value->mv_data), vlen);
}

int ReplayLog::start(MDB_txn *txn, MDB_dbi dbi) {
  MDB_cursor *c;
  int rc = mdb_cursor_open(txn, dbi, &c);
  if (rc) return rc;
  std::string().swap(ops_);
  MDB_val k, v;
  while ((rc = mdb_cursor_get(c, &k, &v, ops_.empty() ? MDB_FIRST : MDB_NEXT)) == 0) append('p', k, &v);
  mdb_cursor_close(c);
  if (rc != MDB_NOTFOUND) return rc;
  on_ = true;
  return 0;
}

void ReplayLog::add(const MDB_val &key, const MDB_val *value) {
  if (on_) append(value ? 'p' : 'd', key, value);
}

int ReplayLog::replay(MDB_txn *txn, MDB_dbi dbi) const {
  int rc = mdb_drop(txn, dbi, 0);
  for (size_t i = 0; rc == 0 && i < ops_.size();) {
    uint32_t klen, vlen;
    std::memcpy(&klen, &ops_[i + 1], 4);
    std::memcpy(&vlen, &ops_[i + 5], 4);
    MDB_val k{klen, const_cast<char *>(&ops_[i + 9])}, v{vlen, const_cast<char *>(&ops_[i + 9 + klen])};
    rc = ops_[i] == 'p' ? mdb_put(txn, dbi, &k, &v, 0) : mdb_del(txn, dbi, &k, nullptr);
    if (rc == MDB_NOTFOUND && ops_[i] == 'd') rc = 0;  // as when it was first done: the key was there
    i += 9 + klen + vlen;
  }
  return rc;
}

}  // namespace kvs
