// The read-only walk of a store file. LMDB is opened on the file with
// MDB_RDONLY | MDB_NOLOCK: nothing is written, no lock file is made. Its
// header (read with pread, not through the map) says how many pages the
// store uses; a shorter file is refused before any page is read, since
// reading a page past the end of a mapped file raises SIGBUS. A page that
// is there but damaged can still send LMDB past the end of the map; while
// the walk runs, SIGBUS and SIGSEGV end it with KVS_ERR_CORRUPT instead of
// ending the process, and so do LMDB's own checks of a page, which would
// abort. The handlers are process-wide for that time: call it from one
// thread.
#include "kvs_read_only.h"

#include <lmdb.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <vector>

#include "kvs_handle.h"

namespace kvs {

namespace {

sigjmp_buf g_escape;
volatile sig_atomic_t g_walking = 0;

extern "C" void on_fault(int sig) {
  if (g_walking) siglongjmp(g_escape, sig);
  signal(sig, SIG_DFL);  // a fault outside the walk is no damaged store: let it end the process
  raise(sig);
}

// LMDB's own checks of a page end in abort() after this call; on the walk
// they end the walk instead.
extern "C" void on_assert(MDB_env *, const char *) {
  if (g_walking) siglongjmp(g_escape, SIGABRT);
}

// "2,293,760"
std::string grouped(unsigned long long n) {
  std::string digits = std::to_string(n), out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return out;
}

// What a walk holds: kept, not freed, when a fault cut the walk short
// (their state is unknown), and so reachable, so that a leak checker does not
// count them.
struct Walk {
  MDB_env *env = nullptr;
  MDB_txn *txn = nullptr;
  MDB_cursor *cur = nullptr;
  const char *map = nullptr;  // the file's bytes as mapped
  size_t size = 0;            // the file's size
};

std::vector<Walk> &abandoned() {
  static auto *walks = new std::vector<Walk>;
  return *walks;
}

// Where the file is mapped: LMDB does not say, so the mapping of the file's
// inode from offset 0 is looked up in /proc/self/maps.
const char *mapped_at(const struct stat &sb) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    unsigned long long start = 0, end = 0, offset = 0, inode = 0;
    char perms[8] = {}, dev[32] = {};
    if (std::sscanf(line.c_str(), "%llx-%llx %7s %llx %31s %llu", &start, &end, perms, &offset, dev, &inode) == 6 &&
        inode == sb.st_ino && offset == 0)
      return reinterpret_cast<const char *>(start);
  }
  return nullptr;
}

// The file must hold every page its header says the store uses.
retcode_t check_size(Walk &w, const std::string &file) {
  MDB_envinfo info;
  MDB_stat st;
  struct stat sb;
  if (mdb_env_info(w.env, &info) || mdb_env_stat(w.env, &st) || stat(file.c_str(), &sb) != 0) return status_of(EIO);
  w.map = mapped_at(sb);
  w.size = static_cast<size_t>(sb.st_size);
  unsigned long long need = (static_cast<unsigned long long>(info.me_last_pgno) + 1) * st.ms_psize;
  if (static_cast<unsigned long long>(sb.st_size) >= need) return 0;
  set_detail("truncated: " + grouped(sb.st_size) + " of " + grouped(need) + " bytes");
  return KVS_ERR_CORRUPT;
}

// Whether a key or value the walk got lies within the file (when the
// mapping was not found, whether it is no larger than the file).
bool in_file(const Walk &w, const MDB_val &v) {
  const char *p = static_cast<const char *>(v.mv_data);
  if (!w.map) return v.mv_size <= w.size;
  return p >= w.map && v.mv_size <= w.size && static_cast<size_t>(p - w.map) <= w.size - v.mv_size;
}

// Each key and value is copied out of the map before each sees it, so that
// a fault on a damaged page happens here, in code without objects of its
// own, and never inside each. The buffers are the caller's.
retcode_t walk(Walk &w, kvs_record_fn each, void *arg, std::vector<unsigned char> &kbuf,
               std::vector<unsigned char> &vbuf) {
  MDB_dbi dbi;
  int rc = mdb_txn_begin(w.env, nullptr, MDB_RDONLY, &w.txn);
  if (rc == 0) rc = mdb_dbi_open(w.txn, nullptr, 0, &dbi);
  if (rc == 0) rc = mdb_cursor_open(w.txn, dbi, &w.cur);
  retcode_t st = 0;
  MDB_val k, v;
  for (MDB_cursor_op op = MDB_FIRST; rc == 0 && st == 0; op = MDB_NEXT) {
    if ((rc = mdb_cursor_get(w.cur, &k, &v, op)) != 0) break;
    if (!in_file(w, k) || !in_file(w, v)) {
      set_detail("a damaged page points past the end of the file");
      st = KVS_ERR_CORRUPT;
      break;
    }
    kbuf.resize(k.mv_size + 1);
    vbuf.resize(v.mv_size + 1);
    std::memcpy(kbuf.data(), k.mv_data, k.mv_size);
    std::memcpy(vbuf.data(), v.mv_data, v.mv_size);
    kvs_datum_t key{kbuf.data(), static_cast<unsigned>(k.mv_size)}, value{vbuf.data(), static_cast<unsigned>(v.mv_size)};
    st = each(&key, &value, arg);
  }
  if (w.cur) mdb_cursor_close(w.cur);
  if (w.txn) mdb_txn_abort(w.txn);
  w.cur = nullptr, w.txn = nullptr;
  return st ? st : rc == MDB_NOTFOUND ? 0 : status_of(rc);
}

}  // namespace

retcode_t read_records(const std::string &file, kvs_record_fn each, void *arg) {
  Walk w;
  std::vector<unsigned char> kbuf, vbuf;
  // The guard covers the open too: a damaged header can make LMDB divide
  // by a page size of 0 or read a page it maps past the file.
  struct sigaction fault = {}, old_bus, old_segv, old_fpe;
  fault.sa_handler = on_fault;
  sigemptyset(&fault.sa_mask);
  sigaction(SIGBUS, &fault, &old_bus);
  sigaction(SIGSEGV, &fault, &old_segv);
  sigaction(SIGFPE, &fault, &old_fpe);
  auto restore = [&] {
    g_walking = 0;
    sigaction(SIGBUS, &old_bus, nullptr);
    sigaction(SIGSEGV, &old_segv, nullptr);
    sigaction(SIGFPE, &old_fpe, nullptr);
  };
  if (int sig = sigsetjmp(g_escape, 1)) {
    restore();
    abandoned().push_back(w);
    set_detail(sig == SIGABRT ? "a damaged page failed the database's own checks"
                              : std::string("reading a damaged page faulted (") + strsignal(sig) + ")");
    return KVS_ERR_CORRUPT;
  }
  g_walking = 1;
  int rc = mdb_env_create(&w.env);
  if (rc == 0) rc = mdb_env_set_assert(w.env, on_assert);
  if (rc == 0) rc = mdb_env_open(w.env, file.c_str(), MDB_NOSUBDIR | MDB_RDONLY | MDB_NOLOCK, 0);
  retcode_t st = rc ? status_of(rc) : check_size(w, file);
  if (st == 0) st = walk(w, each, arg, kbuf, vbuf);
  restore();
  if (w.env) mdb_env_close(w.env);
  return st;
}

}  // namespace kvs
