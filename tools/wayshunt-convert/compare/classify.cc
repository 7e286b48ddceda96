// Classification of a store's change, field by field on the bytes of each
// record's forms.
#include "compare/classify.h"

#include <algorithm>
#include <optional>
#include <cstring>

#include "compare/store_compare.h"
#include "records/form_tables.h"
#include "records/formats.h"
#include "wayshunt.h"

namespace wsc {

namespace {

// A stretch of a key or value: a field of its form, or the whole part when
// it has no form.
struct Slice {
  std::string path;  // "value.acl_flags", "key.hex"
  size_t off, width;
  const Field *field;  // null for a part without form
};

// The slices of a part, made once per form: they are asked for every
// record. A part without form is one slice, made in raw.
const std::vector<Slice> &slices(const Form *form, const Bytes &bytes, const std::string &part,
                                 std::vector<Slice> &raw) {
  if (!form) return raw = {{part + ".hex", 0, bytes.size(), nullptr}};
  static thread_local std::map<std::pair<const Form *, std::string>, std::vector<Slice>> made;
  auto [it, fresh] = made.try_emplace({form, part});
  if (fresh)
    for (const Field &f : form->fields) it->second.push_back({part + "." + f.path, f.off, f.width, &f});
  return it->second;
}

bool all_zero(const uint8_t *p, size_t n) {
  return std::all_of(p, p + n, [](uint8_t b) { return b == 0; });
}

std::string slice_text(const Slice &s, const Bytes &bytes) {
  return s.field ? field_text(*s.field, bytes.data() + s.off) : to_hex(bytes.data() + s.off, s.width);
}

std::string brief(const Record &r) {
  std::string out;
  for (const auto &[name, value] : record_fields(r, false)) out += (out.empty() ? "" : " ") + name + "=" + value;
  return out;
}

// The class of a field both sides have, whose bytes differ. A slot number
// is lost only where a slot was known (not 0, which a record holds until a
// slot is filled in, nor 255, none) and 255 takes its place.
ChangeClass both_sides(const Slice &s, const uint8_t *was, const uint8_t *now) {
  if (s.path.ends_with("acl_flags")) return ChangeClass::repaired;
  if (s.path.ends_with("slot_num")) {
    bool known = *was != 0 && *was != WAYSHUNT_SLOT_INVALID;
    return known && *now == WAYSHUNT_SLOT_INVALID ? ChangeClass::lost : ChangeClass::repaired;
  }
  return all_zero(was, s.width) ? ChangeClass::repaired : ChangeClass::lost;
}

class Collector {
 public:
  Collector(Classified &c, size_t keep, size_t keep_unlost) : c_(c), keep_{keep, keep_unlost, keep_unlost, keep_unlost} {}

  // Compares a record before with the one it became.
  void pair(const Record &b, const Record &a) {
    classes_ = 0;
    part(b, a, "key", b.key, a.key, key_form(b), key_form(a));
    part(b, a, "value", b.value, a.value, value_form(b), value_form(a));
    count_record();
  }
  void deleted(const Record &b) {
    classes_ = 0;
    add(ChangeClass::lost, &b, nullptr, "record", [&] { return std::pair{brief(b), std::string(kNoField)}; });
    count_record();
  }
  void added(const Record &a) {
    classes_ = 0;
    add(ChangeClass::added, nullptr, &a, "record", [&] { return std::pair{std::string(kNoField), brief(a)}; });
    count_record();
  }
  void finish() {
    auto key_of = [](const ChangeItem &i) { return i.before ? &i.before->key : &i.after->key; };
    std::stable_sort(c_.items.begin(), c_.items.end(), [&](const ChangeItem &x, const ChangeItem &y) {
      if (x.cls != y.cls) return x.cls < y.cls;
      return *key_of(x) < *key_of(y);
    });
  }

 private:
  // label: what the item counts under, when not its field.
  template <typename Texts>
  void add(ChangeClass cls, const Record *b, const Record *a, const std::string &field, Texts texts,
           const std::string &label = "") {
    size_t k = static_cast<size_t>(cls);
    classes_ |= 1u << k;
    const Record &r = b ? *b : *a;
    label_ = type_labels()[r.type()];
    label_ += ' ';
    label_ += label.empty() ? field : label;
    auto it = c_.by_what[k].find(label_);
    if (it == c_.by_what[k].end()) it = c_.by_what[k].emplace(label_, 0).first;
    ++it->second;
    if (kept_[k] >= keep_[k]) return;
    ++kept_[k];
    auto [was, now] = texts();
    c_.items.push_back({cls, b, a, field, was, now});
  }

