// The rehearsal's HTML page, rendered from fixtures built here and loaded in
// headless Chromium: the elements the reader counts on are in the rendered
// DOM, every text from the JSON stays text, lists are capped, nothing is
// fetched or run, and a fleet of 100 images through 6 moves stays small and
// quick to open.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <string>

#include "browser_page.h"
#include "records/json_codec.h"
#include "report/rehearsal_html.h"
#include "test_support.h"

namespace {

using wsc::Json;

const char *kMarkup = "<img src=x onerror=alert(1)>&\"'</details>";

Json strings(size_t n, const std::string &stem) {
  Json list = Json::array();
  for (size_t i = 0; i < n; ++i)
    list.push_back("0036000a0000" + std::to_string(100000 + i) + "00000000c0ffee0001 FLOW_THRU_HOST " + stem);
  return list;
}

Json census(int scale, bool slots) {
  Json side = {{"records", 0}, {"by_type", Json::object()}, {"by_slot", Json::object()}};
  for (const char *type : {"FLOW_THRU_HOST", "ACL_RW_1", "ACL_RW_2", "ACL_ELS_1", "RUNTIME_LC_INFO"})
    side["by_type"][type] = scale * 100 + static_cast<int>(std::string(type).size());
  for (int slot : {1, 2, 3, 9, 10, 255})
    if (slots) side["by_slot"][std::to_string(slot)] = scale * 10 + slot % 7;
  return side;
}

Json cell(const std::string &image, const std::vector<std::string> &path, const std::string &outcome, size_t lost,
          size_t damaged, bool slots) {
  std::string move;
  for (const std::string &r : path) move += (move.empty() ? "" : "->") + r;
  Json legs = Json::array();
  for (size_t i = 0; i + 1 < path.size(); ++i)
    legs.push_back({{"from", path[i]}, {"to", path[i + 1]},
                    {"statuses", {{{"call", "convert_running(\"wayshunt\")"}, {"status", outcome == "failed" ? 17 : 0},
                                   {"status_text", outcome == "failed" ? "store write failed" : "success"}}}},
                    {"forecast", "this move loses information: " + std::to_string(lost) + " records"},
                    {"audit", damaged ? "damage: " + std::to_string(damaged) + " findings" : "clean"}});
  Json c = {{"image", image}, {"move", move}, {"path", path}, {"round_trip", path.size() > 2},
            {"outcome", outcome}, {"failure", outcome == "failed" ? std::string("convert_running failed ") + kMarkup : ""},
            {"seconds", 1.25}, {"before", census(20, slots)}, {"after", census(18, slots)},
            {"counts", {{"lost", lost}, {"repaired", 2}, {"reshaped", 0}, {"new", 4}, {"unchanged", 900}}},
            {"legs", legs}, {"lost", strings(lost, "key.vsan: 10 -> (none)")},
            {"damaged", strings(damaged, "value.slot_num: 3 -> 255, after kvs_store failed")}};
  if (path.size() > 2)
    c["trip"] = {{"by_type", {{"FLOW_THRU_HOST", {{"same", 90}, {"changed", 0}, {"gone", lost}}},
                              {"ACL_RW_1", {{"same", 40}, {"changed", 1}, {"gone", 0}}}}},
                 {"gone_as_forecast", false},
                 {"unforecast", strings(lost + 1, "gone")}};
  return c;
}

Json rehearsal(bool interrupted, size_t images_total) {
  return {{"rehearsal", {{"started", "2026-11-25T10:00:00Z"}, {"seconds", 12.3}, {"library", "/opt/lib/libconvertwayshunt.so"},
                         {"jobs", 2}, {"shards", {"1/1"}}, {"faults", {"kvs_store:100"}},
                         {"allow_loss", {"FLOW_THRU_HOST"}}, {"interrupted", interrupted}, {"images_total", images_total}}},
          {"ladder", {{{"release", "3.1(1)"}, {"era", nullptr}, {"title", "below 3.2"}},
                      {{"release", "3.2(1)"}, {"era", "3.2"}, {"title", "3.2"}},
                      {{"release", "4.1(3)"}, {"era", "4.1"}, {"title", "4.1.3 or lower"}},
                      {{"release", "4.2(1)"}, {"era", "4.2"}, {"title", "4.2 and above"}}}},
          {"moves", Json::array()}, {"outcomes", {"clean", "changes", "losses", "damage", "failed"}},
          {"images", Json::array()}, {"cells", Json::array()}};
}

const std::vector<std::vector<std::string>> kPaths = {
    {"4.2(1)", "4.1(3)"}, {"4.2(1)", "3.2(1)"}, {"4.2(1)", "4.1(3)", "4.2(1)"},
    {"4.1(3)", "4.2(1)"}, {"3.2(1)", "4.2(1)"}, {"4.2(1)", "3.1(1)"}};

void add_moves(Json &doc, size_t n) {
  for (size_t m = 0; m < n; ++m) doc["moves"].push_back(cell("", kPaths[m], "clean", 0, 0, false)["move"]);
}

void add_image(Json &doc, const std::string &name, const std::string &error = "") {
  doc["images"].push_back({{"name", name}, {"path", "/fleet/" + name}, {"records", 2000}, {"era", "4.2"}, {"error", error}});
}

// Every outcome, a cell over the cap, a round trip, an empty by_slot, an
// image that could not be rehearsed, markup in names and texts, and an
// interrupted run (three cells never ran).
Json small_fixture() {
  Json doc = rehearsal(true, 4);
  add_moves(doc, 3);
  for (const char *name : {"img-a", "img-b", kMarkup}) add_image(doc, name);
  add_image(doc, "img-err", std::string("no runtime store ") + kMarkup);
  doc["cells"] = {cell("img-a", kPaths[0], "changes", 0, 0, true),
                  cell("img-a", kPaths[1], "losses", wsc::kReportListCap + 5, 0, true),
                  cell("img-a", kPaths[2], "losses", 3, 0, true),
                  cell("img-b", kPaths[0], "clean", 0, 0, false),
                  cell("img-b", kPaths[1], "damage", 2, 3, true),
                  cell(kMarkup, kPaths[0], "failed", 0, 0, false)};
  doc["cells"][5]["lost"].push_back(kMarkup);
  return doc;
}

// 100 images through 6 moves, hundreds of lost items a cell.
Json fleet_fixture() {
  Json doc = rehearsal(false, 100);
  add_moves(doc, 6);
  const char *outcomes[] = {"clean", "changes", "losses", "damage", "failed"};
  for (size_t i = 0; i < 100; ++i) {
    std::string name = "img-" + std::to_string(i);
    add_image(doc, name);
    for (size_t m = 0; m < 6; ++m) {
      std::string outcome = outcomes[(i + m) % 5];
      size_t lost = outcome == "losses" ? 300 + i : outcome == "damage" ? 120 : 0;
      doc["cells"].push_back(cell(name, kPaths[m], outcome, lost, outcome == "damage" ? 45 : 0, true));
    }
  }
  return doc;
}

size_t count(const std::string &text, const std::string &needle) {
  size_t n = 0;
  for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + needle.size())) ++n;
  return n;
}

