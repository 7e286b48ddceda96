// What a rehearsal runs: the images found in the arguments (device images,
// folders of them, or bare store files), the share of them a shard takes,
// and the moves tried on each: given ones ("3.2(1)->4.2(1)", or a round
// trip "4.2(1)->3.2(1)->4.2(1)"), or with --ladder every move up and down
// the ladder from the release of the image's era, and the round trips
// between releases of the ladder. The era of each release is the library's
// answer, not the tool's.
#ifndef TOOLS_WAYSHUNT_CONVERT_REHEARSE_PLAN_H
#define TOOLS_WAYSHUNT_CONVERT_REHEARSE_PLAN_H

#include <optional>
#include <string>
#include <vector>

#include "device/conversion_library.h"
#include "records/era.h"

namespace wsc {

// A release of the ladder and the era of stored forms the library says it
// keeps (none below 3.2).
struct Rung {
  std::string release;
  std::optional<Era> era;
};
// One release per era, lowest first, and one below 3.2.
std::vector<Rung> ladder_of(ConversionLibrary &lib);
// The rung of the ladder whose release keeps the era.
const Rung &rung_of_era(const std::vector<Rung> &ladder, Era era);

struct MovePlan {
  std::vector<std::string> path;  // releases visited, in order: 2, or 3 for a round trip
  bool round_trip() const { return path.size() == 3; }
  std::string label() const;      // "4.2(1)->3.2(1)->4.2(1)"
};
// "A->B" or "A->B->A"; throws ToolError for anything else.
MovePlan parse_move(const std::string &text);
// Every move from `from` to the other rungs, then the round trips to the
// other rungs that keep an era; nearer rungs first.
std::vector<MovePlan> ladder_moves(const std::vector<Rung> &ladder, const std::string &from);
// Moves in the order a report shows them: by first release (ladder order),
// one-way moves before round trips, then by the release turned at.
void sort_moves(std::vector<std::string> &labels, const std::vector<Rung> &ladder);

struct ImageInput {
  std::string name;   // unique in the rehearsal
  std::string path;   // absolute: the image folder, or the store file
  bool bare = false;  // a store file rather than a device image
  size_t index = 0;   // place among all images given, before sharding
};
// The images the arguments name, in order. Throws ToolError for an argument
// that is no image, store file or folder holding some.
std::vector<ImageInput> find_images(const std::vector<std::string> &args);
// Every count-th image from the index-th (1-based), for --shard index/count.
std::vector<ImageInput> shard_of(const std::vector<ImageInput> &all, unsigned index, unsigned count);
// "I/N" -> (I, N); throws ToolError unless 1 <= I <= N.
std::pair<unsigned, unsigned> parse_shard(const std::string &text);

}  // namespace wsc

#endif
