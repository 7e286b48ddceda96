// libFuzzer harness of the conversion library: each input becomes a small
// runtime store (keys and values of any size, odd sizes of every known key
// type, RW ACL keys off their 10-byte layout), a portmap table and at most
// one injected platform fault; then one conversion or the entry dump runs on
// it. Afterwards no store handle may be open, every record of a type the
// conversion does not touch must be byte for byte as it was, and a record the
// store did not hold before must have a touched type and the key and value
// sizes of one of that type's forms. Leaks and bad reads are the sanitizers'
// to find.
//
// One store serves every input: it is emptied (kvs_clear) and filled, so an
// input costs what its conversion costs, not the making of a store.
//
// Input: op, fault, fault call, portmap entries, then records until the end:
// type selector, key size selector, value size selector, bytes; or, for an
// RW ACL key off its layout (type selectors 208 to 239), type selector, flag
// selector, bytes.
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "devroot.h"
#include "kvs_admin.h"
#include "plat_ctl.h"
#include "portmap_admin.h"
#include "wayshunt.h"
#include "wayshunt_cnv.h"

namespace {

using Bytes = std::string;
using Records = std::map<Bytes, Bytes>;

std::string g_dir, g_url, g_table, g_table_text;

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

// The forms' sizes of each known key type, keys then values: the sizes the
// inputs favour, and the only ones a record a conversion creates may have.
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

const TypeSizes *sizes_of(uint8_t type) {
  for (const TypeSizes &ts : kTypes)
    if (ts.type == type) return &ts;
  return nullptr;
}

bool is_form(size_t size, const unsigned forms[2]) { return size == forms[0] || size == forms[1]; }

// An RW ACL record whose key is off its 10-byte layout, picked by type
// selectors 208 to 239: mostly type 55 with a key of 11 or 9 bytes (now and
// then 12 or 8), a value of 82 or 84 bytes, ISL set unless the flag selector
// says otherwise and PHYSICAL when it says so, so that the passes that take
// ISL entries into their target tables meet it.
void decode_off_layout_acl(uint8_t t, Reader &in, Records &s) {
  static constexpr uint8_t kType[] = {55, 55, 56, 57};
  static constexpr unsigned kKeySize[] = {11, 9, 11, 9, 11, 9, 12, 8};
  unsigned x = t - 208u;
  uint8_t flags_sel = in.byte();
  Bytes k = Bytes(1, static_cast<char>(kType[x % 4])) + in.take(kKeySize[x / 4] - 1);
  Bytes v = in.take(flags_sel & 1 ? 84 : 82);
  uint32_t flags;
  constexpr size_t at = offsetof(wayshunt_kvs_data_rw_acl_entry_t, acl_flags);
  std::memcpy(&flags, v.data() + at, sizeof flags);
  if ((flags_sel & 6) != 6) flags |= WAYSHUNT_ACL_FLAG_ISL;
  if (flags_sel & 8) flags |= WAYSHUNT_ACL_FLAG_PHYSICAL;
  std::memcpy(v.data() + at, &flags, sizeof flags);
  s[k] = v;
}

Records decode_records(Reader &in) {
  Records s;
  while (!in.empty()) {
    uint8_t t = in.byte();
    if (t >= 208 && t < 240) {
      decode_off_layout_acl(t, in, s);
      continue;
    }
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

// Up to three interfaces of slots 1 to 4 moved, failing or at 255. An
// interface already listed is left out: the stand-in would warn of it on
// stderr for every input.
std::string decode_portmap(Reader &in) {
  std::string t;
  for (unsigned n = in.byte() % 4; n > 0; n--) {
    uint8_t a = in.byte(), b = in.byte();
    std::string name = "fc" + std::to_string(a % 4 + 1) + "/" + std::to_string(a / 4 % 4 + 1) + " ";
    if (t.find(name) == 0 || t.find("\n" + name) != std::string::npos) continue;
    t += name + (b < 64 ? "fail\n" : b < 128 ? "255\n" : std::to_string(b % 16) + "\n");
  }
  return t;
}

// Writes the portmap table when its text changed. The stand-in reads it at
// the input's first lookup and forgets it after the input, so that an input
// frees all it allocates (an input that keeps memory is run again in search
// of a leak).
void set_portmap(const std::string &text) {
  if (text == g_table_text) return;
  FILE *t = fopen(g_table.c_str(), "w");
  if (!t) abort();
  fputs(text.c_str(), t);
  fclose(t);
  g_table_text = text;
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

// The store holds records and nothing else afterwards.
void write_store(const Records &records) {
  if (kvs_clear(g_url.c_str()) != 0) abort();
  retcode_t st = 0;
  kvs_service_t s = kvs_open(g_url.c_str(), &st);
  if (st) abort();
  for (const auto &[k, v] : records) {
    kvs_datum_t kd{const_cast<char *>(k.data()), static_cast<unsigned>(k.size())};
    kvs_datum_t vd{const_cast<char *>(v.data()), static_cast<unsigned>(v.size())};
    if (kvs_store(s, KVS_STORE_REPLACE, &kd, &vd) != 0) abort();
  }
  if (kvs_close(s) != 0) abort();
}

// The key types each operation may rewrite, delete or create.
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

bool touches(const Op &op, char type) { return type != 0 && std::strchr(op.touches, type); }

void fail(const char *what, const Bytes &key) {
  fprintf(stderr, "fuzz_convert: %s: key", what);
  for (unsigned char c : key) fprintf(stderr, " %02x", c);
  fprintf(stderr, "\n");
  abort();
}

// Records of untouched types are as they were; a new record has a touched
// type and the key and value sizes of one of its type's forms.
void check_records(const Op &op, const Records &before, const Records &after) {
  for (const auto &[k, v] : before) {
    if (touches(op, k[0])) continue;
    auto it = after.find(k);
    if (it == after.end()) fail("record of an untouched type lost", k);
    if (it->second != v) fail("record of an untouched type changed", k);
  }
  for (const auto &[k, v] : after) {
    if (before.count(k)) continue;
    if (!touches(op, k[0])) fail("record of an untouched type added", k);
    const TypeSizes *ts = sizes_of(static_cast<uint8_t>(k[0]));
    if (!ts || !is_form(k.size(), ts->keys)) fail("new key of no form of its type", k);
    if (!is_form(v.size(), ts->values)) fail("new record's value of no form of its type", k);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  // In memory where it can be: every input rewrites and syncs the store.
  std::string tmpl = access("/dev/shm", W_OK) == 0 ? "/dev/shm/fuzzcnv.XXXXXX" : "/tmp/fuzzcnv.XXXXXX";
  if (!mkdtemp(tmpl.data())) abort();
  g_dir = tmpl;
  atexit([] { std::filesystem::remove_all(g_dir); });
  g_url = "nonvolatile:" + g_dir + "/wayshunt_runtime_ha";
  g_table = g_dir + "/portmap";
  std::string boot = g_dir + "/bootflash";
  mkdir(boot.c_str(), 0755);
  // The log's records are formatted, written and flushed as always, into
  // /dev/null: the formatting is what the sanitizers watch, and a file
  // would only grow.
  if (symlink("/dev/null", (boot + "/wayshunt_cnv.log").c_str()) != 0) abort();
  // The log goes to /bootflash: a private one, never the host's.
  std::string err = devroot::enter({{"/bootflash", boot}});
  if (!err.empty()) {
    fprintf(stderr, "fuzz_convert: no private device root: %s\n", err.c_str());
    abort();
  }
  setenv("PLAT_KVS_MAP_SIZE", "1048576", 1);  // small stores: a small map is quicker to make
  setenv("PLAT_PORTMAP_TABLE", g_table.c_str(), 1);
  g_table_text = "unwritten";  // no input's text: the first input writes the table
  if (kvs_create(g_url.c_str()) != 0) abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Reader in{data, size};
  const Op &op = kOps[in.byte() % std::size(kOps)];
  std::string fault = decode_fault(in);
  set_portmap(decode_portmap(in));
  Records before = decode_records(in);
  plat_fault_reset();
  write_store(before);
  if (!fault.empty() && plat_fault_add(fault.c_str()) != 0) abort();
  // Guarded data for the conversion's reads only: the harness's own reads
  // need none, and each guarded datum costs a mapping.
  setenv("PLAT_KVS_GUARD", "1", 1);
  op.run(g_url.c_str());
  setenv("PLAT_KVS_GUARD", "0", 1);
  plat_fault_reset();
  portmap_table_forget();

  if (kvs_open_count() != 0) fail("store handle still open after the conversion", "");
  check_records(op, before, read_all());
  return 0;
}
