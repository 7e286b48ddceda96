// One image x move of a rehearsal (cell.h): each leg run by run_move on the
// same copy, and the cell told from what the legs reported and the stores
// they left.
#include "rehearse/cell.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <ostream>

#include "commands/move_flow.h"
#include "compare/classify.h"
#include "device/device_image.h"
#include "records/form_tables.h"
#include "records/formats.h"
#include "store/store_arg.h"
#include "store/store_io.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

// The offset of a value form's slot_num, if it has one.
std::optional<size_t> slot_offset(const Form *form) {
  static std::map<const Form *, std::optional<size_t>> known;
  auto [it, fresh] = known.try_emplace(form);
  if (fresh && form)
    for (const Field &f : form->fields)
      if (std::string(f.path) == "slot_num" && f.width == 1) it->second = f.off;
  return it->second;
}

std::string item_line(const Json &item, const std::string &leg) {
  return leg + item["key"].get<std::string>() + " " + item["type"].get<std::string>() + " " +
         item["field"].get<std::string>() + ": " + item["before"].get<std::string>() + " -> " +
         item["after"].get<std::string>();
}

std::string finding_line(const Json &f, const std::string &leg) {
  std::string cause = f["cause"].get<std::string>();
  return leg + f["kind"].get<std::string>() + " " + f["type"].get<std::string>() + " " + f["key"].get<std::string>() +
         ": " + f["what"].get<std::string>() + (cause.empty() ? "" : " (failed call: " + cause + ")");
}

Json leg_json(const std::string &from, const std::string &to, const Json &doc, const std::string &stopped) {
  Json statuses = Json::array();
  if (doc.contains("steps"))
    for (const Json &s : doc["steps"])
      statuses.push_back({{"call", s["call"]}, {"status", s["status"]}, {"status_text", s["status_text"]}});
  auto text = [&](const char *part, const char *field) {
    return doc.contains(part) && doc[part].contains(field) ? doc[part][field] : Json("");
  };
  return {{"from", from},
          {"to", to},
          {"statuses", statuses},
          {"forecast", text("forecast", "summary")},
          {"audit", stopped.empty() ? text("audit", "verdict") : Json("not run: " + stopped)}};
}

// The key each record of the store a round trip's first move left had
// before it, where the move changed it (a widened or narrowed key), by key
// hex; wanted only when the second move's forecast (leg2) loses something.
// The library's moves today widen a flow-thru key with vsan 0 and value 0,
// so a second leg loses nothing on a record whose key the first changed;
// this keeps such a loss from being reported as unforecast should they
// ever carry more.
std::map<std::string, std::string> key_origins(const Records &before, const Records &after, const Json &leg2) {
  std::map<std::string, std::string> origin;
  bool loses = false;
  for (const Json &item : leg2["forecast"]["items"]) loses = loses || item["class"] == "lost";
  if (!loses) return origin;
  Classified k = classify_changes(before, after);
  for (const ChangeItem &item : k.items)
    if (item.before && item.after && item.before->key != item.after->key)
      origin.emplace(to_hex(item.after->key), to_hex(item.before->key));
  return origin;
}

