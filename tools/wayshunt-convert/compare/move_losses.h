// What the ladder of record forms drops on a move, foreseen from the store
// before anything is written: the vsan of each narrowed flow-thru key,
// records that collapse into one because their narrowed keys are equal,
// flow-thru values replaced by 0, the runtime line card records deleted on
// the way to 3.2, the bytes of 84-byte RW values cut to 82, and RW and ELS
// records whose slot lookup fails and that will be stored with slot 255.
// 'run --dry-run' and 'demo' print it ahead of the move.
#ifndef TOOLS_WAYSHUNT_CONVERT_MOVE_LOSSES_H
#define TOOLS_WAYSHUNT_CONVERT_MOVE_LOSSES_H

#include <iosfwd>
#include <string>
#include <vector>

#include "records/json_codec.h"
#include "records/record.h"

namespace wsc {

struct Loss {
  const char *id;    // "vsan", "collapse", ...: the JSON name
  const char *what;  // "flow-thru keys lose a non-zero vsan"
  size_t count = 0;  // records
  std::vector<std::string> items;  // one per record or group: key and detail
};

struct MoveLosses {
  std::vector<std::string> conversions;
  bool down = false;
  std::vector<Loss> losses;  // every kind, counts possibly 0
  size_t total() const;
};

// conversions: the store conversions of the move in order, as the library
// names them ("to 4.1.3 or lower", "to 3.2", "from 3.2", "from 4.1.3 or
// lower"; ConversionLibrary::store_conversions). Slot lookups go through the
// interface map as the library's do.
MoveLosses foresee_losses(const Records &store, const std::vector<std::string> &conversions, bool down);

// One line: "this move loses information: 3 flow-thru keys lose ...".
std::string loss_headline(const MoveLosses &m);
void print_losses(const MoveLosses &m, std::ostream &out);
Json losses_to_json(const MoveLosses &m);

}  // namespace wsc

#endif
