// What a store is at a glance: records and bytes per key type, the key and
// value sizes found per type, and the era whose stored forms the records fit.
// 'info' prints it.
#ifndef TOOLS_WAYSHUNT_CONVERT_STORE_PROFILE_H
#define TOOLS_WAYSHUNT_CONVERT_STORE_PROFILE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "records/json_codec.h"
#include "records/record.h"

namespace wsc {

struct TypeProfile {
  size_t records = 0, bytes = 0;               // bytes: keys and values
  std::map<size_t, size_t> key_sizes, value_sizes;  // size -> records
};

struct StoreProfile {
  size_t records = 0, bytes = 0;
  std::map<uint8_t, TypeProfile> types;
  unsigned fits = 0;      // eras every record fits (bits as eras_fitting)
  unsigned fits_moved_down = 0;  // the same, with the RW values a move down keeps
  unsigned majority = 0;  // when none: the era most records fit
  std::vector<const Record *> disagreeing;  // when none: the records that do not fit the majority era
};

// Records point into records, which must outlive the profile.
StoreProfile profile_store(const Records &records);

// "4.2 and above", "either of: 3.2, 4.1.3 or lower", or "mixed: ...".
std::string era_verdict(const StoreProfile &p);

// "3.2", "3.2, 4.1.3 or lower": the eras of a bit set as operators read
// them, joined by sep.
std::string era_titles(unsigned eras, const std::string &sep = ", ");

// Names of the eras of a bit set, e.g. ["3.2", "4.1"].
std::vector<std::string> era_names(unsigned eras);

Json profile_to_json(const StoreProfile &p, const std::string &store);
void print_profile(const StoreProfile &p, const std::string &store, std::ostream &out);

}  // namespace wsc

#endif
