// Synthetic runtime stores shaped like a switch's: targets behind storage
// arrays, hosts in a few fabrics, flow-thru records per host and target, RW
// ACL entries (a share on ISLs, in groups of physical and virtual entries of
// one target on one slot with one source pair), ELS ACL entries and, outside
// 3.2, one line-card record per slot. Deterministic for a seed. A shape
// adds what some switches in the field have beyond that: long chains of
// entries to resolve, one big group, keys off their layout, unused bytes
// that are not zero, many port-channels.
#ifndef TOOLS_WAYSHUNT_CONVERT_SYNTH_H
#define TOOLS_WAYSHUNT_CONVERT_SYNTH_H

#include <cstdint>
#include <iterator>
#include <string>

#include "records/era.h"
#include "records/record.h"

namespace wsc {

// What a store has beyond the typical one. The default adds nothing: the
// typical store, byte for byte.
struct SynthShape {
  // ISL entries carrying both PHYSICAL and VIRTUAL, all of one target, in
  // groups of the era's own mixes (3.2 and 4.1: 4.2 has none).
  size_t chain = 0;
  // Entries of one ISL group: one target, one slot, one source pair.
  size_t big_group = 0;
  // ACL_RW_1 keys of 11 and 9 bytes in turn (the layout has 10), every
  // other pair on an ISL.
  size_t off_layout_keys = 0;
  // Percent of 3.2 ACL_RW_1 values whose unused end is not zero.
  uint32_t unused_percent = 0;
  // Percent of the interfaces of RW entries off the ISLs and of ELS entries
  // that are port-channels.
  uint32_t port_channel_percent = 12;
};

// Exactly count records in the stored forms of era.
Records synthesize_store(Era era, size_t count, uint64_t seed, const SynthShape &shape = {});

// The named shapes, bits of a set, in the order of kShapeNames.
enum ShapeBit : unsigned { kLongChains = 1, kBigGroup = 2, kOffLayoutKeys = 4, kUnusedBytes = 8, kPortChannels = 16 };
inline constexpr const char *kShapeNames[] = {"long-chains", "big-group", "off-layout-keys", "unused-bytes", "port-channels"};
inline constexpr unsigned kShapeCount = std::size(kShapeNames);

// Whether a store of era can have the shape in the era's own forms: long
// chains in 3.2 and 4.1, unused bytes in 3.2 (the one form with an unused end).
bool shape_fits_era(ShapeBit shape, Era era);
// The shapes' parameters for a store of count records of era, sized to the
// store; shapes that do not fit the era are left out.
SynthShape synth_shape(unsigned shapes, Era era, size_t count);
// "long-chains,port-channels"; "typical" for none.
std::string shape_list(unsigned shapes);

}  // namespace wsc

#endif
