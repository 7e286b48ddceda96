// Fault injection and call journal shared by all platform stand-ins.
#include "plat_hooks.h"

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
  bool env_read = false;
  std::vector<plat::FaultRule> rules;
  std::map<std::string, uint32_t, std::less<>> calls;
  std::string error;
  FILE *journal = nullptr;
};

State &state() {
  static State *s = new State;  // never destroyed: stand-ins may be called from exit handlers
  return *s;
}

// Reads PLAT_FAULTS and PLAT_JOURNAL once, at the first use. A bad rule in
// the environment is reported on stderr, since there is no caller to tell.
void read_env_locked(State &s) {
  if (s.env_read) return;
  s.env_read = true;
  if (const char *text = std::getenv("PLAT_FAULTS"); text && *text) {
    std::string err;
    if (!plat::parse_fault_rules(text, s.rules, err)) std::fprintf(stderr, "PLAT_FAULTS: %s; no fault injected\n", err.c_str());
  }
  if (const char *path = std::getenv("PLAT_JOURNAL"); path && *path) s.journal = std::fopen(path, "a");
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
  return 0;
}

extern "C" const char *plat_fault_error(void) {
  State &s = state();
  std::lock_guard lock(s.mu);
  return s.error.c_str();
}

extern "C" void plat_fault_reset(void) {
  State &s = state();
  std::lock_guard lock(s.mu);
  s.env_read = true;
  s.rules.clear();
  s.calls.clear();
  s.error.clear();
}

extern "C" int plat_fault_hit(const char *func, plat_fault_t *fault) {
  State &s = state();
  std::lock_guard lock(s.mu);
  read_env_locked(s);
  std::string_view name(func);
  auto it = s.calls.find(name);
  if (it == s.calls.end()) it = s.calls.emplace(std::string(name), 0).first;
  uint32_t n = ++it->second;
  for (const auto &r : s.rules) {
    if (r.func != name || n < r.first || n > r.last) continue;
    if (fault) *fault = r.fault;
    return 1;
  }
  return 0;
}

extern "C" uint32_t plat_call_count(const char *func) {
  State &s = state();
  std::lock_guard lock(s.mu);
  auto it = s.calls.find(std::string_view(func ? func : ""));
  return it == s.calls.end() ? 0 : it->second;
}

extern "C" int plat_journal_set(const char *path) {
  State &s = state();
  std::lock_guard lock(s.mu);
  read_env_locked(s);
  if (s.journal) std::fclose(s.journal);
  s.journal = nullptr;
  if (!path) return 0;
  s.journal = std::fopen(path, "a");
  return s.journal ? 0 : -1;
}

extern "C" int plat_journal_on(void) {
  State &s = state();
  std::lock_guard lock(s.mu);
  read_env_locked(s);
  return s.journal != nullptr;
}

extern "C" void plat_journal(const char *format, ...) {
  State &s = state();
  std::lock_guard lock(s.mu);
  read_env_locked(s);
  if (!s.journal) return;
  va_list ap;
  va_start(ap, format);
  std::vfprintf(s.journal, format, ap);
  va_end(ap);
  std::fputc('\n', s.journal);
  std::fflush(s.journal);
}
