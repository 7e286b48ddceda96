// The child that runs a move's entry points, and what it tells its parent:
// one JSON object a line on a pipe ({"start": step}, {"step": result} or
// {"error": reason}), so that the parent knows which call is running and
// gets each result as it ends.
#include "device/conversion_run.h"

#include <execinfo.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "device/fault_option.h"
#include "plat_ctl.h"
#include "records/json_codec.h"
#include "tool_error.h"
#include "wayshunt_cnv.h"

namespace wsc {

namespace {

std::string read_from(const std::string &path, std::uintmax_t offset) {
  std::ifstream f(path, std::ios::binary);
  if (!f) return "";
  f.seekg(static_cast<std::streamoff>(offset));
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

std::uintmax_t size_of(const std::string &path) {
  std::error_code ec;
  std::uintmax_t n = std::filesystem::file_size(path, ec);
  return ec ? 0 : n;
}

Json result_json(const StepResult &s) {
  return {{"step", static_cast<int>(s.step)}, {"call", s.call},   {"status", s.status}, {"status_text", s.status_text},
          {"standby", s.standby},             {"log", s.log},     {"seconds", s.seconds}};
}

StepResult result_from(const Json &j) {
  StepResult s;
  s.step = static_cast<Step>(j.at("step").get<int>());
  s.call = j.at("call");
  s.status = j.at("status");
  s.status_text = j.at("status_text");
  s.standby = j.at("standby").get<std::vector<std::string>>();
  s.log = j.at("log");
  s.seconds = j.at("seconds");
  return s;
}

void tell(FILE *to_parent, const Json &j) {
  std::string line = j.dump() + "\n";
  std::fwrite(line.data(), 1, line.size(), to_parent);
  std::fflush(to_parent);
}

StepResult call_step(ConversionLibrary &lib, const DeviceImage &img, Step step, const std::string &from,
                     const std::string &to) {
  StepResult r;
  r.step = step;
  std::uintmax_t log_start = size_of(img.log_file());
  FileSet standby_before = files_below(img.standby());
  auto start = std::chrono::steady_clock::now();
  r.status = lib.call(step, from, to, r.call);
  r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  r.status_text = lib.status_text(r.status);
  r.standby = file_changes(standby_before, files_below(img.standby()), "");
  r.log = read_from(img.log_file(), log_start);
  return r;
}

// Where a signal met the child: its stack of return addresses, written to
// the parent before the child ends as the signal says. The parent, into
// which the library was loaded before the fork, names the rung from them.
int g_report_fd = -1;

char *put_hex(char *p, uintptr_t v) {
  char digits[2 * sizeof v];
  int n = 0;
  do digits[n++] = "0123456789abcdef"[v & 15];
  while (v >>= 4);
  while (n) *p++ = digits[--n];
  return p;
}

extern "C" void tell_where(int sig) {
  void *frames[64];
  int n = backtrace(frames, 64);  // warmed up in the child: no allocation here
  char line[64 * 20 + 64], *p = line;
  for (const char *head = "{\"signal\":\""; *head;) *p++ = *head++;
  p = put_hex(p, static_cast<uintptr_t>(sig));
  for (const char *mid = "\",\"frames\":["; *mid;) *p++ = *mid++;
  for (int i = 0; i < n; ++i) {
    if (i) *p++ = ',';
    *p++ = '"';
    p = put_hex(p, reinterpret_cast<uintptr_t>(frames[i]));
    *p++ = '"';
  }
  *p++ = ']', *p++ = '}', *p++ = '\n';
  if (write(g_report_fd, line, static_cast<size_t>(p - line)) < 0) {
  }
  signal(sig, SIG_DFL);
  raise(sig);
}

// The child ends on SIGINT and SIGTERM as an upgrade manager's process
// would, after telling where they met it.
void tell_where_on_signals(int fd) {
  void *warm[4];
  backtrace(warm, 4);  // its first call loads the unwinder
  g_report_fd = fd;
  struct sigaction sa = {};
  sa.sa_handler = tell_where;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
}

// The child's whole life; never returns.
[[noreturn]] void child(ConversionLibrary &lib, const DeviceImage &img, const std::string &from, const std::string &to,
                        const std::vector<Step> &steps, const ConversionSetup &setup, FILE *to_parent) {
  int code = 0;
  try {
    prepare_move(img, from, to);
    enter_device_root(img);
    arm_faults(setup.faults, setup.env_faults);
    plat_journal_set(setup.journal.empty() ? nullptr : setup.journal.c_str());
    for (Step step : steps) {
      tell(to_parent, {{"start", static_cast<int>(step)}});
      StepResult r = call_step(lib, img, step, from, to);
      tell(to_parent, {{"result", result_json(r)}});
      if (r.status != 0) break;
    }
  } catch (const std::exception &e) {
    tell(to_parent, {{"error", e.what()}});
    code = 2;
  }
  plat_journal_set(nullptr);
  std::fclose(to_parent);
  _exit(code);  // nothing of the parent's (buffers, exit handlers) runs twice
}

std::string death(int status, const std::vector<StepResult> &done, int running, const std::string &rung) {
  std::string why = WIFSIGNALED(status) ? "was killed by signal " + std::to_string(WTERMSIG(status)) + " (" +
                                              strsignal(WTERMSIG(status)) + ")"
                                        : "ended with exit status " + std::to_string(WEXITSTATUS(status));
  if (running >= 0 && (done.empty() || static_cast<int>(done.back().step) != running))
    why += " during convert_" + step_name(static_cast<Step>(running)) + (rung.empty() ? "" : ", in " + rung);
  return "the conversion process " + why;
}

// The conversion processes running, for the signal handler: a fixed table
// of pids it can read without a lock.
constexpr int kMaxRunning = 8;
volatile sig_atomic_t g_running[kMaxRunning];
volatile sig_atomic_t g_caught = 0;

void add_running(int pid) {
  for (auto &slot : g_running)
    if (slot == 0) {
      slot = pid;
      return;
    }
}

void drop_running(int pid) {
  for (auto &slot : g_running)
    if (slot == pid) slot = 0;
}

extern "C" void pass_on(int sig) {
  g_caught = sig;
  for (auto &slot : g_running)
    if (slot > 0) kill(slot, sig);
}

struct sigaction g_old_int, g_old_term;

}  // namespace

InterruptGuard::InterruptGuard() {
  g_caught = 0;
  struct sigaction sa = {};
  sa.sa_handler = pass_on;
  sa.sa_flags = SA_RESTART;  // the reading of the child's reports goes on
  sigemptyset(&sa.sa_mask);
  sigaction(SIGINT, &sa, &g_old_int);
  sigaction(SIGTERM, &sa, &g_old_term);
}

InterruptGuard::~InterruptGuard() {
  sigaction(SIGINT, &g_old_int, nullptr);
  sigaction(SIGTERM, &g_old_term, nullptr);
}

int InterruptGuard::caught() { return g_caught; }

bool ConversionOutcome::ok() const {
  if (!died.empty()) return false;
  for (const StepResult &s : steps)
    if (s.status != 0) return false;
  return true;
}

ConversionChild::ConversionChild(ConversionLibrary &lib, const DeviceImage &img, const std::string &from,
                                 const std::string &to, const std::vector<Step> &steps, const ConversionSetup &setup)
    : lib_(lib) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) throw ToolError(std::string("cannot make a pipe: ") + std::strerror(errno));
  std::cout.flush();
  std::cerr.flush();
  // SIGINT and SIGTERM wait while the child starts: the child must not
  // meet them before it has its own handler, nor the parent before it
  // knows the child's pid to pass them on.
  sigset_t stop_signals, mask;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, &mask);
  pid_ = fork();
  if (pid_ < 0) {
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    close(fds[0]), close(fds[1]);
    throw ToolError(std::string("cannot start a process: ") + std::strerror(errno));
  }
  if (pid_ == 0) {
    close(fds[0]);
    tell_where_on_signals(fds[1]);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    child(lib, img, from, to, steps, setup, fdopen(fds[1], "w"));
  }
  close(fds[1]);
  add_running(pid_);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  from_child_ = fdopen(fds[0], "r");
}

