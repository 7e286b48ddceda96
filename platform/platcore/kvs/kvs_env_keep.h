// The LMDB environment of the store closed last, kept open for the next
// open of the same store in this process.
//
// A move of several steps opens and closes the same store once per step.
// An environment holds, besides its memory map, the pages its last write
// transaction allocated (LMDB keeps them for the next one); opening afresh
// each time would allocate and fault in the same memory again. So the last
// environment stays open after its handle closed (it holds no transaction
// and no lock a writer of another process waits for), and the next open of
// that data file takes it over. It is used again only in the process that
// opened it, and only while the data file and its lock file are the ones
// it opened; otherwise it is closed and a fresh one opened.
#ifndef PLAT_KVS_ENV_KEEP_H
#define PLAT_KVS_ENV_KEEP_H

#include <lmdb.h>
#include <sys/stat.h>

#include <string>

namespace kvs {

// The kept environment of file, whose data file stat gave st, with the
// lock file as it opened it in *lock; null when there is none that may be
// used again.
MDB_env *take_kept_env(const std::string &file, const struct stat &st, struct stat *lock);

// Keeps env, the environment of file (no transaction open), in place of the
// one kept before, which is closed. lock is the lock file as env opened it.
void keep_env(const std::string &file, MDB_env *env, const struct stat &lock);

// Closes the kept environment of file, if any (before the store is removed).
void drop_kept_env(const std::string &file);

}  // namespace kvs

#endif
