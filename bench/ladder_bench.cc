// ladder_bench [--runs N] [--sizes 10000,100000,1000000] [--groups 1000,10000,100000] [--lib lib.so]
//              [--only <move>]
//
// Every move of the ladder of record forms against two references over the
// same store. For each era (3.2, 4.1, 4.2) and size it generates a store
// with the tool's generator, then times, each on a fresh copy and in a child
// process of its own:
//  - raw: straight on LMDB, one write transaction rewriting every value;
//  - each move from that era through the library and the stand-ins:
//    4.2->4.1, 4.2->3.2 (two passes), 4.1->3.2, 4.1->4.2, 3.2->4.2 (two);
//  - least work, per move: straight on LMDB, one write transaction that walks
//    the store before the move, deletes each key the moved store lacks,
//    rewrites each value that differs and puts each key only the moved store
//    has. The moved store is read into memory before its clock starts, and
//    once per move the store it leaves is checked record for record against
//    the moved store (the run stops if they differ).
// Then, for the two trunk fix-ups (4.1->4.2 and 3.2->4.2), RW entries of
// one target that all share one slot and source pair, against the same
// entries spread over groups of their own.
// Printed per row: median seconds over the runs, records/s, ratio to the raw
// pass of the same store (each run times a raw pass right before the move;
// the median of the runs' ratios), cost per record relative to the smallest size of
// the same move (for a one-group row: relative to its spread row), and the peak resident memory of
// the child (wait4's ru_maxrss), with the raw pass's beside it; then the
// ratio to the least work (timed right after the move, to that run's moved
// store; the median of the runs' ratios) and the least work's median seconds.
// The library is the gate-shut build beside this program unless --lib names
// another.
#include <dlfcn.h>
#include <lmdb.h>
#include <limits.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "wayshunt_cnv.h"
#include "if_index.h"
#include "store/synth.h"
#include "wayshunt.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

[[noreturn]] void die(const std::string &what) {
  std::fprintf(stderr, "ladder_bench: %s\n", what.c_str());
  std::exit(1);
}

struct Options {
  int runs = 3;
  std::vector<size_t> sizes{10000, 100000, 1000000};
  std::vector<size_t> groups{1000, 10000, 100000};
  std::string lib;
  std::string dir;
  std::string only;  // one move (e.g. 4.1->4.2) and its references, for profiling
};

std::vector<size_t> parse_sizes(const char *s) {
  std::vector<size_t> out;
  std::stringstream in(s);
  for (std::string item; std::getline(in, item, ',');)
    if (!item.empty()) out.push_back(std::stoul(item));
  return out;
}

// The library's own choice of conversions: the release integers set as its
// release descriptors would set them, then the dispatcher that convert_gsync
// hands the store's folder to, which runs the rungs the library's release
// tests call for.
struct Library {
  int (*split)(char *, int32_t *, int32_t *, int32_t *);
  int32_t *from_major, *from_minor, *to_major, *to_minor;
  uint32_t (*is_downgrade)();
  uint32_t (*down)(char *), (*up)(char *);
};

Library load(const std::string &path) {
  void *h = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!h) die(std::string("cannot load ") + dlerror());
  auto sym = [&](const char *name) {
    void *p = dlsym(h, name);
    if (!p) die(std::string("no ") + name + " in " + path);
    return p;
  };
  return {reinterpret_cast<int (*)(char *, int32_t *, int32_t *, int32_t *)>(sym("split_version")),
          static_cast<int32_t *>(sym("from_major")), static_cast<int32_t *>(sym("from_minor")),
          static_cast<int32_t *>(sym("to_major")), static_cast<int32_t *>(sym("to_minor")),
          reinterpret_cast<uint32_t (*)()>(sym("wayshunt_cnv_is_downgrade")),
          reinterpret_cast<uint32_t (*)(char *)>(sym("wayshunt_cnv_handle_downgrade_for_runtime_kvs")),
          reinterpret_cast<uint32_t (*)(char *)>(sym("wayshunt_cnv_handle_upgrade_for_runtime_kvs"))};
}

