// Parsing of the portmap table file (format in portmap_admin.h).
#ifndef PLAT_PORTMAP_TABLE_H
#define PLAT_PORTMAP_TABLE_H

#include <string>
#include <string_view>
#include <unordered_map>

#include "if_index.h"
#include "types.h"

namespace portmap {

struct Entry {
  retcode_t status;  // 0: the interface lies in slot; else lookups fail with it
  slot_num_t slot;
};

using Table = std::unordered_map<if_index_t, Entry>;

// Parses the whole text of a table file into out. On a bad line returns
// false with its number (from 1) and a description of the problem.
bool parse_table(std::string_view text, Table &out, unsigned &bad_line, std::string &problem);

}  // namespace portmap

#endif
