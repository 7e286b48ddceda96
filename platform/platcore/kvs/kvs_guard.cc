// Guarded copies of handed-out data: see kvs_guard.h.
#include "kvs_guard.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define KVS_GUARD_BY_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KVS_GUARD_BY_SANITIZER 1
#endif
#endif

namespace kvs {

bool guard_wanted() {
  const char *s = std::getenv("PLAT_KVS_GUARD");
  return s && std::strcmp(s, "1") == 0;
}

#ifdef KVS_GUARD_BY_SANITIZER

GuardedCopies::~GuardedCopies() { retire_all(); }

const kvs_datum_t *GuardedCopies::copy(const void *data, size_t len) {
  auto *bytes = static_cast<unsigned char *>(std::malloc(len));  // 0 bytes: a block with nothing readable
  auto *d = static_cast<kvs_datum_t *>(std::malloc(sizeof(kvs_datum_t)));
  if ((!bytes && len) || !d) {
    std::free(bytes);
    std::free(d);
    return nullptr;
  }
  if (len) std::memcpy(bytes, data, len);
  *d = kvs_datum_t{bytes, static_cast<unsigned int>(len)};
  copies_.push_back({d, bytes, std::vector<unsigned char>(bytes, bytes + len)});
  return d;
}

void GuardedCopies::retire_all() {
  for (Copy &c : copies_) {
    bool same = c.datum->ptr == c.bytes && c.datum->siz == c.handed.size() &&
                (c.handed.empty() || std::memcmp(c.bytes, c.handed.data(), c.handed.size()) == 0);
    if (!same) {
      std::fprintf(stderr, "kvs: store data handed out was written by its caller (%zu bytes at %p)\n",
                   c.handed.size(), static_cast<void *>(c.bytes));
      std::abort();
    }
    std::free(c.bytes);
    std::free(c.datum);
  }
  copies_.clear();
}

#else

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

#endif

}  // namespace kvs