// ---- stores straight on LMDB ----

struct Env {
  MDB_env *env = nullptr;
  MDB_txn *txn = nullptr;
  MDB_dbi dbi = 0;
  // flags MDB_RDONLY | MDB_NOLOCK opens for reading alone, in a read
  // transaction, without a lock file.
  explicit Env(const std::string &file, size_t map, unsigned flags = 0) {
    if (mdb_env_create(&env) || mdb_env_set_mapsize(env, map) ||
        mdb_env_open(env, file.c_str(), MDB_NOSUBDIR | flags, 0644) ||
        mdb_txn_begin(env, nullptr, flags & MDB_RDONLY, &txn) || mdb_dbi_open(txn, nullptr, 0, &dbi))
      die("cannot open " + file);
  }
  MDB_cursor *cursor() {
    MDB_cursor *c;
    if (mdb_cursor_open(txn, dbi, &c)) die("cursor");
    return c;
  }
  void commit(bool close = true) {
    if (mdb_txn_commit(txn)) die("commit failed");
    if (close) mdb_env_close(env);
  }
};

void write_store(const std::string &file, const wsc::Records &records) {
  fs::remove(file);
  fs::remove(file + "-lock");
  Env e(file, size_t{4} << 30);
  for (const auto &r : records) {
    MDB_val k{r.key.size(), const_cast<uint8_t *>(r.key.data())};
    MDB_val v{r.value.size(), const_cast<uint8_t *>(r.value.data())};
    if (mdb_put(e.txn, e.dbi, &k, &v, 0)) die("put failed");
  }
  e.commit();
}

// The map the store stand-in gives a store of this size (map_size_for in
// kvs_location.cc).
size_t map_for(const std::string &file) {
  return std::max(size_t{1} << 30, 4 * fs::file_size(file) + (size_t{64} << 20));
}

// The raw pass: every value read and written back, one transaction, with
// the stand-in's map and LMDB's default flags, as the stand-in opens it.
void raw_pass(const std::string &file) {
  Env e(file, map_for(file));
  MDB_cursor *c = e.cursor();
  std::vector<uint8_t> buf;
  MDB_val k, v;
  for (int rc = mdb_cursor_get(c, &k, &v, MDB_FIRST); rc == 0; rc = mdb_cursor_get(c, &k, &v, MDB_NEXT)) {
    const auto *p = static_cast<const uint8_t *>(v.mv_data);
    buf.assign(p, p + v.mv_size);
    MDB_val nv{buf.size(), buf.data()};
    if (mdb_cursor_put(c, &k, &nv, MDB_CURRENT)) die("cursor put");
  }
  // Committed and left open for the child's exit to release, as the store
  // stand-in leaves a closed store's environment open (kvs_env_keep.h):
  // neither side is timed freeing LMDB's page buffers.
  e.commit(false);
}

std::string_view view(const MDB_val &v) { return {static_cast<const char *>(v.mv_data), v.mv_size}; }

// Every record of a store, in the store's (LMDB's default) key order.
using Table = std::vector<std::pair<std::string, std::string>>;

Table read_store(const std::string &file) {
  Env e(file, map_for(file), MDB_RDONLY | MDB_NOLOCK);
  MDB_cursor *c = e.cursor();
  Table out;
  MDB_val k, v;
  for (int rc = mdb_cursor_get(c, &k, &v, MDB_FIRST); rc == 0; rc = mdb_cursor_get(c, &k, &v, MDB_NEXT))
    out.emplace_back(view(k), view(v));
  e.commit();
  return out;
}

// LMDB's default order of keys: bytes unsigned, a prefix first.
int key_cmp(std::string_view a, std::string_view b) {
  int c = std::memcmp(a.data(), b.data(), std::min(a.size(), b.size()));
  return c ? c : (a.size() < b.size() ? -1 : a.size() > b.size());
}

