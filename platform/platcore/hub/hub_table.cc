// Handle table of the hub. A queue stays alive while a call works on it even
// if another thread unbinds it meanwhile (shared ownership), so the table
// lock is never held across a blocking receive.
#include "hub_table.h"

#include <mutex>

#include "hub_internal.h"

namespace plat::hub {

namespace {

constexpr size_t kMaxQueues = 1024;

struct Table {
  std::mutex mu;
  std::vector<std::shared_ptr<Queue>> slots;
};

Table &table() {
  static Table *t = new Table;  // never destroyed: queues may be used from exit handlers
  return *t;
}

}  // namespace

hub_q_handle_t table_add(std::shared_ptr<Queue> q) {
  Table &t = table();
  std::lock_guard lock(t.mu);
  for (size_t i = 0; i < t.slots.size(); ++i) {
    if (!t.slots[i]) {
      t.slots[i] = std::move(q);
      return static_cast<hub_q_handle_t>(i);
    }
  }
  if (t.slots.size() >= kMaxQueues) return -1;
  t.slots.push_back(std::move(q));
  return static_cast<hub_q_handle_t>(t.slots.size() - 1);
}

std::shared_ptr<Queue> table_get(hub_q_handle_t h) {
  Table &t = table();
  std::lock_guard lock(t.mu);
  if (h < 0 || static_cast<size_t>(h) >= t.slots.size()) return nullptr;
  return t.slots[h];
}

std::shared_ptr<Queue> table_remove(hub_q_handle_t h) {
  Table &t = table();
  std::lock_guard lock(t.mu);
  if (h < 0 || static_cast<size_t>(h) >= t.slots.size()) return nullptr;
  return std::move(t.slots[h]);
}

std::shared_ptr<Queue> table_find_point(const std::string &dir, uint32 node, int sap) {
  Table &t = table();
  std::lock_guard lock(t.mu);
  for (const auto &q : t.slots)
    if (q && q->sap() == sap && q->node() == node && q->dir() == dir) return q;
  return nullptr;
}

std::vector<std::shared_ptr<Queue>> table_queues() {
  Table &t = table();
  std::lock_guard lock(t.mu);
  std::vector<std::shared_ptr<Queue>> all;
  for (const auto &q : t.slots)
    if (q) all.push_back(q);
  return all;
}

bool queue_bound(hub_q_handle_t q) noexcept { return table_get(q) != nullptr; }

}  // namespace plat::hub
