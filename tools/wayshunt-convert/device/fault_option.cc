// Fault rules for 'run', checked before anything is touched and set just
// before the library's first call.
#include "device/fault_option.h"

#include <cstdlib>

#include "plat_ctl.h"
#include "tool_error.h"

namespace wsc {

namespace {

// Whether call names a platform call whose stand-in consults the fault
// rules; the stand-ins' control keeps the list (plat_fault_points()).
bool is_fault_point(const std::string &call) {
  for (const char *const *p = plat_fault_points(); *p != nullptr; p++)
    if (call == *p) return true;
  return false;
}

std::string function_of(const std::string &rule) { return rule.substr(0, rule.find_first_of(":=")); }

void add_rules(const char *text) {
  if (text && *text) plat_fault_add(text);  // a bad PLAT_FAULTS was reported when first read
}

}  // namespace

const char *const kFaultHelp =
    "Fault rules (--fault, repeatable): <call>[:<when>][=<action>]\n"
    "  call    a platform call: kvs_open kvs_close kvs_move2location kvs_getkey kvs_getvalue\n"
    "          kvs_store kvs_delete, tk_cq_* and tk_hashtable_64_* (toolkit), hub_bind hub_send\n"
    "          hub_rr_token_get hub_drop hub_recv hub_unbind, overseercmn_file_gsync (standby\n"
    "          copy), reldesc_sw_ver_file_get, portmap_get_slot, plat_overseercb_no_overseer\n"
    "  when    N the N-th call only; N-M calls N to M; N+ the N-th and every later; * every call\n"
    "          (default). Calls count from 1 per call name, from the library's first call.\n"
    "  action  a status number (decimal or 0x hex; for hub calls an errno), an errno name such as\n"
    "          ETIMEDOUT, null (a null result), empty (an empty datum); default: an injected failure\n"
    "Rules add to those of PLAT_FAULTS. Examples:\n"
    "  --fault kvs_store:3                 the 3rd store write fails\n"
    "  --fault hub_recv=ETIMEDOUT          the service's reply times out\n"
    "  --fault overseercmn_file_gsync:2    the 2nd file copy to the standby fails\n"
    "  --fault portmap_get_slot:1-5        the first five slot lookups fail (slot 255)\n";

void check_fault_rules(const std::vector<std::string> &rules) {
  if (rules.empty()) return;
  plat_journal_on();  // reads PLAT_FAULTS and PLAT_JOURNAL before the reset below
  for (const std::string &rule : rules) {
    if (rule.find_first_of(",; \t\n") != std::string::npos)
      throw ToolError("--fault '" + rule + "': one rule per --fault; repeat --fault for more");
    std::string call = function_of(rule);
    if (!is_fault_point(call))
      throw ToolError("--fault '" + rule + "': '" + call +
                      "' is no platform call that takes faults; see 'wayshunt-convert run --help' for the calls");
    if (plat_fault_add(rule.c_str()) != 0)
      throw ToolError("--fault " + std::string(plat_fault_error()) + "; see 'wayshunt-convert run --help' for the grammar");
  }
  arm_faults({});  // the checked rules out again; PLAT_FAULTS stays
}

void arm_faults(const std::vector<std::string> &rules, bool env) {
  plat_journal_on();
  plat_fault_reset();
  if (env) add_rules(std::getenv("PLAT_FAULTS"));
  for (const std::string &rule : rules) add_rules(rule.c_str());
}

void disarm_faults() { plat_fault_reset(); }

}  // namespace wsc
