// Test harness for the conversion library: see cnv_env.h.
#include "cnv_env.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "devroot.h"
#include "kvs_admin.h"
#include "test_support.h"

namespace cnv {

namespace fs = std::filesystem;

Env &Env::get() {
  static Env env;
  return env;
}

void *Env::sym(const char *name) const { return handle ? dlsym(handle, name) : nullptr; }

void *load_library(bool gate_open) {
  std::string lib = testsupport::bin_dir() + "/../lib/gate-" + (gate_open ? "open" : "shut") + "/libconvertwayshunt.so";
  void *h = dlopen(lib.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!h) Env::get().why_not = std::string("cannot load the library: ") + dlerror();
  return h;
}

void setup(bool gate_open) {
  Env &e = Env::get();
  e.gate_open = gate_open;
  const char *tmp = getenv("TMPDIR");
  std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/cnvtest.XXXXXX";
  if (!mkdtemp(tmpl.data())) {
    e.why_not = "cannot make a temporary folder";
    return;
  }
  e.root = tmpl;
  e.bootflash = e.root + "/bootflash";
  e.mnt_kvs = e.root + "/mnt_kvs";
  e.store_dir = e.root + "/store";
  e.standby = e.root + "/standby";
  e.hub_dir = e.root + "/hub";
  for (const auto &d : {e.bootflash, e.mnt_kvs, e.store_dir, e.standby, e.hub_dir}) fs::create_directories(d);
  setenv("PLAT_STANDBY_ROOT", e.standby.c_str(), 1);
  setenv("PLAT_HUB_DIR", e.hub_dir.c_str(), 1);
  // Every key and value the store hands out ends at a guard page, so a read
  // past its siz fails the test.
  setenv("PLAT_KVS_GUARD", "1", 1);
  std::string err = devroot::enter({{"/bootflash", e.bootflash}, {"/mnt/kvs", e.mnt_kvs}});
  if (!err.empty()) {
    e.why_not = "no private device root on this machine (" + err + "): library tests skipped";
    return;
  }
  e.handle = load_library(gate_open);
  e.ready = e.handle != nullptr;
}

void teardown() {
  Env &e = Env::get();
  if (e.handle) dlclose(e.handle);
  e.handle = nullptr;
  std::error_code ec;
  if (!e.root.empty()) fs::remove_all(e.root, ec);
}

void set_move(const std::string &from_version, const std::string &to_version) {
  const Env &e = Env::get();
  std::string from = e.root + "/from.reldesc", to = e.root + "/to.reldesc";
  testsupport::write_file(from, from_version.empty() ? "NAME=x\n" : "NAME=x\nSW_VERSION=" + from_version + "\n");
  testsupport::write_file(to, to_version.empty() ? "NAME=x\n" : "NAME=x\nSW_VERSION=" + to_version + "\n");
  setenv("OVERSEER_FROM_RELDESC_PATH", from.c_str(), 1);
  setenv("OVERSEER_TO_RELDESC_PATH", to.c_str(), 1);
}

std::string take_log() {
  std::string path = Env::get().bootflash + "/wayshunt_cnv.log";
  std::string text = testsupport::read_file(path);
  unlink(path.c_str());
  return text;
}

namespace {

// Whether text at i holds a ctime text such as "Mon Nov 23 00:25:56 2026".
bool time_at(const std::string &t, size_t i) {
  static const char shape[] = "Aaa Aaa _9 99:99:99 9999";
  if (i + sizeof shape - 1 > t.size()) return false;
  for (size_t k = 0; shape[k]; k++) {
    unsigned char c = t[i + k];
    bool ok = shape[k] == 'A' ? std::isupper(c) : shape[k] == 'a' ? std::islower(c)
            : shape[k] == '9' ? std::isdigit(c) : shape[k] == '_' ? (c == ' ' || std::isdigit(c)) : c == shape[k];
    if (!ok) return false;
  }
  return true;
}

}  // namespace

std::string normalized(const std::string &log) {
  std::string out;
  for (size_t i = 0; i < log.size();) {
    if (log.compare(i, 3, "():") == 0) {
      size_t j = i + 3;
      while (j < log.size() && std::isdigit(static_cast<unsigned char>(log[j]))) j++;
      if (j > i + 3 && j < log.size() && log[j] == ' ') {
        out += "():N ";
        i = j + 1;
        continue;
      }
    }
    if (time_at(log, i)) {
      out += "<time>";
      i += 24;
      continue;
    }
    out += log[i++];
  }
  return out;
}

void expect_golden(const std::string &name, const std::string &text, bool head_only) {
  std::string path = std::string(CNV_GOLDEN_DIR) + "/" + name + ".log";
  const char *update = getenv("WAYSHUNT_UPDATE_GOLDEN");
  if (update && std::strcmp(update, "1") == 0) {
    if (!head_only) testsupport::write_file(path, text);
    return;
  }
  std::string want = testsupport::read_file(path), got = text;
  if (head_only) {
    want = want.substr(0, want.find("-- log\n"));
    got = got.substr(0, got.find("-- log\n"));
  }
  if (want == got) return;
  size_t line = 1, i = 0;
  for (; i < want.size() && i < got.size() && want[i] == got[i]; i++) line += want[i] == '\n';
  ADD_FAILURE() << path << " differs from line " << line << " on (WAYSHUNT_UPDATE_GOLDEN=1 rewrites it):\n"
                << "want: " << want.substr(want.rfind('\n', i) + 1, 300) << "\ngot:  "
                << got.substr(got.rfind('\n', i) + 1, 300);
}

std::string runtime_url() { return "nonvolatile:" + Env::get().store_dir + "/wayshunt_runtime_ha"; }

bool store_exists() { return fs::exists(Env::get().store_dir + "/wayshunt_runtime_ha.mdb"); }

void make_store(const Records &records) {
  std::string url = runtime_url();
  kvs_remove(url.c_str());
  ASSERT_EQ(kvs_create(url.c_str()), 0u);
  retcode_t st = 0;
  kvs_service_t s = kvs_open(url.c_str(), &st);
  ASSERT_EQ(st, 0u);
  for (const auto &[k, v] : records) {
    kvs_datum_t kd{const_cast<char *>(k.data()), static_cast<unsigned>(k.size())};
    kvs_datum_t vd{const_cast<char *>(v.data()), static_cast<unsigned>(v.size())};
    ASSERT_EQ(kvs_store(s, KVS_STORE_REPLACE, &kd, &vd), 0u);
  }
  ASSERT_EQ(kvs_close(s), 0u);
}

Records read_store() {
  Records r;
  std::string url = runtime_url();
  retcode_t st = 0;
  kvs_service_t s = kvs_open(url.c_str(), &st);
  EXPECT_EQ(st, 0u) << retcode2str(st);
  if (st) return r;
  for (auto k = kvs_move2location(s, KVS_LOC_FIRST, &st); k; k = kvs_move2location(s, KVS_LOC_NEXT, &st)) {
    const kvs_datum_t *v = kvs_getvalue(s, &st);
    r[Bytes(static_cast<const char *>(k->ptr), k->siz)] = v ? Bytes(static_cast<const char *>(v->ptr), v->siz) : "";
  }
  EXPECT_EQ(kvs_close(s), 0u);
  return r;
}

Bytes hx(const std::string &hex) {
  Bytes b;
  std::string digits;
  for (char c : hex)
    if (!std::isspace(static_cast<unsigned char>(c))) digits += c;
  for (size_t i = 0; i + 1 < digits.size(); i += 2) b += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return b;
}

std::string hex(const Bytes &b) {
  std::string s;
  char buf[4];
  for (unsigned char c : b) {
    std::snprintf(buf, sizeof buf, s.empty() ? "%02x" : " %02x", c);
    s += buf;
  }
  return s;
}

retcode_t gsync_at(const std::string &path) {
  auto f = Env::get().fn<retcode_t(char *, char *, char *, char *)>("convert_gsync");
  std::string pkg = "wayshunt", to = "to", from = "from";
  return f(const_cast<char *>(path.c_str()), pkg.data(), to.data(), from.data());
}

retcode_t gsync(const char *to, const char *from) {
  auto f = Env::get().fn<retcode_t(char *, char *, char *, char *)>("convert_gsync");
  std::string path = Env::get().store_dir, pkg = "wayshunt", t = to, fr = from;
  return f(path.data(), pkg.data(), t.data(), fr.data());
}

}  // namespace cnv
