// Fault injection and call journal shared by all platform stand-ins.
#include "plat_hooks.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "fault_rules.h"

namespace {

struct State {
  std::mutex mu;
  std::atomic<bool> env_read{false};
  std::vector<plat::FaultRule> rules;
  std::atomic<bool> has_rules{false};  // rules is not empty
  // Call counts by name; nodes stay put, so a counter's address is stable.
  std::map<std::string, std::atomic<uint32_t>, std::less<>> calls;  // never erased
  std::string error;
  FILE *journal = nullptr;
  std::atomic<bool> journal_on{false};
};

State &state() {
  static State *s = new State;  // never destroyed: stand-ins may be called from exit handlers
  return *s;
}

// Reads PLAT_FAULTS and PLAT_JOURNAL once, at the first use. A bad rule in
// the environment is reported on stderr, since there is no caller to tell.
void read_env_locked(State &s) {
  if (s.env_read.load(std::memory_order_relaxed)) return;
  if (const char *text = std::getenv("PLAT_FAULTS"); text && *text) {
    std::string err;
    if (!plat::parse_fault_rules(text, s.rules, err)) std::fprintf(stderr, "PLAT_FAULTS: %s; no fault injected\n", err.c_str());
  }
  if (const char *path = std::getenv("PLAT_JOURNAL"); path && *path) s.journal = std::fopen(path, "a");
  s.has_rules.store(!s.rules.empty());
  s.journal_on.store(s.journal != nullptr);
  s.env_read.store(true, std::memory_order_release);
}

// The environment is read once; after that the hot calls take no lock for it.
State &ready() {
  State &s = state();
  if (!s.env_read.load(std::memory_order_acquire)) {
    std::lock_guard lock(s.mu);
    read_env_locked(s);
  }
  return s;
}

using Counts = std::map<std::string, std::atomic<uint32_t>, std::less<>>;

std::atomic<uint32_t> *counter_locked(State &s, const char *func) {
  auto it = s.calls.find(std::string_view(func));
  if (it == s.calls.end()) it = s.calls.try_emplace(std::string(func), 0u).first;
  return &it->second;
}

// The counter of func, found by the address of the name first: the stand-ins
// pass string literals, so after the first call of a function its counter is
// one probe away and no lock is taken. The name is still compared, since a
// library unloaded and another loaded may put other text at an old address.
// A full cache only costs the slow way.
std::atomic<uint32_t> *counter(State &s, const char *func) {
  struct Slot {
    std::atomic<const char *> name{nullptr};
    std::atomic<Counts::value_type *> entry{nullptr};
  };
  static Slot cache[256];
  size_t h = (reinterpret_cast<uintptr_t>(func) >> 3) * 0x9e3779b97f4a7c15ull >> 56;
  for (size_t i = 0; i < 8; i++) {
    Slot &c = cache[(h + i) % 256];
    const char *n = c.name.load(std::memory_order_acquire);
    if (n == func) {
      Counts::value_type *e = c.entry.load(std::memory_order_acquire);
      if (e && e->first == func) return &e->second;
      break;
    }
    if (n != nullptr) continue;
    std::lock_guard lock(s.mu);
    auto it = s.calls.find(std::string_view(func));
    if (it == s.calls.end()) it = s.calls.try_emplace(std::string(func), 0u).first;
    const char *expected = nullptr;
    if (c.name.load() == nullptr) {
      c.entry.store(&*it, std::memory_order_release);
      c.name.compare_exchange_strong(expected, func, std::memory_order_acq_rel);
    }
    return &it->second;
  }
  std::lock_guard lock(s.mu);
  return counter_locked(s, func);
}

}  // namespace

extern "C" int plat_fault_add(const char *text) {
  State &s = state();
  std::lock_guard lock(s.mu);
  read_env_locked(s);
  if (!text || !plat::parse_fault_rules(text, s.rules, s.error)) {
    if (!text) s.error = "no rule text";
    errno = EINVAL;
    return -1;
  }
  s.error.clear();
  s.has_rules.store(!s.rules.empty());
  return 0;
}

