/* Request record of the wayshunt service's command-line interface, as it
 * travels over the hub to the running service: a fixed 128-byte message,
 * packed, integers little-endian, names in network order. The first 40
 * bytes are common to every request; x holds what one kind of request adds.
 *
 * The conversion library sends one kind: clear_decom (msg_type 68), which
 * asks the service to decommission the switch. */
#ifndef WAYSHUNT_CLI_H
#define WAYSHUNT_CLI_H

#include <stddef.h>

#include "types.h"
#include "wayshunt.h"

/* msg_type of the decommission request. */
#define WAYSHUNT_CLI_CLEAR_DECOM 68

/* Hub opcode at which the service takes these requests. */
#define WAYSHUNT_CLI_HUB_OPCODE 4204

/* Room of x, the largest request's own fields. */
#define WAYSHUNT_CLI_REQ_X_SIZE 88

#pragma pack(push, 1)

/* Decommission: 4 bytes; force_mode is bit 0 of the first byte. */
typedef struct wayshunt_cli_clear_decom_ {
  uint32 force_mode : 1;
  uint32 reserved : 31;
} wayshunt_cli_clear_decom_t;

typedef struct wayshunt_show_cli_req_ {
  uint32 msg_type;
  vsan_id_t vsan;
  wwn_t tgt_fsm_log;
  wwn_t wwn_db;
  wwn_t vt_pwwn;
  wwn_t host_pwwn;
  union {
    wayshunt_cli_clear_decom_t clear_decom;
    uint8 bytes[WAYSHUNT_CLI_REQ_X_SIZE]; /* the whole room, for zeroing and copying */
  } x;
} wayshunt_show_cli_req_t;

#pragma pack(pop)

/* ---- layout checks ---- */
#define WAYSHUNT_CLI_AT(type, field, off) WAYSHUNT_STATIC_ASSERT(offsetof(type, field) == (off), #type "." #field)
#define WAYSHUNT_CLI_SIZE(type, size) WAYSHUNT_STATIC_ASSERT(sizeof(type) == (size), "size of " #type)

WAYSHUNT_CLI_SIZE(wayshunt_cli_clear_decom_t, 4);
WAYSHUNT_CLI_SIZE(wayshunt_show_cli_req_t, 128);
WAYSHUNT_CLI_AT(wayshunt_show_cli_req_t, vsan, 4);
WAYSHUNT_CLI_AT(wayshunt_show_cli_req_t, tgt_fsm_log, 8);
WAYSHUNT_CLI_AT(wayshunt_show_cli_req_t, wwn_db, 16);
WAYSHUNT_CLI_AT(wayshunt_show_cli_req_t, vt_pwwn, 24);
WAYSHUNT_CLI_AT(wayshunt_show_cli_req_t, host_pwwn, 32);
WAYSHUNT_CLI_AT(wayshunt_show_cli_req_t, x, 40);
WAYSHUNT_CLI_AT(wayshunt_show_cli_req_t, x.clear_decom, 40);

/* clang before 15 cannot bit-cast a record with bit-fields at compile time
 * (the fuzzing build); g++ checks it. */
#if defined(__cplusplus) && !(defined(__clang__) && __clang_major__ < 15)
/* force_mode must be the lowest bit of the record's first byte. */
WAYSHUNT_STATIC_ASSERT(__builtin_bit_cast(uint32, (wayshunt_cli_clear_decom_t{1, 0})) == 1u,
                       "wayshunt_cli_clear_decom_t.force_mode is bit 0 of byte 0");
#endif

#undef WAYSHUNT_CLI_AT
#undef WAYSHUNT_CLI_SIZE

#endif
