// A release move on a device image as 'run' and 'demo' make it: the
// store's era checked against the release being left; a forecast, which is
// the library's own conversion of a copy described record by record; the
// move; and an audit of the store it left against a clean conversion of the
// store as it was. Every report is read from stores and files the library
// wrote; none is worked out from rules of the tool's own.
#ifndef TOOLS_WAYSHUNT_CONVERT_COMMANDS_MOVE_FLOW_H
#define TOOLS_WAYSHUNT_CONVERT_COMMANDS_MOVE_FLOW_H

#include <iosfwd>
#include <string>
#include <vector>

#include "device/conversion_library.h"
#include "device/device_image.h"
#include "records/json_codec.h"

namespace wsc {

struct MoveOptions {
  std::string from, to, image, step = "all", library;
  bool trace = false, dry_run = false, json = false, quiet = false, no_audit = false, force = false;
  std::vector<std::string> faults;
  bool history = true;  // append the move to the image's history
  bool lost_items_only = false;  // the JSON's forecast lists lost items only (every class still counted)
  const Records *store_now = nullptr;  // the image's store as the caller has just read it (else read here)
  double wait = 0;      // --wait: seconds to wait for the image's lock
};

// What a move came to.
struct MoveVerdict {
  bool statuses_ok = false;  // every entry point returned 0
  bool damaged = false;      // the audit found damage
  int interrupted = 0;       // the signal (SIGINT, SIGTERM) that cut the move short
  Json doc;                  // everything, for --json and the history
  bool audited = false;      // the audit ran; then:
  Records store_after;       //   the store the move left, as the audit read it
  bool as_forecast = false;  //   and found it equal to the forecast's (no fault rules, a clean audit)
};

// Runs the move on the image (already checked and loaded as lib) and prints
// its reports on out. Throws ToolError for what stops it before the library
// is called (a --from that does not match the store, a copy that fails).
MoveVerdict run_move(const MoveOptions &o, ConversionLibrary &lib, const DeviceImage &img, std::ostream &out);

// The steps of a --step value.
std::vector<Step> steps_of(const std::string &step);

}  // namespace wsc

#endif
