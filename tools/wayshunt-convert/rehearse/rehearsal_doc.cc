// The rehearsal's document, its merge and its outputs (rehearsal_doc.h).
#include "rehearse/rehearsal_doc.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "report/rehearsal_html.h"
#include "rehearse/cell.h"
#include "rehearse/junit.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

Json ladder_json(const std::vector<Rung> &ladder) {
  Json j = Json::array();
  for (const Rung &r : ladder)
    j.push_back({{"release", r.release},
                 {"era", r.era ? Json(era_name(*r.era)) : Json()},
                 {"title", r.era ? era_title(*r.era) : "below 3.2"}});
  return j;
}

std::vector<Rung> ladder_from(const Json &j) {
  std::vector<Rung> ladder;
  for (const Json &r : j)
    ladder.push_back({r["release"].get<std::string>(),
                      r["era"].is_string() ? std::optional<Era>(era_from_name(r["era"].get<std::string>())) : std::nullopt});
  return ladder;
}

// The moves of the cells and those given, in report order.
Json moves_json(const Json &cells, const std::vector<std::string> &given, const std::vector<Rung> &ladder) {
  std::set<std::string> all(given.begin(), given.end());
  for (const Json &c : cells) all.insert(c["move"].get<std::string>());
  std::vector<std::string> labels(all.begin(), all.end());
  sort_moves(labels, ladder);
  return labels;
}

void write_file(const std::string &path, const std::string &text) {
  std::ofstream f(path, std::ios::binary);
  f << text;
  f.close();
  if (!f) throw ToolError("cannot write " + path);
}

}  // namespace

Json rehearsal_doc(Json run, const std::vector<Rung> &ladder, const std::vector<MovePlan> &moves, FleetResult result) {
  std::vector<std::string> given;
  for (const MovePlan &m : moves) given.push_back(m.label());
  run["interrupted"] = result.interrupted != 0;
  // Assigned, not listed: a JSON initializer list copies what it holds.
  Json doc = {{"rehearsal", run}, {"ladder", ladder_json(ladder)}, {"moves", moves_json(result.cells, given, ladder)},
              {"outcomes", kOutcomes}};
  doc["images"] = std::move(result.images);
  doc["cells"] = std::move(result.cells);
  return doc;
}

Json merge_docs(const std::vector<Json> &docs) {
  if (docs.empty()) throw ToolError("--merge: no rehearsal given");
  const Json &first = docs.front();
  Json run = first["rehearsal"];
  Json images = Json::array(), cells = Json::array(), shards = Json::array();
  std::vector<std::string> given;
  std::set<std::string> names;
  for (const Json &d : docs) {
    const Json &r = d["rehearsal"];
    for (const char *same : {"faults", "allow_loss", "library"})
      if (r[same] != run[same])
        throw ToolError(std::string("--merge: the rehearsals differ in ") + same + " (" + r[same].dump() + " and " +
                        run[same].dump() + "): they are no shards of one rehearsal");
    if (d["ladder"] != first["ladder"]) throw ToolError("--merge: the rehearsals have different ladders");
    for (const Json &img : d["images"])
      if (!names.insert(img["name"].get<std::string>()).second)
        throw ToolError("--merge: the image " + img["name"].get<std::string>() + " is in two rehearsals");
    images.insert(images.end(), d["images"].begin(), d["images"].end());
    cells.insert(cells.end(), d["cells"].begin(), d["cells"].end());
    shards.insert(shards.end(), r["shards"].begin(), r["shards"].end());
    for (const Json &m : d["moves"]) given.push_back(m.get<std::string>());
    run["started"] = std::min(run["started"].get<std::string>(), r["started"].get<std::string>());
    run["seconds"] = std::max(run["seconds"].get<double>(), r["seconds"].get<double>());
    run["jobs"] = std::max(run["jobs"].get<unsigned>(), r["jobs"].get<unsigned>());
    run["interrupted"] = run["interrupted"].get<bool>() || r["interrupted"].get<bool>();
  }
  run["images_total"] = images.size();
  std::sort(shards.begin(), shards.end());
  run["shards"] = shards;
  std::map<std::string, size_t> order;
  std::stable_sort(images.begin(), images.end(),
                   [](const Json &a, const Json &b) { return a["index"].get<size_t>() < b["index"].get<size_t>(); });
  for (const Json &img : images) order[img["name"].get<std::string>()] = order.size();
  std::vector<Rung> ladder = ladder_from(first["ladder"]);
  Json moves = moves_json(cells, given, ladder);
  std::map<std::string, size_t> column;
  for (const Json &m : moves) column[m.get<std::string>()] = column.size();
  std::stable_sort(cells.begin(), cells.end(), [&](const Json &a, const Json &b) {
    return std::make_pair(order[a["image"].get<std::string>()], column[a["move"].get<std::string>()]) <
           std::make_pair(order[b["image"].get<std::string>()], column[b["move"].get<std::string>()]);
  });
  Json doc = {{"rehearsal", run}, {"ladder", first["ladder"]}, {"moves", moves}, {"outcomes", kOutcomes}};
  doc["images"] = std::move(images);
  doc["cells"] = std::move(cells);
  return doc;
}

// The document as JSON text, its cells the files' texts when there are
// files: "cells" is the document's last member, so its array is written in
// place of the one dumped.
static void write_json(const std::string &path, const Json &doc, const std::vector<std::string> &cell_files) {
  std::ofstream f(path, std::ios::binary);
  if (cell_files.empty()) {
    f << doc.dump() << "\n";
  } else {
    Json head = doc;
    head["cells"] = Json::array();
    std::string text = head.dump();
    f << text.substr(0, text.size() - 3) << "[";  // ...,"cells":[]}
    for (size_t i = 0; i < cell_files.size(); ++i) {
      std::ifstream cell(cell_files[i], std::ios::binary);
      f << (i ? "," : "") << cell.rdbuf();
    }
    f << "]}\n";
  }
  f.close();
  if (!f) throw ToolError("cannot write " + path);
}

void write_outputs(const std::string &dir, const Json &doc, const std::vector<std::string> &cell_files) {
  std::error_code ec;
  if (fs::exists(dir + "/rehearsal.json"))
    throw ToolError(dir + " already holds a rehearsal; give another --out");
  fs::create_directories(dir, ec);
  if (ec) throw ToolError("cannot create " + dir + ": " + ec.message());
  write_json(dir + "/rehearsal.json", doc, cell_files);
  write_file(dir + "/report.html", rehearsal_html(doc));
  write_file(dir + "/junit.xml", junit_xml(doc));
}

size_t failed_cases(const Json &doc) {
  size_t n = 0;
  for (const Json &c : doc["cells"]) n += !c["failure"].get<std::string>().empty();
  for (const Json &img : doc["images"]) n += !img["error"].get<std::string>().empty();
  return n;
}

}  // namespace wsc
