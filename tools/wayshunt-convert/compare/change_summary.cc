// A brief account of a store's changes, from the store comparison.
#include "compare/change_summary.h"

#include <iomanip>
#include <map>
#include <ostream>
#include <set>

#include "records/formats.h"
#include "compare/store_compare.h"

namespace wsc {

namespace {

// Example records shown, of each kind (at most 3 changed ones in all).
enum ExampleKind { kChangedFlags, kChangedOther, kRemoved, kAdded };
constexpr size_t kExamples[4] = {3, 3, 2, 2};

struct TypeCount {
  size_t before = 0, after = 0, removed = 0, added = 0, changed = 0;
  std::set<size_t> key_before, key_after, value_before, value_after;
};

struct Summary {
  std::map<uint8_t, TypeCount> types;
  std::map<std::string, size_t> fields;  // field -> records where it changed
  std::map<std::string, size_t> flags;   // "+PHYSICAL" -> records
  std::vector<const Change *> changed[2];  // examples: flags changed, other
  std::vector<const Record *> removed, added;
};

std::string sizes(const std::set<size_t> &s) {
  std::string out;
  for (size_t n : s) out += (out.empty() ? "" : "/") + std::to_string(n);
  return out;
}

void count_change(const Change &c, Summary &s) {
  ++s.types[c.a->type()].changed;
  bool flagged = false;
  for (const FieldChange &f : c.fields) {
    if (!f.on_both_sides()) continue;
    ++s.fields[f.field];
    flagged |= f.field == "value.acl_flags";
    for (const std::string &n : f.set) ++s.flags["+" + n];
    for (const std::string &n : f.cleared) ++s.flags["-" + n];
  }
  // Records whose flags changed make the better examples.
  auto &examples = s.changed[flagged ? kChangedFlags : kChangedOther];
  if (examples.size() < kExamples[flagged ? kChangedFlags : kChangedOther]) examples.push_back(&c);
}

Summary summarize(const Records &before, const Records &after, const StoreChanges &c) {
  Summary s;
  for (const Record &r : before) {
    TypeCount &t = s.types[r.type()];
    ++t.before;
    t.key_before.insert(r.key.size());
    t.value_before.insert(r.value.size());
  }
  for (const Record &r : after) {
    TypeCount &t = s.types[r.type()];
    ++t.after;
    t.key_after.insert(r.key.size());
    t.value_after.insert(r.value.size());
  }
  for (const Record *r : c.removed) ++s.types[r->type()].removed;
  for (const Record *r : c.added) ++s.types[r->type()].added;
  for (const Change &ch : c.changed) count_change(ch, s);
  s.removed.assign(c.removed.begin(), c.removed.begin() + std::min(c.removed.size(), kExamples[kRemoved]));
  s.added.assign(c.added.begin(), c.added.begin() + std::min(c.added.size(), kExamples[kAdded]));
  return s;
}

void print_types(const Summary &s, std::ostream &out) {
  out << "    " << std::left << std::setw(16) << "key type" << std::right;
  for (const char *h : {"before", "after", "removed", "added", "changed"}) out << std::setw(9) << h;
  out << "\n";
  for (const auto &[type, t] : s.types) {
    out << "    " << std::left << std::setw(16) << type_label(type) << std::right;
    for (size_t n : {t.before, t.after, t.removed, t.added, t.changed}) out << std::setw(9) << n;
    out << "\n";
  }
  for (const auto &[type, t] : s.types) {
    if (t.before && t.after && t.key_before != t.key_after)
      out << "  " << type_label(type) << " keys: " << sizes(t.key_before) << " -> " << sizes(t.key_after) << " bytes\n";
    if (t.before && t.after && t.value_before != t.value_after)
      out << "  " << type_label(type) << " values: " << sizes(t.value_before) << " -> " << sizes(t.value_after)
          << " bytes\n";
  }
}

void print_counts(const char *title, const std::map<std::string, size_t> &counts, std::ostream &out) {
  if (counts.empty()) return;
  out << "  " << title << " (records):";
  for (const auto &[name, n] : counts) out << " " << name << " " << n << ";";
  out << "\n";
}

// One line per record, or per field of a changed record that both sides have.
void print_record(char mark, const Record &r, std::ostream &out) {
  out << "    " << mark << " " << type_label(r.type()) << " " << to_hex(r.key);
  for (const auto &[name, value] : record_fields(r, false)) out << " " << name << "=" << value;
  out << "\n";
}

void print_examples(const Summary &s, std::ostream &out) {
  out << "  examples:\n";
  size_t shown = 0;
  for (const auto &list : s.changed)
    for (const Change *c : list) {
      if (shown++ >= kExamples[kChangedOther]) break;
      out << "    ~ " << type_label(c->a->type()) << " " << to_hex(c->a->key) << "\n";
      std::map<std::string, const FieldChange *> by_name;  // fields in name order
      for (const FieldChange &f : c->fields)
        if (f.on_both_sides()) by_name[f.field] = &f;
      for (const auto &[name, f] : by_name) out << "        " << name << ": " << f->before << " -> " << f->after << "\n";
    }
  for (const Record *r : s.removed) print_record('-', *r, out);
  for (const Record *r : s.added) print_record('+', *r, out);
}

}  // namespace

void print_change_summary(const Records &before, const Records &after, std::ostream &out) {
  StoreChanges c = compare_stores(before, after);
  Summary s = summarize(before, after, c);
  out << "  store: " << before.size() << " -> " << after.size() << " records\n";
  print_types(s, out);
  print_counts("fields changed", s.fields, out);
  print_counts("acl_flags set (+) and cleared (-)", s.flags, out);
  print_examples(s, out);
}

}  // namespace wsc