  void part(const Record &b, const Record &a, const std::string &name, const Bytes &xb, const Bytes &xa,
            const Form *fb, const Form *fa) {
    if (xb == xa) return;
    std::vector<Slice> raw_b, raw_a;
    const std::vector<Slice> &sb = slices(fb, xb, name, raw_b), &sa = slices(fa, xa, name, raw_a);
    std::vector<bool> matched(sa.size());
    for (const Slice &s : sb) {
      auto t = std::find_if(sa.begin(), sa.end(), [&](const Slice &o) { return o.path == s.path && o.width == s.width; });
      if (t != sa.end()) {
        matched[t - sa.begin()] = true;
        if (std::memcmp(xb.data() + s.off, xa.data() + t->off, s.width) == 0) continue;
        add(both_sides(s, xb.data() + s.off, xa.data() + t->off), &b, &a, s.path,
            [&] { return std::pair{slice_text(s, xb), slice_text(*t, xa)}; });
      } else if (!all_zero(xb.data() + s.off, s.width)) {
        add(ChangeClass::lost, &b, &a, s.path, [&] { return std::pair{slice_text(s, xb), std::string(kNoField)}; });
      }
    }
    // A field only the form after has: a slot number is filled in whatever
    // it is; another field counts only when something was put in it.
    for (size_t i = 0; i < sa.size(); ++i)
      if (!matched[i] && (sa[i].path.ends_with("slot_num") || !all_zero(xa.data() + sa[i].off, sa[i].width)))
        add(ChangeClass::repaired, &b, &a, sa[i].path,
            [&] { return std::pair{std::string(kNoField), slice_text(sa[i], xa)}; });
    if (xb.size() != xa.size())
      add(ChangeClass::reshaped, &b, &a, name,
          [&] { return std::pair{std::to_string(xb.size()) + " bytes", std::to_string(xa.size()) + " bytes"}; },
          name + " " + std::to_string(xb.size()) + " -> " + std::to_string(xa.size()) + " bytes");
  }

  void count_record() {
    c_.changed += classes_ != 0;
    for (size_t k = 0; k < kChangeClasses; ++k) c_.records[k] += (classes_ >> k) & 1u;
  }

  // The label of every key type, made once.
  static const std::array<std::string, 256> &type_labels() {
    static const auto labels = [] {
      std::array<std::string, 256> all;
      for (int t = 0; t < 256; ++t) all[t] = type_label(static_cast<uint8_t>(t));
      return all;
    }();
    return labels;
  }

