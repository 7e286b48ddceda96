// Text forms of the stored fields, both ways.
#include "records/formats.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <stdexcept>
#include <string_view>

#include "if_index.h"
#include "wayshunt_forms.h"

namespace wsc {

namespace {

struct Named {
  uint32_t value;
  const char *name;
};

constexpr Named kFlags[] = {
    {WAYSHUNT_ACL_FLAG_PGM_PENDING, "PGM_PENDING"}, {WAYSHUNT_ACL_FLAG_PGM_BUSY, "PGM_BUSY"},
    {WAYSHUNT_ACL_FLAG_ISL, "ISL"},                 {WAYSHUNT_ACL_FLAG_PHYSICAL, "PHYSICAL"},
    {WAYSHUNT_ACL_FLAG_VIRTUAL, "VIRTUAL"},         {WAYSHUNT_ACL_FLAG_VW, "VW"},
    {WAYSHUNT_ACL_FLAG_FO, "FO"},                   {WAYSHUNT_ACL_FLAG_DROP_ALL, "DROP_ALL"},
};

std::string upper(std::string_view s) {
  std::string out(s);
  for (char &c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

std::string_view without_prefix(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix ? s.substr(prefix.size()) : s;
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The decimal number after prefix in text (e.g. "fc" in "fc3/12"), up to stop.
uint32_t small_number(std::string_view text, const char *what) {
  if (text.empty() || text.size() > 6 || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
    throw std::invalid_argument(std::string("bad ") + what + " number '" + std::string(text) + "'");
  return static_cast<uint32_t>(std::stoul(std::string(text)));
}

}  // namespace

std::optional<uint8_t> parse_key_type(const std::string &text) {
  std::string t = upper(trim(text));
  t = std::string(without_prefix(t, "WAYSHUNT_KVS_KEY_"));
  for (const wayshunt_type_forms_t &f : wayshunt_type_forms)
    if (t == f.type_name) return f.kvs_type;
  try {
    return static_cast<uint8_t>(parse_number(t, 255));
  } catch (const std::invalid_argument &) {
    return std::nullopt;
  }
}

std::string format_wwn(const uint8_t *b) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5], b[6],
                b[7]);
  return buf;
}

void parse_wwn(const std::string &text, uint8_t *out) {
  // Exactly eight groups of two hex digits separated by ':'.
  if (text.size() != 23) throw std::invalid_argument("'" + text + "' is not a worldwide name like 20:00:00:25:b5:01:02:03");
  for (int i = 0; i < 8; ++i) {
    int hi = hex_digit(text[i * 3]), lo = hex_digit(text[i * 3 + 1]);
    if (hi < 0 || lo < 0 || (i < 7 && text[i * 3 + 2] != ':'))
      throw std::invalid_argument("'" + text + "' is not a worldwide name like 20:00:00:25:b5:01:02:03");
    out[i] = static_cast<uint8_t>(hi << 4 | lo);
  }
}

std::string format_acl_flags(uint32_t flags) {
  std::string out;
  for (const std::string &name : acl_flag_names(flags)) out += (out.empty() ? "" : "|") + name;
  return out.empty() ? "0" : out;
}

std::vector<std::string> acl_flag_names(uint32_t mask) {
  std::vector<std::string> names;
  uint32_t rest = mask;
  for (const Named &n : kFlags)
    if (mask & n.value) {
      names.push_back(n.name);
      rest &= ~n.value;
    }
  if (rest) names.push_back(format_hex32(rest));
  return names;
}

uint32_t parse_acl_flags(const std::string &text) {
  uint32_t flags = 0;
  std::string_view rest(text);
  for (;;) {
    size_t bar = rest.find('|');
    std::string tok = upper(trim(rest.substr(0, bar)));
    tok = std::string(without_prefix(tok, "WAYSHUNT_ACL_FLAG_"));
    bool named = false;
    for (const Named &n : kFlags)
      if (tok == n.name) flags |= n.value, named = true;
    if (!named) {
      try {
        flags |= static_cast<uint32_t>(parse_number(tok, UINT32_MAX));
      } catch (const std::invalid_argument &) {
        throw std::invalid_argument("unknown flag '" + tok +
                                    "' (names: PGM_PENDING PGM_BUSY ISL PHYSICAL VIRTUAL VW FO DROP_ALL, or a number)");
      }
    }
    if (bar == std::string_view::npos) return flags;
    rest.remove_prefix(bar + 1);
  }
}

std::string format_if_index(uint32_t i) {
  if (IF_INDEX_IS_FC(i)) return "fc" + std::to_string(IF_INDEX_FC_SLOT(i)) + "/" + std::to_string(IF_INDEX_FC_PORT(i));
  if (IF_INDEX_IS_PORT_CHANNEL(i)) return "port-channel" + std::to_string(IF_INDEX_PORT_CHANNEL_NUM(i));
  if (IF_INDEX_IS_VIRTUAL(i)) return "virtual" + std::to_string(IF_INDEX_VIRTUAL_NUM(i));
  return format_hex32(i);
}

uint32_t parse_if_index(const std::string &raw) {
  std::string_view t = trim(raw);
  auto in = [](uint32_t v, uint32_t lo, uint32_t hi, const std::string &what) {
    if (v < lo || v > hi)
      throw std::invalid_argument(what + " " + std::to_string(v) + " out of range " + std::to_string(lo) + ".." +
                                  std::to_string(hi));
    return v;
  };
  if (t.substr(0, 2) == "fc") {
    size_t slash = t.find('/');
    if (slash == std::string_view::npos) throw std::invalid_argument("'" + raw + "' is not fc<slot>/<port>");
    uint32_t slot = in(small_number(t.substr(2, slash - 2), "slot"), 1, IF_INDEX_FC_MAX_SLOT, "slot");
    uint32_t port = in(small_number(t.substr(slash + 1), "port"), 1, IF_INDEX_FC_MAX_PORT, "port");
    return IF_INDEX_FC(slot, port);
  }
  if (t.substr(0, 12) == "port-channel")
    return IF_INDEX_PORT_CHANNEL(in(small_number(t.substr(12), "port-channel"), 1, 256, "port-channel"));
  if (t.substr(0, 7) == "virtual")
    return IF_INDEX_VIRTUAL(in(small_number(t.substr(7), "virtual"), 1, 65536, "virtual interface"));
  try {
    return static_cast<uint32_t>(parse_number(std::string(t), UINT32_MAX));
  } catch (const std::invalid_argument &) {
    throw std::invalid_argument("'" + raw + "' is not an interface (fc3/12, port-channel5, virtual7 or a number)");
  }
}

std::string format_fcid(const uint8_t *b) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%06x", static_cast<unsigned>(b[0]) << 24 | b[1] << 16 | b[2] << 8 | b[3]);
  return buf;
}

void parse_fcid(const std::string &text, uint8_t *out) {
  uint32_t v = static_cast<uint32_t>(parse_number(text, UINT32_MAX));
  for (int i = 0; i < 4; ++i) out[i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

std::string format_hex32(uint32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08x", v);
  return buf;
}

std::string format_hex64(uint64_t v) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "0x%016llx", static_cast<unsigned long long>(v));
  return buf;
}

uint64_t parse_number(const std::string &raw, uint64_t max) {
  std::string_view t = trim(raw);
  bool hex = t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X');
  std::string_view digits = hex ? t.substr(2) : t;
  if (digits.empty() || digits.size() > (hex ? 16u : 20u)) throw std::invalid_argument("'" + raw + "' is not a number");
  uint64_t v = 0;
  for (char c : digits) {
    int d = hex ? hex_digit(c) : (std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : -1);
    if (d < 0) throw std::invalid_argument("'" + raw + "' is not a number");
    uint64_t base = hex ? 16 : 10;
    if (v > (UINT64_MAX - static_cast<uint64_t>(d)) / base) throw std::invalid_argument("'" + raw + "' is too large");
    v = v * base + static_cast<uint64_t>(d);
  }
  if (v > max) throw std::invalid_argument("'" + raw + "' is larger than " + std::to_string(max));
  return v;
}

std::string shell_word(const std::string &text) {
  static const std::string kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./:,+=@%";
  if (!text.empty() && text.find_first_not_of(kPlain) == std::string::npos) return text;
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

std::string to_hex(const uint8_t *bytes, size_t n) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  out.reserve(n * 2);
  for (size_t i = 0; i < n; ++i) {
    out += digits[bytes[i] >> 4];
    out += digits[bytes[i] & 15];
  }
  return out;
}

std::string to_hex(const Bytes &bytes) { return to_hex(bytes.data(), bytes.size()); }

Bytes from_hex(const std::string &text) {
  if (text.size() % 2) throw std::invalid_argument("hex text has an odd number of digits");
  Bytes out(text.size() / 2);
  for (size_t i = 0; i < out.size(); ++i) {
    int hi = hex_digit(text[2 * i]), lo = hex_digit(text[2 * i + 1]);
    if (hi < 0 || lo < 0) throw std::invalid_argument("'" + text + "' is not hex");
    out[i] = static_cast<uint8_t>(hi << 4 | lo);
  }
  return out;
}

}  // namespace wsc
