// A whole store as JSON, the document that 'dump --json' writes and 'load'
// reads:
//   {"format": "wayshunt-store-1", "records": [<record>, ...]}
// with each record as json_codec.h shows it.
#ifndef TOOLS_WAYSHUNT_CONVERT_JSON_STORE_H
#define TOOLS_WAYSHUNT_CONVERT_JSON_STORE_H

#include <string>

#include "records/record.h"
#include "records/json_codec.h"

namespace wsc {

inline constexpr const char *kStoreFormat = "wayshunt-store-1";

Json store_to_json(const Records &records);

// Parses and checks the whole document before anything is written. Throws
// ToolError naming the record and field, e.g.
//   "store.json: records[3] (ACL_RW_1): value.acl_flags: unknown flag 'ISLX' ..."
Records store_from_json_text(const std::string &text, const std::string &source);

}  // namespace wsc

#endif
