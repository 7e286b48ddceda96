// Failure paths of the conversions, one row each: the store before, the
// fault (a platform call, or the library's n-th allocation), the status and
// the store after (or "as without the fault"), and a trace the trace build
// must write. Leaks show in the sanitized build, which checks after every
// row.
//
// The library allocates through wayshunt_cnv_malloc, which it calls through
// its procedure linkage table like any exported function: the definition in
// this program (exported with --export-dynamic-symbol) is the one it meets,
// and fails the armed call.
#include <optional>

#include "cnv_env.h"
#include "if_index.h"
#include "test_support.h"
#include "wayshunt.h"

using namespace cnv;

namespace {

unsigned g_alloc_calls = 0, g_alloc_fails_at = 0;  // 0: none fails

}  // namespace

extern "C" void *wayshunt_cnv_malloc(uint32 size) {
  static auto *own = Env::get().fn<void *(uint32)>("wayshunt_cnv_malloc");  // the library's own
  if (g_alloc_fails_at && ++g_alloc_calls == g_alloc_fails_at) return nullptr;
  return own(size);
}

namespace {

enum Step { kDown413, kDown32, kUp32, kUp413 };

constexpr uint32_t PH = WAYSHUNT_ACL_FLAG_PHYSICAL | WAYSHUNT_ACL_FLAG_ISL, ISL = WAYSHUNT_ACL_FLAG_ISL;

Bytes le(uint64_t v, int n) { return n ? char(v) + le(v >> 8, n - 1) : Bytes(); }
// An RW ACL value of target t on fc2/1: 82 bytes, or the 84 of 3.2.
Bytes rw(char t, uint32_t flags, size_t size, char slot = '\xff') {
  Bytes v = Bytes(8, t) + le(flags, 4) + Bytes(32, '\x01') + le(IF_INDEX_FC(2, 1), 4) + Bytes(33, '\x13') + slot;
  v.resize(size, '\x84');
  return v;
}
Bytes rwkey(char k) { return hx("37 00") + k + hx("11 22 33 44 55 66 77"); }

const Bytes kFtA = hx("36 00 01000000 2000002500000001 5000000000000001");
const Bytes kFtB = hx("36 07 01000000 2000002500000002 5000000000000001");
const Bytes kFtC = hx("36 00 0a000000 2000002500000003 5000000000000002");
const Bytes kNarrowA = hx("36 00 2000002500000001 5000000000000001");
const Bytes kLongLc = hx("3f 00") + Bytes(98, 'k');  // longer than the walk's key copy on the stack

// Three targets, one physical entry each: the fix-ups change nothing.
Records three_targets(size_t size) {
  return {{rwkey(1), rw('\xa1', PH, size)}, {rwkey(2), rw('\xa2', PH, size)}, {rwkey(3), rw('\xa3', PH, size)}};
}

struct Row {
  const char *name;
  Step step;
  Records before;
  const char *faults;
  retcode_t status;
  std::optional<Records> after;  // none: as the same step leaves it without the fault
  const char *trace;             // a record the trace build writes, "" for none
  unsigned fail_alloc = 0;       // the library's allocation that fails (1: the first), 0 for none
};

const Row kRows[] = {
    {"downgrade drain: a failed dequeue frees the keys still queued", kDown413, {{kFtA, "x"}, {kFtB, "y"}, {kFtC, "z"}},
     "tk_cq_dequeue_head:2", 0, Records{{kNarrowA, hx("00000000")}}, ""},
    {"upgrade 4.1.3: every walk cut short, all chains freed", kUp413, three_targets(82),
     "tk_hashtable_64_traverse:1+", 0, std::nullopt, ""},
    {"upgrade 4.1.3: the release walk fails at once", kUp413, three_targets(82), "tk_hashtable_64_get_first:2", 0,
     std::nullopt, ""},
    {"upgrade 3.2: every walk cut short, all chains freed", kUp32, three_targets(84), "tk_hashtable_64_traverse:1+",
     0, std::nullopt, ""},
    {"upgrade 3.2: the release walk fails at once", kUp32, three_targets(84), "tk_hashtable_64_get_first:2", 0,
     std::nullopt, ""},
    {"downgrade 3.2: failed delete of a long key, the next key is still deleted", kDown32,
     {{kLongLc, "a"}, {hx("3f 01"), "b"}, {hx("3f 02"), "c"}, {rwkey(1), "d"}}, "kvs_delete:1", 0,
     Records{{kLongLc, "a"}, {rwkey(1), "d"}}, ""},
    {"downgrade 3.2: long keys deleted like short ones", kDown32, {{kLongLc, "a"}, {kLongLc + "x", "b"}}, "", 0,
     Records{}, ""},
    // Without memory for its node an entry takes no part in the fix-up; one
    // whose head finds no room in the driver's list still goes in, traced.
    {"upgrade 3.2: no memory for a node", kUp32, {{rwkey(1), rw('\xa1', ISL, 84)}}, "", 0,
     Records{{rwkey(1), rw('\xa1', ISL, 84)}}, "", 1},
    {"upgrade 3.2: no memory to list a head", kUp32, {{rwkey(1), rw('\xa1', ISL, 84)}, {rwkey(2), rw('\xa2', ISL, 84)}},
     "", 0, std::nullopt, "wayshunt_cnv_upgrade_from_32_fix_trunk_entries_build_tgt_ht():N Inserted new entry\n", 2},
    {"upgrade 4.1.3: no memory for a node", kUp413, {{rwkey(1), rw('\xa1', PH | WAYSHUNT_ACL_FLAG_VIRTUAL, 82)}}, "", 0,
     Records{{rwkey(1), rw('\xa1', PH | WAYSHUNT_ACL_FLAG_VIRTUAL, 82, 2)}}, "", 1},
    {"upgrade 4.1.3: no memory to list a head", kUp413,
     {{rwkey(1), rw('\xa1', PH | WAYSHUNT_ACL_FLAG_VIRTUAL, 82)}, {rwkey(2), rw('\xa2', PH, 82)}}, "", 0, std::nullopt,
     "wayshunt_cnv413_upg_add_entry_to_tgt_hash():N Inserted new entry\n", 2},
    {"upgrade 4.1.3: a refused insert still traces the new chain", kUp413, {{rwkey(1), rw('\xa1', PH, 82)}},
     "tk_hashtable_64_insert:1", 0, std::nullopt,
     "wayshunt_cnv413_upg_add_entry_to_tgt_hash():N Inserted new entry\n"},
    {"upgrade 3.2: a refused insert still traces the new chain", kUp32, {{rwkey(1), rw('\xa1', PH, 84)}},
     "tk_hashtable_64_insert:1", 0, std::nullopt,
     "wayshunt_cnv_upgrade_from_32_fix_trunk_entries_build_tgt_ht():N Inserted new entry\n"},
};

const char *kSteps[] = {"wayshunt_cnv_config_downgrade_to_413_or_lower", "wayshunt_cnv_config_downgrade_to_3_2",
                        "wayshunt_cnv_config_upgrade_from_32", "wayshunt_cnv_config_upgrade_from_413_or_lower"};

// Runs the step on a fresh store holding before, with the faults; gives the
// status, the store after and the log.
retcode_t run(const Row &r, const char *faults, unsigned fail_alloc, Records *after, std::string *log) {
  make_store(r.before);
  auto step = Env::get().fn<retcode_t(const char *)>(kSteps[r.step]);
  EXPECT_TRUE(step) << kSteps[r.step];
  if (!step) return ~0u;
  retcode_t st;
  {
    testsupport::FaultScope scope;
    if (*faults) scope.add(faults);
    g_alloc_calls = 0, g_alloc_fails_at = fail_alloc;
    st = step(runtime_url().c_str());
    g_alloc_fails_at = 0;
  }
  *after = read_store();
  Env::get().fn<void()>("wayshunt_cnv_log_cleanup")();
  *log = normalized(take_log());
  return st;
}

}  // namespace

TEST(FaultPaths, StoreStatusTraceAndNoLeak) {
  CNV_REQUIRE();
  for (const Row &r : kRows) {
    SCOPED_TRACE(r.name);
    Records want, after;
    std::string log, unused;
    if (r.after) {
      want = *r.after;
    } else {
      EXPECT_EQ(run(r, "", 0, &want, &unused), 0u);
    }
    EXPECT_EQ(run(r, r.faults, r.fail_alloc, &after, &log), r.status);
    if (r.fail_alloc) {
      EXPECT_GE(g_alloc_calls, r.fail_alloc) << "the allocation to fail never came";
    }
    EXPECT_EQ(after, want);
    if (Env::get().gate_open && *r.trace) {
      EXPECT_NE(log.find(r.trace), std::string::npos) << log;
    }
    EXPECT_EQ(LEAKS_FOUND(), 0);
  }
}
