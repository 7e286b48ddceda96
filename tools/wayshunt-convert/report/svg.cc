// SVG elements written as text; arrowheads are drawn as triangles so that a
// page with many drawings needs no shared marker ids.
#include "report/svg.h"

#include <cmath>

#include "report/markup.h"

namespace wsc {

namespace {

std::string n(double v) { return one_decimal(v); }

}  // namespace

Svg::Svg(double width, double height, std::string_view label)
    : width_(width), height_(height), label_(html_escape(label)) {}

Svg &Svg::rect(double x, double y, double w, double h, std::string_view fill, std::string_view tip) {
  body_ += "<rect x=\"" + n(x) + "\" y=\"" + n(y) + "\" width=\"" + n(w) + "\" height=\"" + n(h) + "\" fill=\"" +
           html_escape(fill) + "\"";
  body_ += tip.empty() ? "/>" : "><title>" + html_escape(tip) + "</title></rect>";
  return *this;
}

Svg &Svg::line(double x1, double y1, double x2, double y2, std::string_view stroke, double width) {
  body_ += "<line x1=\"" + n(x1) + "\" y1=\"" + n(y1) + "\" x2=\"" + n(x2) + "\" y2=\"" + n(y2) + "\" stroke=\"" +
           html_escape(stroke) + "\" stroke-width=\"" + n(width) + "\"/>";
  return *this;
}

Svg &Svg::arrow(double x1, double y1, double x2, double y2, std::string_view colour) {
  double len = std::hypot(x2 - x1, y2 - y1);
  if (len < 1) return *this;
  double ux = (x2 - x1) / len, uy = (y2 - y1) / len;
  const double head = 8, half = 4.5;
  double bx = x2 - ux * head, by = y2 - uy * head;  // base of the head
  line(x1, y1, bx, by, colour, 2.5);
  body_ += "<polygon points=\"" + n(x2) + "," + n(y2) + " " + n(bx - uy * half) + "," + n(by + ux * half) + " " +
           n(bx + uy * half) + "," + n(by - ux * half) + "\" fill=\"" + html_escape(colour) + "\"/>";
  return *this;
}

Svg &Svg::circle(double cx, double cy, double r, std::string_view fill) {
  body_ += "<circle cx=\"" + n(cx) + "\" cy=\"" + n(cy) + "\" r=\"" + n(r) + "\" fill=\"" + html_escape(fill) + "\"/>";
  return *this;
}

Svg &Svg::text(double x, double y, std::string_view text, Anchor anchor, std::string_view css_class) {
  static const char *anchors[] = {"start", "middle", "end"};
  body_ += "<text x=\"" + n(x) + "\" y=\"" + n(y) + "\"";
  if (anchor != Anchor::start) body_ += std::string(" text-anchor=\"") + anchors[static_cast<int>(anchor)] + "\"";
  if (!css_class.empty()) body_ += " class=\"" + html_escape(css_class) + "\"";
  body_ += ">" + html_escape(text) + "</text>";
  return *this;
}

std::string Svg::str() const {
  return "<svg role=\"img\" width=\"" + n(width_) + "\" height=\"" +
         n(height_) + "\" viewBox=\"0 0 " + n(width_) + " " + n(height_) + "\" aria-label=\"" + label_ + "\">" +
         body_ + "</svg>";
}

}  // namespace wsc
