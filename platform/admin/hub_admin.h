/* Extra hub calls for the listener program and the tests: what a received
 * message carries besides its body, and where the hub keeps its sockets. */
#ifndef PLAT_HUB_ADMIN_H
#define PLAT_HUB_ADMIN_H

#include "hub_defs.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
  hub_opc_t opcode;
  uint32 src_node; /* where the sender is bound: replies go there */
  int32 src_sap;
  uint32 len; /* bytes of the body at ref->payload */
  hub_rr_token_t token;
  int is_reply;
} hub_msg_info_t;

/* Fills info for a message received on a queue of this process and not yet
 * dropped. 0, or -1 with errno EINVAL. */
int hub_msg_info(const hub_msg_ref_t *ref, hub_msg_info_t *info);

/* The runtime directory the next hub_bind() would use (from PLAT_HUB_DIR,
 * else $XDG_RUNTIME_DIR/plathub, else /tmp/plathub-<uid>). The text lives in
 * a per-thread buffer until the next call. */
const char *hub_dir(void);

#ifdef __cplusplus
}
#endif

#endif
