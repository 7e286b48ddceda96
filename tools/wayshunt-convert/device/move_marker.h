// The mark of a move under way on an image: bootflash/wayshunt-convert-move.json
// is written before the move's entry points are called and removed when
// they have run to their end. A move cut short (a signal, a crash of the
// conversion process) leaves it, with why it stopped, so that 'info' and
// the next 'run' can say what the store is: a move stopped between two
// passes, which the same move run again finishes.
#ifndef TOOLS_WAYSHUNT_CONVERT_DEVICE_MOVE_MARKER_H
#define TOOLS_WAYSHUNT_CONVERT_DEVICE_MOVE_MARKER_H

#include <optional>
#include <string>

#include "device/device_image.h"

namespace wsc {

struct MoveMark {
  std::string from, to, started, stopped;  // stopped: why, "" while under way
};

// Writes the mark (under a temporary name, renamed). Throws ToolError.
void mark_move(const DeviceImage &img, const std::string &from, const std::string &to);
// The move ran to its end: the mark goes.
void unmark_move(const DeviceImage &img);
// The move was cut short: the mark stays and says why.
void mark_stopped(const DeviceImage &img, const std::string &why);
std::optional<MoveMark> move_mark(const DeviceImage &img);
// The image a store's folder belongs to (its folder is the image's mnt/kvs), if any.
std::optional<DeviceImage> image_of_store_folder(const std::string &folder);

}  // namespace wsc

#endif
