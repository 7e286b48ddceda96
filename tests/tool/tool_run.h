// Runs the wayshunt-convert tool built beside the tests as a child process
// and captures its exit status, stdout and stderr separately.
#ifndef TESTS_TOOL_TOOL_RUN_H
#define TESTS_TOOL_TOOL_RUN_H

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tooltest {

struct Run {
  int status = -1;  // exit status, or 128 + signal
  std::string out, err;
};

// stdin_path: the file the tool reads as its standard input.
Run run_tool(const std::vector<std::string> &args, const std::string &stdin_path = "/dev/null");

inline bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// A refused command: exit status 2 and one line on stderr naming the fault.
inline void expect_refused(const Run &r, const std::string &message) {
  EXPECT_EQ(r.status, 2) << message << "\n" << r.out;
  EXPECT_TRUE(has(r.err, message)) << message << "\n" << r.err;
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
}

// Compares a run with the golden file golden/<name>.txt (exit status, stdout
// and stderr), after each (pattern, replacement) regex of masks is applied
// to both streams. With WAYSHUNT_UPDATE_GOLDEN=1 the file is written
// instead:  WAYSHUNT_UPDATE_GOLDEN=1 ctest -R Golden
void expect_golden(const std::string &name, const Run &r, const std::vector<std::pair<std::string, std::string>> &masks);

}  // namespace tooltest

#endif
