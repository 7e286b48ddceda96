/* Control of the interface-to-slot map stand-in, for tests and tools.
 *
 * portmap_get_slot() takes the slot of a physical port fc<slot>/<port> from
 * its interface index (see if_index.h); port-channels and virtual interfaces
 * have none. The table file named by the environment variable
 * PLAT_PORTMAP_TABLE overrides or adds entries, one per line:
 *
 *     <if_index> <slot>              the interface lies in that slot (0..255)
 *     <if_index> fail[=<status>]     lookups of it fail with status
 *                                    (default PORTMAP_ERR_DOWN)
 *
 * <if_index> is a number (decimal or 0x hex; any 32-bit value, so a table
 * can give a slot to an index the encoding rejects), fc<slot>/<port> or
 * port-channel<n>. <status> is a non-zero number, decimal or 0x hex. Fields
 * are separated by blanks; '#' starts a comment running to the end of the
 * line; blank lines are ignored. An interface may appear once.
 *
 *     # slot 7 is out; fc2/1 moved to slot 9
 *     fc7/1      fail
 *     fc2/1      9
 *     0x05000000 3
 *
 * A table that cannot be read, or has a bad line, makes every lookup fail
 * with PORTMAP_ERR_TABLE; one line naming the file, the line and the problem
 * goes to stderr each time such a table is loaded.
 *
 * The table is read at the first lookup and kept; it is read again when the
 * value of PLAT_PORTMAP_TABLE changes (set, unset or another path) or when
 * portmap_table_reload() is called, not when only the file changes. */
#ifndef PLAT_PORTMAP_ADMIN_H
#define PLAT_PORTMAP_ADMIN_H

#ifdef __cplusplus
extern "C" {
#endif

/* Reads the table named by PLAT_PORTMAP_TABLE now (no table when the
 * variable is unset or empty). 0 when it is good or absent, -1 when it is
 * bad (lookups then fail with PORTMAP_ERR_TABLE). */
int portmap_table_reload(void);

/* Frees every reading of the table kept so far; the next lookup reads the
 * table again. For a program that looks up slots one job after another
 * (a fuzzing harness) and wants each job to leave no memory behind. Call it
 * only when no other thread may be in portmap_get_slot(): a lookup in
 * flight reads the reading it found, which this frees. */
void portmap_table_forget(void);

#ifdef __cplusplus
}
#endif

#endif
