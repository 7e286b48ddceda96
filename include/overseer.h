/* Overseer services: copying a file to the standby supervisor, and the
 * callback run when a process finds no overseer. */
#ifndef PLAT_OVERSEER_H
#define PLAT_OVERSEER_H

#include "hub_defs.h"
#include "status.h"
#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Registered service numbers. */
#define SRVUUID_WAYSHUNT 419

/* Copies the file src of this supervisor to dst on the standby supervisor,
 * on behalf of service uuid, over the bound hub queue q. timeout_s bounds the
 * copy in seconds; replace 1 replaces an existing file as a whole, replace 0
 * keeps it and fails with OVERSEER_ERR_IO; the last four arguments are
 * reserved (0). The copy arrives whole or not at all. dst is absolute; a dst
 * whose ".." would climb above "/", or that passes a symbolic link on the
 * standby, fails with OVERSEER_ERR_BAD_PATH.
 * 0, or OVERSEER_ERR_BAD_QUEUE, OVERSEER_ERR_NO_STANDBY, OVERSEER_ERR_NO_SOURCE,
 * OVERSEER_ERR_BAD_PATH, OVERSEER_ERR_IO. */
retcode_t overseercmn_file_gsync(hub_q_handle_t q, int timeout_s, uuid_t uuid, const char *src, const char *dst,
                                 int replace, int reserved1, int reserved2, int reserved3, int reserved4);

/* Tells the platform that the calling process runs without an overseer. */
void plat_overseercb_no_overseer(void);

#ifdef __cplusplus
}
#endif

#endif
