// libFuzzer harness of the text of a --fault rule: each input, up to its
// first NUL as a command-line argument ends, is checked as 'run' checks it
// (check_fault_rules: accepted, or a ToolError) and added as the stand-ins
// take rules (plat_fault_add: 0, or -1 with a text saying why). A rule the
// tool accepts must be one the stand-ins take, since 'run' arms the rules it
// accepted without looking at the result again. Every rule is dropped
// before the next input.
#include <stdio.h>
#include <stdlib.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "device/fault_option.h"
#include "plat_ctl.h"
#include "tool_error.h"

namespace {

void fail(const char *what, const std::string &rule) {
  fprintf(stderr, "fuzz_fault_rules: %s: '%s'\n", what, rule.c_str());
  abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  // Only the rules of the input, and no journal.
  unsetenv("PLAT_FAULTS");
  unsetenv("PLAT_JOURNAL");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string rule(reinterpret_cast<const char *>(data), strnlen(reinterpret_cast<const char *>(data), size));
  bool accepted = true;
  try {
    wsc::check_fault_rules({rule});
  } catch (const wsc::ToolError &) {
    accepted = false;
  }
  if (plat_fault_add(rule.c_str()) != 0) {
    if (accepted) fail("the tool accepts a rule the stand-ins refuse", rule);
    if (!*plat_fault_error()) fail("a rule refused without a reason", rule);
  }
  plat_fault_reset();
  return 0;
}
