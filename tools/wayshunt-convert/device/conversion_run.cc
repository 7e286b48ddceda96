// The child that runs a move's entry points, and what it tells its parent:
// one JSON object a line on a pipe ({"start": step}, {"step": result} or
// {"error": reason}), so that the parent knows which call is running and
// gets each result as it ends.
#include "device/conversion_run.h"

#include <fcntl.h>
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

std::string death(int status, const std::vector<StepResult> &done, int running) {
  std::string why = WIFSIGNALED(status) ? "was killed by signal " + std::to_string(WTERMSIG(status)) + " (" +
                                              strsignal(WTERMSIG(status)) + ")"
                                        : "ended with exit status " + std::to_string(WEXITSTATUS(status));
  if (running >= 0 && (done.empty() || static_cast<int>(done.back().step) != running))
    why += " during convert_" + step_name(static_cast<Step>(running));
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
                                 const std::string &to, const std::vector<Step> &steps, const ConversionSetup &setup) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) throw ToolError(std::string("cannot make a pipe: ") + std::strerror(errno));
  std::cout.flush();
  std::cerr.flush();
  pid_ = fork();
  if (pid_ < 0) {
    close(fds[0]), close(fds[1]);
    throw ToolError(std::string("cannot start a process: ") + std::strerror(errno));
  }
  if (pid_ == 0) {
    close(fds[0]);
    signal(SIGINT, SIG_DFL);  // the child ends on them as an upgrade manager's process would
    signal(SIGTERM, SIG_DFL);
    child(lib, img, from, to, steps, setup, fdopen(fds[1], "w"));
  }
  close(fds[1]);
  add_running(pid_);
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
  while (getline(&line, &cap, from_child_) > 0) {
    Json j = Json::parse(line, nullptr, false);
    if (j.contains("start")) running = j["start"].get<int>();
    if (j.contains("result")) {
      out.steps.push_back(result_from(j["result"]));
      if (on_step) on_step(out.steps.back());
    }
    if (j.contains("error")) error = j["error"];
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
  if (!(WIFEXITED(status) && WEXITSTATUS(status) == 0)) out.died = death(status, out.steps, running);
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
