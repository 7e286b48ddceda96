// Runs the wayshunt-convert tool built beside the tests as a child process
// and captures its exit status, stdout and stderr separately.
#ifndef TESTS_TOOL_TOOL_RUN_H
#define TESTS_TOOL_TOOL_RUN_H

#include <string>
#include <vector>

namespace tooltest {

struct Run {
  int status = -1;  // exit status, or 128 + signal
  std::string out, err;
};

Run run_tool(const std::vector<std::string> &args);

}  // namespace tooltest

#endif
