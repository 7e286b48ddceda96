// A rehearsal's images run in parallel worker processes, at most jobs at a
// time, each worker rehearsing one image's moves one after another, so that
// memory stays bounded by jobs times one move's. A worker writes each cell
// as it finishes, so that an interruption (SIGINT, SIGTERM) keeps every cell
// that finished: the workers are stopped at once, the copies removed, and
// the result says it was interrupted.
#ifndef TOOLS_WAYSHUNT_CONVERT_REHEARSE_FLEET_RUN_H
#define TOOLS_WAYSHUNT_CONVERT_REHEARSE_FLEET_RUN_H

#include <memory>
#include <string>
#include <vector>

#include "device/device_image.h"

#include "device/conversion_library.h"
#include "records/json_codec.h"
#include "rehearse/cell.h"
#include "rehearse/plan.h"

namespace wsc {

struct FleetOptions {
  std::vector<MovePlan> moves;  // tried on every image; empty: the ladder's from the image's era
  CellOptions cell;
  unsigned jobs = 1;
  bool progress = true;  // a bar on a terminal
  double wait = 0;       // seconds to wait for an image another command holds
};

struct FleetResult {
  Json images = Json::array();  // one object per image, in the order given
  // Every cell that finished, by image then move, its lost items cut to the
  // page's cap ("lost_total" counts them); the whole of each is in the file
  // of the same place in cell_files, kept while the result lives.
  Json cells = Json::array();
  std::vector<std::string> cell_files;
  std::shared_ptr<TempFolder> folder;
  int interrupted = 0;  // the signal that stopped the rehearsal
};

FleetResult rehearse_images(ConversionLibrary &lib, const std::vector<ImageInput> &images,
                            const std::vector<Rung> &ladder, const FleetOptions &o);

}  // namespace wsc

#endif
