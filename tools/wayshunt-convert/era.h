// The three release eras whose stored forms differ: 3.2; above 3.2 and
// below 4.2 ("4.1", the conversions' 4.1.3 or lower); 4.2 and above.
#ifndef TOOLS_WAYSHUNT_CONVERT_ERA_H
#define TOOLS_WAYSHUNT_CONVERT_ERA_H

#include <cstddef>
#include <string>
#include <vector>

namespace wsc {

enum class Era { v32, v41, v42 };

inline const std::vector<std::string> kEraNames = {"3.2", "4.1", "4.2"};

inline Era era_from_name(const std::string &name) { return name == "3.2" ? Era::v32 : name == "4.1" ? Era::v41 : Era::v42; }
inline std::string era_name(Era e) { return kEraNames[static_cast<size_t>(e)]; }

// Size of the flow-thru key in the era.
inline size_t flow_thru_key_size(Era e) { return e == Era::v42 ? 22 : 18; }

}  // namespace wsc

#endif
