// Parsing of fault rule text (see plat_ctl.h for the syntax).
#ifndef PLAT_FAULT_RULES_H
#define PLAT_FAULT_RULES_H

#include <cstdint>
#include <string>
#include <vector>

#include "plat_hooks.h"

namespace plat {

struct FaultRule {
  std::string func;
  uint32_t first = 1;           // first call number that fails
  uint32_t last = UINT32_MAX;   // last call number that fails
  plat_fault_t fault{PLAT_FAULT_STATUS, 0};
};

// Appends the rules of text to out. On a bad rule appends nothing, sets err
// to a description naming the rule and returns false.
bool parse_fault_rules(const std::string &text, std::vector<FaultRule> &out, std::string &err);

}  // namespace plat

#endif
