// The generator's random numbers: splitmix64, small, fast and the same on
// every platform, so that a seed gives the same store everywhere.
#ifndef TOOLS_WAYSHUNT_CONVERT_RNG_H
#define TOOLS_WAYSHUNT_CONVERT_RNG_H

#include <cstdint>

namespace wsc {

class Rng {
 public:
  explicit Rng(uint64_t seed) : s_(seed) {}
  uint64_t next() {
    uint64_t z = (s_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  uint32_t below(uint32_t n) { return static_cast<uint32_t>(next() % n); }
  bool chance(uint32_t percent) { return below(100) < percent; }

 private:
  uint64_t s_;
};

}  // namespace wsc

#endif
