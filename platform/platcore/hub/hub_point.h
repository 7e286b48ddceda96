// Binding a datagram socket at a service access point of the runtime
// directory, taking over points left behind by processes that died.
#ifndef PLATCORE_HUB_POINT_H
#define PLATCORE_HUB_POINT_H

#include <string>

#include "types.h"

namespace plat::hub {

// First and last point handed out for HUB_SAP_DYNAMIC.
constexpr int kDynamicFirst = 0x8000;
constexpr int kDynamicLast = 0xFFFF;

struct BoundPoint {
  int fd = -1;
  int sap = -1;
  std::string path;
};

// Binds at (node, sap) in dir, or at any free dynamic point when sap is
// HUB_SAP_DYNAMIC. 0, or an errno value: EADDRINUSE when a live process
// holds the point (or every dynamic point).
int bind_point(const std::string &dir, uint32 node, int sap, BoundPoint &out);

}  // namespace plat::hub

#endif
