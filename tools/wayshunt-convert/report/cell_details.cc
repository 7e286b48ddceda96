// A cell's details: legs, failure, record counts, capped lists of lost items
// and audit findings, and the round trip's table.
#include "report/cell_details.h"

#include <algorithm>

#include "records/formats.h"
#include "report/markup.h"
#include "report/page_style.h"
#include "report/rehearsal_html.h"
#include "report/report_json.h"

namespace wsc {

namespace {

std::string with_unit(int64_t n, const char *unit) { return group_digits(n) + " " + unit; }

// The first kReportListCap items as an ordered list, the rest counted:
// total is how many the full list has (a list already cut to the cap
// carries it beside itself as "<list>_total").
void capped_list(std::string &out, const Json &items, int64_t total, const std::string &heading) {
  if (!items.is_array() || items.empty()) return;
  size_t all = std::max(items.size(), static_cast<size_t>(std::max<int64_t>(total, 0)));
  out += "<h4>" + html_escape(heading) + " (" + group_digits(static_cast<int64_t>(all)) + ")</h4><ol class=\"items\">";
  size_t shown = std::min(items.size(), kReportListCap);
  for (size_t i = 0; i < shown; ++i)
    out += "<li>" + html_escape(items[i].is_string() ? items[i].get<std::string>() : items[i].dump()) + "</li>";
  out += "</ol>";
  if (all > shown)
    out += "<p class=\"more\">… and " + group_digits(static_cast<int64_t>(all - shown)) + " more in rehearsal.json</p>";
}

void legs_table(std::string &out, const Json &legs) {
  if (!legs.is_array() || legs.empty()) return;
  out += "<table class=\"plain\"><tr><th>leg</th><th>calls</th><th>forecast</th><th>audit</th></tr>";
  for (const Json &leg : legs) {
    out += "<tr><td class=\"mono\">" + html_escape(text_at(leg, "from")) + " → " + html_escape(text_at(leg, "to")) +
           "</td><td>";
    for (const Json &s : member(leg, "statuses")) {
      int64_t status = int_at(s, "status");
      out += "<div class=\"" + std::string(status == 0 ? "mono" : "mono verdict-no") + "\">" +
             html_escape(text_at(s, "call")) + " = " + format_hex32(static_cast<uint32_t>(status)) + " (" +
             html_escape(text_at(s, "status_text")) + ")</div>";
    }
    out += "</td><td>" + html_escape(text_at(leg, "forecast")) + "</td><td>" + html_escape(text_at(leg, "audit")) +
           "</td></tr>";
  }
  out += "</table>";
}

void counts_line(std::string &out, const Json &counts) {
  if (!counts.is_object() || counts.empty()) return;
  out += "<p>Records over the path:";
  const char *sep = " ";
  for (const auto &[name, n] : counts.items()) {
    out += sep + html_escape(name) + " <b>" + group_digits(n.is_number() ? n.get<int64_t>() : 0) + "</b>";
    sep = " · ";
  }
  out += "</p>";
}

void trip_table(std::string &out, const Json &trip) {
  if (!trip.is_object()) return;
  out += "<h4>Round trip: records per key type against the store before</h4><table class=\"plain\"><tr><th>key "
         "type</th><th class=\"num\">same</th><th class=\"num\">changed</th><th class=\"num\">gone</th></tr>";
  for (const auto &[type, row] : member(trip, "by_type").items())
    out += "<tr><td>" + html_escape(type) + "</td><td class=\"num\">" + group_digits(int_at(row, "same")) +
           "</td><td class=\"num\">" + group_digits(int_at(row, "changed")) + "</td><td class=\"num\">" +
           group_digits(int_at(row, "gone")) + "</td></tr>";
  out += "</table>";
  bool as_forecast = member(trip, "gone_as_forecast").is_boolean() && member(trip, "gone_as_forecast").get<bool>();
  out += as_forecast ? "<p class=\"verdict-yes\">Everything gone or changed was forecast as lost.</p>"
                     : "<p class=\"verdict-no\">Records gone or changed that no forecast called lost.</p>";
  capped_list(out, member(trip, "unforecast"), 0, "Gone or changed, not forecast");
}

int64_t trip_gone(const Json &cell) {
  int64_t n = 0;
  for (const auto &[type, row] : member(member(cell, "trip"), "by_type").items())
    n += int_at(row, "gone") + int_at(row, "changed");
  return n;
}

}  // namespace

std::string move_label(std::string_view move) {
  std::string out;
  for (size_t i = 0; i < move.size(); ++i) {
    if (move.compare(i, 2, "->") == 0) {
      out += " → ";
      ++i;
    } else {
      out += move[i];
    }
  }
  return out;
}

std::string cell_figure(const Json &cell) {
  std::string outcome = text_at(cell, "outcome");
  const Json &counts = member(cell, "counts");
  if (outcome == "failed") return "failed";
  if (outcome == "damage") {
    size_t n = std::max<size_t>(member(cell, "damaged").size(), static_cast<size_t>(std::max<int64_t>(int_at(cell, "damaged_total"), 0)));
    return n ? with_unit(static_cast<int64_t>(n), "damaged") : "damage";
  }
  if (outcome == "losses") {
    int64_t lost = int_at(counts, "lost");
    return lost || !member(cell, "trip").is_object() ? with_unit(lost, "lost") : with_unit(trip_gone(cell), "gone");
  }
  if (outcome == "changes")
    return with_unit(int_at(counts, "repaired") + int_at(counts, "reshaped") + int_at(counts, "new"), "changed");
  return outcome;
}

std::string cell_details(const Json &cell, const std::string &id) {
  std::string outcome = text_at(cell, "outcome"), cls = outcome_class(outcome);
  std::string out = "<details class=\"cd " + cls + "\" id=\"" + html_escape(id) + "\"><summary><span class=\"tag " + cls +
                    "\">" + html_escape(outcome) + "</span><b>" + html_escape(text_at(cell, "image")) + "</b> · " +
                    html_escape(move_label(text_at(cell, "move"))) + " · " + html_escape(cell_figure(cell)) +
                    " · <span class=\"muted\">" + one_decimal(real_at(cell, "seconds")) + " s</span></summary>" +
                    "<div class=\"cd-body\">";
  std::string failure = text_at(cell, "failure");
  if (!failure.empty()) out += "<p class=\"failure\"><b>Failure:</b> " + html_escape(failure) + "</p>";
  legs_table(out, member(cell, "legs"));
  counts_line(out, member(cell, "counts"));
  capped_list(out, member(cell, "lost"), int_at(cell, "lost_total"), "Lost by forecast");
  capped_list(out, member(cell, "damaged"), int_at(cell, "damaged_total"), "Damage the audit found");
  trip_table(out, member(cell, "trip"));
  return out + "</div></details>";
}

}  // namespace wsc
