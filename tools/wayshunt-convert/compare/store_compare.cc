// Comparison of two stores by key and field, and its text and JSON forms.
#include "compare/store_compare.h"

#include <algorithm>
#include <map>
#include <ostream>

#include "records/formats.h"

namespace wsc {

namespace {

FieldChange field_change(const std::string &field, const std::string &before, const std::string &after) {
  FieldChange c{field, before, after, {}, {}};
  if (field.ends_with("acl_flags") && c.on_both_sides()) {
    uint32_t x = parse_acl_flags(before), y = parse_acl_flags(after);
    c.set = acl_flag_names(y & ~x);
    c.cleared = acl_flag_names(x & ~y);
  }
  return c;
}

std::vector<FieldChange> field_changes(const Record &a, const Record &b) {
  auto fa = flatten(record_to_json(a)), fb = flatten(record_to_json(b));
  std::map<std::string, std::string> in_b(fb.begin(), fb.end()), in_a(fa.begin(), fa.end());
  std::vector<FieldChange> out;
  for (const auto &[field, value] : fa) {
    auto it = in_b.find(field);
    if (it == in_b.end())
      out.push_back(field_change(field, value, kNoField));
    else if (it->second != value)
      out.push_back(field_change(field, value, it->second));
  }
  for (const auto &[field, value] : fb)
    if (!in_a.count(field)) out.push_back(field_change(field, kNoField, value));
  return out;
}

std::string joined(const std::vector<std::string> &names) {
  std::string s;
  for (const std::string &n : names) s += (s.empty() ? "" : "|") + n;
  return s;
}

Json field_json(const FieldChange &f) {
  Json fj = {{"field", f.field}, {"a", f.before}, {"b", f.after}};
  if (!f.set.empty() || !f.cleared.empty()) {
    fj["flags_set"] = f.set;
    fj["flags_cleared"] = f.cleared;
  }
  return fj;
}

}  // namespace

namespace {

// The records in key order: as they are when already sorted (as a store
// hands them out), else sorted.
std::vector<const Record *> in_key_order(const Records &records) {
  std::vector<const Record *> out;
  out.reserve(records.size());
  for (const Record &r : records) out.push_back(&r);
  auto by_key = [](const Record *x, const Record *y) { return x->key < y->key; };
  if (!std::is_sorted(out.begin(), out.end(), by_key)) std::stable_sort(out.begin(), out.end(), by_key);
  return out;
}

}  // namespace

StoreChanges compare_stores(const Records &a, const Records &b) {
  std::vector<const Record *> left = in_key_order(a), right = in_key_order(b);
  StoreChanges res;
  size_t i = 0, j = 0;
  while (i < left.size() || j < right.size()) {
    if (j == right.size() || (i < left.size() && left[i]->key < right[j]->key)) {
      res.removed.push_back(left[i++]);
    } else if (i == left.size() || right[j]->key < left[i]->key) {
      res.added.push_back(right[j++]);
    } else {
      if (left[i]->value != right[j]->value)
        res.changed.push_back({left[i], right[j], field_changes(*left[i], *right[j])});
      else
        ++res.unchanged;
      ++i, ++j;
    }
  }
  return res;
}

Json changes_to_json(const StoreChanges &c) {
  Json j = Json::object();
  j["equal"] = c.equal();
  j["counts"] = {{"added", c.added.size()},
                 {"removed", c.removed.size()},
                 {"changed", c.changed.size()},
                 {"unchanged", c.unchanged}};
  j["added"] = Json::array();
  for (const Record *r : c.added) j["added"].push_back(record_to_json(*r));
  j["removed"] = Json::array();
  for (const Record *r : c.removed) j["removed"].push_back(record_to_json(*r));
  j["changed"] = Json::array();
  for (const Change &ch : c.changed) {
    Json fields = Json::array();
    for (const FieldChange &f : ch.fields) fields.push_back(field_json(f));
    j["changed"].push_back({{"type", type_label(ch.a->type())}, {"key", to_hex(ch.a->key)}, {"fields", fields}});
  }
  return j;
}

void print_changes(const StoreChanges &c, const std::string &a_name, const std::string &b_name, bool color,
                   std::ostream &out) {
  auto paint = [color](const char *code, const std::string &text) {
    return color ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
  };
  auto line = [&](const char *code, char mark, const Record &r) {
    std::string fields;
    for (const auto &[name, value] : record_fields(r, false)) fields += " " + name + "=" + value;
    out << paint(code, std::string(1, mark) + " " + type_label(r.type()) + " " + to_hex(r.key) + fields) << "\n";
  };
  out << paint("1", "--- a: " + a_name) << "\n" << paint("1", "+++ b: " + b_name) << "\n";
  for (const Record *r : c.removed) line("31", '-', *r);
  for (const Record *r : c.added) line("32", '+', *r);
  for (const Change &ch : c.changed) {
    out << paint("33", "~ " + type_label(ch.a->type()) + " " + to_hex(ch.a->key)) << "\n";
    for (const FieldChange &f : ch.fields) {
      std::string note;
      if (!f.set.empty()) note += " +" + joined(f.set);
      if (!f.cleared.empty()) note += " -" + joined(f.cleared);
      out << "    " << f.field << ": " << paint("31", f.before) << " -> " << paint("32", f.after)
          << (note.empty() ? "" : "  (" + note.substr(1) + ")") << "\n";
    }
  }
  print_change_counts(c, out);
}

void print_change_counts(const StoreChanges &c, std::ostream &out) {
  out << c.added.size() << " added, " << c.removed.size() << " removed, " << c.changed.size() << " changed, "
      << c.unchanged << " unchanged\n";
}

}  // namespace wsc
