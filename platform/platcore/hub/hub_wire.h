// The hub's datagram: a fixed header followed by the message body. Both ends
// run on one machine, so the header travels in host byte order.
#ifndef PLATCORE_HUB_WIRE_H
#define PLATCORE_HUB_WIRE_H

#include <cstddef>
#include <memory>

#include "hub_defs.h"

namespace plat::hub {

constexpr uint32 kMagic = 0x48554231;  // "HUB1"
constexpr uint16 kVersion = 1;
constexpr uint16 kFlagReply = 0x1;
// Longest message body: well inside what one unix datagram carries with the
// kernel's default socket buffers, so the limit is the same everywhere.
constexpr uint32 kMaxBody = 64 * 1024;

struct WireHeader {
  uint32 magic;
  uint16 version;
  uint16 flags;  // kFlagReply
  int32 opcode;
  uint32 token;  // request/reply token
  uint32 src_node;
  int32 src_sap;
  uint32 len;  // body bytes after the header
};
static_assert(sizeof(WireHeader) == 28);

// A received message. The body has at least one byte, so that every
// message handed out has an address of its own even when it is empty.
struct Message {
  WireHeader hdr{};
  std::unique_ptr<uint8_t[]> body;
};

// Which messages a receive takes: 0 fields select anything.
struct Selector {
  uint32 rr_token = 0;  // only the reply carrying this token
  int32 opcode = 0;

  bool matches(const WireHeader &h) const {
    if (rr_token && (!(h.flags & kFlagReply) || h.token != rr_token)) return false;
    return !opcode || h.opcode == opcode;
  }
};

// True when the n bytes at data start with a hub header that describes
// exactly n bytes.
inline bool valid_datagram(const WireHeader &h, size_t n) {
  return n >= sizeof h && h.magic == kMagic && h.version == kVersion && h.len == n - sizeof h;
}

}  // namespace plat::hub

#endif
