// The rehearsal page's two drawings, as inline SVG: records before and after
// a move as bars, and the ladder of releases with a move's path on it.
#ifndef TOOLS_WAYSHUNT_CONVERT_REPORT_CHARTS_H
#define TOOLS_WAYSHUNT_CONVERT_REPORT_CHARTS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace wsc {

struct BarRow {
  std::string label;  // a key type name, or "slot 3"
  int64_t before = 0, after = 0;
};

// One row per label, the bar before above the bar after, each with its
// figure; bars share one scale. title names the chart for screen readers.
std::string before_after_bars(const std::vector<BarRow> &rows, std::string_view title);

struct DrawnRung {
  std::string release;  // "4.1(3)"
  std::string title;    // "4.1.3 or lower"
};

// The rungs lowest at the bottom, the path ("4.2(1)", "4.1(3)", ...) drawn
// as one arrow a leg, side by side, in colour. A release of the path that
// is no rung is left out of the drawing.
std::string ladder_svg(const std::vector<DrawnRung> &rungs, const std::vector<std::string> &path, std::string_view colour,
                       std::string_view title);

}  // namespace wsc

#endif
