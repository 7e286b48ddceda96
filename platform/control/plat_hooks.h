/* The stand-ins' side of the platform control: whether a rule makes a call
 * fail, and the journal line each call writes. Private to the stand-ins (and
 * the control tests); tests and tools use plat_ctl.h. */
#ifndef PLAT_HOOKS_H
#define PLAT_HOOKS_H

#include <stdint.h>

#include "plat_ctl.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum plat_fault_kind_ {
  PLAT_FAULT_STATUS = 0, /* fail with value (a status, or an errno for hub calls) */
  PLAT_FAULT_NULL = 1,   /* null result, status 0 */
  PLAT_FAULT_EMPTY = 2,  /* empty datum, status 0 */
  PLAT_FAULT_SIGNAL = 3, /* the process gets signal value at the call, which then goes on unfailed */
} plat_fault_kind_t;

typedef struct plat_fault_ {
  plat_fault_kind_t kind;
  uint32_t value; /* 0 when the rule named no action: the caller's default applies */
} plat_fault_t;

/* For the stand-ins: counts a call of func and returns 1 with *fault filled
 * when a rule makes this call fail, 0 otherwise. */
int plat_fault_hit(const char *func, plat_fault_t *fault);

/* The same for a call site that is called in hot loops: the site keeps the
 * function's counter once found, so that a call without rules costs one
 * count. Sites are static and start as PLAT_FAULT_SITE("name"). */
typedef struct plat_fault_site_ {
  const char *func;
  void *count; /* filled at the first call */
} plat_fault_site_t;
#define PLAT_FAULT_SITE(name) \
  { (name), 0 }
int plat_fault_hit_at(plat_fault_site_t *site, plat_fault_t *fault);

/* For the stand-ins: appends one formatted line (a '\n' is added). */
void plat_journal(const char *format, ...) __attribute__((format(printf, 1, 2)));

#ifdef __cplusplus
}
#endif

#endif