ConversionChild::~ConversionChild() {
  if (pid_ <= 0) return;
  drop_running(pid_);
  kill(pid_, SIGKILL);
  int status;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  if (from_child_) std::fclose(from_child_);
}

ConversionOutcome ConversionChild::wait(const std::function<void(const StepResult &)> &on_step) {
  ConversionOutcome out;
  std::string error;
  int running = -1;
  char *line = nullptr;
  size_t cap = 0;
  for (;;) {
    errno = 0;
    if (getline(&line, &cap, from_child_) <= 0) {
      if (errno != EINTR) break;
      clearerr(from_child_);  // a signal met the read: the child has more to tell
      continue;
    }
    Json j = Json::parse(line, nullptr, false);
    if (j.contains("start")) running = j["start"].get<int>();
    if (j.contains("result")) {
      out.steps.push_back(result_from(j["result"]));
      if (on_step) on_step(out.steps.back());
    }
    if (j.contains("error")) error = j["error"];
    if (j.contains("frames")) {
      std::vector<uintptr_t> frames;
      for (const Json &f : j["frames"]) frames.push_back(std::stoull(f.get<std::string>(), nullptr, 16));
      out.rung = lib_.rung_at(frames);
    }
  }
  std::free(line);
  std::fclose(from_child_);
  from_child_ = nullptr;
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  drop_running(pid_);
  pid_ = -1;
  if (!error.empty()) throw ToolError(error);
  if (!(WIFEXITED(status) && WEXITSTATUS(status) == 0)) out.died = death(status, out.steps, running, out.rung);
  if (WIFSIGNALED(status)) out.signal = WTERMSIG(status);
  return out;
}

ConversionOutcome run_conversion(ConversionLibrary &lib, const DeviceImage &img, const std::string &from,
                                 const std::string &to, const std::vector<Step> &steps, const ConversionSetup &setup,
                                 const std::function<void(const StepResult &)> &on_step) {
  return ConversionChild(lib, img, from, to, steps, setup).wait(on_step);
}

void print_step(const StepResult &s, const DeviceImage &img, std::ostream &out) {
  char code[16];
  std::snprintf(code, sizeof code, "0x%08x", s.status);
  out << s.call << " = " << code << " (" << s.status_text << ")\n";
  if (!s.standby.empty()) {
    out << "  standby (" << img.standby() << "):\n";
    for (const std::string &line : s.standby) out << "    " << line << "\n";
  }
  if (!s.log.empty()) {
    out << "  conversion log (" << WAYSHUNT_CNV_LOG_PATH << "), written by this call:\n";
    std::istringstream lines(s.log);
    for (std::string line; std::getline(lines, line);)
      if (!line.empty()) out << "    " << line << "\n";
  }
  if (s.step == Step::startup && s.status == WAYSHUNT_CNV_HUB_BIND_FAILED)
    out << "  check the hub folder " << img.hub() << "\n";
  if (s.status != 0) out << "stopped: " << step_name(s.step) << " failed, as an upgrade manager stops the move\n";
}

}  // namespace wsc
