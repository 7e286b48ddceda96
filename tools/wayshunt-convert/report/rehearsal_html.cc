// The rehearsal page put together: header, matrix with legend, one section a
// move with its drawings, and the cells' details grouped by image.
#include "report/rehearsal_html.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "report/cell_details.h"
#include "report/charts.h"
#include "report/markup.h"
#include "report/page_style.h"
#include "report/report_json.h"

namespace wsc {

namespace {

// The cells by (image row, move column); ids are built from the indexes so
// that no image name ends up in an id.
struct Grid {
  std::vector<std::string> images, moves;
  std::map<std::pair<size_t, size_t>, const Json *> cells;

  static std::string id(size_t row, size_t col) { return "c" + std::to_string(row) + "-" + std::to_string(col); }
  const Json *at(size_t row, size_t col) const {
    auto it = cells.find({row, col});
    return it == cells.end() ? nullptr : it->second;
  }
};

Grid grid_of(const Json &doc) {
  Grid g;
  for (const Json &image : member(doc, "images")) g.images.push_back(text_at(image, "name"));
  for (const Json &move : member(doc, "moves")) g.moves.push_back(move.is_string() ? move.get<std::string>() : "");
  auto index = [](const std::vector<std::string> &v, const std::string &s) {
    return static_cast<size_t>(std::find(v.begin(), v.end(), s) - v.begin());
  };
  for (const Json &cell : member(doc, "cells")) {
    size_t row = index(g.images, text_at(cell, "image")), col = index(g.moves, text_at(cell, "move"));
    if (row < g.images.size() && col < g.moves.size()) g.cells.emplace(std::pair{row, col}, &cell);
  }
  return g;
}

std::string joined(const Json &list) {
  std::string out;
  for (const Json &item : list) out += (out.empty() ? "" : ", ") + (item.is_string() ? item.get<std::string>() : item.dump());
  return out.empty() ? "none" : out;
}

void header(std::string &out, const Json &run, const Grid &g) {
  out += "<header class=\"top\"><h1>Rehearsal of " + group_digits(static_cast<int64_t>(g.images.size())) +
         " images through " + group_digits(static_cast<int64_t>(g.moves.size())) + " moves</h1><dl>";
  auto item = [&](const char *name, const std::string &value) {
    out += "<dt>" + std::string(name) + "</dt><dd>" + html_escape(value) + "</dd>";
  };
  item("started", text_at(run, "started"));
  item("took", one_decimal(real_at(run, "seconds")) + " s");
  item("library", text_at(run, "library"));
  item("jobs", text_at(run, "jobs"));
  item("shards", joined(member(run, "shards")));
  item("images given", text_at(run, "images_total"));
  item("fault rules", joined(member(run, "faults")));
  item("losses allowed", joined(member(run, "allow_loss")));
  out += "</dl></header><main>";
  if (member(run, "interrupted").is_boolean() && member(run, "interrupted").get<bool>())
    out += "<p class=\"banner\" id=\"interrupted\">Interrupted: only the moves that finished are shown; the other "
           "cells are marked \"not run\".</p>";
}

const char *meaning(const std::string &outcome) {
  static const std::map<std::string, const char *> meanings = {
      {"clean", "no record changed"},
      {"changes", "records changed, nothing lost"},
      {"losses", "information lost (a round trip: records gone or changed)"},
      {"damage", "the audit found damage"},
      {"failed", "a call failed or the conversion died"}};
  auto it = meanings.find(outcome);
  return it == meanings.end() ? "" : it->second;
}

// The moves planned for an image (a --ladder rehearsal plans those from its
// era); every move of the matrix where the image does not list them.
std::set<std::string> planned(const Json &image, const std::vector<std::string> &moves) {
  const Json &listed = member(image, "moves");
  if (!listed.is_array() || listed.empty()) return {moves.begin(), moves.end()};
  std::set<std::string> out;
  for (const Json &m : listed)
    if (m.is_string()) out.insert(m.get<std::string>());
  return out;
}

void legend(std::string &out, const Json &doc, const Grid &g) {
  std::map<std::string, size_t> tally;
  for (const auto &[pos, cell] : g.cells) ++tally[text_at(*cell, "outcome")];
  size_t expected = 0;
  for (const Json &image : member(doc, "images"))
    if (text_at(image, "error").empty()) expected += planned(image, g.moves).size();
  out += "<ul class=\"legend\">";
  for (const Json &o : member(doc, "outcomes")) {
    std::string name = o.is_string() ? o.get<std::string>() : o.dump();
    out += "<li title=\"" + html_escape(meaning(name)) + "\"><span class=\"swatch " + outcome_class(name) +
           "\"></span>" + html_escape(name) + " <b class=\"count\">" +
           group_digits(static_cast<int64_t>(tally[name])) + "</b></li>";
  }
  if (expected > g.cells.size())
    out += "<li title=\"cells of an interrupted run that did not finish\"><span class=\"swatch cell none\"></span>not run <b class=\"count\">" +
           group_digits(static_cast<int64_t>(expected - g.cells.size())) + "</b></li>";
  out += "</ul>";
}

void matrix(std::string &out, const Json &doc, const Grid &g) {
  out += "<section class=\"block\" id=\"matrix\"><h2>Images × moves</h2>";
  legend(out, doc, g);
  out += "<div class=\"scroll\"><table class=\"matrix\"><thead><tr><th>image</th>";
  for (size_t col = 0; col < g.moves.size(); ++col)
    out += "<th class=\"move\"><a href=\"#m" + std::to_string(col) + "\">" + html_escape(move_label(g.moves[col])) +
           "</a></th>";
  out += "</tr></thead><tbody>";
  const Json &images = member(doc, "images");
  for (size_t row = 0; row < g.images.size(); ++row) {
    const Json &image = images[row];
    out += "<tr><th class=\"image\">" + html_escape(g.images[row]) + "<small>" + html_escape(text_at(image, "era")) +
           " · " + group_digits(int_at(image, "records")) + " records</small></th>";
    std::string error = text_at(image, "error");
    if (!error.empty()) {
      out += "<td class=\"error\" colspan=\"" + std::to_string(std::max<size_t>(g.moves.size(), 1)) +
             "\">not rehearsed: " + html_escape(error) + "</td></tr>";
      continue;
    }
    for (size_t col = 0; col < g.moves.size(); ++col) {
      const Json *cell = g.at(row, col);
      if (!cell) {
        out += planned(image, g.moves).count(g.moves[col]) ? "<td class=\"cell none\">not run</td>"
                                                           : "<td class=\"cell na\" title=\"not a move of this image\">·</td>";
        continue;
      }
      std::string outcome = text_at(*cell, "outcome");
      out += "<td class=\"cell " + outcome_class(outcome) + "\" title=\"" + html_escape(outcome) + "\"><a href=\"#" +
             Grid::id(row, col) + "\">" + html_escape(cell_figure(*cell)) + "</a></td>";
    }
    out += "</tr>";
  }
  out += "</tbody></table></div></section>";
}

// Records of one kind ("by_type" or "by_slot") summed over the move's cells,
// before and after.
std::vector<BarRow> summed(const std::vector<const Json *> &cells, const char *kind, const std::string &prefix) {
  std::map<std::string, BarRow> rows;
  for (const Json *cell : cells)
    for (const char *side : {"before", "after"})
      for (const auto &[label, n] : member(member(*cell, side), kind).items()) {
        BarRow &r = rows[label];
        (side[0] == 'b' ? r.before : r.after) += n.is_number() ? n.get<int64_t>() : 0;
      }
  std::vector<std::pair<std::string, BarRow>> sorted(rows.begin(), rows.end());
  if (!prefix.empty())  // slots in numeric order
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto &a, const auto &b) { return a.first.size() < b.first.size(); });
  std::vector<BarRow> out;
  for (auto &[label, r] : sorted) {
    r.label = prefix + label;
    out.push_back(r);
  }
  return out;
}

