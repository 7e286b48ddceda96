/* Status codes of the platform libraries and their texts.
 *
 * retcode_t 0 is success. Each component has a code space of its own:
 *   19          end of a toolkit table walk (TK_HASHTABLE_END)
 *   0x4010xxxx  toolkit containers (tk_err_t, see toolkit.h)
 *   0x4000xxxx  platform-wide
 *   0x4048xxxx  runtime store (kvs)
 *   0x4050xxxx  interface-to-slot map (portmap)
 *   0x4060xxxx  standby file copy (overseer)
 *   0x4070xxxx  the wayshunt conversion library (its codes and their texts:
 *               wayshunt_cnv.h, wayshunt_cnv_strerror())
 * retcode2str() has a text for every code below, and a generic one for any
 * other number. */
#ifndef PLAT_STATUS_H
#define PLAT_STATUS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define PLAT_OK 0x0u

/* Platform-wide. */
#define PLAT_ERR_INJECTED 0x40000001u  /* a fault injected by PLAT_FAULTS or plat_fault_add() */
#define PLAT_ERR_NO_MEMORY 0x40000002u /* out of memory */
#define PLAT_ERR_INVALID 0x40000003u   /* a null or malformed argument */

/* Runtime store. */
#define KVS_ERR_NO_STORE 0x40480001u    /* no store at that URL */
#define KVS_ERR_BAD_URL 0x40480002u     /* URL not of the form nonvolatile:<dir>/<name> */
#define KVS_ERR_NO_KEY 0x40480003u      /* no key there: end of the walk, empty store, unknown key */
#define KVS_ERR_BAD_HANDLE 0x40480004u  /* not an open store handle */
#define KVS_ERR_BAD_ARG 0x40480005u     /* null datum, empty key, unknown mode */
#define KVS_ERR_NO_CURSOR 0x40480006u   /* the cursor stands on no key yet */
#define KVS_ERR_BUSY 0x40480007u        /* the store is already open in this process */
#define KVS_ERR_KEY_TOO_BIG 0x40480008u /* key longer than the store's key limit */
#define KVS_ERR_NO_SPACE 0x40480009u    /* the file system is full */
#define KVS_ERR_IO 0x4048000au          /* read or write error of the store file */
#define KVS_ERR_CORRUPT 0x4048000bu     /* the store file is damaged or not a store */
#define KVS_ERR_EXISTS 0x4048000cu      /* kvs_create: the store exists already */
#define KVS_ERR_TOO_MANY 0x4048000du    /* too many stores open in this process */
#define KVS_ERR_DB 0x4048000eu          /* any other failure of the database underneath */

/* Interface-to-slot map. */
#define PORTMAP_ERR_NO_SLOT 0x40500001u     /* the interface is of a kind without a slot */
#define PORTMAP_ERR_BAD_IF_INDEX 0x40500002u /* not a valid interface index */
#define PORTMAP_ERR_TABLE 0x40500003u       /* the portmap table file cannot be read or parsed */
#define PORTMAP_ERR_DOWN 0x40500004u        /* the table marks the interface as failing */

/* Standby file copy. */
#define OVERSEER_ERR_NO_STANDBY 0x40600001u /* no standby supervisor configured */
#define OVERSEER_ERR_NO_SOURCE 0x40600002u  /* the source file does not exist or is no file */
#define OVERSEER_ERR_BAD_PATH 0x40600003u   /* the destination would leave the standby's root */
#define OVERSEER_ERR_IO 0x40600004u         /* reading the source or writing the copy failed */
#define OVERSEER_ERR_BAD_QUEUE 0x40600005u  /* the hub queue handle is not bound */

/* Readable text of a status, never null. The text of an unknown code names
 * the number; it lives in a per-thread buffer until the next such call. */
const char *retcode2str(retcode_t rc);

#ifdef __cplusplus
}
#endif

#endif
