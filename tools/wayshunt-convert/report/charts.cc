// Layout of the bar chart and the ladder drawing, in pixels.
#include "report/charts.h"

#include <algorithm>

#include "report/markup.h"
#include "report/page_style.h"
#include "report/svg.h"

namespace wsc {

namespace {

constexpr double kLabelWidth = 130, kBarSpan = 230, kFigureWidth = 56;
constexpr double kRowHeight = 24, kBarHeight = 8, kLegendHeight = 20;

std::string cut(const std::string &label, size_t max) {
  return label.size() <= max ? label : label.substr(0, max - 1) + "…";
}

}  // namespace

std::string before_after_bars(const std::vector<BarRow> &rows, std::string_view title) {
  int64_t top = 1;
  for (const BarRow &r : rows) top = std::max({top, r.before, r.after});
  double width = kLabelWidth + kBarSpan + kFigureWidth;
  Svg svg(width, kLegendHeight + kRowHeight * static_cast<double>(rows.size()) + 4, title);
  svg.rect(kLabelWidth, 5, 10, 10, kBeforeColour).text(kLabelWidth + 14, 14, "before");
  svg.rect(kLabelWidth + 70, 5, 10, 10, kAfterColour).text(kLabelWidth + 84, 14, "after");
  double y = kLegendHeight + 2;
  for (const BarRow &r : rows) {
    svg.text(kLabelWidth - 8, y + kBarHeight + 4, cut(r.label, 22), Svg::Anchor::end);
    int i = 0;
    for (auto [n, colour] : {std::pair{r.before, kBeforeColour}, std::pair{r.after, kAfterColour}}) {
      double by = y + i++ * (kBarHeight + 1);
      double w = kBarSpan * static_cast<double>(std::max<int64_t>(n, 0)) / static_cast<double>(top);
      svg.rect(kLabelWidth, by, std::max(w, n > 0 ? 1.0 : 0.0), kBarHeight, colour,
               r.label + (i == 1 ? " before: " : " after: ") + group_digits(n));
      svg.text(kLabelWidth + w + 4, by + kBarHeight - 0.5, group_digits(n), Svg::Anchor::start, "fig");
    }
    y += kRowHeight;
  }
  return svg.str();
}

std::string ladder_svg(const std::vector<DrawnRung> &rungs, const std::vector<std::string> &path, std::string_view colour,
                       std::string_view title) {
  constexpr double kRungGap = 40, kTop = 18, kLeft = 118, kLegGap = 26;
  double legs = path.size() > 1 ? static_cast<double>(path.size() - 1) : 1;
  double width = kLeft + 20 + legs * kLegGap + 10;
  double height = kTop + kRungGap * static_cast<double>(rungs.empty() ? 0 : rungs.size() - 1) + 18;
  Svg svg(width, height, title);
  auto rung_y = [&](const std::string &release) -> double {
    for (size_t i = 0; i < rungs.size(); ++i)
      if (rungs[i].release == release) return kTop + kRungGap * static_cast<double>(rungs.size() - 1 - i);
    return -1;
  };
  for (const DrawnRung &r : rungs) {
    double y = rung_y(r.release);
    svg.line(kLeft, y, width - 6, y, "#bcccdc", 2);
    svg.text(kLeft - 8, y + 1, r.release, Svg::Anchor::end, "rung");
    svg.text(kLeft - 8, y + 12, cut(r.title, 18), Svg::Anchor::end, "sub");
  }
  for (size_t leg = 0; leg + 1 < path.size(); ++leg) {
    double y1 = rung_y(path[leg]), y2 = rung_y(path[leg + 1]);
    if (y1 < 0 || y2 < 0) continue;
    double x = kLeft + 20 + kLegGap * static_cast<double>(leg);
    svg.circle(x, y1, 3.5, colour);
    if (y1 != y2) svg.arrow(x, y1, x, y2 + (y2 > y1 ? -1 : 1), colour);
  }
  return svg.str();
}

}  // namespace wsc
