// What a move did to a store, record by record and field by field, in four
// classes, read from the store before and the store after alone:
//   lost      information of the store before that no field after carries:
//             non-zero bytes dropped, a non-zero field overwritten, a record
//             deleted, a valid slot number replaced by 255;
//   repaired  acl_flags bits set or cleared, a slot number filled in or
//             corrected, a zero field filled in;
//   reshaped  a key or value whose size changed where only zero bytes, or
//             none, went;
//   new       a record that only the store after has.
// A record whose key changed form (a flow-thru key widened or narrowed) is
// matched with the record after whose key carries the same fields; fields
// that only one of the two forms has count as dropped or added. Several
// records matched with one record after (keys that narrow alike) are each
// compared with it.
#ifndef TOOLS_WAYSHUNT_CONVERT_COMPARE_CLASSIFY_H
#define TOOLS_WAYSHUNT_CONVERT_COMPARE_CLASSIFY_H

#include <array>
#include <cstddef>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "records/json_codec.h"
#include "records/record.h"

namespace wsc {

enum class ChangeClass { lost, repaired, reshaped, added };
inline constexpr size_t kChangeClasses = 4;
// "lost", "repaired", "reshaped", "new".
const char *class_name(ChangeClass c);

struct ChangeItem {
  ChangeClass cls;
  const Record *before;  // null for a new record
  const Record *after;   // null for a deleted record
  std::string field;     // "value.slot_num", "key.vsan", "key", "value" (a size), or "record"
  std::string was, now;  // the field's text on each side, "(none)" where it has none
};

struct Classified {
  std::array<size_t, kChangeClasses> records{};  // records with an item of the class
  // Items per class by what they touched: "ACL_RW_1 value.slot_num" -> items.
  std::array<std::map<std::string, size_t>, kChangeClasses> by_what;
  std::vector<ChangeItem> items;  // lost ones first, then the others, each in key order; at most keep a class
  size_t unchanged = 0;           // records equal on both sides
  size_t changed = 0;             // records with any item
  bool loses() const { return records[0] > 0; }
};

// Classifies the change from before to after (both in key order; they must
// outlive the result). keep: items kept per class, with their texts;
// keep_unlost, when given, the items kept of the classes other than lost.
// Every item is counted.
Classified classify_changes(const Records &before, const Records &after, size_t keep = SIZE_MAX,
                            std::optional<size_t> keep_unlost = std::nullopt);

// "this upgrade loses information: 3 records (ACL_RW_1 value.unused 3)",
// "this downgrade loses nothing of the store: ...", "this move changes no
// store record"; move names the move ("upgrade", "downgrade", "move").
std::string change_headline(const Classified &c, const std::string &move);
// The headline, the lost items (at most shown) and what each class touched.
void print_classified(const Classified &c, const std::string &move, size_t shown, std::ostream &out);
// Everything, each item an object: {"summary", "counts", "by_what", "items"}.
Json classified_json(const Classified &c, const std::string &move);

// One item as the tool prints it: "<key hex> <type> <field>: <was> -> <now>".
std::string item_text(const ChangeItem &item);
Json item_json(const ChangeItem &item);

}  // namespace wsc

#endif
