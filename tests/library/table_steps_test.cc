// The exported steps of the target tables called on their own, by a caller
// that owns the table as a conversion's driver does: the build (or the
// repair of each record), the fix-up, the release, the destroy. The library
// must keep nothing of such a table once its steps have returned, also when
// the next table stands at the same stack address, and must pass over a
// table item that holds no chain.
#include <cstdlib>

#include "cnv_env.h"
#include "toolkit.h"
#include "wayshunt.h"

using namespace cnv;

namespace {

constexpr uint32_t ISL = WAYSHUNT_ACL_FLAG_ISL, P = WAYSHUNT_ACL_FLAG_PHYSICAL, V = WAYSHUNT_ACL_FLAG_VIRTUAL;

Bytes le(uint64_t v, int n) { return n ? char(v) + le(v >> 8, n - 1) : Bytes(); }
Bytes rw(char t, uint32_t flags, size_t size) {
  Bytes v = Bytes(8, t) + le(flags, 4) + Bytes(66, '\x01') + Bytes(4, '\0');
  v.resize(size, '\0');
  return v;
}
Bytes rwkey(char k) { return hx("37 00") + k + hx("11 22 33 44 55 66 77"); }

// Two targets, one with a chain of three; the flags leave the fix-ups
// nothing to store.
Records chains(size_t size) {
  return {{rwkey(1), rw('\xa1', ISL | P, size)}, {rwkey(2), rw('\xa1', ISL | P, size)},
          {rwkey(3), rw('\xa1', ISL | P, size)}, {rwkey(4), rw('\xa2', ISL | P, size)}};
}

struct Steps {
  const char *fix_up, *release;
  bool from_32;  // the build fills the table; otherwise the repair of each record does
};
const Steps kPaths[] = {
    {"wayshunt_cnv_upgrade_from_32_fix_trunk_entries", "wayshunt_cnv_32_release_tgt_table", true},
    {"wayshunt_cnv_upgrade_from_413_fix_trunk_entries", "wayshunt_cnv_413_release_tgt_table", false},
};

using Build = int32(kvs_service_t, tk_hashtable_64_t *);
using Repair = void(kvs_service_t, const kvs_datum_t *, const kvs_datum_t *, tk_hashtable_64_t *);
using FixUp = void(kvs_service_t, tk_hashtable_64_t *);
using Release = void(tk_hashtable_64_t *);

// The caller's own release, a walk of the table freeing each chain.
void release_by_walk(tk_hashtable_64_t *ht) {
  uint64 key = 0;
  void *node = nullptr;
  for (tk_err_t rc = tk_hashtable_64_get_first(ht, &key, &node); rc == 0;
       rc = tk_hashtable_64_traverse(ht, key, &key, &node))
    while (node) {
      void *next = *static_cast<void **>(node);
      std::free(node);
      node = next;
    }
}

// One table's life on the open store, released by the library's step or by
// the caller's own walk. Each call's table stands at the same address.
void one_table(kvs_service_t s, const Steps &p, bool own_release) {
  tk_hashtable_64_t ht;
  ASSERT_EQ(tk_hashtable_64_init(&ht, 256, tk_hashtable_64_modulo_size_hash_fn), 0u);
  if (p.from_32) {
    Env::get().fn<Build>("wayshunt_cnv_upgrade_from_32_fix_trunk_entries_build_tgt_ht")(s, &ht);
  } else {
    retcode_t st = 0;
    auto repair = Env::get().fn<Repair>("wayshunt_cnv_upg_from_413_or_lower_process_acl_rw_entry");
    for (const kvs_datum_t *k = kvs_move2location(s, KVS_LOC_FIRST, &st); k; k = kvs_move2location(s, KVS_LOC_NEXT, &st))
      repair(s, k, kvs_getvalue(s, &st), &ht);
  }
  Env::get().fn<FixUp>(p.fix_up)(s, &ht);
  if (own_release) {
    release_by_walk(&ht);
  } else {
    Env::get().fn<Release>(p.release)(&ht);
  }
  tk_hashtable_64_destroy(&ht);
}

}  // namespace

// A table released by its caller's own walk, then another at the same
// address released by the library's step: had the library kept any note of
// the first (its heads, say), the second release would meet it.
TEST(TableSteps, CalledAloneKeepNothingBeyondTheCall) {
  CNV_REQUIRE();
  for (const Steps &p : kPaths) {
    SCOPED_TRACE(p.fix_up);
    make_store(chains(p.from_32 ? 84 : 82));
    retcode_t st = 0;
    kvs_service_t s = kvs_open(runtime_url().c_str(), &st);
    ASSERT_EQ(st, 0u);
    for (bool own_release : {true, false, true, false}) one_table(s, p, own_release);
    EXPECT_EQ(kvs_close(s), 0u);
    EXPECT_EQ(LEAKS_FOUND(), 0);
  }
}

// A table item with no chain behind it (null data) is passed over by the
// fix-ups and the releases; the chain of another item is still freed.
TEST(TableSteps, AnItemWithNoChainIsPassedOver) {
  CNV_REQUIRE();
  make_store({});
  for (const Steps &p : kPaths) {
    SCOPED_TRACE(p.fix_up);
    tk_hashtable_64_t ht;
    ASSERT_EQ(tk_hashtable_64_init(&ht, 256, tk_hashtable_64_modulo_size_hash_fn), 0u);
    void *tail = std::calloc(1, 128), *head = std::calloc(1, 128);
    *static_cast<void **>(head) = tail;
    ASSERT_EQ(tk_hashtable_64_insert(&ht, 7, nullptr), 0u);
    ASSERT_EQ(tk_hashtable_64_insert(&ht, 8, head), 0u);
    retcode_t st = 0;
    kvs_service_t s = kvs_open(runtime_url().c_str(), &st);
    ASSERT_EQ(st, 0u);
    Env::get().fn<FixUp>(p.fix_up)(s, &ht);
    EXPECT_EQ(kvs_close(s), 0u);
    Env::get().fn<Release>(p.release)(&ht);
    tk_hashtable_64_destroy(&ht);
    EXPECT_EQ(LEAKS_FOUND(), 0);
  }
}