void move_section(std::string &out, const Json &doc, const Grid &g, size_t col, const std::vector<DrawnRung> &rungs) {
  std::vector<const Json *> cells;
  for (size_t row = 0; row < g.images.size(); ++row)
    if (const Json *c = g.at(row, col)) cells.push_back(c);
  const std::string label = move_label(g.moves[col]);
  out += "<div class=\"move-card\" id=\"m" + std::to_string(col) + "\"><h3>" + html_escape(label) + "</h3>";
  // The worst outcome among the move's cells colours its path.
  std::vector<std::string> order;
  for (const Json &o : member(doc, "outcomes")) order.push_back(o.is_string() ? o.get<std::string>() : "");
  std::map<std::string, size_t> tally;
  size_t worst = 0;
  for (const Json *c : cells) {
    std::string o = text_at(*c, "outcome");
    ++tally[o];
    worst = std::max(worst, static_cast<size_t>(std::find(order.begin(), order.end(), o) - order.begin()) + 1);
  }
  out += "<p class=\"muted\">" + group_digits(static_cast<int64_t>(cells.size())) + (cells.size() == 1 ? " image" : " images");
  for (const std::string &o : order)
    if (tally[o]) out += " · " + html_escape(o) + " " + group_digits(static_cast<int64_t>(tally[o]));
  out += "</p>";
  if (cells.empty()) {
    out += "<p>No image finished this move.</p></div>";
    return;
  }
  std::vector<std::string> path;
  for (const Json &r : member(*cells.front(), "path")) path.push_back(r.is_string() ? r.get<std::string>() : "");
  std::string worst_name = worst == 0 ? "" : worst <= order.size() ? order[worst - 1] : "other";
  out += "<div class=\"charts\"><figure><figcaption>path on the ladder</figcaption>" +
         ladder_svg(rungs, path, outcome_colour(worst_name), "path of " + label) + "</figure>";
  out += "<figure><figcaption>records per key type, all images</figcaption>" +
         before_after_bars(summed(cells, "by_type", ""), "records per key type, " + label) + "</figure>";
  std::vector<BarRow> slots = summed(cells, "by_slot", "slot ");
  if (!slots.empty())
    out += "<figure><figcaption>records per slot, all images</figcaption>" +
           before_after_bars(slots, "records per slot, " + label) + "</figure>";
  out += "</div></div>";
}

