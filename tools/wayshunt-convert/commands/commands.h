// The tool's commands. Each lives in its own file and is registered on the
// top-level app by one call in main.cc. A command reports an error by
// throwing ToolError (exit status 2) and a finding (differences, violations)
// by throwing CLI::RuntimeError(kExitFound).
#ifndef TOOLS_WAYSHUNT_CONVERT_COMMANDS_H
#define TOOLS_WAYSHUNT_CONVERT_COMMANDS_H

#include <CLI/CLI.hpp>

namespace wsc {

// Exit statuses of every command.
inline constexpr int kExitOk = 0;     // success; stores equal; store clean
inline constexpr int kExitFound = 1;  // diff: the stores differ; verify: violations
inline constexpr int kExitError = 2;  // bad arguments or input, or a store that cannot be read or written

void add_dump_command(CLI::App &app);
void add_info_command(CLI::App &app);
void add_load_command(CLI::App &app);
void add_diff_command(CLI::App &app);
void add_gen_command(CLI::App &app);
void add_verify_command(CLI::App &app);
void add_run_command(CLI::App &app);
void add_service_command(CLI::App &app);
void add_demo_command(CLI::App &app);
void add_log_command(CLI::App &app);
void add_history_command(CLI::App &app);
void add_manpage_command(CLI::App &app);
void add_rehearse_command(CLI::App &app);

}  // namespace wsc

#endif
