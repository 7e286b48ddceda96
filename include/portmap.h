/* Interface-to-slot map: the line-card slot of an interface. */
#ifndef PLAT_PORTMAP_H
#define PLAT_PORTMAP_H

#include "if_index.h"
#include "status.h"
#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Writes the slot of if_index to *slot_num and returns 0; otherwise returns
 * PORTMAP_ERR_NO_SLOT (an interface that spans cards, e.g. a port-channel),
 * PORTMAP_ERR_BAD_IF_INDEX, PORTMAP_ERR_DOWN or PORTMAP_ERR_TABLE, and leaves
 * *slot_num alone. */
retcode_t portmap_get_slot(if_index_t if_index, slot_num_t *slot_num);

#ifdef __cplusplus
}
#endif

#endif
