/* Decommission of the switch on a move below 3.2, and the copy of the
 * service's stored files to the standby supervisor that goes with it. Both
 * run over one hub queue that wayshunt_handle_downgrade (wayshunt_cnv.h)
 * binds for them. */
#ifndef WAYSHUNT_CNV_DECOM_H
#define WAYSHUNT_CNV_DECOM_H

#include "hub_defs.h"
#include "wayshunt_cnv_int.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Asks the running service to decommission the switch and waits for its
 * answer. A failed send or receive is logged and passed over: always 0. */
WAYSHUNT_CNV_EXPORT retcode_t wayshunt_cnv_decom_switch(hub_q_handle_t hub_q);

/* Copies the service's twelve stored files to the standby, one after the
 * other, whatever becomes of each. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_sync_kvs_to_standby(hub_q_handle_t hub_q);

/* Copies one file to the same path on the standby. A failure shows only in
 * a debug trace. */
WAYSHUNT_CNV_EXPORT void wayshunt_cnv_sync_file_to_standby(hub_q_handle_t hub_q, uchar *file_path);

#ifdef __cplusplus
}
#endif

#endif