// The least work that turns the store in file into result: one transaction
// in the raw pass's setting that walks the store beside result, deletes the
// keys result lacks and rewrites the values that differ, then puts the keys
// only result has.
void least_work(const std::string &file, const Table &result) {
  Env e(file, map_for(file));
  MDB_cursor *c = e.cursor();
  std::vector<const Table::value_type *> added;
  auto it = result.begin();
  MDB_val k, v;
  for (int rc = mdb_cursor_get(c, &k, &v, MDB_FIRST); rc == 0; rc = mdb_cursor_get(c, &k, &v, MDB_NEXT)) {
    for (; it != result.end() && key_cmp(it->first, view(k)) < 0; ++it) added.push_back(&*it);
    if (it == result.end() || key_cmp(it->first, view(k)) > 0) {
      // After a delete the cursor stands on the next record, which MDB_NEXT
      // then returns.
      if (mdb_cursor_del(c, 0)) die("cursor del");
      continue;
    }
    if (view(v) != it->second) {
      // The key handed over is result's copy: k points into the page, which
      // a value of another size rewrites (a delete, then an insert).
      MDB_val nk{it->first.size(), const_cast<char *>(it->first.data())};
      MDB_val nv{it->second.size(), const_cast<char *>(it->second.data())};
      if (mdb_cursor_put(c, &nk, &nv, MDB_CURRENT)) die("cursor put");
    }
    ++it;
  }
  for (; it != result.end(); ++it) added.push_back(&*it);
  for (const auto *r : added) {
    MDB_val nk{r->first.size(), const_cast<char *>(r->first.data())};
    MDB_val nv{r->second.size(), const_cast<char *>(r->second.data())};
    if (mdb_put(e.txn, e.dbi, &nk, &nv, 0)) die("put");
  }
  // Left open at the child's exit, as the raw pass leaves it.
  e.commit(false);
}

// Whether two stores hold the same records, walked side by side.
bool same_store(const std::string &a, const std::string &b) {
  Env ea(a, map_for(a), MDB_RDONLY | MDB_NOLOCK), eb(b, map_for(b), MDB_RDONLY | MDB_NOLOCK);
  MDB_cursor *ca = ea.cursor(), *cb = eb.cursor();
  MDB_val ka, va, kb, vb;
  int ra = mdb_cursor_get(ca, &ka, &va, MDB_FIRST), rb = mdb_cursor_get(cb, &kb, &vb, MDB_FIRST);
  for (; ra == 0 && rb == 0; ra = mdb_cursor_get(ca, &ka, &va, MDB_NEXT), rb = mdb_cursor_get(cb, &kb, &vb, MDB_NEXT))
    if (view(ka) != view(kb) || view(va) != view(vb)) break;
  bool same = ra == MDB_NOTFOUND && rb == MDB_NOTFOUND;
  ea.commit();
  eb.commit();
  return same;
}

// ---- generated stores ----

