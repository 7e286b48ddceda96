// A store's records and bytes per key type, its sizes, and its era.
#include "compare/store_profile.h"

#include <bit>
#include <iomanip>
#include <ostream>

#include "records/era.h"
#include "records/form_tables.h"
#include "records/formats.h"

namespace wsc {

namespace {

// Disagreeing records shown in the text; the JSON holds all of them.
constexpr size_t kShown = 10;


// "18" for one size, "18 (3), 22 (487)" for several.
std::string sizes(const std::map<size_t, size_t> &counts) {
  if (counts.size() == 1) return std::to_string(counts.begin()->first);
  std::string out;
  for (const auto &[size, n] : counts) out += (out.empty() ? "" : ", ") + std::to_string(size) + " (" + std::to_string(n) + ")";
  return out;
}

Json sizes_json(const std::map<size_t, size_t> &counts) {
  Json j = Json::object();
  for (const auto &[size, n] : counts) j[std::to_string(size)] = n;
  return j;
}

// The era that most records fit, the newest on a tie.
unsigned majority_era(const Records &records) {
  size_t best = 0;
  unsigned era = 0;
  for (int e = WAYSHUNT_ERA_COUNT; e-- > 0;) {
    size_t n = 0;
    for (const Record &r : records) n += (eras_fitting(r) >> e) & 1u;
    if (n > best || era == 0) best = n, era = 1u << e;
  }
  return era;
}

}  // namespace

std::string era_titles(unsigned eras, const std::string &sep) {
  std::string out;
  for (size_t e = 0; e < kEraTitles.size(); ++e)
    if (eras & (1u << e)) out += (out.empty() ? "" : sep) + kEraTitles[e];
  return out;
}

std::vector<std::string> era_names(unsigned eras) {
  std::vector<std::string> out;
  for (size_t e = 0; e < kEraNames.size(); ++e)
    if (eras & (1u << e)) out.push_back(kEraNames[e]);
  return out;
}

StoreProfile profile_store(const Records &records) {
  StoreProfile p;
  p.fits = p.fits_moved_down = kAllEras;
  for (const Record &r : records) {
    TypeProfile &t = p.types[r.type()];
    ++t.records;
    t.bytes += r.key.size() + r.value.size();
    ++t.key_sizes[r.key.size()];
    ++t.value_sizes[r.value.size()];
    p.fits &= eras_fitting(r);
    p.fits_moved_down &= eras_fitting(r, true);
  }
  p.records = records.size();
  for (const auto &[type, t] : p.types) p.bytes += t.bytes;
  if (p.fits) return p;
  p.majority = majority_era(records);
  for (const Record &r : records)
    if (!(eras_fitting(r) & p.majority)) p.disagreeing.push_back(&r);
  return p;
}

std::string era_verdict(const StoreProfile &p) {
  if (std::popcount(p.fits) == 1) return era_titles(p.fits);
  if (p.fits) return "either of: " + era_titles(p.fits);
  return "mixed: " + std::to_string(p.records - p.disagreeing.size()) + " records fit " + era_titles(p.majority) + ", " +
         std::to_string(p.disagreeing.size()) + " do not";
}

Json profile_to_json(const StoreProfile &p, const std::string &store) {
  Json j = {{"store", store}, {"records", p.records}, {"bytes", p.bytes}};
  j["era"] = {{"verdict", era_verdict(p)}, {"fits", era_names(p.fits)}, {"mixed", p.fits == 0}};
  if (!p.fits) {
    j["era"]["majority"] = era_names(p.majority).front();
    Json &list = j["era"]["disagreeing"] = Json::array();
    for (const Record *r : p.disagreeing)
      list.push_back({{"type", type_label(r->type())}, {"key", to_hex(r->key)}, {"key_size", r->key.size()},
                      {"value_size", r->value.size()}, {"fits", era_names(eras_fitting(*r))}});
  }
  Json &types = j["types"] = Json::array();
  for (const auto &[type, t] : p.types)
    types.push_back({{"type", type_label(type)}, {"records", t.records}, {"bytes", t.bytes},
                     {"key_sizes", sizes_json(t.key_sizes)}, {"value_sizes", sizes_json(t.value_sizes)}});
  return j;
}

void print_profile(const StoreProfile &p, const std::string &store, std::ostream &out) {
  out << store << ": " << p.records << " records, " << p.bytes << " bytes of keys and values\n";
  out << "era: " << era_verdict(p) << "\n";
  out << std::left << std::setw(17) << "key type" << std::right << std::setw(9) << "records" << std::setw(11) << "bytes"
      << "  key sizes / value sizes\n";
  for (const auto &[type, t] : p.types)
    out << std::left << std::setw(17) << type_label(type) << std::right << std::setw(9) << t.records << std::setw(11)
        << t.bytes << "  " << sizes(t.key_sizes) << " / " << sizes(t.value_sizes) << "\n";
  for (size_t i = 0; i < p.disagreeing.size() && i < kShown; ++i) {
    const Record &r = *p.disagreeing[i];
    out << "  not " << era_names(p.majority).front() << ": " << type_label(r.type()) << " " << to_hex(r.key) << " (key "
        << r.key.size() << ", value " << r.value.size() << " bytes; fits " << (eras_fitting(r) ? era_titles(eras_fitting(r)) : "no era")
        << ")\n";
  }
  if (p.disagreeing.size() > kShown) out << "  ... and " << p.disagreeing.size() - kShown << " more (see --json)\n";
}

}  // namespace wsc
