// The release eras whose stored forms differ, as the service's form table
// (wayshunt_forms.h) numbers and names them: 3.2; above 3.2 and below 4.2
// ("4.1", the conversions' 4.1.3 or lower); 4.2 and above.
#ifndef TOOLS_WAYSHUNT_CONVERT_ERA_H
#define TOOLS_WAYSHUNT_CONVERT_ERA_H

#include <cstddef>
#include <string>
#include <vector>

#include "wayshunt_forms.h"

namespace wsc {

enum class Era { v32 = WAYSHUNT_ERA_32, v41 = WAYSHUNT_ERA_413, v42 = WAYSHUNT_ERA_42 };

inline const std::vector<std::string> kEraNames = WAYSHUNT_ERA_NAMES;

inline wayshunt_era_t era_index(Era e) { return static_cast<wayshunt_era_t>(e); }
// The era of a name in kEraNames (the command line checks names first).
inline Era era_from_name(const std::string &name) {
  for (size_t i = 0; i < kEraNames.size(); ++i)
    if (kEraNames[i] == name) return static_cast<Era>(i);
  return Era::v42;
}
inline std::string era_name(Era e) { return kEraNames[static_cast<size_t>(e)]; }

// The eras as operators read them, indexed like kEraNames.
inline const std::vector<std::string> kEraTitles = {"3.2", "4.1.3 or lower", "4.2 and above"};
inline std::string era_title(Era e) { return kEraTitles[static_cast<size_t>(e)]; }

// Size of the flow-thru key in the era.
inline size_t flow_thru_key_size(Era e) { return wayshunt_flow_thru_key_size(era_index(e)); }

}  // namespace wsc

#endif