// What a round trip brought back, by key type: records equal byte for
// byte, changed (a field, or the key's form), gone (deleted) or new; and the
// records whose information the trip lost that no forecast of it called
// lost. A lost item of the second leg's forecast names a record of the store
// the first leg left, traced back by origin.
Json trip_json(const Records &before, const Classified &k, const std::vector<Json> &docs,
               const std::map<std::string, std::string> &origin) {
  std::set<std::string> called_lost;
  for (size_t leg = 0; leg < docs.size(); ++leg)
    for (const Json &item : docs[leg]["forecast"]["items"])
      if (item["class"] == "lost") {
        auto it = leg ? origin.find(item["key"].get<std::string>()) : origin.end();
        called_lost.insert(it == origin.end() ? item["key"].get<std::string>() : it->second);
      }
  std::map<const Record *, const char *> fate;  // records of before with an item
  std::set<const Record *> unforecast;
  for (const ChangeItem &item : k.items) {
    if (!item.before) continue;
    const char *&f = fate[item.before];
    if (!item.after) f = "gone";
    else if (!f) f = "changed";
    if (item.cls == ChangeClass::lost && !called_lost.count(to_hex(item.before->key))) unforecast.insert(item.before);
  }
  Json by_type = Json::object(), missed = Json::array();
  auto count = [&](const std::string &type, const char *what) {
    if (!by_type.contains(type)) by_type[type] = {{"same", 0}, {"changed", 0}, {"gone", 0}, {"new", 0}};
    by_type[type][what] = by_type[type][what].get<size_t>() + 1;
  };
  for (const Record &r : before) {
    auto it = fate.find(&r);
    count(type_label(r.type()), it == fate.end() ? "same" : it->second);
    if (unforecast.count(&r)) missed.push_back(to_hex(r.key) + " " + type_label(r.type()));
  }
  for (const ChangeItem &item : k.items)
    if (!item.before && item.after) count(type_label(item.after->type()), "new");
  return {{"by_type", by_type}, {"gone_as_forecast", missed.empty()}, {"unforecast", missed}};
}

Json counts_json(const Classified &k) {
  return {{"lost", k.records[0]}, {"repaired", k.records[1]}, {"reshaped", k.records[2]}, {"new", k.records[3]},
          {"unchanged", k.unchanged}};
}

// Lost items of key types --allow-loss does not name: "ACL_RW_1 (3)".
std::string losses_not_allowed(const Json &lost_types, const CellOptions &o) {
  std::string out;
  for (const auto &[type, n] : lost_types.items())
    if (!o.allow_loss.count(type)) out += (out.empty() ? "" : ", ") + type + " (" + std::to_string(n.get<size_t>()) + ")";
  return out;
}

std::string outcome_of(bool failed, bool damaged, const Json &counts, const Json &trip) {
  if (failed) return "failed";
  if (damaged) return "damage";
  bool gone = false;
  if (trip.is_object())
    for (const auto &[type, c] : trip["by_type"].items()) gone = gone || c["gone"].get<size_t>() > 0;
  if (counts["lost"].get<size_t>() > 0 || gone) return "losses";
  for (const char *c : {"repaired", "reshaped", "new"})
    if (counts[c].get<size_t>() > 0) return "changes";
  return "clean";
}

}  // namespace

Json store_counts(const Records &records) {
  Json by_type = Json::object(), by_slot = Json::object();
  std::map<unsigned, size_t> slots;
  for (const Record &r : records) {
    std::string type = type_label(r.type());
    by_type[type] = by_type.contains(type) ? by_type[type].get<size_t>() + 1 : 1;
    if (std::optional<size_t> off = slot_offset(value_form(r)); off && *off < r.value.size()) ++slots[r.value[*off]];
  }
  for (const auto &[slot, n] : slots) by_slot[std::to_string(slot)] = n;
  return {{"records", records.size()}, {"by_type", by_type}, {"by_slot", by_slot}};
}

