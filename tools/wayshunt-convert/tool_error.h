// The one error type of the tool: a one-line message naming what was wrong
// and what to do. main() prints it on stderr and exits with status 2.
#ifndef TOOLS_WAYSHUNT_CONVERT_TOOL_ERROR_H
#define TOOLS_WAYSHUNT_CONVERT_TOOL_ERROR_H

#include <stdexcept>
#include <string>

namespace wsc {

class ToolError : public std::runtime_error {
 public:
  explicit ToolError(const std::string &message) : std::runtime_error(message) {}
};

}  // namespace wsc

#endif
