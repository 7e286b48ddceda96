// Records as JSON and as "name=value" text, both ways, by stored form.
//
// The form of a key or value follows from its key type and its size, as the
// service's releases store them (form_tables.h):
//   key    flow_thru_host (22 bytes, type 54), flow_thru_host_413 (18, type
//          54), rw_acl (10, types 55-57), else raw
//   value  flow_thru (4, type 54), rw_acl (82, types 55-57), rw_acl_32 (84,
//          types 55-57), els_acl (37, types 58-60), else raw
// A raw part is kept as hex, so every record round-trips byte for byte.
//
// JSON of one record:
//   {"type": "ACL_RW_1",                    (name, or a number when unnamed)
//    "key":   {"form": "rw_acl", "size": 10, "sub_type": 0,
//              "acl_hash_key_lower": "0x00000000000004d2"},
//    "value": {"form": "rw_acl", "size": 82, "tgt_pwwn": "50:06:01:60:...", ...}}
// "size" is optional on input; when given it must match the form.
#ifndef TOOLS_WAYSHUNT_CONVERT_JSON_CODEC_H
#define TOOLS_WAYSHUNT_CONVERT_JSON_CODEC_H

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "records/record.h"

namespace wsc {

using Json = nlohmann::ordered_json;

// A field of the JSON that cannot be encoded: path such as "value.acl_flags".
class FieldError : public std::runtime_error {
 public:
  FieldError(std::string path, const std::string &reason)
      : std::runtime_error(reason), path_(std::move(path)) {}
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

// "ACL_RW_1", or the number for a type without a name.
std::string type_label(uint8_t type);

Json record_to_json(const Record &r);
// Throws FieldError naming the field that is missing or wrong.
Record record_from_json(const Json &j);

// "name=value" pairs of the record's fields, key first: the main ones, or
// with all every field (raw hex cut to 32 bytes unless all).
std::vector<std::pair<std::string, std::string>> record_fields(const Record &r, bool all);

// Whether the brackets outside strings of text nest deeper than max_depth.
// A parsed document is copied and checked by recursion, one level a call:
// text nested some thousands deep is refused with this before it is parsed.
// Where text is no JSON the parser says so; up to there this reads strings
// and brackets as it does.
bool json_nests_deeper(const std::string &text, int max_depth);

// The text of one field of a form, read at p, as the JSON and 'dump' show it.
struct Field;
std::string field_text(const Field &f, const uint8_t *p);

// Every leaf of a record's JSON as ("value.rw_key.vsan", "10"), in order.
std::vector<std::pair<std::string, std::string>> flatten(const Json &j, const std::string &prefix = "");

}  // namespace wsc

#endif
