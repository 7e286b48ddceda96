// The process's table of bound hub queues, indexed by handle.
#ifndef PLATCORE_HUB_TABLE_H
#define PLATCORE_HUB_TABLE_H

#include <memory>
#include <string>
#include <vector>

#include "hub_defs.h"
#include "hub_queue.h"

namespace plat::hub {

// Enters q under the lowest free handle; -1 when the table is full.
hub_q_handle_t table_add(std::shared_ptr<Queue> q);

// The queue of handle h, or null.
std::shared_ptr<Queue> table_get(hub_q_handle_t h);

// Takes the queue of handle h out of the table; null if h is not bound.
std::shared_ptr<Queue> table_remove(hub_q_handle_t h);

// The queue of this process bound at (node, sap) of dir, or null.
std::shared_ptr<Queue> table_find_point(const std::string &dir, uint32 node, int sap);

// Every bound queue.
std::vector<std::shared_ptr<Queue>> table_queues();

}  // namespace plat::hub

#endif
