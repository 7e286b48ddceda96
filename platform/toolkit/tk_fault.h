// Fault check shared by the toolkit calls. The containers are in-memory and
// called in hot loops, so they write no journal lines.
#ifndef PLAT_TOOLKIT_TK_FAULT_H
#define PLAT_TOOLKIT_TK_FAULT_H

#include "plat_hooks.h"
#include "status.h"
#include "toolkit.h"

namespace tk {

// True when a fault rule makes this call of the site's function fail; *rc
// is then the status to return: the rule's number, or PLAT_ERR_INJECTED
// when it named none. No toolkit call returns a pointer, so a "null" action
// fails with PLAT_ERR_INJECTED as well.
inline bool fault_hit(plat_fault_site_t *site, tk_err_t *rc) {
  plat_fault_t f{PLAT_FAULT_STATUS, 0};
  if (!plat_fault_hit_at(site, &f)) return false;
  *rc = (f.kind == PLAT_FAULT_STATUS && f.value != 0) ? f.value : PLAT_ERR_INJECTED;
  return true;
}

}  // namespace tk

// The fault check of the toolkit call name, with a site of its own.
#define TK_FAULT_HIT(name, rc)                                   \
  tk::fault_hit(                                                 \
      [] {                                                       \
        static plat_fault_site_t site = PLAT_FAULT_SITE(name);   \
        return &site;                                            \
      }(),                                                       \
      (rc))

#endif
