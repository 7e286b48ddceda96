// Reading the rehearsal JSON for its page: a missing member reads as empty,
// so that the page of a partial document still shows what it holds.
#ifndef TOOLS_WAYSHUNT_CONVERT_REPORT_REPORT_JSON_H
#define TOOLS_WAYSHUNT_CONVERT_REPORT_REPORT_JSON_H

#include <cstdint>
#include <string>

#include "records/json_codec.h"

namespace wsc {

// The member's text; a number or bool as JSON writes it; "" when absent or null.
std::string text_at(const Json &j, const char *key);
int64_t int_at(const Json &j, const char *key);
double real_at(const Json &j, const char *key);
// The member, or an empty JSON value when absent.
const Json &member(const Json &j, const char *key);

}  // namespace wsc

#endif
