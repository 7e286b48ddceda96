// A whole store as JSON, both ways, with every record checked and keys
// required to be unique (a store holds each key once).
#include "store/json_store.h"

#include <map>

#include "records/formats.h"
#include "tool_error.h"

namespace wsc {

Json store_to_json(const Records &records) {
  Json doc = Json::object();
  doc["format"] = kStoreFormat;
  Json &list = doc["records"] = Json::array();
  for (const Record &r : records) list.push_back(record_to_json(r));
  return doc;
}

namespace {

// A store's JSON nests five deep (document, records, record, key or value,
// rw_key). Copies of a parsed document and the checks of a record recurse
// once per level, so a document nested some thousands deep would overrun
// the stack: deeper than this it is refused before it is parsed.
constexpr int kMaxDepth = 64;

}  // namespace

Records store_from_json_text(const std::string &text, const std::string &source) {
  if (json_nests_deeper(text, kMaxDepth))
    throw ToolError(source + ": nested deeper than " + std::to_string(kMaxDepth) +
                    " levels, which no store's JSON is; write it anew with 'dump --json'");
  Json doc;
  try {
    doc = Json::parse(text);
  } catch (const Json::exception &e) {
    // A syntax error, or a number too large for any type (out_of_range):
    // "[json.exception.parse_error.101] parse error at line 3, column 5: ..."
    std::string what = e.what();
    size_t at = what.find("] ");
    throw ToolError(source + ": not valid JSON: " + (at == std::string::npos ? what : what.substr(at + 2)) +
                    "; fix it, or write it anew with 'dump --json'");
  }
  auto fail = [&](const std::string &where, const std::string &what) {
    throw ToolError(source + ": " + where + ": " + what);
  };
  if (!doc.is_object()) fail("top level", "expected an object {\"format\": ..., \"records\": [...]} as 'dump --json' writes");
  for (auto it = doc.begin(); it != doc.end(); ++it)
    if (it.key() != "format" && it.key() != "records") fail(it.key(), "unknown field (expected format and records)");
  if (auto f = doc.find("format"); f != doc.end() && *f != kStoreFormat)
    fail("format", f->dump() + " is not \"" + std::string(kStoreFormat) + "\"");
  auto list = doc.find("records");
  if (list == doc.end() || !list->is_array()) fail("records", "missing, or not an array");

  Records records;
  records.reserve(list->size());
  std::map<Bytes, size_t> seen;
  for (size_t i = 0; i < list->size(); ++i) {
    const Json &j = (*list)[i];
    std::string where = "records[" + std::to_string(i) + "]";
    if (j.is_object())
      if (auto t = j.find("type"); t != j.end()) where += " (" + (t->is_string() ? t->get<std::string>() : t->dump()) + ")";
    try {
      records.push_back(record_from_json(j));
    } catch (const FieldError &e) {
      fail(where, (e.path().empty() ? "" : e.path() + ": ") + e.what() + "; fix the record and run load again");
    }
    auto [it, fresh] = seen.emplace(records.back().key, i);
    if (!fresh) fail(where, "key: same key as records[" + std::to_string(it->second) + "]; a store holds each key once");
  }
  return records;
}

}  // namespace wsc
