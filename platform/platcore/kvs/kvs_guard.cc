// Guarded copies of handed-out data: see kvs_guard.h.
#include "kvs_guard.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace kvs {

bool guard_wanted() {
  const char *s = std::getenv("PLAT_KVS_GUARD");
  return s && std::strcmp(s, "1") == 0;
}

GuardedCopies::~GuardedCopies() {
  for (const Region &r : live_) munmap(r.base, r.len);
  for (const Region &r : retired_) munmap(r.base, r.len);
}

const kvs_datum_t *GuardedCopies::copy(const void *data, size_t len) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t need = len + 2 * sizeof(kvs_datum_t);  // the datum, and room to align it
  const size_t body = (need + page - 1) / page * page;
  void *base = mmap(nullptr, body + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (base == MAP_FAILED) return nullptr;
  auto *guard = static_cast<unsigned char *>(base) + body;
  auto *start = guard - len;
  if (len) std::memcpy(start, data, len);
  auto *d = new (base) kvs_datum_t{start, static_cast<unsigned int>(len)};
  if (mprotect(guard, page, PROT_NONE) != 0 || mprotect(base, body, PROT_READ) != 0) {
    munmap(base, body + page);
    return nullptr;
  }
  live_.push_back({base, body + page});
  return d;
}

void GuardedCopies::retire_all() {
  for (const Region &r : live_) {
    mprotect(r.base, r.len, PROT_NONE);
    retired_.push_back(r);
  }
  live_.clear();
  while (retired_.size() > kKeepRetired) {
    munmap(retired_.front().base, retired_.front().len);
    retired_.pop_front();
  }
}

}  // namespace kvs