// n RW entries of one target that all share one slot and source pair, or
// with spread, the same entries (same flags, same sizes) spread as the
// tool's generator spreads them: over n / 50 targets, n / 12 source pairs
// and 12 slots. The shape of the groups is all that differs between the two.
wsc::Records rw_entries(wsc::Era era, size_t n, bool spread) {
  wsc::Records out;
  uint64_t s = 0x1234 + n;
  auto rnd = [&s] {
    uint64_t z = (s += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  };
  auto wwn = [](uint64_t v) {
    wwn_t w;
    for (int i = 0; i < 8; i++) w.str[i] = uint8_t(v >> (56 - 8 * i));
    return w;
  };
  const uint32_t P = WAYSHUNT_ACL_FLAG_PHYSICAL, V = WAYSHUNT_ACL_FLAG_VIRTUAL, ISL = WAYSHUNT_ACL_FLAG_ISL;
  for (size_t i = 0; i < n; i++) {
    wayshunt_kvs_key_rw_acl_entry_t k{{WAYSHUNT_KVS_KEY_ACL_RW_1, 0}, rnd()};
    wayshunt_kvs_data_rw_acl_entry_t v;
    std::memset(&v, 0, sizeof v);
    const uint64_t targets = std::max<uint64_t>(2, n / 50), hosts = std::max<uint64_t>(2, n / 12);
    const uint64_t host = rnd() % hosts;
    v.tgt_pwwn = wwn(0x500a098000001234ull + (spread ? rnd() % targets : 0));
    v.src_sid_wwn = wwn(0x2000002500b50001ull + (spread ? host : 0));
    v.src_did_wwn = wwn(0x2fff000dec000001ull + (spread ? host : 0));
    v.dst_did_wwn = wwn(rnd());
    v.slot_num = spread ? static_cast<uint8_t>(1 + rnd() % 12) : 3;
    v.if_index = IF_INDEX_FC(v.slot_num, 1 + rnd() % 48);
    wsc::Record r{wsc::Bytes((uint8_t *)&k, (uint8_t *)&k + sizeof k), {}};
    if (era == wsc::Era::v32) {
      // Mostly virtual entries, a few physical ones among them.
      v.acl_flags = ISL | (rnd() % 16 == 0 ? P : V);
      wayshunt_kvs_data_rw_acl_entry_32_t e;
      std::memset(&e, 0, sizeof e);
      std::memcpy(&e, &v, offsetof(wayshunt_kvs_data_rw_acl_entry_t, slot_num));
      r.value.assign((uint8_t *)&e, (uint8_t *)&e + sizeof e);
    } else {
      // Mostly entries with both bits, some physical alone.
      v.acl_flags = ISL | (rnd() % 4 == 0 ? P : P | V);
      r.value.assign((uint8_t *)&v, (uint8_t *)&v + sizeof v);
    }
    out.push_back(std::move(r));
  }
  return out;
}

// Generates in a child, so that the parent's memory stays small and every
// measured child starts from it.
template <typename Gen>
void make_master(const std::string &file, Gen gen) {
  pid_t pid = fork();
  if (pid == 0) {
    write_store(file, gen());
    _exit(0);
  }
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status))
    die("generating " + file);
}

// ---- measuring ----

struct Sample {
  double seconds;
  long rss_kb;
};

// Runs body(prep()) in a child on a fresh copy of master at work; the child
// times body alone and hands the seconds back through a pipe.
template <typename Prep, typename Body>
Sample measure(const std::string &master, const std::string &work, Prep prep, Body body) {
  fs::remove(work + "-lock");
  fs::copy_file(master, work, fs::copy_options::overwrite_existing);
  int fd[2];
  if (pipe(fd)) die("pipe");
  pid_t pid = fork();
  if (pid == 0) {
    close(fd[0]);
    auto in = prep();
    auto t0 = Clock::now();
    int rc = body(in);
    double s = std::chrono::duration<double>(Clock::now() - t0).count();
    if (write(fd[1], &s, sizeof s) != sizeof s) _exit(2);
    _exit(rc == 0 ? 0 : 3);
  }
  close(fd[1]);
  Sample out{0, 0};
  int status = 0;
  struct rusage ru {};
  if (pid < 0 || wait4(pid, &status, 0, &ru) != pid) die("wait4");
  if (read(fd[0], &out.seconds, sizeof out.seconds) != sizeof out.seconds || !WIFEXITED(status) ||
      WEXITSTATUS(status))
    die("a measured run failed");
  close(fd[0]);
  out.rss_kb = ru.ru_maxrss;
  return out;
}

template <typename Body>
Sample measure(const std::string &master, const std::string &work, Body body) {
  return measure(master, work, [] { return 0; }, [&](int) { return body(); });
}

