// libFuzzer harness of the conversion library: each input becomes a small
// runtime store (keys and values of any size, odd sizes of every known key
// type), a portmap table and at most one injected platform fault; then one
// conversion or the entry dump runs on it. Afterwards no store handle may be
// open, and every record of a type the conversion does not touch must be
// byte for byte as it was. Leaks and bad reads are the sanitizers' to find.
//
// Input: op, fault, fault call, portmap entries, then records until the end:
// type selector, key size selector, value size selector, bytes.
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "devroot.h"
#include "kvs_admin.h"
#include "plat_ctl.h"
#include "portmap_admin.h"
#include "wayshunt_cnv.h"

namespace {

using Bytes = std::string;
using Records = std::map<Bytes, Bytes>;

std::string g_dir, g_url, g_table;

struct Reader {
  const uint8_t *p;
  size_t n;
  bool empty() const { return n == 0; }
  uint8_t byte() { return n ? (n--, *p++) : 0; }
  Bytes take(size_t k) {
    Bytes b;
    for (size_t i = 0; i < k; i++) b += static_cast<char>(byte());
    return b;
  }
};

// The forms' sizes of each known key type: keys, then values.
struct TypeSizes {
  uint8_t type;
  unsigned keys[2], values[2];
};
constexpr TypeSizes kTypes[] = {{54, {18, 22}, {4, 4}},   {55, {10, 10}, {82, 84}}, {56, {10, 10}, {82, 84}},
                                {57, {10, 10}, {82, 84}}, {58, {6, 10}, {37, 37}},  {59, {6, 10}, {37, 37}},
                                {60, {6, 10}, {37, 37}},  {63, {2, 6}, {8, 20}}};

// A size near a form's: the form itself (most often), one off, or any.
unsigned size_near(uint8_t sel, const unsigned forms[2]) {
  if (sel < 160) return forms[sel & 1];
  if (sel < 200) return forms[sel & 1] + (sel & 2 ? 1 : -1);
  return sel % 48;
}

Records decode_records(Reader &in) {
  Records s;
  while (!in.empty()) {
    uint8_t t = in.byte();
    const TypeSizes &ts = kTypes[t % std::size(kTypes)];
    uint8_t type = t >= 240 ? in.byte() : ts.type;  // now and then a type no conversion knows
    unsigned ksz = size_near(in.byte(), ts.keys), vsz = size_near(in.byte(), ts.values);
    if (ksz == 0) continue;  // the store holds no empty keys
    Bytes k = Bytes(1, static_cast<char>(type)) + in.take(ksz - 1);
    s[k] = in.take(vsz);
  }
  return s;
}

// One fault, or none: a failing call, a null result or an empty datum.
const char *const kFaults[] = {"kvs_store",        "kvs_delete",           "kvs_getvalue:%u=empty",
                               "kvs_move2location:%u=null", "kvs_getkey:%u=empty", "kvs_move2location",
                               "tk_cq_enqueue_tail", "tk_cq_dequeue_head",  "tk_hashtable_64_insert",
                               "tk_hashtable_64_find", "kvs_close",         "kvs_open",
                               "tk_hashtable_64_init", "tk_cq_init",        "portmap_get_slot",
                               "kvs_getvalue"};
std::string decode_fault(Reader &in) {
  uint8_t f = in.byte(), when = in.byte() % 12 + 1;
  if (f < 96) return "";
  const char *rule = kFaults[f % std::size(kFaults)];
  char buf[80];
  if (std::strchr(rule, '%'))
    snprintf(buf, sizeof buf, rule, when);
  else
    snprintf(buf, sizeof buf, "%s:%u", rule, when);
  return buf;
}

// Up to three interfaces of slots 1 to 4 moved, failing or at 255.
std::string decode_portmap(Reader &in) {
  std::string t;
  for (unsigned n = in.byte() % 4; n > 0; n--) {
    uint8_t a = in.byte(), b = in.byte();
    t += "fc" + std::to_string(a % 4 + 1) + "/" + std::to_string(a / 4 % 4 + 1) + " ";
    t += b < 64 ? "fail\n" : b < 128 ? "255\n" : std::to_string(b % 16) + "\n";
  }
  return t;
}

Records read_all() {
  Records r;
  retcode_t st = 0;
  kvs_service_t s = kvs_open(g_url.c_str(), &st);
  if (st) abort();
  for (auto k = kvs_move2location(s, KVS_LOC_FIRST, &st); k; k = kvs_move2location(s, KVS_LOC_NEXT, &st)) {
    const kvs_datum_t *v = kvs_getvalue(s, &st);
    r[Bytes(static_cast<const char *>(k->ptr), k->siz)] = v && v->ptr ? Bytes(static_cast<const char *>(v->ptr), v->siz) : "";
  }
  kvs_close(s);
  return r;
}

void write_store(const Records &records) {
  kvs_remove(g_url.c_str());
  if (kvs_create(g_url.c_str()) != 0) abort();
  retcode_t st = 0;
  kvs_service_t s = kvs_open(g_url.c_str(), &st);
  if (st) abort();
  for (const auto &[k, v] : records) {
    kvs_datum_t kd{const_cast<char *>(k.data()), static_cast<unsigned>(k.size())};
    kvs_datum_t vd{const_cast<char *>(v.data()), static_cast<unsigned>(v.size())};
    kvs_store(s, KVS_STORE_REPLACE, &kd, &vd);
  }
  kvs_close(s);
}

// The key types each operation may rewrite or delete.
struct Op {
  const char *touches;
  retcode_t (*run)(const char *url);
};
retcode_t dump(const char *url) {
  retcode_t st = 0;
  kvs_service_t s = kvs_open(url, &st);
  if (st) return st;
  wayshunt_cnv_print_kvs_entries(s);
  return kvs_close(s);
}
retcode_t down32(const char *url) { return static_cast<retcode_t>(wayshunt_cnv_config_downgrade_to_3_2(url)); }
retcode_t up32(const char *url) { return static_cast<retcode_t>(wayshunt_cnv_config_upgrade_from_32(url)); }
const Op kOps[] = {{"\x36", wayshunt_cnv_config_downgrade_to_413_or_lower},
                   {"\x3f", down32},
                   {"\x37", up32},
                   {"\x36\x37\x38\x39\x3a\x3b\x3c", wayshunt_cnv_config_upgrade_from_413_or_lower},
                   {"", dump}};

void fail(const char *what, const Bytes &key) {
  fprintf(stderr, "fuzz_convert: %s: key", what);
  for (unsigned char c : key) fprintf(stderr, " %02x", c);
  fprintf(stderr, "\n");
  abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  // In memory where it can be: every store is made and synced anew.
  std::string tmpl = access("/dev/shm", W_OK) == 0 ? "/dev/shm/fuzzcnv.XXXXXX" : "/tmp/fuzzcnv.XXXXXX";
  if (!mkdtemp(tmpl.data())) abort();
  g_dir = tmpl;
  atexit([] { std::filesystem::remove_all(g_dir); });
  g_url = "nonvolatile:" + g_dir + "/wayshunt_runtime_ha";
  g_table = g_dir + "/portmap";
  std::string boot = g_dir + "/bootflash";
  mkdir(boot.c_str(), 0755);
  // The log goes to /bootflash: a private one, never the host's.
  std::string err = devroot::enter({{"/bootflash", boot}});
  if (!err.empty()) {
    fprintf(stderr, "fuzz_convert: no private device root: %s\n", err.c_str());
    abort();
  }
  setenv("PLAT_KVS_GUARD", "1", 1);
  setenv("PLAT_KVS_MAP_SIZE", "1048576", 1);  // small stores: a small map is quicker to make
  setenv("PLAT_PORTMAP_TABLE", g_table.c_str(), 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Reader in{data, size};
  const Op &op = kOps[in.byte() % std::size(kOps)];
  std::string fault = decode_fault(in);
  FILE *t = fopen(g_table.c_str(), "w");
  if (!t) abort();
  fputs(decode_portmap(in).c_str(), t);
  fclose(t);
  portmap_table_reload();
  Records before = decode_records(in);
  plat_fault_reset();
  write_store(before);
  if (!fault.empty() && plat_fault_add(fault.c_str()) != 0) abort();
  op.run(g_url.c_str());
  plat_fault_reset();
  unlink("/bootflash/wayshunt_cnv.log");

  Records after = read_all();
  for (const auto &[k, v] : before) {
    if (std::strchr(op.touches, k[0]) && k[0] != 0) continue;
    auto it = after.find(k);
    if (it == after.end()) fail("record of an untouched type lost", k);
    if (it->second != v) fail("record of an untouched type changed", k);
  }
  for (const auto &[k, v] : after)
    if (!before.count(k) && !(std::strchr(op.touches, k[0]) && k[0] != 0)) fail("record of an untouched type added", k);
  // A store handle left open keeps the store busy.
  if (kvs_remove(g_url.c_str()) != 0) fail("store still open after the conversion", "");
  return 0;
}
