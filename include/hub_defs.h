/* The hub: the platform's message service between processes.
 *
 * A process binds a queue at a service access point (SAP) of a node, sends
 * messages to (node, SAP) pairs and receives on its queue. A request carries
 * a request/reply token; the answer carries the same token, so a receive can
 * wait for the reply of one request. Calls that can fail return -1 and leave
 * the cause in errno. */
#ifndef PLAT_HUB_DEFS_H
#define PLAT_HUB_DEFS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t hub_q_handle_t;
typedef int32_t hub_opc_t;
typedef uint32_t hub_rr_token_t;
typedef uint32_t hub_ref_state_t;
typedef uint8_t hub_vnode_id_t;

/* hub_bind kinds. */
#define HUB_Q_KIND_MSG 1

/* Service access points. */
#define HUB_SAP_DYNAMIC (-1) /* any free point, chosen by the hub */
#define HUB_SAP_WAYSHUNT 225 /* the wayshunt service */

/* Nodes. */
#define HUB_NODE_LOCAL_SUP 0xFE000000u /* this supervisor */

/* hub_bind_options_t.flags */
#define HUB_BIND_F_NODE 0x1u /* bind at options.node instead of this supervisor */

/* hub_send flags (its eighth argument). */
#define HUB_SEND_F_REPLY 0x1 /* the message answers the request whose token is the ninth argument */

/* hub_msg_ref_t.state */
#define HUB_REF_EMPTY 0u
#define HUB_REF_SENT 1u
#define HUB_REF_RECEIVED 2u

typedef struct hub_bind_options_ {
  uint32 version;  /* not read */
  uint16 flags;    /* HUB_BIND_F_* */
  int qlen;        /* not read: a queue holds any number of messages */
  uuid_t uuid;     /* service owning the queue; 0 for none */
  uint32 node;     /* with HUB_BIND_F_NODE: node to bind at */
  uint32 buff_sum; /* not read */
} hub_bind_options_t;

typedef struct hub_recv_options_ {
  uint32 version;          /* 1 */
  int non_blocking;        /* non-zero: fail with EAGAIN at once if nothing matches */
  int timeout;             /* milliseconds; 0 waits without a limit of the caller's */
  hub_rr_token_t rr_token; /* non-zero: only the reply carrying this token */
  int explicit_log;        /* not read */
  hub_opc_t opcode;        /* non-zero: only messages of this opcode */
  void *rr_token_list;     /* not supported: must be null */
  void *opcode_list;       /* not supported: must be null */
  uint32 reserved;
} hub_recv_options_t;

/* A reference to one message. payload points at the received message's
 * bytes and stays valid until hub_drop() of the reference or hub_unbind() of
 * the queue. */
typedef struct hub_msg_ref_ {
  hub_ref_state_t state;
  void *payload;
  uint32 cookie_list_offset;
  uint32 q_entry; /* the message's request/reply token */
  hub_vnode_id_t vnode_id;
} hub_msg_ref_t;

/* Binds a queue of kind HUB_Q_KIND_MSG at sap (HUB_SAP_DYNAMIC: a free one)
 * under name. The handle, or -1: EADDRINUSE (the point is taken), EINVAL,
 * EMFILE, or an error of the runtime directory. */
hub_q_handle_t hub_bind(int kind, int sap, hub_bind_options_t *options, const char *name);

/* Sends len bytes of msg with opcode to (node, sap) and fills ref, from which
 * hub_rr_token_get() takes the token. flags 0 makes a new request;
 * HUB_SEND_F_REPLY answers the request of token rr_token. 0, or -1:
 * ECONNREFUSED or ENOENT (nobody listens there: fails at once), EBADF (q
 * not bound), EMSGSIZE (len over 64 KiB), EINVAL, EAGAIN (the receiver's
 * queue stayed full for the hub's wait limit). */
int hub_send(hub_q_handle_t q, uint32 node, int sap, hub_opc_t opcode, void *msg, uint32 len, hub_msg_ref_t *ref,
             int flags, int rr_token);

/* The request/reply token of a sent or received message, 0 for none. */
hub_rr_token_t hub_rr_token_get(hub_msg_ref_t *ref);

/* Gives up a reference; a received message's payload is released. 0 or -1. */
int hub_drop(hub_q_handle_t q, hub_msg_ref_t *ref);

/* Receives the first message on q that options selects (null: any) and fills
 * ref. Blocks unless non_blocking; the hub bounds every wait by its own limit
 * (PLAT_HUB_WAIT_MS). 0, or -1: ETIMEDOUT, EAGAIN, EBADF, EINVAL. */
int hub_recv(hub_q_handle_t q, hub_msg_ref_t *ref, hub_recv_options_t *options);

/* Releases the queue, its point and every message received on it. 0 or -1. */
int hub_unbind(hub_q_handle_t q, int flags);

#ifdef __cplusplus
}
#endif

#endif
