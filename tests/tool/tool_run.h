// Runs the wayshunt-convert tool built beside the tests as a child process
// and captures its exit status, stdout and stderr separately; compares text
// with a golden file.
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

// Compares text with the golden file golden/<name>.txt. With
// WAYSHUNT_UPDATE_GOLDEN=1 the file is written instead:
//   WAYSHUNT_UPDATE_GOLDEN=1 ctest -R 'Golden|OperatorGuide'
void expect_golden(const std::string &name, const std::string &text);

}  // namespace tooltest

#endif
