// The LMDB environment of the store closed last: see kvs_env_keep.h.
#include "kvs_env_keep.h"

#include <unistd.h>

#include <mutex>
#include <utility>

#include "kvs_location.h"

namespace kvs {

namespace {

struct Kept {
  std::string file;
  MDB_env *env = nullptr;
  pid_t pid = 0;  // the process that opened env
  struct stat data {}, lock {};
};

std::mutex &keep_mutex() {
  static auto *m = new std::mutex;  // never destroyed: stores may be closed from exit handlers
  return *m;
}

Kept &kept() {
  static auto *k = new Kept;
  return *k;
}

bool same_file(const struct stat &a, const struct stat &b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

// Whether k.env still has file open as it was, in this process: the data
// file is not deleted or replaced, and the lock file is the one that
// serialises the writers of other processes with ours.
bool still_fits(const Kept &k, const std::string &file, const struct stat &st) {
  int fd;
  struct stat open_data, lock;
  return k.pid == getpid() && k.file == file && same_file(k.data, st) && mdb_env_get_fd(k.env, &fd) == 0 &&
         fstat(fd, &open_data) == 0 && open_data.st_nlink > 0 && same_file(open_data, st) &&
         stat(lock_file(file).c_str(), &lock) == 0 && same_file(lock, k.lock);
}

// Closes env. In a child of fork() that inherited it this is still right:
// closing releases only what the calling process holds (its maps, its
// descriptors, reader slots under its own pid), never the parent's locks.
void release(MDB_env *env) {
  if (env) mdb_env_close(env);
}

}  // namespace

MDB_env *take_kept_env(const std::string &file, const struct stat &st, struct stat *lock_st) {
  std::lock_guard lock(keep_mutex());
  Kept &k = kept();
  if (!k.env) return nullptr;
  bool fits = still_fits(k, file, st);
  MDB_env *env = std::exchange(k.env, nullptr);
  *lock_st = k.lock;
  if (fits) return env;
  release(env);
  return nullptr;
}

void keep_env(const std::string &file, MDB_env *env, const struct stat &lock) {
  int fd;
  struct stat data;
  if (mdb_env_get_fd(env, &fd) != 0 || fstat(fd, &data) != 0) {
    mdb_env_close(env);
    return;
  }
  Kept old;
  {
    std::lock_guard guard(keep_mutex());
    old = std::exchange(kept(), Kept{file, env, getpid(), data, lock});
  }
  release(old.env);
}

void drop_kept_env(const std::string &file) {
  Kept old;
  {
    std::lock_guard guard(keep_mutex());
    if (kept().file != file) return;
    old = std::exchange(kept(), Kept{});
  }
  release(old.env);
}

}  // namespace kvs
