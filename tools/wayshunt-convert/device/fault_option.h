// 'run --fault RULE': platform failures injected into a move through the
// stand-ins' fault rules (plat_ctl.h), so that a failure can be rehearsed
// without environment variables.
#ifndef TOOLS_WAYSHUNT_CONVERT_FAULT_OPTION_H
#define TOOLS_WAYSHUNT_CONVERT_FAULT_OPTION_H

#include <string>
#include <vector>

namespace wsc {

// The grammar of a rule with examples, for 'run --help'.
extern const char *const kFaultHelp;

// Throws ToolError naming the first rule that is not a rule of a platform
// call the library makes. Adds no rule.
void check_fault_rules(const std::vector<std::string> &rules);

// Starts the library's calls afresh: drops the counts of calls the tool made
// itself, then sets the rules given, and with env those of PLAT_FAULTS.
void arm_faults(const std::vector<std::string> &rules, bool env = true);

// Drops every rule, so that the tool's own store reads after a move fail
// only when the store does.
void disarm_faults();

}  // namespace wsc

#endif