Sample median(std::vector<Sample> all) {
  std::sort(all.begin(), all.end(), [](const Sample &a, const Sample &b) { return a.seconds < b.seconds; });
  Sample m = all[all.size() / 2];
  for (const auto &s : all) m.rss_kb = std::max(m.rss_kb, s.rss_kb);
  return m;
}

double median(std::vector<double> all) {
  std::sort(all.begin(), all.end());
  return all[all.size() / 2];
}

// A move timed against both references: each run times a raw pass right
// before the move and the least work to the store that move left right
// after it, so that all three meet the same load of a shared machine; each
// ratio is the median of the runs' ratios. The moved store waits beside
// work for the least work to read, and is removed after it.
struct Paired {
  Sample move, raw, least;
  double ratio, least_ratio;
};

template <typename Body>
Paired paired(int runs, const std::string &master, const std::string &work, Body body,
              std::vector<Sample> &raws) {
  const std::string result = work + ".moved";
  std::vector<Sample> moves, leasts;
  std::vector<double> ratios, least_ratios;
  for (int i = 0; i < runs; i++) {
    Sample r = measure(master, work, [&] { return raw_pass(work), 0; });
    Sample m = measure(master, work, body);
    fs::rename(work, result);
    Sample l = measure(master, work, [&] { return read_store(result); },
                       [&](const Table &t) { return least_work(work, t), 0; });
    if (i == 0 && !same_store(work, result)) die("the least work did not leave the moved store");
    fs::remove(result);
    raws.push_back(r);
    moves.push_back(m);
    leasts.push_back(l);
    ratios.push_back(m.seconds / r.seconds);
    least_ratios.push_back(m.seconds / l.seconds);
  }
  return {median(moves), median(raws), median(leasts), median(ratios), median(least_ratios)};
}

struct Move {
  const char *name;
  wsc::Era from;
  const char *from_release, *to_release;
};

const std::vector<Move> kMoves = {
    {"4.2->4.1", wsc::Era::v42, "4.2(1)", "4.1(3)"}, {"4.2->3.2", wsc::Era::v42, "4.2(1)", "3.2(1)"},
    {"4.1->3.2", wsc::Era::v41, "4.1(3)", "3.2(1)"}, {"4.1->4.2", wsc::Era::v41, "4.1(3)", "4.2(1)"},
    {"3.2->4.2", wsc::Era::v32, "3.2(1)", "4.2(1)"},
};

int run_move(const Library &lib, const Move &m, const std::string &dir) {
  std::string from = m.from_release, to = m.to_release, path = dir;
  int32_t patch;
  lib.split(from.data(), lib.from_major, lib.from_minor, &patch);
  lib.split(to.data(), lib.to_major, lib.to_minor, &patch);
  return static_cast<int>(lib.is_downgrade() ? lib.down(path.data()) : lib.up(path.data()));
}

void header(const char *title) {
  std::printf("\n%s\n%-9s %9s %8s %11s %7s %9s %8s %8s %7s %8s\n", title, "move", "records", "seconds",
              "records/s", "x raw", "cost/rec", "rss MB", "raw MB", "x least", "least s");
}

// One line of a table; p, the move's pairing, gives the least-work columns
// (dashes on the raw pass's own line, which has none).
void row(const char *name, size_t n, const Sample &s, const Sample &raw, double ratio, double rel,
         const Paired *p = nullptr) {
  std::printf("%-9s %9zu %8.3f %11.0f %7.2f %9.2f %8.1f %8.1f", name, n, s.seconds, n / s.seconds, ratio, rel,
              s.rss_kb / 1024.0, raw.rss_kb / 1024.0);
  if (p) std::printf(" %7.2f %8.3f\n", p->least_ratio, p->least.seconds);
  else std::printf(" %7s %8s\n", "-", "-");
  std::fflush(stdout);
}

