// Hub queries for other services of libplatcore (not part of the exported
// interface).
#ifndef PLATCORE_HUB_INTERNAL_H
#define PLATCORE_HUB_INTERNAL_H

#include "hub_defs.h"

namespace plat::hub {

// True while q is a queue bound by this process.
bool queue_bound(hub_q_handle_t q) noexcept;

}  // namespace plat::hub

#endif
