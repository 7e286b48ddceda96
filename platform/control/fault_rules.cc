// Parsing of fault rule text: "<function>[:<when>][=<action>]" separated by
// ',' ';' or white space.
#include "fault_rules.h"

#include <cerrno>
#include <csignal>
#include <utility>
#include <cstdlib>
#include <cstring>

namespace plat {
namespace {

struct ErrnoName {
  const char *name;
  int value;
};

constexpr ErrnoName kErrnos[] = {
    {"EPERM", EPERM},       {"ENOENT", ENOENT},         {"EINTR", EINTR},         {"EIO", EIO},
    {"EBADF", EBADF},       {"EAGAIN", EAGAIN},         {"ENOMEM", ENOMEM},       {"EACCES", EACCES},
    {"EEXIST", EEXIST},     {"EINVAL", EINVAL},         {"EMFILE", EMFILE},       {"ENOSPC", ENOSPC},
    {"EPIPE", EPIPE},       {"EMSGSIZE", EMSGSIZE},     {"EADDRINUSE", EADDRINUSE}, {"ENOBUFS", ENOBUFS},
    {"ENOTCONN", ENOTCONN}, {"ECONNREFUSED", ECONNREFUSED}, {"ECONNRESET", ECONNRESET}, {"ETIMEDOUT", ETIMEDOUT},
    {"EHOSTUNREACH", EHOSTUNREACH},
};

// A whole unsigned number in decimal or 0x hex that fits 32 bits.
bool parse_u32(const std::string &s, uint32_t &v) {
  if (s.empty() || s[0] == '-' || s[0] == '+') return false;
  errno = 0;
  char *end = nullptr;
  unsigned long long n = std::strtoull(s.c_str(), &end, 0);
  if (errno || *end || n > UINT32_MAX) return false;
  v = static_cast<uint32_t>(n);
  return true;
}

bool parse_when(const std::string &w, FaultRule &r) {
  if (w == "*") return true;
  if (!w.empty() && w.back() == '+') {
    return parse_u32(w.substr(0, w.size() - 1), r.first) && r.first > 0;
  }
  if (auto dash = w.find('-'); dash != std::string::npos) {
    return parse_u32(w.substr(0, dash), r.first) && parse_u32(w.substr(dash + 1), r.last) && r.first > 0 &&
           r.last >= r.first;
  }
  if (!parse_u32(w, r.first) || r.first == 0) return false;
  r.last = r.first;
  return true;
}

bool parse_action(const std::string &a, plat_fault_t &f) {
  if (a == "null") {
    f = {PLAT_FAULT_NULL, 0};
    return true;
  }
  if (a == "empty") {
    f = {PLAT_FAULT_EMPTY, 0};
    return true;
  }
  for (const auto &[name, sig] : {std::pair{"SIGINT", SIGINT}, {"SIGTERM", SIGTERM}, {"SIGKILL", SIGKILL}}) {
    if (a == name) {
      f = {PLAT_FAULT_SIGNAL, static_cast<uint32_t>(sig)};
      return true;
    }
  }
  for (const auto &e : kErrnos) {
    if (a == e.name) {
      f = {PLAT_FAULT_STATUS, static_cast<uint32_t>(e.value)};
      return true;
    }
  }
  f.kind = PLAT_FAULT_STATUS;
  return parse_u32(a, f.value) && f.value != 0;
}

bool parse_rule(const std::string &tok, FaultRule &r, std::string &err) {
  std::string head = tok, action;
  if (auto eq = tok.find('='); eq != std::string::npos) {
    head = tok.substr(0, eq);
    action = tok.substr(eq + 1);
    if (!parse_action(action, r.fault)) {
      err = "rule '" + tok + "': action '" + action + "' is not a non-zero number, an errno name, a signal (SIGINT, SIGTERM, SIGKILL), null or empty";
      return false;
    }
  }
  std::string when = "*";
  if (auto colon = head.find(':'); colon != std::string::npos) {
    when = head.substr(colon + 1);
    head = head.substr(0, colon);
  }
  if (head.empty()) {
    err = "rule '" + tok + "': no function name";
    return false;
  }
  r.func = head;
  if (!parse_when(when, r)) {
    err = "rule '" + tok + "': '" + when + "' is not N, N-M, N+ or * (calls count from 1)";
    return false;
  }
  return true;
}

}  // namespace

bool parse_fault_rules(const std::string &text, std::vector<FaultRule> &out, std::string &err) {
  std::vector<FaultRule> rules;
  size_t i = 0;
  while (i < text.size()) {
    size_t end = text.find_first_of(",; \t\n", i);
    if (end == std::string::npos) end = text.size();
    if (end > i) {
      FaultRule r;
      if (!parse_rule(text.substr(i, end - i), r, err)) return false;
      rules.push_back(std::move(r));
    }
    i = end + 1;
  }
  out.insert(out.end(), rules.begin(), rules.end());
  return true;
}

}  // namespace plat