std::string beside_exe(const char *rel) {
  char exe[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n <= 0) return rel;
  exe[n] = 0;
  return (fs::path(exe).parent_path() / rel).string();
}

Options parse(int argc, char **argv) {
  Options o;
  for (int i = 1; i < argc; i++) {
    std::string a = argv[i];
    if (i + 1 >= argc) die("usage: ladder_bench [--runs N] [--sizes a,b] [--groups a,b] [--lib path] [--dir path]");
    const char *v = argv[++i];
    if (a == "--runs") o.runs = std::max(1, std::atoi(v));
    else if (a == "--sizes") o.sizes = parse_sizes(v);
    else if (a == "--groups") o.groups = parse_sizes(v);
    else if (a == "--lib") o.lib = v;
    else if (a == "--dir") o.dir = v;
    else if (a == "--only") o.only = v;
    else die("unknown option " + a);
  }
  if (o.lib.empty()) o.lib = beside_exe("../lib/gate-shut/libconvertwayshunt.so");
  return o;
}

}  // namespace

int main(int argc, char **argv) {
  Options o = parse(argc, argv);
  Library lib = load(o.lib);
  std::string dir = o.dir;
  if (dir.empty()) {
    const char *tmp = getenv("TMPDIR");
    dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/ladder_bench.XXXXXX";
    if (!mkdtemp(dir.data())) die("mkdtemp");
  }
  const std::string master = dir + "/master.mdb", work = dir + "/" WAYSHUNT_CNV_RUNTIME_KVS ".mdb";
  std::printf("ladder of moves, median of %d runs, library %s\n", o.runs, o.lib.c_str());

  // Cost per record of each move at each size, for the relative columns.
  std::map<std::string, std::map<size_t, double>> cost;
  auto skip = [&](const Move &m) { return !o.only.empty() && o.only != m.name; };
  for (wsc::Era era : {wsc::Era::v42, wsc::Era::v41, wsc::Era::v32}) {
    if (std::none_of(kMoves.begin(), kMoves.end(), [&](const Move &m) { return m.from == era && !skip(m); })) continue;
    header(("stores of era " + wsc::era_name(era)).c_str());
    for (size_t n : o.sizes) {
      make_master(master, [&] { return wsc::synthesize_store(era, n, 42); });
      std::vector<Sample> raws;
      std::vector<std::pair<const Move *, Paired>> done;
      for (const Move &m : kMoves) {
        if (m.from != era || skip(m)) continue;
        done.emplace_back(&m, paired(o.runs, master, work, [&] { return run_move(lib, m, dir); }, raws));
      }
      Sample raw = median(raws);
      row("raw", n, raw, raw, 1.0, 1.0);
      for (const auto &[m, p] : done) {
        auto &c = cost[m->name];
        c[n] = p.move.seconds / n;
        row(m->name, n, p.move, p.raw, p.ratio, c[n] / c.begin()->second, &p);
      }
    }
  }
  for (const Move &m : kMoves) {
    if (!std::string(m.name).ends_with("->4.2") || skip(m)) continue;
    header(("RW entries in one group of one target (same slot and source pair), against the same entries "
            "spread over n/50 targets (spread), " + std::string(m.name))
               .c_str());
    for (size_t n : o.groups) {
      std::vector<Sample> raws;
      make_master(master, [&] { return rw_entries(m.from, n, true); });
      Paired spread = paired(o.runs, master, work, [&] { return run_move(lib, m, dir); }, raws);
      row("spread", n, spread.move, spread.raw, spread.ratio, 1.0, &spread);
      raws.clear();
      make_master(master, [&] { return rw_entries(m.from, n, false); });
      Paired p = paired(o.runs, master, work, [&] { return run_move(lib, m, dir); }, raws);
      row(m.name, n, p.move, p.raw, p.ratio, p.move.seconds / spread.move.seconds, &p);
    }
  }
  if (o.dir.empty()) fs::remove_all(dir);
  return 0;
}
