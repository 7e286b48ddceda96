// Synthetic runtime stores shaped like a switch's: targets behind storage
// arrays, hosts in a few fabrics, flow-thru records per host and target, RW
// ACL entries (a share on ISLs, in groups of physical and virtual entries of
// one target on one slot with one source pair), ELS ACL entries and, outside
// 3.2, one line-card record per slot. Deterministic for a seed.
#ifndef TOOLS_WAYSHUNT_CONVERT_SYNTH_H
#define TOOLS_WAYSHUNT_CONVERT_SYNTH_H

#include <cstdint>

#include "records/era.h"
#include "records/record.h"

namespace wsc {

// Exactly count records in the stored forms of era.
Records synthesize_store(Era era, size_t count, uint64_t seed);

}  // namespace wsc

#endif
