// The invariants of a store's era, and those a move up or down leaves
// behind, checked record by record:
//
// Every era: each key starts with the 2-byte type header; flow-thru values
// are 4 bytes; RW ACL keys 10 bytes; ELS ACL values 37 bytes.
//   3.2   flow-thru keys 18 bytes; ACL_RW_1 values 84 bytes, ACL_RW_2/3 82;
//         no RUNTIME_LC_INFO record (the move down to 3.2 deletes them)
//   4.1   flow-thru keys 18 bytes; RW values 82 bytes
//   4.2   flow-thru keys 22 bytes; RW values 82 bytes
// After a move up (the store is then in the 4.2 forms):
//   - flow-thru keys were widened: vsan 0 and value 0;
//   - the RW repair leaves no DROP_ALL with a non-zero dst_sid_wwn, no
//     PGM_BUSY with FO, no VW with VIRTUAL or PGM_BUSY, on any RW type;
//   - the trunk fix-up leaves no ACL_RW_1 entry on an ISL with both
//     PHYSICAL and VIRTUAL (it writes its results under ACL_RW_1, so an
//     ACL_RW_2/3 record may keep both and is not checked for it);
//   - slot_num of every RW and ELS value is the slot of its if_index as
//     the conversion library looks it up (255 when it has none).
// After a move down (to 3.2 or 4.1):
//   - no move down rewrites an RW value, so in 3.2 ACL_RW_1 values keep the
//     82 bytes of the later eras instead of 84;
//   - flow-thru records were narrowed: value 0.
// 'verify' prints them; the audit after a move names those the move left
// that a clean conversion does not.
#ifndef TOOLS_WAYSHUNT_CONVERT_COMPARE_INVARIANTS_H
#define TOOLS_WAYSHUNT_CONVERT_COMPARE_INVARIANTS_H

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "records/era.h"
#include "records/record.h"

namespace wsc {

enum class After { nothing, upgrade, downgrade };

// The slot of an interface as the conversions look it up.
using SlotLookup = std::function<uint8_t(uint32_t if_index)>;

using Violation = std::pair<const Record *, std::string>;

// Every violation of the store, in store order; records must outlive them.
std::vector<Violation> violations(const Records &records, Era era, After after, const SlotLookup &slot_of);

}  // namespace wsc

#endif
