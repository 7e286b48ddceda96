// 'diff': two stores compared record by record (by key) and field by field.
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>

#include "commands.h"
#include "formats.h"
#include "record_codec.h"
#include "store_io.h"

namespace wsc {

namespace {

struct DiffOptions {
  std::string a, b;
  bool json = false;
  std::string color = "auto";
};

struct FieldChange {
  std::string field, before, after;
  std::vector<std::string> set, cleared;  // acl_flags bits, by name
};

struct Change {
  const Record *a;
  const Record *b;
  std::vector<FieldChange> fields;
};

struct Result {
  std::vector<const Record *> added, removed;
  std::vector<Change> changed;
  size_t unchanged = 0;
  bool equal() const { return added.empty() && removed.empty() && changed.empty(); }
};

std::vector<FieldChange> field_changes(const Record &a, const Record &b) {
  auto fa = flatten(record_to_json(a)), fb = flatten(record_to_json(b));
  std::map<std::string, std::string> in_b(fb.begin(), fb.end()), in_a(fa.begin(), fa.end());
  std::vector<FieldChange> out;
  auto add = [&](const std::string &field, const std::string &before, const std::string &after) {
    FieldChange c{field, before, after, {}, {}};
    if (field.ends_with("acl_flags") && before != "(none)" && after != "(none)") {
      uint32_t x = parse_acl_flags(before), y = parse_acl_flags(after);
      c.set = acl_flag_names(y & ~x);
      c.cleared = acl_flag_names(x & ~y);
    }
    out.push_back(std::move(c));
  };
  for (const auto &[field, value] : fa) {
    auto it = in_b.find(field);
    if (it == in_b.end())
      add(field, value, "(none)");
    else if (it->second != value)
      add(field, value, it->second);
  }
  for (const auto &[field, value] : fb)
    if (!in_a.count(field)) add(field, "(none)", value);
  return out;
}

Result compare(const Records &a, const Records &b) {
  std::map<Bytes, const Record *> left, right;
  for (const Record &r : a) left[r.key] = &r;
  for (const Record &r : b) right[r.key] = &r;
  Result res;
  for (const auto &[key, ra] : left) {
    auto it = right.find(key);
    if (it == right.end())
      res.removed.push_back(ra);
    else if (ra->value != it->second->value)
      res.changed.push_back({ra, it->second, field_changes(*ra, *it->second)});
    else
      ++res.unchanged;
  }
  for (const auto &[key, rb] : right)
    if (!left.count(key)) res.added.push_back(rb);
  return res;
}

Json to_json(const Result &res) {
  Json j = Json::object();
  j["equal"] = res.equal();
  j["counts"] = {{"added", res.added.size()},
                 {"removed", res.removed.size()},
                 {"changed", res.changed.size()},
                 {"unchanged", res.unchanged}};
  j["added"] = Json::array();
  for (const Record *r : res.added) j["added"].push_back(record_to_json(*r));
  j["removed"] = Json::array();
  for (const Record *r : res.removed) j["removed"].push_back(record_to_json(*r));
  j["changed"] = Json::array();
  for (const Change &c : res.changed) {
    Json fields = Json::array();
    for (const FieldChange &f : c.fields) {
      Json fj = {{"field", f.field}, {"a", f.before}, {"b", f.after}};
      if (!f.set.empty() || !f.cleared.empty()) {
        fj["flags_set"] = f.set;
        fj["flags_cleared"] = f.cleared;
      }
      fields.push_back(fj);
    }
    j["changed"].push_back({{"type", type_label(c.a->type())}, {"key", to_hex(c.a->key)}, {"fields", fields}});
  }
  return j;
}

std::string joined(const std::vector<std::string> &names) {
  std::string s;
  for (const std::string &n : names) s += (s.empty() ? "" : "|") + n;
  return s;
}

void print_text(const Result &res, const StoreRef &a, const StoreRef &b, bool color) {
  auto paint = [color](const char *code, const std::string &text) {
    return color ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
  };
  auto line = [&](const char *code, char mark, const Record &r) {
    std::string fields;
    for (const auto &[name, value] : record_fields(r, false)) fields += " " + name + "=" + value;
    std::cout << paint(code, std::string(1, mark) + " " + type_label(r.type()) + " " + to_hex(r.key) + fields) << "\n";
  };
  std::cout << paint("1", "--- a: " + a.file) << "\n" << paint("1", "+++ b: " + b.file) << "\n";
  for (const Record *r : res.removed) line("31", '-', *r);
  for (const Record *r : res.added) line("32", '+', *r);
  for (const Change &c : res.changed) {
    std::cout << paint("33", "~ " + type_label(c.a->type()) + " " + to_hex(c.a->key)) << "\n";
    for (const FieldChange &f : c.fields) {
      std::string note;
      if (!f.set.empty()) note += " +" + joined(f.set);
      if (!f.cleared.empty()) note += " -" + joined(f.cleared);
      std::cout << "    " << f.field << ": " << paint("31", f.before) << " -> " << paint("32", f.after)
                << (note.empty() ? "" : "  (" + note.substr(1) + ")") << "\n";
    }
  }
  std::cout << res.added.size() << " added, " << res.removed.size() << " removed, " << res.changed.size()
            << " changed, " << res.unchanged << " unchanged\n";
}

void run_diff(const DiffOptions &o) {
  StoreRef a = resolve_store(o.a), b = resolve_store(o.b);
  Records ra = read_store(a), rb = read_store(b);
  Result res = compare(ra, rb);
  bool color = o.color == "always" || (o.color == "auto" && isatty(STDOUT_FILENO) && !std::getenv("NO_COLOR"));
  if (o.json)
    std::cout << to_json(res).dump(2) << "\n";
  else
    print_text(res, a, b, color);
  std::cout.flush();
  if (!res.equal()) throw CLI::RuntimeError(kExitFound);
}

}  // namespace

void add_diff_command(CLI::App &app) {
  auto o = std::make_shared<DiffOptions>();
  CLI::App *cmd = app.add_subcommand("diff", "Compare two stores record by record and field by field.");
  cmd->add_option("a", o->a, "the first store (the 'before')")->required();
  cmd->add_option("b", o->b, "the second store (the 'after')")->required();
  cmd->add_flag("--json", o->json, "Write the differences as JSON");
  cmd->add_option("--color", o->color, "Colour the text: auto (on a terminal, unless NO_COLOR is set), always, never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->capture_default_str();
  cmd->footer(
      "Records are matched by key: '-' a record only in a, '+' only in b, '~' a record whose\n"
      "value changed, with each changed field and the acl_flags bits set (+) and cleared (-).\n"
      "Exit status 0 when the stores are equal, 1 when they differ, 2 on error.\n\n"
      "Example:\n"
      "  wayshunt-convert diff before/wayshunt_runtime_ha.mdb after/wayshunt_runtime_ha.mdb\n"
      "  wayshunt-convert diff --json nonvolatile:/tmp/a/wayshunt_runtime_ha /tmp/b > changes.json");
  cmd->callback([o] { run_diff(*o); });
}

}  // namespace wsc
