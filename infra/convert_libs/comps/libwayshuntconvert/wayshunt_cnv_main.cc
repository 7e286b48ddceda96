// Entry points of the conversion library that the upgrade manager calls.
#include <cstdlib>

#include "overseer.h"
#include "types.h"

extern "C" {

// The library's allocator: size zero-filled bytes, or null when size is 0 or
// memory is short. Blocks are released with free().
void *wayshunt_cnv_malloc(uint32 size) { return size ? std::calloc(1, size) : nullptr; }

// Callback for a process that runs without an overseer: hands over to the
// platform and touches nothing of the library's own.
void overseercb_no_overseer(void) { plat_overseercb_no_overseer(); }
}
