/* Control of the platform stand-ins: fault injection and the call journal,
 * as tests and tools use it (the stand-ins' own side is plat_hooks.h).
 *
 * Faults make chosen calls of named platform functions fail. Rules come from
 * the environment variable PLAT_FAULTS (read at the first platform call) and
 * from plat_fault_add(); both take the same text: rules separated by ',' ';'
 * or white space, each
 *
 *     <function>[:<when>][=<action>]
 *
 *   when    N     the N-th call only (calls are counted from 1 per function)
 *           N-M   calls N to M
 *           N+    the N-th call and every later one
 *           *     every call (the default)
 *   action  a number (decimal or 0x hex): the status to fail with; for hub
 *           calls the errno value
 *           an errno name (ECONNREFUSED, ETIMEDOUT, ...): the same as its number
 *           null  for calls that return a datum or a pointer: a null result
 *                 with status 0
 *           empty for kvs calls that return a datum: the call does its work
 *                 but returns a datum with a null ptr and siz 0
 *           SIGINT, SIGTERM, SIGKILL: the calling process gets the signal at
 *                 that call (as if interrupted there); if it lives on, the
 *                 call goes on and does not fail
 *           default: PLAT_ERR_INJECTED, or EIO for hub calls
 *
 * e.g. PLAT_FAULTS="kvs_delete:2=0x4048000a, hub_send=ECONNREFUSED, tk_cq_init:1"
 *
 * A failing call does nothing else: a failed kvs_delete deletes nothing and
 * leaves the cursor on the same key, a failed insert inserts nothing. Every
 * call of a function that consults the rules is counted, failing or not.
 *
 * The journal records platform calls, one line each ("name(args) = result"),
 * appended to the file named by PLAT_JOURNAL or plat_journal_set(). */
#ifndef PLAT_CTL_H
#define PLAT_CTL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Adds the rules of text. 0, or -1 with errno EINVAL (nothing added) and a
 * description of the first bad rule in plat_fault_error(). */
int plat_fault_add(const char *text);

/* Text of the last rule error, "" if none. */
const char *plat_fault_error(void);

/* Drops every rule and every call count. The environment is not read again. */
void plat_fault_reset(void);

/* Calls of func counted since the start or the last plat_fault_reset(). */
uint32_t plat_call_count(const char *func);

/* The names of the platform calls that consult the fault rules, the only
 * ones a rule can make fail: an array of constant texts, in no particular
 * order, ended by a null pointer. */
const char *const *plat_fault_points(void);

/* Sends the journal to path (appending), or stops it with null. 0 or -1. */
int plat_journal_set(const char *path);

/* Non-zero while a journal is being written. */
int plat_journal_on(void);

#ifdef __cplusplus
}
#endif

#endif
