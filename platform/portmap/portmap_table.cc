// Parsing of the portmap table file: "<if_index> <slot>" and
// "<if_index> fail[=<status>]" lines (format in portmap_admin.h).
#include "portmap_table.h"

#include <charconv>
#include <vector>

#include "status.h"

namespace portmap {
namespace {

// A whole-token unsigned number in base 10, or in base 16 after "0x" when
// hex_ok.
bool parse_number(std::string_view s, uint32_t &out, bool hex_ok) {
  int base = 10;
  if (hex_ok && s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    s.remove_prefix(2);
    base = 16;
  }
  if (s.empty()) return false;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out, base);
  return ec == std::errc() && end == s.data() + s.size();
}

bool in_range(uint32_t v, uint32_t lo, uint32_t hi) { return v >= lo && v <= hi; }

bool parse_if_index(std::string_view s, if_index_t &out) {
  uint32_t a, b;
  if (s.starts_with("fc")) {
    s.remove_prefix(2);
    size_t slash = s.find('/');
    if (slash == s.npos || !parse_number(s.substr(0, slash), a, false) || !parse_number(s.substr(slash + 1), b, false) ||
        !in_range(a, 1, IF_INDEX_FC_MAX_SLOT) || !in_range(b, 1, IF_INDEX_FC_MAX_PORT))
      return false;
    out = IF_INDEX_FC(a, b);
    return true;
  }
  if (s.starts_with("port-channel")) {
    if (!parse_number(s.substr(12), a, false) || !in_range(a, 1, 256)) return false;
    out = IF_INDEX_PORT_CHANNEL(a);
    return true;
  }
  return parse_number(s, out, true);
}

// "fail", "fail=<status>" or a slot number.
bool parse_target(std::string_view s, Entry &out, std::string &problem) {
  uint32_t v;
  if (s == "fail") {
    out = {PORTMAP_ERR_DOWN, 0};
    return true;
  }
  if (s.starts_with("fail=")) {
    if (parse_number(s.substr(5), v, true) && v != 0) {
      out = {v, 0};
      return true;
    }
    problem = "bad status in '" + std::string(s) + "' (a non-zero number)";
    return false;
  }
  if (parse_number(s, v, false) && v <= 255) {
    out = {0, static_cast<slot_num_t>(v)};
    return true;
  }
  problem = "bad slot '" + std::string(s) + "' (0..255, or fail[=<status>])";
  return false;
}

std::vector<std::string_view> fields(std::string_view line) {
  std::vector<std::string_view> out;
  constexpr std::string_view blanks = " \t\r\f\v";
  size_t pos = 0;
  while ((pos = line.find_first_not_of(blanks, pos)) != line.npos) {
    size_t end = line.find_first_of(blanks, pos);
    if (end == line.npos) end = line.size();
    out.push_back(line.substr(pos, end - pos));
    pos = end;
  }
  return out;
}

}  // namespace

bool parse_table(std::string_view text, Table &out, unsigned &bad_line, std::string &problem) {
  out.clear();
  unsigned number = 0;
  while (!text.empty()) {
    size_t nl = text.find('\n');
    std::string_view line = text.substr(0, nl);
    text.remove_prefix(nl == text.npos ? text.size() : nl + 1);
    number++;
    bad_line = number;
    line = line.substr(0, line.find('#'));
    auto f = fields(line);
    if (f.empty()) continue;
    if (f.size() != 2) {
      problem = "expected '<if_index> <slot>' or '<if_index> fail[=<status>]'";
      return false;
    }
    if_index_t idx;
    Entry e;
    if (!parse_if_index(f[0], idx)) {
      problem = "bad interface '" + std::string(f[0]) + "' (a number, fc<slot>/<port> or port-channel<n>)";
      return false;
    }
    if (!parse_target(f[1], e, problem)) return false;
    if (!out.emplace(idx, e).second) {
      problem = "interface '" + std::string(f[0]) + "' listed twice";
      return false;
    }
  }
  return true;
}

}  // namespace portmap
