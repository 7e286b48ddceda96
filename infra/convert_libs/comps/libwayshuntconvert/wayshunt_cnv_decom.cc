// On a move to a release below 3.2: bind a hub queue of our own, ask the
// running service to decommission the switch, wait for its answer, copy the
// stored files to the standby and unbind. Only a failed bind is a failure;
// whatever goes wrong after it is logged and passed over.
#include <errno.h>
#include <string.h>

#include "wayshunt_cli.h"
#include "wayshunt_cnv_decom.h"
#include "wayshunt_cnv_log.h"

extern "C" {

retcode_t wayshunt_handle_downgrade(char *path) {
  hub_bind_options_t bind_options;
  hub_q_handle_t hub_q;
  int err;

  (void)path;  // the files to copy have fixed paths
  if (wayshunt_cnv_is_upgrade()) {
    WAYSHUNT_CNV_TRACE("%s():%d Conversion NOT Needed\n");
    return 0;
  }
  if (!wayshunt_cnv_to_below_32()) return 0;

  // flags and uuid are 0: a queue of no service, at this supervisor. The
  // hub reads neither version, qlen nor buff_sum, and node only with a flag
  // not given here, so those four are left zero as well.
  memset(&bind_options, 0, sizeof bind_options);
  bind_options.flags = 0;
  bind_options.uuid = 0;
  hub_q = hub_bind(HUB_Q_KIND_MSG, HUB_SAP_DYNAMIC, &bind_options, "wayshunt downgarde session");
  if (hub_q == -1) {
    err = errno;
    WAYSHUNT_CNV_ERROR("%s():%d \nHUB BIND Error %d", err);
    return WAYSHUNT_CNV_HUB_BIND_FAILED;
  }
  WAYSHUNT_CNV_TRACE("%s():%d HUB Bind Done\n");

  wayshunt_cnv_decom_switch(hub_q);
  WAYSHUNT_CNV_TRACE("%s():%d Before Syncing KVS to Standby\n");
  wayshunt_cnv_sync_kvs_to_standby(hub_q);
  WAYSHUNT_CNV_TRACE("%s():%d After Syncing KVS to Standby\n");
  hub_unbind(hub_q, 0);
  return 0;
}

retcode_t wayshunt_cnv_decom_switch(hub_q_handle_t hub_q) {
  hub_recv_options_t recv_option;
  hub_msg_ref_t send_ref, recv_ref;
  wayshunt_show_cli_req_t req;
  int err;

  memset(&recv_option, 0, sizeof recv_option);
  recv_option.version = 1;
  WAYSHUNT_CNV_TRACE("%s():%d wayshunt 3.2 Decommissioning Switch\n");

  memset(&send_ref, 0, sizeof send_ref);
  memset(&recv_ref, 0, sizeof recv_ref);
  memset(&req, 0, sizeof req);
  req.msg_type = WAYSHUNT_CLI_CLEAR_DECOM;
  req.x.clear_decom.force_mode = 1;

  if (hub_send(hub_q, HUB_NODE_LOCAL_SUP, HUB_SAP_WAYSHUNT, WAYSHUNT_CLI_HUB_OPCODE, &req, sizeof req, &send_ref, 0,
               0) == -1) {
    err = errno;
    WAYSHUNT_CNV_ERROR("%s():%d \nError in Sending HUB Message - %d (%s)\n", err, strerror(err));
    return 0;
  }
  // The token ties the answer to this request; the sent message is given up
  // only once the token is taken from it.
  recv_option.rr_token = hub_rr_token_get(&send_ref);
  recv_option.opcode = WAYSHUNT_CLI_HUB_OPCODE;
  hub_drop(hub_q, &send_ref);

  // A blocking wait with no limit of our own: if the hub bounds it, its
  // expiry fails the receive like any other failure. The answer is not
  // read, and the queue's unbind releases it.
  if (hub_recv(hub_q, &recv_ref, &recv_option) == -1) {
    err = errno;
    WAYSHUNT_CNV_ERROR("%s():%d \n***Error in Receiving hub msg - %d (%s)\n", err, strerror(err));
  }
  return 0;
}
}
