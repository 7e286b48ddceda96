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

// stdin_path: the file the tool reads as its standard input.
Run run_tool(const std::vector<std::string> &args, const std::string &stdin_path = "/dev/null");

}  // namespace tooltest

#endif
