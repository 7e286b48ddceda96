// Decommission and standby copy on a move below 3.2, through convert_startup,
// against the hub's listener program playing the running service and the
// folder playing the standby supervisor. Each case's outcome (status, hub and
// standby calls, the files on the standby, what the service received, the
// log) is compared with its golden file, as in golden_test.cc.
#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>

#include "cnv_env.h"
#include "plat_ctl.h"
#include "test_support.h"
#include "wayshunt_stored_files.h"

using namespace cnv;
namespace fs = std::filesystem;

namespace {

// The service's files under /mnt/kvs, each with its own content (or none),
// and an empty standby.
void put_files(bool present) {
  fs::remove_all(Env::get().standby + "/mnt");
  for (const char *path : wayshunt_stored_files) {
    std::string f = Env::get().mnt_kvs + "/" + fs::path(path).filename().string();
    fs::remove(f);
    if (present) testsupport::write_file(f, std::string("data of ") + path);
  }
}

std::string standby_files() {
  std::string out;
  std::error_code ec;
  std::vector<fs::path> files;
  for (const auto &e : fs::directory_iterator(Env::get().standby + "/mnt/kvs", ec)) files.push_back(e.path());
  std::sort(files.begin(), files.end());
  for (const auto &f : files) out += f.filename().string() + ": " + testsupport::read_file(f) + "\n";
  return out;
}

retcode_t startup(const char *from, const char *to) {
  set_move(from, to);
  auto f = Env::get().fn<retcode_t(char *, char *, char *, char *)>("convert_startup");
  std::string path = Env::get().store_dir, pkg = "wayshunt", t = "t", fr = "f";
  return f(path.data(), pkg.data(), t.data(), fr.data());
}

// The hub and standby lines of a journal and the service's record, with the
// bound queue, its point and the request's token written Q, S and T.
std::string named(std::string text, const std::string &journal) {
  int q = -1, s = -1;
  unsigned t = 0;
  size_t at = journal.find("hub_bind(");
  if (at != std::string::npos) std::sscanf(journal.c_str() + journal.find(") = ", at), ") = %d sap=%d", &q, &s);
  if ((at = journal.find(" token=0x")) != std::string::npos) t = std::stoul(journal.substr(at + 9), nullptr, 16);
  char tok[2][16];
  std::snprintf(tok[0], 16, "0x%08x", t);
  std::snprintf(tok[1], 16, "0x%x", t);
  std::string from[] = {"q=" + std::to_string(q) + ",", "= " + std::to_string(q) + " sap=" + std::to_string(s),
                        "/" + std::to_string(s) + " ", tok[0], tok[1]};
  std::string to[] = {"q=Q,", "= Q sap=S", "/S ", "0xT", "0xT"};
  for (int i = 0; i < 5; i++)
    if (q >= 0 && (i < 3 || t))
      for (size_t p = 0; (p = text.find(from[i], p)) != std::string::npos; p += to[i].size())
        text.replace(p, from[i].size(), to[i]);
  return text;
}

struct Case {
  const char *name, *from, *to;
  int service;  // 0 none, 1 answers, 2 never answers
  const char *faults = "";
  bool sources = true, hub_dir_is_file = false;
};

std::string outcome(const Case &c) {
  testsupport::TempDir d;
  put_files(c.sources);
  testsupport::write_file(d / "file", "");
  testsupport::ScopedEnv hub("PLAT_HUB_DIR", c.hub_dir_is_file ? (d / "file").c_str() : Env::get().hub_dir.c_str());
  testsupport::ScopedEnv wait("PLAT_HUB_WAIT_MS", c.service == 2 ? "300" : "10000");
  std::unique_ptr<testsupport::Child> service;
  if (c.service) {
    std::vector<std::string> argv = {testsupport::bin_dir() + "/plat-hub-listener", "--sap", "225", "--opcode",
                                     "4204", "--record", d / "record", "--ready", d / "ready"};
    if (c.service == 2) argv.push_back("--no-reply");
    service = std::make_unique<testsupport::Child>(argv, d / "out");
    EXPECT_TRUE(testsupport::wait_for_path(d / "ready", 10000)) << testsupport::read_file(d / "out");
  }
  testsupport::FaultScope faults;
  faults.add(c.faults);
  plat_journal_set((d / "journal").c_str());
  retcode_t rc = startup(c.from, c.to);
  plat_journal_set(nullptr);
  if (service) service->stop(SIGTERM);
  std::string journal = testsupport::read_file(d / "journal"), calls;
  std::istringstream in(journal);
  for (std::string l; std::getline(in, l);)
    if (l.rfind("hub_", 0) == 0 || l.rfind("overseercmn_", 0) == 0) calls += l + "\n";
  std::string log = normalized(take_log());
  for (size_t at; (at = log.find(Env::get().root)) != std::string::npos;) log.replace(at, Env::get().root.size(), "<root>");
  return named("move " + std::string(c.from) + " -> " + c.to + (*c.faults ? std::string(", faults ") + c.faults : "") +
                   "\nstatus " + std::to_string(rc) + "\n-- calls\n" + calls + "-- standby\n" + standby_files() +
                   "-- service got\n" + testsupport::read_file(d / "record") + "-- log\n" + log,
               journal);
}

// Which moves decommission (downgrades and equal releases to 3.1 or lower),
// the exchange answered, unsent or unanswered, copies that fail, and a
// failed bind, the one failure that reaches the caller.
TEST(Decom, Cases) {
  CNV_REQUIRE();
  const Case cases[] = {
      {"answered", "4.2(1)", "3.1(1)", 1},
      {"nobody-listens", "4.2(1)", "3.1(1)", 0},
      {"never-answered", "4.2(1)", "3.1(1)", 2},
      {"copies-1-5-12-fail", "4.2(1)", "2.5(3)", 1, "overseercmn_file_gsync:1 overseercmn_file_gsync:5 overseercmn_file_gsync:12"},
      {"no-file-to-copy", "3.1(1)", "3.0(1)", 1, "", false},
      {"hub-folder-is-a-file", "4.2(1)", "1.0(1)", 0, "", true, true},
      {"point-taken", "2.0(1)", "2.0(1)", 1, "hub_bind=EADDRINUSE"},
      {"to-3.1-from-3.1", "3.1(1)", "3.1(2)", 0},
  };
  for (const Case &c : cases) expect_golden(std::string("decom-") + c.name + (Env::get().gate_open ? ".open" : ".shut"), outcome(c));
  // Moves that decommission nothing: no hub call, no copy.
  std::string moves;
  for (auto [from, to] : {std::pair{"4.2(1)", "3.2(1)"}, {"4.2(1)", "3.3(1)"}, {"5.0(1)", "4.1(3)"},
                          {"3.2(1)", "3.2(1)"}, {"4.2(1)", "0.9(1)"}, {"4.2(1)", "-1.0(1)"}, {"3.1(1)", "4.2(1)"},
                          {"1.0(1)", "3.1(1)"}, {"2.9(1)", "2.10(1)"}})
    moves += outcome({"", from, to, 0});
  expect_golden(std::string("decom-none.") + (Env::get().gate_open ? "open" : "shut"), moves);
}

}  // namespace
