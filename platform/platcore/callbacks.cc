// The overseer callback of the platform: records that a process said it runs
// without an overseer (counted as a call, and journalled).
#include "overseer.h"
#include "plat_hooks.h"

extern "C" void plat_overseercb_no_overseer(void) {
  plat_fault_hit("plat_overseercb_no_overseer", nullptr);  // counts the call; there is nothing to fail
  plat_journal("plat_overseercb_no_overseer()");
}
