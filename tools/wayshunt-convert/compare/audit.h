// The audit after a move: the store the move left against a clean
// conversion of a copy of the store as it was (same library, no fault
// rules), the era's invariants that the move broke and the clean conversion
// did not, and the service's files that the clean conversion brought to the
// standby and the move did not, or not byte for byte. Each finding names its
// record or file and, where the move's journal has one, the failed platform
// call that explains it.
#ifndef TOOLS_WAYSHUNT_CONVERT_COMPARE_AUDIT_H
#define TOOLS_WAYSHUNT_CONVERT_COMPARE_AUDIT_H

#include <iosfwd>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "compare/invariants.h"
#include "records/json_codec.h"
#include "records/record.h"

namespace wsc {

struct AuditInput {
  const Records *clean = nullptr;  // the clean conversion's store
  const Records *moved = nullptr;  // the store the move left
  bool moved_unchanged = false;    // a move that failed left the store as it was: no record is named
  // The invariants of the era entered, checked on both stores when they
  // differ (null: none checked).
  std::function<std::vector<Violation>(const Records &)> check;
  // Files below the standby that each conversion wrote, and the bytes each
  // should hold (the service's file it copies), by path below the standby.
  std::set<std::string> clean_arrived, moved_arrived;
  std::map<std::string, std::string> expected_files;  // path -> contents
  std::map<std::string, std::string> moved_files;     // path -> contents on the standby after the move
  std::vector<std::string> journal;  // the move's platform calls, one a line (may be empty)
};

struct Finding {
  std::string kind;  // "missing", "extra", "field", "invariant", "standby"
  std::string key;   // key hex, or the file's path
  std::string type;  // key type, or "file"
  std::string what;  // what differs
  std::string cause; // the failed call that explains it, or ""
};

struct AuditResult {
  std::vector<Finding> findings;
  size_t records = 0;  // records that differ from the clean conversion
  size_t files = 0;    // files of the standby that did not arrive or differ
  bool clean() const { return findings.empty(); }
};

AuditResult audit_move(const AuditInput &in);

// The failed calls in a journal: lines whose result is a failure.
std::vector<std::string> failed_calls(const std::vector<std::string> &journal);

void print_findings(const AuditResult &a, size_t shown, std::ostream &out);
Json audit_json(const AuditResult &a);

}  // namespace wsc

#endif
