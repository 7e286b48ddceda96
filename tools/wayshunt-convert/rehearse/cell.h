// One cell of a rehearsal: one move (or round trip) on a copy of one image,
// each leg a real move of the library with its forecast and audit
// (commands/move_flow.h), told as one JSON object: the outcome, the store
// before and after by key type and slot, what each forecast called lost,
// what each audit found, and for a round trip what came back.
#ifndef TOOLS_WAYSHUNT_CONVERT_REHEARSE_CELL_H
#define TOOLS_WAYSHUNT_CONVERT_REHEARSE_CELL_H

#include <set>
#include <string>
#include <vector>

#include "device/conversion_library.h"
#include "records/json_codec.h"
#include "records/record.h"
#include "rehearse/plan.h"

namespace wsc {

struct CellOptions {
  std::vector<std::string> faults;  // fault rules of every leg
  std::set<std::string> allow_loss; // key types a move may lose (--allow-loss); empty: losses are not judged
  bool judge_losses = false;        // --allow-loss was given
  bool force = false;               // the store fits no one era: convert it as its first release says
};

// The outcomes, best first, as the report colours them.
inline const std::vector<std::string> kOutcomes = {"clean", "changes", "losses", "damage", "failed"};

// Records per key type, and per slot of the records that have a slot:
// {"records": n, "by_type": {...}, "by_slot": {...}}.
Json store_counts(const Records &records);

// Runs the move on a copy of the image (a device image) made in work, a
// folder that must not exist and is removed after; before is the image's
// store and before_counts its store_counts. A leg that cannot run (its era refused, a copy that fails) or is
// interrupted fails the cell; only reading the stores throws (ToolError).
Json rehearse_cell(ConversionLibrary &lib, const ImageInput &image, const Records &before, const Json &before_counts,
                   const MovePlan &move, const CellOptions &o, const std::string &work);

}  // namespace wsc

#endif
