// portmap_get_slot(): the slot of an interface, from the table file named by
// PLAT_PORTMAP_TABLE when it lists the interface, else from the interface
// index encoding. The parsed table is cached and read again only when the
// variable's value changes or on portmap_table_reload(), since lookups come
// by the million.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string>

#include "plat_hooks.h"
#include "portmap.h"
#include "portmap_admin.h"
#include "portmap_table.h"

namespace {

struct Cache {
  std::mutex mu;
  bool loaded = false;
  bool have_path = false;  // PLAT_PORTMAP_TABLE was set when loaded
  std::string path;        // and its value
  bool bad = false;        // the table could not be read or parsed
  portmap::Table table;
};

Cache &cache() {
  static Cache *c = new Cache;  // never destroyed: lookups may come from exit handlers
  return *c;
}

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

// Reads the table named by env (null or empty: none) into c.
void load_locked(Cache &c, const char *env) {
  c.loaded = true;
  c.have_path = env != nullptr;
  c.path = env ? env : "";
  c.bad = false;
  c.table.clear();
  if (c.path.empty()) return;
  std::string text;
  if (!read_whole(c.path, text)) {
    std::fprintf(stderr, "portmap: %s: cannot read the table: %s\n", c.path.c_str(), std::strerror(errno));
    c.bad = true;
    return;
  }
  unsigned line = 0;
  std::string problem;
  if (!portmap::parse_table(text, c.table, line, problem)) {
    std::fprintf(stderr, "portmap: %s:%u: %s\n", c.path.c_str(), line, problem.c_str());
    c.table.clear();
    c.bad = true;
  }
}

// Loads the table unless the cached one is for the variable's present value.
void refresh_locked(Cache &c) {
  const char *env = std::getenv("PLAT_PORTMAP_TABLE");
  if (c.loaded && c.have_path == (env != nullptr) && (!env || c.path == env)) return;
  load_locked(c, env);
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
  Cache &c = cache();
  std::lock_guard lock(c.mu);
  try {
    refresh_locked(c);
  } catch (const std::bad_alloc &) {
    c.loaded = false;  // try again at the next lookup
    c.table.clear();
    return PLAT_ERR_NO_MEMORY;
  }
  if (c.bad) return PORTMAP_ERR_TABLE;
  auto it = c.table.find(idx);
  if (it == c.table.end()) return slot_from_encoding(idx, slot);
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
    load_locked(c, std::getenv("PLAT_PORTMAP_TABLE"));
  } catch (const std::bad_alloc &) {
    c.loaded = false;
    c.table.clear();
    return -1;
  }
  return c.bad ? -1 : 0;
}
