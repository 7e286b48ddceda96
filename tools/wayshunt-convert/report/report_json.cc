// Lenient member reads for the rehearsal page.
#include "report/report_json.h"

namespace wsc {

const Json &member(const Json &j, const char *key) {
  static const Json none;
  if (!j.is_object()) return none;
  auto it = j.find(key);
  return it == j.end() ? none : *it;
}

std::string text_at(const Json &j, const char *key) {
  const Json &m = member(j, key);
  if (m.is_string()) return m.get<std::string>();
  return m.is_null() ? "" : m.dump();
}

int64_t int_at(const Json &j, const char *key) {
  const Json &m = member(j, key);
  return m.is_number() ? m.get<int64_t>() : 0;
}

double real_at(const Json &j, const char *key) {
  const Json &m = member(j, key);
  return m.is_number() ? m.get<double>() : 0;
}

}  // namespace wsc
