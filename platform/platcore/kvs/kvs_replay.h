// The replay log of an open store: what is needed to redo the open
// transaction in a larger memory map when the map fills up.
//
// Keeping a copy of every write from the open on would double the memory
// and the copying of a conversion, so the log stays off while the writes
// cannot fill the map: the handle keeps an upper bound of the pages its
// transaction can have taken (see Handle::room_for). Only when that bound
// comes near the map's size does the log start, with a snapshot of the
// whole store as the transaction sees it then, followed by every later
// write. Replaying it empties the store and writes the snapshot and the
// writes again, which gives the same contents as the transaction had.
#ifndef PLAT_KVS_REPLAY_H
#define PLAT_KVS_REPLAY_H

#include <lmdb.h>

#include <string>

namespace kvs {

class ReplayLog {
 public:
  bool on() const { return on_; }
  // Starts the log with a snapshot of the store as txn sees it. LMDB status.
  int start(MDB_txn *txn, MDB_dbi dbi);
  // Adds a put (value non-null) or a delete.
  void add(const MDB_val &key, const MDB_val *value);
  // Redoes the logged transaction in txn, a fresh one. LMDB status.
  int replay(MDB_txn *txn, MDB_dbi dbi) const;

 private:
  void append(char op, const MDB_val &key, const MDB_val *value);
  bool on_ = false;
  std::string ops_;  // records: op ('p', 'd'), key and value lengths (4 bytes each), key, value
};

}  // namespace kvs

#endif
