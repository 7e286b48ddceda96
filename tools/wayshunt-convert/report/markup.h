// Text made safe for an HTML page and the SVG inside it, and figures as the
// rehearsal page shows them.
#ifndef TOOLS_WAYSHUNT_CONVERT_REPORT_MARKUP_H
#define TOOLS_WAYSHUNT_CONVERT_REPORT_MARKUP_H

#include <cstdint>
#include <string>
#include <string_view>

namespace wsc {

// & < > " ' as character references: safe in text and in quoted attributes.
std::string html_escape(std::string_view text);

// 20000 -> "20,000".
std::string group_digits(int64_t n);

// A coordinate or a duration with at most one decimal: "12", "12.5".
std::string one_decimal(double v);

}  // namespace wsc

#endif
