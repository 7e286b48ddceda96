// Random runtime stores for the library tests, and one run of a conversion
// on a store with its outcome: status, store and delete calls, final store
// and log.
#ifndef TESTS_LIBRARY_STORE_GEN_H
#define TESTS_LIBRARY_STORE_GEN_H

#include <functional>
#include <random>
#include <string>

#include "cnv_env.h"

namespace cnv {

// The portmap table the random stores are made for: fc7/1 fails, fc9/1
// gives slot 255 (port-channels have no slot anyway).
extern const char kPortmap[];

// A move of the ladder, and the era of the stores it starts from.
struct Move {
  const char *from, *to;
  bool era32;
};
extern const Move kLadder[6];

// Stores of few targets with long chains, groups sharing slot and source
// pair, any mix of the flag bits, slots that fail or are 255, RW entries of
// types 56 and 57 sharing hash keys with type 55, 82- and 84-byte and odd
// values, flow-thru keys of either width, ELS and line card records and a
// type no conversion knows. max_chain bounds the chains.
struct Gen {
  std::mt19937_64 r;
  unsigned max_chain = 60;
  unsigned below(unsigned n) { return static_cast<unsigned>(r() % n); }
  bool chance(unsigned percent) { return below(100) < percent; }
  uint32_t flags();
  size_t rw_size(bool era32, uint8_t type);
  Records store(bool era32);
  // No fault, or a kvs_store or kvs_delete that fails now and then.
  std::string faults();
};

struct Outcome {
  retcode_t rc = 0;
  Records store;
  std::string calls;  // the kvs_open, _close, _store and _delete journal lines, without handles
  std::string log;    // normalized
};

// Runs fn (a call of the library in Env::handle) on a fresh store holding
// in, under the move and the fault rules.
Outcome run_on(const Records &in, const char *from, const char *to, const std::string &faults,
               const std::function<retcode_t()> &fn);
Outcome convert(const Records &in, const char *from, const char *to, const std::string &faults = "");

// The records as "key = value" lines of hex.
std::string dump(const Records &s);

}  // namespace cnv

#endif
