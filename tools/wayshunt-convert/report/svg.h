// A small SVG drawing built as text, for charts inlined in an HTML page:
// rectangles, lines, arrows and text, in pixels, colours as CSS colour
// texts. Every text is escaped; the drawing carries an accessible label.
#ifndef TOOLS_WAYSHUNT_CONVERT_REPORT_SVG_H
#define TOOLS_WAYSHUNT_CONVERT_REPORT_SVG_H

#include <string>
#include <string_view>

namespace wsc {

class Svg {
 public:
  enum class Anchor { start, middle, end };

  Svg(double width, double height, std::string_view label);

  // tip: a tooltip (an SVG <title>), none when empty.
  Svg &rect(double x, double y, double w, double h, std::string_view fill, std::string_view tip = "");
  Svg &line(double x1, double y1, double x2, double y2, std::string_view stroke, double width = 1);
  // A line from (x1, y1) with an arrowhead at (x2, y2).
  Svg &arrow(double x1, double y1, double x2, double y2, std::string_view colour);
  Svg &circle(double cx, double cy, double r, std::string_view fill);
  // y is the text's baseline; css_class styles it from the page's CSS.
  Svg &text(double x, double y, std::string_view text, Anchor anchor = Anchor::start, std::string_view css_class = "");

  std::string str() const;

 private:
  double width_, height_;
  std::string label_;
  std::string body_;
};

}  // namespace wsc

#endif