extern "C" const char *plat_fault_error(void) {
  State &s = state();
  std::lock_guard lock(s.mu);
  return s.error.c_str();
}

// Counts go back to 0 rather than away, so that cached counters stay valid.
extern "C" void plat_fault_reset(void) {
  State &s = state();
  std::lock_guard lock(s.mu);
  s.env_read.store(true, std::memory_order_release);
  s.rules.clear();
  s.has_rules.store(false);
  for (auto &[name, n] : s.calls) n.store(0);
  s.error.clear();
}

// The number of this call of a function: its counter plus one. The count
// is a plain increment, not a locked one: a locked add waits for every
// store the caller has pending (a store rewriting pages, say) and cost more
// than the store call it counted. The stand-ins serve one conversion thread
// at a time; two threads calling the same function at the same instant
// could both get the same number, and one of the calls would go uncounted.
static uint32_t next_call(std::atomic<uint32_t> *count) {
  uint32_t n = count->load(std::memory_order_relaxed) + 1;
  count->store(n, std::memory_order_relaxed);
  return n;
}

// Whether call number n of func fails, and how.
// A signal rule raises its signal at the call (outside the lock), and the
// call goes on unfailed.
static int rule_hit(State &s, const char *func, uint32_t n, plat_fault_t *fault) {
  if (!s.has_rules.load(std::memory_order_acquire)) return 0;
  plat_fault_t hit{};
  {
    std::lock_guard lock(s.mu);
    std::string_view name(func);
    auto r = std::find_if(s.rules.begin(), s.rules.end(),
                          [&](const plat::FaultRule &r) { return r.func == name && n >= r.first && n <= r.last; });
    if (r == s.rules.end()) return 0;
    hit = r->fault;
  }
  if (hit.kind == PLAT_FAULT_SIGNAL) {
    raise(static_cast<int>(hit.value));
    return 0;
  }
  if (fault) *fault = hit;
  return 1;
}

// Without rules a call costs one count and no lock.
extern "C" int plat_fault_hit(const char *func, plat_fault_t *fault) {
  State &s = ready();
  return rule_hit(s, func, next_call(counter(s, func)), fault);
}

// A site has its counter only after a first call that read the environment,
// so later calls skip that check.
extern "C" int plat_fault_hit_at(plat_fault_site_t *site, plat_fault_t *fault) {
  auto *count = static_cast<std::atomic<uint32_t> *>(__atomic_load_n(&site->count, __ATOMIC_ACQUIRE));
  State &s = count ? state() : ready();
  if (!count) {
    std::lock_guard lock(s.mu);
    count = counter_locked(s, site->func);
    __atomic_store_n(&site->count, static_cast<void *>(count), __ATOMIC_RELEASE);
  }
  return rule_hit(s, site->func, next_call(count), fault);
}

extern "C" uint32_t plat_call_count(const char *func) {
  State &s = state();
  std::lock_guard lock(s.mu);
  auto it = s.calls.find(std::string_view(func ? func : ""));
  return it == s.calls.end() ? 0 : it->second.load();
}

extern "C" int plat_journal_set(const char *path) {
  State &s = state();
  std::lock_guard lock(s.mu);
  read_env_locked(s);
  if (s.journal) std::fclose(s.journal);
  s.journal = nullptr;
  s.journal_on.store(false);
  if (!path) return 0;
  s.journal = std::fopen(path, "a");
  s.journal_on.store(s.journal != nullptr);
  return s.journal ? 0 : -1;
}

extern "C" int plat_journal_on(void) { return ready().journal_on.load(std::memory_order_acquire); }

extern "C" void plat_journal(const char *format, ...) {
  State &s = ready();
  if (!s.journal_on.load(std::memory_order_acquire)) return;
  std::lock_guard lock(s.mu);
  if (!s.journal) return;
  va_list ap;
  va_start(ap, format);
  std::vfprintf(s.journal, format, ap);
  va_end(ap);
  std::fputc('\n', s.journal);
  std::fflush(s.journal);
}
