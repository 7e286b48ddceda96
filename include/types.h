/* Fixed-width base types shared by the platform interfaces and the service's
 * stored records. Every platform struct uses natural C alignment; only stored
 * records and wire messages are packed, in their own headers. */
#ifndef PLAT_TYPES_H
#define PLAT_TYPES_H

#include <stdint.h>

typedef unsigned char uchar;
typedef uint8_t uint8;
typedef uint16_t uint16;
typedef uint32_t uint32;
typedef uint64_t uint64;
typedef int32_t int32;

/* Status of every platform operation that can fail: 0 is success. The
 * platform's codes and their texts are in status.h. */
typedef uint32_t retcode_t;

/* Identifier of a platform service (a registered service number, not an RFC
 * 4122 UUID). */
typedef uint32_t uuid_t;

/* Line-card slot number. */
typedef uint8_t slot_num_t;

#endif
