// plat-hub-listener: stands in for a service bound at a hub point. It
// records every message it receives, one line each, and answers requests of
// one opcode with a short reply, so that tests can check what a client sent
// and let its request/reply exchange complete. It takes its journal and
// fault rules from the command line only.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "hub_admin.h"
#include "hub_defs.h"
#include "plat_ctl.h"
#include "wayshunt_cli.h"

namespace {

constexpr const char *kProg = "plat-hub-listener";
constexpr int kPollMs = 250;  // how often the receive loop looks for a stop signal

struct Options {
  int sap = HUB_SAP_WAYSHUNT;
  int opcode = WAYSHUNT_CLI_HUB_OPCODE;
  std::string record;  // empty: standard output
  bool no_reply = false;
  unsigned count = 0;  // 0: run until stopped
  std::string ready;
  std::string journal;  // empty: no journal
  std::string faults;
};

volatile sig_atomic_t g_stop = 0;

void on_signal(int) { g_stop = 1; }

void catch_stop_signals() {
  struct sigaction sa {};
  sa.sa_handler = on_signal;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGTERM, &sa, nullptr);
  sigaction(SIGINT, &sa, nullptr);
}

// Parses the command line; returns -1 to go on, else the exit code.
int parse(int argc, char **argv, Options &opt) {
  CLI::App app{"Binds a hub queue, records every message received on it and answers requests of one opcode.", kProg};
  app.add_option("--sap", opt.sap, "service access point to bind at (of this supervisor)")
      ->check(CLI::Range(0, 0xFFFF))
      ->capture_default_str();
  app.add_option("--opcode", opt.opcode, "opcode of the requests to answer")->capture_default_str();
  app.add_option("--record", opt.record, "file to append one line per received message to (default: stdout)");
  app.add_flag("--no-reply", opt.no_reply, "record requests but never answer them");
  app.add_option("--count", opt.count, "exit after this many messages (0: run until SIGTERM/SIGINT)")
      ->capture_default_str();
  app.add_option("--ready", opt.ready, "file to create once the queue is bound");
  app.add_option("--journal", opt.journal, "journal this program's hub calls to this file");
  app.add_option("--faults", opt.faults, "fault rules for this program's hub calls (PLAT_FAULTS syntax)");
  // The example binds where the service listens and answers its opcode.
  const std::string sap = std::to_string(HUB_SAP_WAYSHUNT), opcode = std::to_string(WAYSHUNT_CLI_HUB_OPCODE);
  app.footer(
      "Example:\n"
      "  PLAT_HUB_DIR=/tmp/hub plat-hub-listener --sap " + sap + " --opcode " + opcode + " --record /tmp/hub/req.log \\\n"
      "      --ready /tmp/hub/ready --count 1\n"
      "Record lines look like:\n"
      "  opcode=" + opcode + " token=0x1a2b3c4d from=0xfe000000/32771 len=4 data=01020304\n"
      "The hub's runtime directory comes from PLAT_HUB_DIR (see hub_admin.h). PLAT_JOURNAL and PLAT_FAULTS\n"
      "are ignored, since they are usually meant for the client that started this program: use --journal\n"
      "and --faults instead.");
  app.failure_message(
      [](const CLI::App *, const CLI::Error &e) { return std::string(kProg) + ": " + e.what() + "\n"; });
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &e) {
    return app.exit(e) == 0 ? 0 : 2;  // --help, or a usage error already reported
  }
  return -1;
}

// Replaces the journal and fault rules inherited through the environment
// by the ones of the command line. False (with a message) on a bad rule.
bool set_up_control(const Options &opt) {
  plat_journal_set(opt.journal.empty() ? nullptr : opt.journal.c_str());
  plat_fault_reset();
  if (opt.faults.empty() || plat_fault_add(opt.faults.c_str()) == 0) return true;
  std::fprintf(stderr, "%s: --faults: %s\n", kProg, plat_fault_error());
  return false;
}

