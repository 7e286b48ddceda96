// The page of a rehearsal: rehearsal.json (what 'rehearse' wrote, its shape
// in docs/operator-guide.md) as one self-contained HTML file, with no
// script and nothing fetched: CSS and SVG drawings are inline. It shows
//   - the run: when, how long, library, jobs, shards, fault rules, allowed
//     losses, and a banner when the run was interrupted;
//   - the matrix: one row an image, one column a move, each cell coloured by
//     its outcome with a short figure ("506 lost", "failed") and a link to
//     its details; a legend with the cells of each outcome; an image that
//     could not be rehearsed shows its error across its row;
//   - each move: its path on the ladder of releases (lowest at the bottom),
//     records per key type before and after summed over its images, and
//     records per slot where slots are filled;
//   - each cell in a <details> section: its legs (statuses, forecast,
//     audit), failure, lost items and audit findings (the first
//     kReportListCap of each, the rest counted), and for a round trip its
//     records per key type same, changed and gone, and whether what went
//     was forecast.
// Every text taken from the JSON is escaped.
#ifndef TOOLS_WAYSHUNT_CONVERT_REPORT_REHEARSAL_HTML_H
#define TOOLS_WAYSHUNT_CONVERT_REPORT_REHEARSAL_HTML_H

#include <cstddef>
#include <string>

#include "records/json_codec.h"

namespace wsc {

// Items of a list shown in a cell's details; the full lists stay in the JSON.
inline constexpr size_t kReportListCap = 20;

// Throws nlohmann::json::exception on a value of the wrong JSON type.
std::string rehearsal_html(const Json &rehearsal);

}  // namespace wsc

#endif