// What the page should hold, counted from the fixture's JSON.
struct Expected {
  size_t cells = 0, not_run = 0, errors = 0, svgs = 0, items = 0, capped = 0;
};

Expected expected_of(const Json &doc) {
  Expected e;
  size_t moves = doc["moves"].size();
  for (const Json &image : doc["images"]) image["error"] == "" ? e.not_run += moves : ++e.errors;
  e.cells = doc["cells"].size();
  e.not_run -= e.cells;
  for (const Json &move : doc["moves"]) {
    bool slots = false, finished = false;
    for (const Json &c : doc["cells"])
      if (c["move"] == move) finished = true, slots = slots || !c["before"]["by_slot"].empty();
    e.svgs += finished ? 2 + slots : 0;
  }
  for (const Json &c : doc["cells"])
    for (const Json *list : {&c["lost"], &c["damaged"], c.contains("trip") ? &c["trip"]["unforecast"] : nullptr})
      if (list) {
        e.items += std::min(list->size(), wsc::kReportListCap);
        e.capped += list->size() > wsc::kReportListCap;
      }
  return e;
}

// Renders the fixture, checks the page's file and its rendered DOM; returns
// the DOM.
std::string check_page(const Json &doc, size_t max_bytes) {
  testsupport::TempDir dir;
  std::string html = wsc::rehearsal_html(doc), path = dir / "report.html";
  testsupport::write_file(path, html);
  EXPECT_LT(html.size(), max_bytes);
  // Self-contained: no script, nothing fetched, every link within the page.
  EXPECT_FALSE(std::regex_search(html, std::regex(R"(<script|<[^>]+\s(src=|href="[^#])|url\(|@import)", std::regex::icase)));

  tooltest::BrowserPage page = tooltest::load_in_browser(path);
  if (!page.error.empty()) {
    ADD_FAILURE() << page.error;
    return "";
  }
  EXPECT_TRUE(page.console.empty()) << page.console.front();
  // A bound against a hang or a page that grew heavy, not a benchmark: the
  // page's time less the browser's start, measured on an empty page now
  // (some 0.5 s here, more on a busy machine).
  std::string empty = path + ".empty.html";
  testsupport::write_file(empty, "<!DOCTYPE html><title>empty</title>");
  double start = tooltest::load_in_browser(empty).seconds;
  EXPECT_LT(page.seconds - start, 2.0) << "browser start " << start << " s";
  std::printf("report page: %zu bytes, %zu cells, loaded in Chromium in %.2f s (%.2f s of it the browser's start)\n",
              html.size(), doc["cells"].size(), page.seconds, start);

  Expected e = expected_of(doc);
  const std::string &dom = page.dom;
  EXPECT_EQ(count(dom, "<td class=\"cell o-"), e.cells);
  EXPECT_EQ(count(dom, "<td class=\"cell none\""), e.not_run);
  EXPECT_EQ(count(dom, "<td class=\"error\""), e.errors);
  EXPECT_EQ(count(dom, "<details "), e.cells);
  EXPECT_EQ(count(dom, "<svg "), e.svgs);
  EXPECT_EQ(count(dom, "<li>"), e.items);  // list items; the legend's carry a title
  EXPECT_EQ(count(dom, " more in rehearsal.json</p>"), e.capped);
  for (const Json &o : doc["outcomes"]) {
    size_t n = std::count_if(doc["cells"].begin(), doc["cells"].end(), [&](const Json &c) { return c["outcome"] == o; });
    EXPECT_EQ(count(dom, "<td class=\"cell o-" + o.get<std::string>() + "\""), n) << o;
    EXPECT_EQ(count(dom, "<details class=\"cd o-" + o.get<std::string>() + "\""), n) << o;
  }
  // Every cell of the matrix links to its details section.
  std::regex link("<td class=\"cell o-[a-z]+\"[^>]*><a href=\"#([^\"]+)\"");
  for (std::sregex_iterator it(dom.begin(), dom.end(), link), end; it != end; ++it)
    EXPECT_EQ(count(dom, "\" id=\"" + (*it)[1].str() + "\"><summary>"), 1u) << (*it)[1];
  EXPECT_EQ(count(dom, "id=\"interrupted\""), doc["rehearsal"]["interrupted"].get<bool>() ? 1u : 0u);
  return dom;
}

TEST(RehearsalPage, SmallRunShowsEveryOutcomeAndKeepsTextAsText) {
  Json doc = small_fixture();
  std::string dom = check_page(doc, 200 * 1024);
  // Markup from the JSON stays text wherever it appears.
  EXPECT_EQ(count(dom, "<img"), 0u);
  EXPECT_EQ(count(dom, "&lt;img src=x onerror=alert(1)&gt;&amp;\"'&lt;/details&gt;"),
            1u /* row */ + 1 /* error */ + 1 /* heading */ + 1 /* summary */ + 1 /* failure */ + 1 /* lost item */);
  EXPECT_EQ(count(dom, "… and 5 more in rehearsal.json"), 1u);
  EXPECT_EQ(count(dom, "Records gone or changed that no forecast called lost."), 1u);
}

TEST(RehearsalPage, FleetOf100ImagesThrough6MovesStaysSmallAndQuick) {
  Json doc = fleet_fixture();
  check_page(doc, 5 * 1024 * 1024);
}

}  // namespace