std::string hex(const void *data, uint32 len) {
  static const char digits[] = "0123456789abcdef";
  const auto *p = static_cast<const unsigned char *>(data);
  std::string out;
  out.reserve(2 * static_cast<size_t>(len));
  for (uint32 i = 0; i < len; ++i) {
    out += digits[p[i] >> 4];
    out += digits[p[i] & 0xF];
  }
  return out;
}

// Writes the ready file whole (through a temporary name), so a waiter never
// reads it half-written. It holds the point bound at.
bool write_ready(const std::string &path, int sap) {
  std::string tmp = path + ".tmp";
  FILE *f = std::fopen(tmp.c_str(), "w");
  if (!f) return false;
  bool ok = std::fprintf(f, "%d\n", sap) > 0;
  ok = std::fclose(f) == 0 && ok;
  return ok && std::rename(tmp.c_str(), path.c_str()) == 0;
}

void record(FILE *out, const hub_msg_ref_t &ref, const hub_msg_info_t &info) {
  std::fprintf(out, "opcode=%d token=0x%08x from=0x%08x/%d len=%u data=%s%s\n", info.opcode,
               static_cast<unsigned>(info.token), static_cast<unsigned>(info.src_node), info.src_sap,
               static_cast<unsigned>(info.len), hex(ref.payload, info.len).c_str(), info.is_reply ? " reply" : "");
  std::fflush(out);
}

void answer(hub_q_handle_t q, const hub_msg_info_t &info) {
  unsigned char body[4] = {0, 0, 0, 0};
  hub_msg_ref_t sent{};
  if (hub_send(q, info.src_node, info.src_sap, info.opcode, body, sizeof body, &sent, HUB_SEND_F_REPLY,
               static_cast<int>(info.token)) != 0)
    std::fprintf(stderr, "%s: cannot answer 0x%08x/%d: %s\n", kProg, static_cast<unsigned>(info.src_node), info.src_sap,
                 std::strerror(errno));
}

// Receives until stopped or until opt.count messages. The exit code.
int serve(hub_q_handle_t q, const Options &opt, FILE *out) {
  unsigned seen = 0;
  while (!g_stop && (opt.count == 0 || seen < opt.count)) {
    hub_recv_options_t ro{};
    ro.version = 1;
    ro.timeout = kPollMs;
    hub_msg_ref_t ref{};
    if (hub_recv(q, &ref, &ro) != 0) {
      if (errno == ETIMEDOUT || errno == EINTR) continue;
      std::fprintf(stderr, "%s: receive failed: %s\n", kProg, std::strerror(errno));
      return 1;
    }
    hub_msg_info_t info{};
    if (hub_msg_info(&ref, &info) == 0) {
      record(out, ref, info);
      if (!info.is_reply && info.opcode == opt.opcode && !opt.no_reply) answer(q, info);
    }
    hub_drop(q, &ref);
    ++seen;
  }
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  Options opt;
  if (int rc = parse(argc, argv, opt); rc >= 0) return rc;
  if (!set_up_control(opt)) return 2;
  FILE *out = stdout;
  if (!opt.record.empty() && !(out = std::fopen(opt.record.c_str(), "a"))) {
    std::fprintf(stderr, "%s: cannot open record file %s: %s\n", kProg, opt.record.c_str(), std::strerror(errno));
    return 1;
  }
  catch_stop_signals();
  hub_q_handle_t q = hub_bind(HUB_Q_KIND_MSG, opt.sap, nullptr, kProg);
  if (q < 0) {
    std::fprintf(stderr, "%s: cannot bind at sap %d in %s: %s\n", kProg, opt.sap, hub_dir(), std::strerror(errno));
    return 1;
  }
  int rc = 0;
  if (!opt.ready.empty() && !write_ready(opt.ready, opt.sap)) {
    std::fprintf(stderr, "%s: cannot write ready file %s: %s\n", kProg, opt.ready.c_str(), std::strerror(errno));
    rc = 1;
  }
  if (rc == 0) rc = serve(q, opt, out);
  hub_unbind(q, 0);
  if (out != stdout) std::fclose(out);
  return rc;
}