  Classified &c_;
  std::string label_;
  std::array<size_t, kChangeClasses> keep_;
  std::array<size_t, kChangeClasses> kept_{};
  unsigned classes_ = 0;
};

// The key r's key has in the type's other key forms, its missing fields zero.
std::vector<Bytes> other_forms(const Record &r) {
  std::vector<Bytes> out;
  const Form *own = key_form(r);
  if (!own) return out;
  for (const std::string &name : allowed_key_forms(r.type())) {
    const Form *f = find_key_form(name);
    if (!f || f == own) continue;
    Bytes k(f->size, 0);
    k[0] = r.type();
    for (const Field &field : f->fields)
      for (const Field &mine : own->fields)
        if (std::string_view(mine.path) == field.path && mine.width == field.width)
          std::memcpy(k.data() + field.off, r.key.data() + mine.off, field.width);
    out.push_back(std::move(k));
  }
  return out;
}

// Index of the record with key in records (key order), or npos.
size_t find_key(const Records &records, const Bytes &key) {
  auto it = std::lower_bound(records.begin(), records.end(), key, [](const Record &r, const Bytes &k) { return r.key < k; });
  return it != records.end() && it->key == key ? static_cast<size_t>(it - records.begin()) : SIZE_MAX;
}

}  // namespace

const char *class_name(ChangeClass c) {
  static const char *const kNames[] = {"lost", "repaired", "reshaped", "new"};
  return kNames[static_cast<size_t>(c)];
}

Classified classify_changes(const Records &before, const Records &after, size_t keep, std::optional<size_t> keep_unlost) {
  Classified c;
  Collector col(c, keep, keep_unlost.value_or(keep));
  std::vector<bool> matched(after.size());
  std::vector<const Record *> removed;
  size_t i = 0, j = 0;
  while (i < before.size() || j < after.size()) {
    if (j == after.size() || (i < before.size() && before[i].key < after[j].key)) {
      removed.push_back(&before[i++]);
    } else if (i == before.size() || after[j].key < before[i].key) {
      ++j;
    } else {
      matched[j] = true;
      if (before[i].value == after[j].value)
        ++c.unchanged;
      else
        col.pair(before[i], after[j]);
      ++i, ++j;
    }
  }
  for (const Record *r : removed) {
    size_t at = SIZE_MAX;
    for (const Bytes &k : other_forms(*r))
      if ((at = find_key(after, k)) != SIZE_MAX) break;
    if (at == SIZE_MAX) {
      col.deleted(*r);
    } else {
      matched[at] = true;
      col.pair(*r, after[at]);
    }
  }
  for (size_t k = 0; k < after.size(); ++k)
    if (!matched[k]) col.added(after[k]);
  col.finish();
  return c;
}

namespace {

// "ACL_RW_1 value.slot_num 914, ACL_ELS_1 value.slot_num 23", the most first.
std::string touched(const std::map<std::string, size_t> &what) {
  std::vector<std::pair<std::string, size_t>> v(what.begin(), what.end());
  std::stable_sort(v.begin(), v.end(), [](const auto &x, const auto &y) { return x.second > y.second; });
  std::string out;
  for (const auto &[name, n] : v) out += (out.empty() ? "" : ", ") + name + " " + std::to_string(n);
  return out;
}

std::string records(size_t n) { return std::to_string(n) + (n == 1 ? " record" : " records"); }

}  // namespace

std::string change_headline(const Classified &c, const std::string &move) {
  if (c.loses())
    return "this " + move + " loses information: " + records(c.records[0]) + " (" + touched(c.by_what[0]) + ")";
  if (!c.changed) return "this " + move + " changes no store record";
  std::string parts;
  for (size_t k = 1; k < kChangeClasses; ++k)
    if (c.records[k])
      parts += (parts.empty() ? records(c.records[k]) : ", " + std::to_string(c.records[k])) + " " +
               class_name(static_cast<ChangeClass>(k));
  return "this " + move + " loses nothing of the store: " + parts;
}

void print_classified(const Classified &c, const std::string &move, size_t shown, std::ostream &out) {
  out << change_headline(c, move) << "\n";
  for (size_t k = 0; k < kChangeClasses; ++k) {
    if (!c.records[k]) continue;
    auto cls = static_cast<ChangeClass>(k);
    out << "  " << class_name(cls) << " " << records(c.records[k]) << ": " << touched(c.by_what[k]) << "\n";
    if (cls != ChangeClass::lost) continue;
    size_t n = 0;
    for (const ChangeItem &item : c.items)
      if (item.cls == cls && n++ < shown) out << "    " << item_text(item) << "\n";
    size_t total = 0;
    for (const auto &[what, items] : c.by_what[k]) total += items;
    if (total > std::min(n, shown)) out << "    ... and " << total - std::min(n, shown) << " more (see --json)\n";
  }
  out << "  unchanged " << records(c.unchanged) << "\n";
}

Json classified_json(const Classified &c, const std::string &move) {
  Json j = {{"summary", change_headline(c, move)}, {"loses", c.loses()}, {"counts", Json::object()},
            {"by_what", Json::object()}, {"items", Json::array()}};
  for (size_t k = 0; k < kChangeClasses; ++k) {
    const char *name = class_name(static_cast<ChangeClass>(k));
    j["counts"][name] = c.records[k];
    j["by_what"][name] = c.by_what[k];
  }
  j["counts"]["unchanged"] = c.unchanged;
  for (const ChangeItem &item : c.items) j["items"].push_back(item_json(item));
  return j;
}

std::string item_text(const ChangeItem &item) {
  const Record &r = item.before ? *item.before : *item.after;
  return to_hex(r.key) + " " + type_label(r.type()) + " " + item.field + ": " + item.was + " -> " + item.now;
}

Json item_json(const ChangeItem &item) {
  const Record &r = item.before ? *item.before : *item.after;
  Json j = {{"key", to_hex(r.key)}, {"type", type_label(r.type())}, {"field", item.field},
            {"before", item.was},   {"after", item.now},              {"class", class_name(item.cls)}};
  if (item.before && item.after && item.before->key != item.after->key) j["key_after"] = to_hex(item.after->key);
  return j;
}

}  // namespace wsc
