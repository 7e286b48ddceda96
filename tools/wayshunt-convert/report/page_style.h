// The look of the rehearsal page: the colour of each outcome (one table, from
// which both the page's CSS classes and the SVG drawings take theirs) and the
// page's style sheet, inlined in the page.
#ifndef TOOLS_WAYSHUNT_CONVERT_REPORT_PAGE_STYLE_H
#define TOOLS_WAYSHUNT_CONVERT_REPORT_PAGE_STYLE_H

#include <string>
#include <string_view>

namespace wsc {

// Fill colour of an outcome ("clean", "changes", "losses", "damage",
// "failed"); grey for any other.
std::string_view outcome_colour(std::string_view outcome);

// CSS class of an outcome: "o-losses"; "o-other" for a name not in the table.
std::string outcome_class(std::string_view outcome);

// Bars of a before/after chart.
inline constexpr std::string_view kBeforeColour = "#9fb3c8";
inline constexpr std::string_view kAfterColour = "#2680c2";

// The whole style sheet: layout, tables, the matrix and outcome classes.
std::string page_css();

}  // namespace wsc

#endif
