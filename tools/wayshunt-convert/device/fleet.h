// A fleet of device images, so that a release move can be rehearsed on
// what many switches hold: <dir>/img-01, img-02, ... (numbered to the width
// of the count), each an image 'run --image' takes, with a generated
// runtime store of its own era, size and shapes (synth.h), all from one seed.
#ifndef TOOLS_WAYSHUNT_CONVERT_DEVICE_FLEET_H
#define TOOLS_WAYSHUNT_CONVERT_DEVICE_FLEET_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "records/era.h"

namespace wsc {

struct FleetOrder {
  std::string dir;
  size_t images = 0;
  size_t min_records = 1, max_records = 1;
  std::vector<Era> eras;  // taken in turn
  uint64_t seed = 1;
};

struct FleetImage {
  std::string name;  // "img-01"
  Era era;
  size_t records;
  unsigned shapes;  // ShapeBit set, never empty
  uint64_t seed;    // of its store
};

// The fleet's images: eras in turn, record counts drawn evenly from the
// range, shapes by the seed. The first images bring one new shape each
// until every shape the fleet's eras can have was shown; later ones take
// one or more at random.
std::vector<FleetImage> plan_fleet(const FleetOrder &order);

// Writes the planned images below order.dir, calling done after each. The
// folder is made when missing and taken when empty; with force, a folder
// that holds only img-* folders is emptied first; any other is refused. On
// a failure the images made are removed, and the folders this call made.
// Throws ToolError.
void make_fleet(const FleetOrder &order, const std::vector<FleetImage> &plan, bool force,
                const std::function<void(const FleetImage &)> &done);

}  // namespace wsc

#endif
