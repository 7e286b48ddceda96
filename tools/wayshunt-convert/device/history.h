// The history of an image: one JSON object a line in
// bootflash/wayshunt-convert-history.jsonl, appended by every 'run' that
// moves the image (not by a dry run, which leaves the image as it was), and
// listed by 'history'.
#ifndef TOOLS_WAYSHUNT_CONVERT_DEVICE_HISTORY_H
#define TOOLS_WAYSHUNT_CONVERT_DEVICE_HISTORY_H

#include <string>
#include <vector>

#include "device/device_image.h"
#include "records/json_codec.h"

namespace wsc {

// Appends record as one line. Returns "" or why it could not be written.
std::string append_history(const DeviceImage &img, const Json &record);

// The records in the order they were written; a line that is no JSON object
// becomes {"unreadable": line}. Throws ToolError when the file cannot be read.
std::vector<Json> read_history(const std::string &file);

// The current time as "2026-11-24T21:40:00Z".
std::string utc_now();
// The time now in strftime's format, local or UTC (at most 63 characters).
std::string time_now(const char *format, bool local);

}  // namespace wsc

#endif
