// The stored forms the tool decodes, by key type and era. Which form a type
// takes in which era, with its size, comes from the service's table in
// wayshunt_forms.h; the fields of each form (offsets and widths) from the
// layouts in wayshunt.h. A key or value in none of its type's forms is raw.
#ifndef TOOLS_WAYSHUNT_CONVERT_FORM_TABLES_H
#define TOOLS_WAYSHUNT_CONVERT_FORM_TABLES_H

#include <cstddef>
#include <string>
#include <vector>

#include "records/era.h"
#include "records/record.h"
#include "wayshunt_forms.h"

namespace wsc {

// How a field's bytes are shown.
enum class Kind { U8, I32, U32, U32Hex, U64Hex, Wwn, Fcid, AclFlags, IfIndex, Hex };

struct Field {
  const char *path;  // "rw_key.vsan": nested objects in the JSON
  size_t off;
  size_t width;
  Kind kind;
  bool brief;  // shown in the table by default
};

struct Form {
  std::string name;
  size_t size;
  std::vector<Field> fields;
};

// RW ACL (55-57) and ELS ACL (58-60) key types.
inline bool is_rw(uint8_t t) { return t >= WAYSHUNT_KVS_KEY_ACL_RW_1 && t <= WAYSHUNT_KVS_KEY_ACL_RW_3; }
inline bool is_els(uint8_t t) { return t >= WAYSHUNT_KVS_KEY_ACL_ELS_1 && t <= WAYSHUNT_KVS_KEY_ACL_ELS_3; }

// The service's entry for a key type, or null for a type it does not know.
const wayshunt_type_forms_t *type_forms(uint8_t type);

// "FLOW_THRU_HOST" for 54 and so on; empty for a type without a name.
std::string key_type_name(uint8_t type);

// Names of the forms a key or value of the type takes in any era, besides raw.
const std::vector<std::string> &allowed_key_forms(uint8_t type);
const std::vector<std::string> &allowed_value_forms(uint8_t type);

// The form of that name with its fields, or null.
const Form *find_key_form(const std::string &name);
const Form *find_value_form(const std::string &name);

// The form a record's key or value is in: the allowed one of its size, or
// null (raw).
const Form *key_form(const Record &r);
const Form *value_form(const Record &r);

// The eras whose forms a record fits, one bit per era (bit WAYSHUNT_ERA_32
// and so on): the type is stored in the era, and the key and value have the
// sizes of the era's forms where the form is interpreted. A type the service
// does not know fits every era. With moved_down an RW value may also have
// the form of the latest era, which a move down keeps as it is.
unsigned eras_fitting(const Record &r, bool moved_down = false);
inline constexpr unsigned kAllEras = (1u << WAYSHUNT_ERA_COUNT) - 1;

}  // namespace wsc

#endif
