// Fault check shared by the toolkit calls. The containers are in-memory and
// called in hot loops, so they write no journal lines.
#ifndef PLAT_TOOLKIT_TK_FAULT_H
#define PLAT_TOOLKIT_TK_FAULT_H

#include "plat_hooks.h"
#include "status.h"
#include "toolkit.h"

namespace tk {

// True when a fault rule makes this call of func fail; *rc is then the
// status to return: the rule's number, or PLAT_ERR_INJECTED when it named
// none. No toolkit call returns a pointer, so a "null" action fails with
// PLAT_ERR_INJECTED as well.
inline bool fault_hit(const char *func, tk_err_t *rc) {
  plat_fault_t f{PLAT_FAULT_STATUS, 0};
  if (!plat_fault_hit(func, &f)) return false;
  *rc = (f.kind == PLAT_FAULT_STATUS && f.value != 0) ? f.value : PLAT_ERR_INJECTED;
  return true;
}

}  // namespace tk

#endif
