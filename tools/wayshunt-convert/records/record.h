// One record of the runtime store, as the store holds it: key and value
// bytes. A store is read and written as a list of these in key order.
#ifndef TOOLS_WAYSHUNT_CONVERT_RECORD_H
#define TOOLS_WAYSHUNT_CONVERT_RECORD_H

#include <cstdint>
#include <vector>

namespace wsc {

using Bytes = std::vector<uint8_t>;

struct Record {
  Bytes key;
  Bytes value;
  // The key type: the first key byte (a store never holds an empty key).
  uint8_t type() const { return key.empty() ? 0 : key[0]; }
  bool operator==(const Record &) const = default;
};

using Records = std::vector<Record>;

}  // namespace wsc

#endif