void moves(std::string &out, const Json &doc, const Grid &g) {
  std::vector<DrawnRung> rungs;
  for (const Json &r : member(doc, "ladder")) rungs.push_back({text_at(r, "release"), text_at(r, "title")});
  out += "<section class=\"block\" id=\"moves\"><h2>Moves</h2><div class=\"moves\">";
  for (size_t col = 0; col < g.moves.size(); ++col) move_section(out, doc, g, col, rungs);
  out += "</div></section>";
}

void details(std::string &out, const Grid &g) {
  out += "<section class=\"block\" id=\"cells\"><h2>Cells</h2>";
  for (size_t row = 0; row < g.images.size(); ++row) {
    bool heading = false;
    for (size_t col = 0; col < g.moves.size(); ++col) {
      const Json *cell = g.at(row, col);
      if (!cell) continue;
      if (!heading) out += "<h3>" + html_escape(g.images[row]) + "</h3>";
      heading = true;
      out += cell_details(*cell, Grid::id(row, col));
    }
  }
  out += "</section>";
}

}  // namespace

std::string rehearsal_html(const Json &rehearsal) {
  const Json &run = member(rehearsal, "rehearsal");
  Grid g = grid_of(rehearsal);
  std::string out = "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
                    "content=\"width=device-width, initial-scale=1\"><title>Rehearsal " +
                    html_escape(text_at(run, "started")) + "</title><style>" + page_css() + "</style></head><body>";
  header(out, run, g);
  matrix(out, rehearsal, g);
  moves(out, rehearsal, g);
  details(out, g);
  return out + "</main></body></html>\n";
}

}  // namespace wsc
