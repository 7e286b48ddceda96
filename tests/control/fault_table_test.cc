// Injected faults and the journal, one row per platform function the library
// calls: the call as it goes with no rule, the same call with a rule that
// makes it fail, and the line it leaves in the journal. Each row's call
// reports its result and what it changed, so a fault that does more than
// fail the call shows.
#include <gtest/gtest.h>

#include <functional>

#include "hub_defs.h"
#include "kvs_admin.h"
#include "overseer.h"
#include "plat_ctl.h"
#include "portmap.h"
#include "reldesc.h"
#include "status.h"
#include "test_support.h"
#include "toolkit.h"

namespace {

using testsupport::TempDir;

std::string hexs(uint32_t v) {
  char b[16];
  std::snprintf(b, sizeof b, "0x%x", v);
  return b;
}

// A store holding "a"=1 and "b"=2, open through s.
struct Store {
  TempDir dir;
  std::string url = "nonvolatile:" + dir.path() + "/s";
  kvs_service_t s = 0;
  Store() {
    kvs_create(url.c_str());
    retcode_t st = 0;
    s = kvs_open(url.c_str(), &st);
    for (const char *k : {"a", "b"}) {
      std::string v = k[0] == 'a' ? "1" : "2";
      kvs_datum_t kd{const_cast<char *>(k), 1}, vd{v.data(), 1};
      kvs_store(s, KVS_STORE_REPLACE, &kd, &vd);
    }
  }
  ~Store() {
    kvs_close(s);
    kvs_remove(url.c_str());
  }
  std::string datum(const kvs_datum_t *d, retcode_t st) {
    return hexs(st) + (d ? " [" + std::string(static_cast<const char *>(d->ptr ? d->ptr : ""), d->siz) + "]" : " null");
  }
  // The keys and values as they stand, seen through a new cursor.
  std::string contents() {
    retcode_t st = 0;
    std::string out;
    for (auto k = kvs_move2location(s, KVS_LOC_FIRST, &st); k; k = kvs_move2location(s, KVS_LOC_NEXT, &st))
      out += std::string(static_cast<const char *>(k->ptr), k->siz) + "=" +
             std::string(static_cast<const char *>(kvs_getvalue(s, &st)->ptr), 1) + " ";
    return out;
  }
};

// arm() comes right before the call under test: it drops the counts of the
// set-up's calls and adds the row's rule, if any.
using Arm = std::function<void()>;
struct Row {
  const char *fn;
  std::function<std::string(const Arm &arm)> call;  // sets up, calls fn once, reports
  const char *ok, *failed;                          // its report without and with the rule "<fn>:1"
  bool journalled = true;                           // the toolkit keeps no journal
};

const Row kRows[] = {
    {"kvs_open", [](const Arm &arm) { Store s; retcode_t st = 0; kvs_close(s.s); arm(); kvs_service_t h = kvs_open(s.url.c_str(), &st); s.s = h; return hexs(st) + (h ? " open" : " none"); },
     "0x0 open", "0x40000001 none"},
    {"kvs_close", [](const Arm &arm) { Store s; arm(); retcode_t st = kvs_close(s.s); s.s = 0; retcode_t o; s.s = kvs_open(s.url.c_str(), &o); return hexs(st) + " then " + s.contents(); },
     "0x0 then a=1 b=2 ", "0x40000001 then "},
    {"kvs_move2location", [](const Arm &arm) { Store s; retcode_t st = 0; arm(); auto d = kvs_move2location(s.s, KVS_LOC_FIRST, &st); return s.datum(d, st); },
     "0x0 [a]", "0x40000001 null"},
    {"kvs_getkey", [](const Arm &arm) { Store s; retcode_t st = 0; kvs_move2location(s.s, KVS_LOC_FIRST, &st); arm(); auto d = kvs_getkey(s.s, &st); return s.datum(d, st); },
     "0x0 [a]", "0x40000001 null"},
    {"kvs_getvalue", [](const Arm &arm) { Store s; retcode_t st = 0; kvs_move2location(s.s, KVS_LOC_FIRST, &st); arm(); auto d = kvs_getvalue(s.s, &st); return s.datum(d, st); },
     "0x0 [1]", "0x40000001 null"},
    {"kvs_store", [](const Arm &arm) { Store s; std::string k = "c", v = "3"; kvs_datum_t kd{k.data(), 1}, vd{v.data(), 1}; arm(); std::string rc = hexs(kvs_store(s.s, KVS_STORE_REPLACE, &kd, &vd)); return rc + " " + s.contents(); },
     "0x0 a=1 b=2 c=3 ", "0x40000001 a=1 b=2 "},
    {"kvs_delete", [](const Arm &arm) { Store s; retcode_t st = 0; auto k = kvs_move2location(s.s, KVS_LOC_FIRST, &st); arm(); retcode_t rc = kvs_delete(s.s, k); auto at = kvs_getkey(s.s, &st); std::string r = hexs(rc) + " at " + s.datum(at, st); return r + " " + s.contents(); },
     "0x0 at 0x0 [b] b=2 ", "0x40000001 at 0x0 [a] a=1 b=2 "},
    {"tk_cq_init", [](const Arm &arm) { tk_cqueue_t q; arm(); tk_err_t rc = tk_cq_init(&q, 0); if (!rc) tk_cq_destroy(&q); return hexs(rc); },
     "0x0", "0x40000001", false},
    {"tk_cq_enqueue_tail", [](const Arm &arm) { tk_cqueue_t q; tk_cq_init(&q, 0); int x; arm(); tk_err_t rc = tk_cq_enqueue_tail(&q, &x, 7); const void *d = nullptr; tk_cq_cookie_t c = 0; tk_err_t rd = tk_cq_dequeue_head(&q, &d, &c); tk_cq_destroy(&q); return hexs(rc) + " then " + hexs(rd) + " cookie " + std::to_string(c); },
     "0x0 then 0x0 cookie 7", "0x40000001 then 0x40100003 cookie 0", false},
    {"tk_cq_dequeue_head", [](const Arm &arm) { tk_cqueue_t q; tk_cq_init(&q, 0); int x; tk_cq_enqueue_tail(&q, &x, 7); arm(); const void *d = nullptr; tk_cq_cookie_t c = 0; tk_err_t rc = tk_cq_dequeue_head(&q, &d, &c); while (tk_cq_dequeue_head(&q, &d, &c) == 0) {} tk_cq_destroy(&q); return hexs(rc) + (d == &x ? " item" : " none"); },
     "0x0 item", "0x40000001 item", false},
    {"tk_hashtable_64_init", [](const Arm &arm) { tk_hashtable_64_t t; arm(); tk_err_t rc = tk_hashtable_64_init(&t, 256, tk_hashtable_64_modulo_size_hash_fn); tk_hashtable_64_destroy(&t); return hexs(rc); },
     "0x0", "0x40000001", false},
    {"tk_hashtable_64_insert", [](const Arm &arm) { tk_hashtable_64_t t; tk_hashtable_64_init(&t, 256, tk_hashtable_64_modulo_size_hash_fn); int x; arm(); tk_err_t rc = tk_hashtable_64_insert(&t, 5, &x); void *d = nullptr; tk_err_t rf = tk_hashtable_64_find(&t, 5, &d); tk_hashtable_64_destroy(&t); return hexs(rc) + " find " + hexs(rf); },
     "0x0 find 0x0", "0x40000001 find 0x40100005", false},
    {"tk_hashtable_64_find", [](const Arm &arm) { tk_hashtable_64_t t; tk_hashtable_64_init(&t, 256, tk_hashtable_64_modulo_size_hash_fn); int x; tk_hashtable_64_insert(&t, 5, &x); arm(); void *d = nullptr; tk_err_t rc = tk_hashtable_64_find(&t, 5, &d); tk_hashtable_64_destroy(&t); return hexs(rc) + (d == &x ? " item" : " none"); },
     "0x0 item", "0x40000001 none", false},
    {"tk_hashtable_64_get_first", [](const Arm &arm) { tk_hashtable_64_t t; tk_hashtable_64_init(&t, 256, tk_hashtable_64_modulo_size_hash_fn); int x; tk_hashtable_64_insert(&t, 5, &x); arm(); uint64 k = 0; void *d = nullptr; tk_err_t rc = tk_hashtable_64_get_first(&t, &k, &d); tk_hashtable_64_destroy(&t); return hexs(rc) + " key " + std::to_string(k); },
     "0x0 key 5", "0x40000001 key 0", false},
    {"portmap_get_slot", [](const Arm &arm) { slot_num_t slot = 0; arm(); retcode_t rc = portmap_get_slot(0x01002000, &slot); return hexs(rc) + " slot " + std::to_string(slot); },
     "0x0 slot 3", "0x40000001 slot 0"},
    {"reldesc_sw_ver_file_get", [](const Arm &arm) { TempDir d; testsupport::write_file(d / "r", "SW_VERSION=4.2(1)\n"); arm(); const char *v = reldesc_sw_ver_file_get((d / "r").c_str()); return std::string(v ? v : "null"); },
     "4.2(1)", "null"},
    {"overseercmn_file_gsync", [](const Arm &arm) { TempDir d; testsupport::ScopedEnv root("PLAT_STANDBY_ROOT", d.path().c_str()), hub("PLAT_HUB_DIR", d.path().c_str()); testsupport::write_file(d / "src", "x"); hub_q_handle_t q = hub_bind(HUB_Q_KIND_MSG, HUB_SAP_DYNAMIC, nullptr, "t"); arm(); retcode_t rc = overseercmn_file_gsync(q, 60, 0, (d / "src").c_str(), "/copy", 1, 0, 0, 0, 0); hub_unbind(q, 0); return hexs(rc) + " " + testsupport::read_file(d / "copy"); },
     "0x0 x", "0x40000001 "},
    {"hub_bind", [](const Arm &arm) { TempDir d; testsupport::ScopedEnv dir("PLAT_HUB_DIR", d.path().c_str()); errno = 0; arm(); hub_q_handle_t q = hub_bind(HUB_Q_KIND_MSG, HUB_SAP_DYNAMIC, nullptr, "t"); int e = errno; hub_unbind(q, 0); return std::to_string(q >= 0) + " errno " + std::to_string(q >= 0 ? 0 : e); },
     "1 errno 0", "0 errno 5"},
};

TEST(FaultTable, EachPlatformFunctionFailsAloneAndIsJournalled) {
  TempDir d;
  for (const Row &r : kRows) {
    SCOPED_TRACE(r.fn);
    testsupport::FaultScope faults;
    ASSERT_EQ(plat_journal_set((d / "j").c_str()), 0);
    EXPECT_EQ(r.call([] { plat_fault_reset(); }), r.ok);
    plat_journal_set(nullptr);
    std::string j = testsupport::read_file(d / "j");
    if (r.journalled) {
      EXPECT_NE(("\n" + j).find("\n" + std::string(r.fn) + "("), std::string::npos) << j;
    }
    std::remove((d / "j").c_str());
    EXPECT_EQ(r.call([&] {
      plat_fault_reset();
      faults.add(std::string(r.fn) + ":1");
    }), r.failed);
    bool listed = false;
    for (const char *const *p = plat_fault_points(); *p; p++) listed |= std::string(*p) == r.fn;
    EXPECT_TRUE(listed) << "a rule makes it fail, so plat_fault_points() must name it";
  }
}

}  // namespace
