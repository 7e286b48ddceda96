// The audit of a move against a clean conversion, and its text and JSON.
#include "compare/audit.h"

#include <algorithm>
#include <ostream>
#include <regex>

#include "compare/store_compare.h"
#include "records/formats.h"

namespace wsc {

namespace {

// The key as the journal writes it: "[36 00 20 ...]".
std::string journal_key(const Bytes &key) {
  std::string s = "[";
  for (size_t i = 0; i < key.size() && i < 64; ++i) s += (i ? " " : "") + to_hex(&key[i], 1);
  return s + (key.size() > 64 ? " ...]" : "]");
}

class Explainer {
 public:
  explicit Explainer(const std::vector<std::string> &journal) : failed_(failed_calls(journal)) {}
  std::string cause(const std::string &needle) const {
    for (const std::string &line : failed_)
      if (line.find(needle) != std::string::npos) return line.size() > 240 ? line.substr(0, 240) + " ..." : line;
    return "";
  }

 private:
  std::vector<std::string> failed_;
};

std::string brief(const Record &r) {
  std::string out;
  for (const auto &[name, value] : record_fields(r, false)) out += (out.empty() ? "" : " ") + name + "=" + value;
  return out;
}

void record_findings(const AuditInput &in, const Explainer &why, AuditResult &a) {
  StoreChanges c = compare_stores(*in.clean, *in.moved);
  auto add = [&](const char *kind, const Record &r, const std::string &what) {
    a.findings.push_back({kind, to_hex(r.key), type_label(r.type()), what, why.cause(journal_key(r.key))});
  };
  for (const Record *r : c.removed) add("missing", *r, "missing; a clean conversion has it: " + brief(*r));
  for (const Record *r : c.added) add("extra", *r, "a clean conversion has no such record: " + brief(*r));
  for (const Change &ch : c.changed) {
    std::string what;
    for (const FieldChange &f : ch.fields)
      what += (what.empty() ? "" : "; ") + f.field + " " + f.after + " where a clean conversion has " + f.before;
    add("field", *ch.b, what);
  }
  a.records = c.removed.size() + c.added.size() + c.changed.size();
}

// Violations of the moved store that the clean conversion's store has not.
void invariant_findings(const AuditInput &in, const Explainer &why, AuditResult &a) {
  std::set<std::pair<Bytes, std::string>> clean;
  for (const auto &[r, what] : in.check(*in.clean)) clean.insert({r->key, what});
  for (const auto &[r, what] : in.check(*in.moved))
    if (!clean.count({r->key, what}))
      a.findings.push_back({"invariant", to_hex(r->key), type_label(r->type()), what, why.cause(journal_key(r->key))});
}

void standby_findings(const AuditInput &in, const Explainer &why, AuditResult &a) {
  for (const std::string &path : in.clean_arrived) {
    std::string cause = why.cause("src=\"/" + path + "\"");
    auto expected = in.expected_files.find(path);
    auto found = in.moved_files.find(path);
    if (!in.moved_arrived.count(path) || found == in.moved_files.end())
      a.findings.push_back({"standby", path, "file", "did not reach the standby; a clean conversion copies it", cause});
    else if (expected != in.expected_files.end() && found->second != expected->second)
      a.findings.push_back({"standby", path, "file",
                            "on the standby differs from the service's file (" + std::to_string(found->second.size()) +
                                " bytes, the file has " + std::to_string(expected->second.size()) + ")",
                            cause});
    else
      continue;
    ++a.files;
  }
}

}  // namespace

std::vector<std::string> failed_calls(const std::vector<std::string> &journal) {
  static const std::regex kFailed(R"( = (0x0*[1-9a-f][0-9a-f]*|-1|null)\b|\(injected\))");
  std::vector<std::string> out;
  for (const std::string &line : journal)
    if (std::regex_search(line, kFailed)) out.push_back(line);
  return out;
}

AuditResult audit_move(const AuditInput &in) {
  AuditResult a;
  Explainer why(in.journal);
  if (*in.clean != *in.moved && !in.moved_unchanged) {
    record_findings(in, why, a);
    if (in.check) invariant_findings(in, why, a);
  }
  standby_findings(in, why, a);
  return a;
}

void print_findings(const AuditResult &a, size_t shown, std::ostream &out) {
  for (size_t i = 0; i < a.findings.size() && i < shown; ++i) {
    const Finding &f = a.findings[i];
    out << "  " << f.kind << " " << f.type << " " << f.key << ": " << f.what << "\n";
    if (!f.cause.empty()) out << "    failed call: " << f.cause << "\n";
  }
  if (a.findings.size() > shown) out << "  ... and " << a.findings.size() - shown << " more (see --json)\n";
}

Json audit_json(const AuditResult &a) {
  Json j = {{"clean", a.clean()}, {"records", a.records}, {"files", a.files}, {"findings", Json::array()}};
  for (const Finding &f : a.findings)
    j["findings"].push_back(
        {{"kind", f.kind}, {"key", f.key}, {"type", f.type}, {"what", f.what}, {"cause", f.cause}});
  return j;
}

}  // namespace wsc
