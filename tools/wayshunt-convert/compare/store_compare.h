// Two stores compared: records matched by key, a record only in one of them
// added or removed, a record whose value differs changed, field by field
// (with the acl_flags bits set and cleared). Used by 'diff', by 'run
// --dry-run' and by 'demo'.
#ifndef TOOLS_WAYSHUNT_CONVERT_STORE_COMPARE_H
#define TOOLS_WAYSHUNT_CONVERT_STORE_COMPARE_H

#include <iosfwd>
#include <string>
#include <vector>

#include "records/json_codec.h"
#include "records/record.h"

namespace wsc {

// The text a field has on the side where it does not exist.
inline constexpr const char *kNoField = "(none)";

struct FieldChange {
  std::string field, before, after;
  std::vector<std::string> set, cleared;  // acl_flags bits, by name
  bool on_both_sides() const { return before != kNoField && after != kNoField; }
};

struct Change {
  const Record *a;
  const Record *b;
  std::vector<FieldChange> fields;  // fields of a in order, then those only in b
};

// Records point into the two lists compared, which must outlive the result.
struct StoreChanges {
  std::vector<const Record *> added, removed;  // in key order
  std::vector<Change> changed;                 // in key order
  size_t unchanged = 0;
  bool equal() const { return added.empty() && removed.empty() && changed.empty(); }
};

StoreChanges compare_stores(const Records &a, const Records &b);

// The changes as 'diff --json' writes them.
Json changes_to_json(const StoreChanges &c);

// The changes as 'diff' prints them, a_name and b_name heading them.
void print_changes(const StoreChanges &c, const std::string &a_name, const std::string &b_name, bool color,
                   std::ostream &out);

// The last line of print_changes alone: "1 added, 0 removed, ...".
void print_change_counts(const StoreChanges &c, std::ostream &out);

}  // namespace wsc

#endif
