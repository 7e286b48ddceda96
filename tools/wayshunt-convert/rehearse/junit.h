// A rehearsal as JUnit XML, the test report every CI system reads: a
// test suite per image, a test case per move tried on it, failed where the
// cell's "failure" says why (a non-zero status, damage the audit found, a
// round trip that did not bring back what the forecasts promised, or a loss
// --allow-loss does not allow). An image that could not be rehearsed is one
// case in error.
#ifndef TOOLS_WAYSHUNT_CONVERT_REHEARSE_JUNIT_H
#define TOOLS_WAYSHUNT_CONVERT_REHEARSE_JUNIT_H

#include <string>

#include "records/json_codec.h"

namespace wsc {

std::string junit_xml(const Json &rehearsal);

// text with &, <, >, ", ', tab and line ends as character references (an
// attribute keeps them so) and the characters XML 1.0 forbids (the other
// controls) as '?'.
std::string xml_escape(const std::string &text);

}  // namespace wsc

#endif
