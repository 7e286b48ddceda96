/* Interface indexes: the 32-bit number by which the platform names an
 * interface, and the encoding that tells a physical port's slot from it.
 *
 *   bits 31..24  kind
 *   physical Fibre Channel port fc<slot>/<port> (kind 0x01):
 *     bits 15..12 slot - 1 (slots 1..16), bits 11..4 port - 1 (ports 1..256),
 *     bits 23..16 and 3..0 zero
 *   port-channel <n> (kind 0x04): bits 7..0 n - 1 (1..256), all others zero;
 *     a port-channel spans line cards and so has no slot
 *   virtual interface <n> (kind 0x05): bits 15..0 n - 1; no slot either
 *
 * So fc1/1 is 0x01000000, fc3/12 is 0x010020b0 and port-channel 5 is
 * 0x04000004. Any other kind, or a physical index with reserved bits set, is
 * not a valid interface. */
#ifndef PLAT_IF_INDEX_H
#define PLAT_IF_INDEX_H

#include <stdint.h>

typedef uint32_t if_index_t;

#define IF_INDEX_KIND_FC 0x01u
#define IF_INDEX_KIND_PORT_CHANNEL 0x04u
#define IF_INDEX_KIND_VIRTUAL 0x05u

#define IF_INDEX_KIND(i) (((uint32_t)(i)) >> 24)
#define IF_INDEX_FC_MAX_SLOT 16u
#define IF_INDEX_FC_MAX_PORT 256u

/* Building indexes (arguments are 1-based, as in fc3/12). */
#define IF_INDEX_FC(slot, port) \
  ((if_index_t)((IF_INDEX_KIND_FC << 24) | ((((uint32_t)(slot)) - 1u) << 12) | ((((uint32_t)(port)) - 1u) << 4)))
#define IF_INDEX_PORT_CHANNEL(n) ((if_index_t)((IF_INDEX_KIND_PORT_CHANNEL << 24) | (((uint32_t)(n)) - 1u)))
#define IF_INDEX_VIRTUAL(n) ((if_index_t)((IF_INDEX_KIND_VIRTUAL << 24) | (((uint32_t)(n)) - 1u)))

/* Taking a physical index apart (valid only where IF_INDEX_IS_FC holds). */
#define IF_INDEX_IS_FC(i) ((((uint32_t)(i)) & 0xffff000fu) == (IF_INDEX_KIND_FC << 24))
#define IF_INDEX_FC_SLOT(i) ((((((uint32_t)(i)) >> 12) & 0xfu)) + 1u)
#define IF_INDEX_FC_PORT(i) ((((((uint32_t)(i)) >> 4) & 0xffu)) + 1u)
#define IF_INDEX_IS_PORT_CHANNEL(i) ((((uint32_t)(i)) & 0xffffff00u) == (IF_INDEX_KIND_PORT_CHANNEL << 24))
#define IF_INDEX_PORT_CHANNEL_NUM(i) ((((uint32_t)(i)) & 0xffu) + 1u)
#define IF_INDEX_IS_VIRTUAL(i) ((((uint32_t)(i)) & 0xffff0000u) == (IF_INDEX_KIND_VIRTUAL << 24))
#define IF_INDEX_VIRTUAL_NUM(i) ((((uint32_t)(i)) & 0xffffu) + 1u)

#endif