Json rehearse_cell(ConversionLibrary &lib, const ImageInput &image, const Records &before, const Json &before_counts,
                   const MovePlan &move, const CellOptions &o, const std::string &work) {
  auto start = std::chrono::steady_clock::now();
  struct Cleanup {
    std::string dir;
    ~Cleanup() {
      std::error_code ec;
      fs::remove_all(dir, ec);
    }
  } cleanup{work};
  DeviceImage copy = copy_image(image_at(image.path, true), work);
  Json legs = Json::array(), lost = Json::array(), damaged_items = Json::array(), lost_types = Json::object();
  std::vector<Json> docs;
  Records mid, after;  // the stores after a round trip's first leg, and after the last leg
  bool have_after = false, have_mid = false, as_forecast = false;
  bool failed = false, damaged = false;
  std::string failure;
  for (size_t i = 0; i + 1 < move.path.size() && !failed; ++i) {
    const std::string &from = move.path[i], &to = move.path[i + 1];
    std::string leg = move.round_trip() ? "(" + from + "->" + to + ") " : "";
    MoveOptions mo;
    mo.from = from, mo.to = to, mo.image = copy.dir, mo.library = lib.path(), mo.faults = o.faults;
    // A round trip's way back starts from the release its first move
    // entered, whatever the forms the library left there.
    mo.json = true, mo.quiet = true, mo.history = false, mo.force = o.force || i > 0, mo.lost_items_only = true;
    mo.store_now = i == 0 ? &before : have_mid ? &mid : nullptr;  // the copy holds the image's store, then what the first leg left
    std::ostream quiet(nullptr);
    MoveVerdict v;
    try {
      v = run_move(mo, lib, image_at(copy.dir, true), quiet);
    } catch (const ToolError &e) {
      if (e.status() > 128) throw;
      std::string why = e.what();  // named by the image, not by the rehearsal's temporary folder
      for (size_t at; (at = why.find(copy.dir)) != std::string::npos;) why.replace(at, copy.dir.size(), "(copy of " + image.name + ")");
      legs.push_back(leg_json(from, to, Json::object(), why));
      failed = true, failure = leg + why;
      break;
    }
    legs.push_back(leg_json(from, to, v.doc, ""));
    if (v.interrupted) {  // a signal from elsewhere: the rehearsal's own stop ends the worker at once
      failed = true, failure = leg + "the move was interrupted by signal " + std::to_string(v.interrupted) + " (" +
                               strsignal(v.interrupted) + ")";
      break;
    }
    for (const Json &item : v.doc["forecast"]["items"])
      if (item["class"] == "lost") {
        lost.push_back(item_line(item, leg));
        std::string type = item["type"].get<std::string>();
        lost_types[type] = lost_types.contains(type) ? lost_types[type].get<size_t>() + 1 : 1;
      }
    for (const Json &f : v.doc["audit"]["findings"]) damaged_items.push_back(finding_line(f, leg));
    std::string verdict = v.doc["audit"]["verdict"].get<std::string>();
    if ((!v.statuses_ok || v.damaged) && failure.empty())  // the first leg that went wrong
      failure = leg + verdict + (damaged_items.empty() ? "" : "; first: " + damaged_items[0].get<std::string>());
    failed = failed || !v.statuses_ok, damaged = damaged || v.damaged;
    docs.push_back(std::move(v.doc));
    as_forecast = v.as_forecast;
    if (i == 0 && move.round_trip()) mid = std::move(v.store_after), have_mid = v.audited;
    else if (v.audited) after = std::move(v.store_after), have_after = true;
  }
  if (!have_after) after = read_store(copy.store());
  Json trip, counts;
  if (move.round_trip() && docs.size() == 2) {
    Classified k = classify_changes(before, after);
    trip = trip_json(before, k, docs, key_origins(before, mid, docs[1]));
    counts = counts_json(k);
  } else if (as_forecast) {  // the audit found the store equal to the forecast's: its counts hold
    counts = docs[0]["forecast"]["counts"];
  } else {
    counts = counts_json(classify_changes(before, after, 0));
  }
  if (failure.empty() && trip.is_object() && !trip["gone_as_forecast"].get<bool>())
    failure = std::to_string(trip["unforecast"].size()) + " records lost on the round trip that no forecast called lost; first: " +
              trip["unforecast"][0].get<std::string>();
  if (failure.empty() && o.judge_losses)
    if (std::string not_allowed = losses_not_allowed(lost_types, o); !not_allowed.empty())
      failure = "loses records --allow-loss does not allow: " + not_allowed;
  Json cell = {{"image", image.name},
               {"move", move.label()},
               {"path", move.path},
               {"round_trip", move.round_trip()},
               {"outcome", outcome_of(failed, damaged, counts, trip)},
               {"failure", failure},
               {"seconds", 0},
               {"before", before_counts},
               {"after", store_counts(after)},
               {"counts", counts},
               {"legs", std::move(legs)}};
  cell["lost"] = std::move(lost);  // assigned: a JSON initializer list copies
  cell["damaged"] = std::move(damaged_items);
  if (trip.is_object()) cell["trip"] = std::move(trip);
  cell["seconds"] = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return cell;
}

}  // namespace wsc
