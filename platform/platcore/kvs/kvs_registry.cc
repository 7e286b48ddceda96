// The handles of the open stores: see kvs_registry.h.
#include "kvs_registry.h"

#include <sys/stat.h>

#include <atomic>
#include <mutex>

#include "kvs_handle.h"

namespace kvs {

namespace {

struct Slot {
  std::atomic<kvs_service_t> id{0};  // 0: free; set after h, cleared before h goes
  std::atomic<Handle *> h{nullptr};
};

struct Registry {
  std::mutex mu;  // held by open, close and is_open
  Slot slot[kMaxOpen];
  size_t count = 0;
  kvs_service_t next_id = 1;  // never reused, so a stale handle is recognised
};

Registry &registry() {
  static Registry *r = new Registry;  // never destroyed: stores may be closed from exit handlers
  return *r;
}

// The slot holding id, searched from slot id % kMaxOpen on; null if none.
Slot *slot_of(Registry &r, kvs_service_t id) {
  if (id == 0) return nullptr;
  for (size_t i = 0; i < kMaxOpen; i++) {
    Slot &s = r.slot[(id + i) % kMaxOpen];
    if (s.id.load(std::memory_order_acquire) == id) return &s;
  }
  return nullptr;
}

}  // namespace

bool is_open(const std::string &file) {
  struct stat st;
  if (stat(file.c_str(), &st) != 0) return false;
  Registry &r = registry();
  std::lock_guard lock(r.mu);
  for (const Slot &s : r.slot) {
    const Handle *h = s.id.load(std::memory_order_relaxed) ? s.h.load(std::memory_order_relaxed) : nullptr;
    if (h && h->dev() == st.st_dev && h->ino() == st.st_ino) return true;
  }
  return false;
}

size_t open_count() {
  Registry &r = registry();
  std::lock_guard lock(r.mu);
  return r.count;
}

retcode_t add_handle(Handle *h, kvs_service_t *id) {
  Registry &r = registry();
  std::lock_guard lock(r.mu);
  if (r.count >= kMaxOpen) return KVS_ERR_TOO_MANY;
  kvs_service_t n = r.next_id++;
  for (size_t i = 0;; i++) {
    Slot &s = r.slot[(n + i) % kMaxOpen];
    if (s.id.load(std::memory_order_relaxed) != 0) continue;
    s.h.store(h, std::memory_order_relaxed);
    s.id.store(n, std::memory_order_release);
    break;
  }
  r.count++;
  *id = n;
  return 0;
}

Handle *find_handle(kvs_service_t id) {
  Slot *s = slot_of(registry(), id);
  return s ? s->h.load(std::memory_order_relaxed) : nullptr;
}

Handle *remove_handle(kvs_service_t id) {
  Registry &r = registry();
  std::lock_guard lock(r.mu);
  Slot *s = slot_of(r, id);
  if (!s) return nullptr;
  Handle *h = s->h.load(std::memory_order_relaxed);
  s->id.store(0, std::memory_order_release);
  r.count--;
  return h;
}

}  // namespace kvs
