// Guarded copies of the data a store hands out, for the test mode switched
// on by PLAT_KVS_GUARD=1: each datum is copied into pages of its own, placed
// so that its last byte is the last byte before an inaccessible page, and
// the copy is read-only. Retiring the copies (when the cursor moves or its
// key is deleted) makes them inaccessible too, so a read past siz, a write
// into store data or a use after the cursor moved crashes at once.
//
// Built with AddressSanitizer, the copies are heap blocks of exactly siz
// bytes instead, which the sanitizer guards to the byte: a read past siz is
// reported at once, and retiring frees them, so a use after the cursor moved
// is reported too. A write into store data is found when the copy retires
// (its bytes are compared with the store's) and aborts with a message. This
// costs a fraction of the page mappings, which fuzzing runs by the million.
#ifndef PLAT_KVS_GUARD_H
#define PLAT_KVS_GUARD_H

#include <cstddef>
#include <deque>
#include <vector>

#include "kvs_defs.h"

namespace kvs {

// True when PLAT_KVS_GUARD is "1" in the environment.
bool guard_wanted();

class GuardedCopies {
 public:
  GuardedCopies() = default;
  ~GuardedCopies();
  GuardedCopies(const GuardedCopies &) = delete;
  GuardedCopies &operator=(const GuardedCopies &) = delete;

  // A datum on a read-only copy of len bytes that ends at a guard page, or
  // null when no mapping could be made. The datum itself lies in the same
  // pages, so a datum kept past its retirement cannot even be read. A copy
  // of 0 bytes points at the guard page.
  const kvs_datum_t *copy(const void *data, size_t len);
  // Makes every live copy inaccessible. Retired copies stay mapped (and
  // inaccessible) for a while, so that their addresses are not handed out
  // again at once; the oldest are unmapped when too many have gathered.
  void retire_all();

 private:
  struct Region {
    void *base;
    size_t len;
  };
  static constexpr size_t kKeepRetired = 4096;
  std::vector<Region> live_;
  std::deque<Region> retired_;
  // With the sanitizer: each live copy, its bytes, and those bytes as handed out.
  struct Copy {
    kvs_datum_t *datum;
    unsigned char *bytes;
    std::vector<unsigned char> handed;
  };
  std::vector<Copy> copies_;
};

}  // namespace kvs

#endif
