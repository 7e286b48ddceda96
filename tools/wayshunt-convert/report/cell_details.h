// One cell of a rehearsal (an image taken through a move) on its page: the
// short figure the matrix shows and the cell's <details> section.
#ifndef TOOLS_WAYSHUNT_CONVERT_REPORT_CELL_DETAILS_H
#define TOOLS_WAYSHUNT_CONVERT_REPORT_CELL_DETAILS_H

#include <string>
#include <string_view>

#include "records/json_codec.h"

namespace wsc {

// "4.2(1)->4.1(3)" as "4.2(1) → 4.1(3)".
std::string move_label(std::string_view move);

// By outcome: "clean", "1,200 changed", "506 lost" (a round trip that lost
// nothing by forecast: "12 gone"), "3 damaged", "failed".
std::string cell_figure(const Json &cell);

// The <details> element with the given id, closed; lists capped at
// kReportListCap (rehearsal_html.h).
std::string cell_details(const Json &cell, const std::string &id);

}  // namespace wsc

#endif
