// Splitting the conversion log into records, and the table of its error
// records with what each means and what the operator does next.
#include "device/log_reader.h"

#include <regex>

#include "tool_error.h"
#include "wayshunt_cnv.h"

namespace wsc {

namespace {

// "%s" and "%d" of a message as patterns; everything else literal.
std::regex message_pattern(const std::string &message) {
  std::string re;
  for (size_t i = 0; i < message.size(); ++i) {
    if (message[i] == '%' && i + 1 < message.size() && (message[i + 1] == 's' || message[i + 1] == 'd')) {
      re += message[++i] == 's' ? "[\\s\\S]*" : "-?[0-9]+";
    } else if (std::string("\\^$.|?*+()[]{}").find(message[i]) != std::string::npos) {
      re += std::string("\\") + message[i];
    } else {
      re += message[i];
    }
  }
  return std::regex(re);
}

// The prefix of a record: one of the library's function names, which all
// begin as these do. Naming them keeps a record that runs on ("... Failed")
// from lending its last word to the next record's function name.
const std::regex &record_prefix() {
  static const std::regex prefix(
      "((?:wayshunt_|convert_|overseercb_|get_corrected_pkg_ver|split_version)[A-Za-z0-9_]*)\\(\\):([0-9]+) ");
  return prefix;
}

std::string cell(const char *text) {
  std::string out;
  for (const char *p = text; *p; ++p) out += *p == '\n' ? std::string("\\n") : *p == '|' ? std::string("\\|") : std::string(1, *p);
  return out;
}

}  // namespace

const std::vector<ErrorRecordKind> &error_record_kinds() {
  static const std::vector<ErrorRecordKind> kinds = {
      {"wayshunt_cnv_log_cleanup", "file Closed at %s\n",
       "Not an error: it closes, once, every log an entry point wrote, with the machine's local time. The records "
       "before it say what happened.",
       "None; read the records above it, back to the previous closing record.", true},
      {"wayshunt_cnv_handle_downgrade_for_runtime_kvs", "Downgrade Failed",
       "The conversion to the 4.1.3-or-lower forms failed on a move below 4.2; the conversion to 3.2, if due, did "
       "not run. The status convert_gsync returned tells why: 'kvs: no such store' or 'bad store URL' (the path "
       "holds no " WAYSHUNT_CNV_RUNTIME_KVS "; nothing changed), 'kvs: no key' (the store is empty; nothing needed "
       "converting), another store status (the store could not be opened or written).",
       "Check the path, or free space or repair the file system, and run the move again: keys already in the "
       "18-byte form are left as they are, so a second run is safe. An empty store needs nothing.", false},
      {"wayshunt_cnv_handle_downgrade_for_runtime_kvs", "Downgrade to 3.2 Failed",
       "On a move to 3.2 the flow-thru keys were narrowed, and the removal of the runtime line card records "
       "failed. A store that lost all its records in between reports 'kvs: no key'.",
       "Fix the store's cause and run the move again; both steps repeat safely. 'wayshunt-convert verify --era "
       "3.2 --after-downgrade' names the line card records left.", false},
      {"wayshunt_cnv_handle_upgrade_for_runtime_kvs", "upgrade from 3.2 Failed",
       "The first pass of a move up from 3.2 failed (store not opened, the target table not set up, or the store "
       "not written); the second pass did not run, so the store is still in the 3.2 forms.",
       "Fix the cause and run the move again; 'wayshunt-convert info' shows the era the store is in.", false},
      {"wayshunt_cnv_handle_upgrade_for_runtime_kvs", "upgrade from 4.1.3 or lower Failed",
       "The pass that brings the store to the present forms failed to open or to write the store; what it "
       "rewrote stays rewritten.",
       "Fix the cause and run the move again; 'wayshunt-convert info' shows a half-converted store as 'mixed'.",
       false},
      {"wayshunt_handle_downgrade", "\nHUB BIND Error %d",
       "On a move below 3.2 the library could not bind its hub queue; 'Handle Downgrade Failed' follows.",
       "See 'Handle Downgrade Failed'.", false},
      {"convert_startup", "Handle Downgrade Failed",
       "convert_startup returned non-zero: no decommission request was sent and no file was copied to the "
       "standby.",
       "Check that the hub runs (its runtime folder exists and is writable), then run convert_startup again.",
       false},
      {"wayshunt_cnv_decom_switch", "\nError in Sending HUB Message - %d (%s)\n",
       "The decommission request could not be delivered, usually because the running service does not listen "
       "at its access point. The switch was not decommissioned; the stored files were still copied to the "
       "standby and convert_startup returned 0.",
       "Start the service (or decommission the switch by hand) and run convert_startup again.", false},
      {"wayshunt_cnv_decom_switch", "\n***Error in Receiving hub msg - %d (%s)\n",
       "The request was sent but no reply came ('Connection timed out' when the hub's wait ran out). The service "
       "may or may not have acted on it; the files were copied and convert_startup returned 0.",
       "Check the service's state before going on; running convert_startup again repeats the request.", false},
  };
  return kinds;
}

std::vector<LogRecord> split_log(const std::string &text, const std::string &source) {
  std::vector<LogRecord> records;
  auto begin = std::sregex_iterator(text.begin(), text.end(), record_prefix());
  if (!text.empty() && (begin == std::sregex_iterator() || begin->position() != 0))
    throw ToolError(source + " is no conversion log (no record begins it, as 'function():line ' does); give "
                             "<image>" WAYSHUNT_CNV_LOG_PATH " or a device image folder");
  for (auto it = begin; it != std::sregex_iterator(); ++it) {
    auto next = std::next(it);
    size_t start = it->position() + it->length();
    size_t end = next == std::sregex_iterator() ? text.size() : static_cast<size_t>(next->position());
    records.push_back({(*it)[1].str(), static_cast<unsigned>(std::stoul((*it)[2].str())), text.substr(start, end - start)});
  }
  return records;
}

const ErrorRecordKind *error_kind(const LogRecord &r) {
  static std::vector<std::regex> patterns;
  const auto &kinds = error_record_kinds();
  if (patterns.empty())
    for (const ErrorRecordKind &k : kinds) patterns.push_back(message_pattern(k.message));
  // Every error record is one short message: a longer record is a trace, and
  // matching it would cost std::regex a recursion per character.
  if (r.text.size() > 4096) return nullptr;
  for (size_t i = 0; i < kinds.size(); ++i)
    if (r.function == kinds[i].function && std::regex_match(r.text, patterns[i])) return &kinds[i];
  return nullptr;
}

std::string error_table_markdown() {
  std::string out = "| Function | Record | Meaning | Next step |\n|---|---|---|---|\n";
  for (const ErrorRecordKind &k : error_record_kinds())
    out += std::string("| `") + k.function + "` | \"" + cell(k.message) + "\" | " + cell(k.meaning) + " | " +
           cell(k.next_step) + " |\n";
  return out;
}

}  // namespace wsc
