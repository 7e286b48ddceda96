// JUnit XML of a rehearsal (junit.h).
#include "rehearse/junit.h"

#include <cstdio>
#include <map>
#include <sstream>
#include <vector>

#include "report/markup.h"

namespace wsc {

namespace {

// Lines of the failure's body: each leg's statuses and verdicts, then the
// damaged records.
std::string failure_body(const Json &cell) {
  std::string s;
  for (const Json &leg : cell["legs"]) {
    s += leg["from"].get<std::string>() + " -> " + leg["to"].get<std::string>() + "\n";
    for (const Json &st : leg["statuses"]) {
      char code[16];
      std::snprintf(code, sizeof code, "0x%08x", st["status"].get<unsigned>());
      s += "  " + st["call"].get<std::string>() + " = " + code + " (" + st["status_text"].get<std::string>() + ")\n";
    }
    s += "  forecast: " + leg["forecast"].get<std::string>() + "\n  audit: " + leg["audit"].get<std::string>() + "\n";
  }
  for (const Json &d : cell["damaged"]) s += "damaged: " + d.get<std::string>() + "\n";
  if (cell.contains("trip"))
    for (const Json &u : cell["trip"]["unforecast"]) s += "gone, not forecast: " + u.get<std::string>() + "\n";
  return s;
}

std::string seconds(double s) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.3f", s);
  return buf;
}

}  // namespace

std::string xml_escape(const std::string &text) {
  std::string out;
  for (char c : html_escape(text)) {  // its references are XML's too
    auto u = static_cast<unsigned char>(c);
    if (c == '\t' || c == '\n' || c == '\r')
      out += "&#" + std::to_string(u) + ";";  // kept in an attribute, which a reader would make a blank
    else
      out += u < 0x20 || u == 0x7f ? '?' : c;
  }
  return out;
}

std::string junit_xml(const Json &rehearsal) {
  std::map<std::string, std::vector<const Json *>> cells;
  for (const Json &c : rehearsal["cells"]) cells[c["image"].get<std::string>()].push_back(&c);
  std::ostringstream suites;
  size_t tests = 0, failures = 0, errors = 0;
  double total = 0;
  for (const Json &img : rehearsal["images"]) {
    std::string name = img["name"].get<std::string>(), error = img["error"].get<std::string>();
    const std::vector<const Json *> &mine = cells[name];
    size_t failed = 0;
    double time = 0;
    std::ostringstream cases;
    for (const Json *c : mine) {
      std::string why = (*c)["failure"].get<std::string>();
      time += (*c)["seconds"].get<double>();
      cases << "    <testcase classname=\"rehearse." << xml_escape(name) << "\" name=\"" << xml_escape((*c)["move"].get<std::string>())
            << "\" time=\"" << seconds((*c)["seconds"].get<double>()) << "\"";
      if (why.empty()) {
        cases << "/>\n";
        continue;
      }
      ++failed;
      cases << ">\n      <failure type=\"" << xml_escape((*c)["outcome"].get<std::string>()) << "\" message=\""
            << xml_escape(why) << "\">" << xml_escape(failure_body(*c)) << "</failure>\n    </testcase>\n";
    }
    if (!error.empty())
      cases << "    <testcase classname=\"rehearse." << xml_escape(name) << "\" name=\"image\" time=\"0\">\n"
            << "      <error message=\"" << xml_escape(error) << "\"/>\n    </testcase>\n";
    size_t n = mine.size() + (error.empty() ? 0 : 1);
    tests += n, failures += failed, errors += error.empty() ? 0 : 1, total += time;
    suites << "  <testsuite name=\"" << xml_escape(name) << "\" tests=\"" << n << "\" failures=\"" << failed
           << "\" errors=\"" << (error.empty() ? 0 : 1) << "\" time=\"" << seconds(time) << "\">\n"
           << "    <properties>\n      <property name=\"path\" value=\"" << xml_escape(img["path"].get<std::string>())
           << "\"/>\n      <property name=\"era\" value=\"" << xml_escape(img["era"].is_string() ? img["era"].get<std::string>() : "")
           << "\"/>\n      <property name=\"records\" value=\"" << img["records"].get<size_t>() << "\"/>\n    </properties>\n"
           << cases.str() << "  </testsuite>\n";
  }
  std::ostringstream out;
  out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"wayshunt-convert rehearse\" tests=\"" << tests
      << "\" failures=\"" << failures << "\" errors=\"" << errors << "\" time=\"" << seconds(total) << "\">\n"
      << suites.str() << "</testsuites>\n";
  return out.str();
}

}  // namespace wsc
