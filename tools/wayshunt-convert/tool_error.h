// The one error type of the tool: a one-line message naming what was wrong
// and what to do. main() prints it on stderr and exits with its status: 2,
// or 128 + the signal that stopped the command.
#ifndef TOOLS_WAYSHUNT_CONVERT_TOOL_ERROR_H
#define TOOLS_WAYSHUNT_CONVERT_TOOL_ERROR_H

#include <stdexcept>
#include <string>

namespace wsc {

class ToolError : public std::runtime_error {
 public:
  explicit ToolError(const std::string &message, int status = 2) : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

}  // namespace wsc

#endif
