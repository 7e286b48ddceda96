// portmap_get_slot(): the slot of an interface, from the table file named by
// PLAT_PORTMAP_TABLE when it lists the interface, else from the interface
// index encoding. The parsed table is cached and read again only when the
// variable's value changes or on portmap_table_reload(), since lookups come
// by the million; portmap_table_forget() drops every reading.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "plat_hooks.h"
#include "portmap.h"
#include "portmap_admin.h"
#include "portmap_table.h"

namespace {

// One reading of the table named by PLAT_PORTMAP_TABLE; never changed once
// published.
struct Loaded {
  bool have_path = false;  // PLAT_PORTMAP_TABLE was set
  std::string path;        // and its value
  bool bad = false;        // the table could not be read or parsed
  portmap::Table table;
};

// Lookups read the published reading without a lock (a lock on every
// lookup waited for the caller's pending stores and cost more than the
// lookup); readings are made under the lock and kept until exit, since a
// lookup of another thread may still be reading an older one.
struct Cache {
  std::mutex mu;
  std::atomic<const Loaded *> now{nullptr};
  std::vector<std::unique_ptr<Loaded>> all;
};

Cache &cache() {
  static Cache *c = new Cache;  // never destroyed: lookups may come from exit handlers
  return *c;
}

// Whether l was read for the variable's present value env.
bool fits(const Loaded &l, const char *env) { return l.have_path == (env != nullptr) && (!env || l.path == env); }

// Whole contents of path; false with errno set when it cannot be read.
bool read_whole(const std::string &path, std::string &out) {
  struct Fd {
    int fd;
    ~Fd() {
      if (fd >= 0) close(fd);
    }
  } f{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  if (f.fd < 0) return false;
  char buf[8192];
  for (;;) {
    ssize_t n = read(f.fd, buf, sizeof buf);
    if (n == 0) return true;
    if (n < 0 && errno != EINTR) return false;
    if (n > 0) out.append(buf, static_cast<size_t>(n));
  }
}

// Reads the table named by env (null or empty: none) and publishes it.
const Loaded *load_locked(Cache &c, const char *env) {
  auto l = std::make_unique<Loaded>();
  l->have_path = env != nullptr;
  l->path = env ? env : "";
  if (!l->path.empty()) {
    std::string text;
    unsigned line = 0;
    std::string problem;
    if (!read_whole(l->path, text)) {
      std::fprintf(stderr, "portmap: %s: cannot read the table: %s\n", l->path.c_str(), std::strerror(errno));
      l->bad = true;
    } else if (!portmap::parse_table(text, l->table, line, problem)) {
      std::fprintf(stderr, "portmap: %s:%u: %s\n", l->path.c_str(), line, problem.c_str());
      l->table.clear();
      l->bad = true;
    }
  }
  c.all.push_back(std::move(l));
  c.now.store(c.all.back().get(), std::memory_order_release);
  return c.all.back().get();
}

// The reading for the variable's present value, made now unless the
// published one is for it.
const Loaded *reading(Cache &c) {
  const char *env = std::getenv("PLAT_PORTMAP_TABLE");
  const Loaded *l = c.now.load(std::memory_order_acquire);
  if (l && fits(*l, env)) return l;
  std::lock_guard lock(c.mu);
  l = c.now.load(std::memory_order_relaxed);
  return l && fits(*l, env) ? l : load_locked(c, env);
}

retcode_t slot_from_encoding(if_index_t idx, slot_num_t *slot) {
  if (IF_INDEX_IS_FC(idx)) {
    *slot = static_cast<slot_num_t>(IF_INDEX_FC_SLOT(idx));
    return PLAT_OK;
  }
  if (IF_INDEX_IS_PORT_CHANNEL(idx) || IF_INDEX_IS_VIRTUAL(idx)) return PORTMAP_ERR_NO_SLOT;
  return PORTMAP_ERR_BAD_IF_INDEX;
}

retcode_t lookup(if_index_t idx, slot_num_t *slot) {
  const Loaded *l;
  try {
    l = reading(cache());
  } catch (const std::bad_alloc &) {
    return PLAT_ERR_NO_MEMORY;  // nothing was published: the next lookup tries again
  }
  if (l->bad) return PORTMAP_ERR_TABLE;
  auto it = l->table.find(idx);
  if (it == l->table.end()) return slot_from_encoding(idx, slot);
  if (it->second.status != 0) return it->second.status;
  *slot = it->second.slot;
  return PLAT_OK;
}

}  // namespace

extern "C" retcode_t portmap_get_slot(if_index_t if_index, slot_num_t *slot_num) {
  plat_fault_t f{PLAT_FAULT_STATUS, 0};
  static plat_fault_site_t site = PLAT_FAULT_SITE("portmap_get_slot");
  if (plat_fault_hit_at(&site, &f)) return (f.kind == PLAT_FAULT_STATUS && f.value) ? f.value : PLAT_ERR_INJECTED;
  slot_num_t slot = 0;
  retcode_t rc = slot_num ? lookup(if_index, &slot) : PLAT_ERR_INVALID;
  if (rc == PLAT_OK) {
    *slot_num = slot;
    plat_journal("portmap_get_slot(0x%08x) = 0 slot %u", if_index, unsigned{slot});
  } else {
    plat_journal("portmap_get_slot(0x%08x) = 0x%08x", if_index, rc);
  }
  return rc;
}

// Not fault-checked or journalled: it controls the stand-in, it is no
// platform call.
extern "C" int portmap_table_reload(void) {
  Cache &c = cache();
  std::lock_guard lock(c.mu);
  try {
    return load_locked(c, std::getenv("PLAT_PORTMAP_TABLE"))->bad ? -1 : 0;
  } catch (const std::bad_alloc &) {
    c.now.store(nullptr, std::memory_order_release);  // the next lookup reads the table again
    return -1;
  }
}

// Not fault-checked or journalled either. The caller vouches that no lookup
// is in flight (see portmap_admin.h), so the readings kept for lookups of
// other threads can go.
extern "C" void portmap_table_forget(void) {
  Cache &c = cache();
  std::lock_guard lock(c.mu);
  c.now.store(nullptr, std::memory_order_release);
  c.all.clear();
}
