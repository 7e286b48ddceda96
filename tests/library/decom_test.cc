// Decommission and standby copy on a move below 3.2, through convert_startup
// and the exported steps, against the hub's listener program playing the
// running service and the folder playing the standby supervisor.
#include <signal.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

#include "cnv_env.h"
#include "hub_defs.h"
#include "plat_ctl.h"
#include "test_support.h"

using namespace cnv;
using testsupport::read_file;
namespace fs = std::filesystem;

namespace {

using Lines = std::vector<std::string>;
using Files = std::map<std::string, std::string>;

// The twelve files copied, in the order copied.
const std::vector<std::string> kFiles = [] {
  std::vector<std::string> out;
  for (const char *s : {"oper_cfg", "target_config", "pending_del_config", "tgt_cfg_v2"})
    for (const char *x : {".dat", ".kvs", ".map"}) out.push_back(std::string("wayshunt_") + s + x);
  return out;
}();
const std::set<int> kAll = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};

// The 128 request bytes: 0x44 at 0, 0x01 at 40, all else 0.
const std::string kRequestHex = "44" + std::string(78, '0') + "01" + std::string(174, '0');

const std::string kBind =
    "hub_bind(kind=1, sap=-1, flags=0x0, node=0x00000000, uuid=0, name=\"wayshunt downgarde session\") = ";
const std::string kSend = "hub_send(q=Q, node=0xfe000000, sap=225, opcode=4204, len=128, flags=0, rr_token=0) = ";
const std::string kToken = "hub_rr_token_get(state=1) = 0xT", kDrop = "hub_drop(q=Q, state=1, token=0xT) = 0";
const std::string kRecv = "hub_recv(q=Q, version=1, non_blocking=0, timeout=0, rr_token=0xT, opcode=4204) = ";
const std::string kUnbind = "hub_unbind(q=Q, flags=0) = 0";
const std::string kInjected = "40000001 (platform: injected fault)";

std::string gsync_call(int i, const char *result) {
  std::string p = "/mnt/kvs/" + kFiles[i];
  return "overseercmn_file_gsync(q=Q, timeout_s=60, uuid=419, src=\"" + p + "\", dst=\"" + p +
         "\", replace=1, 0, 0, 0, 0) = " + result;
}

// The service's files under /mnt/kvs (each with its own content, or none),
// and an empty standby.
Files put_files(bool present) {
  Files want;
  fs::remove_all(Env::get().standby + "/mnt");
  for (const auto &f : kFiles) {
    fs::remove(Env::get().mnt_kvs + "/" + f);
    if (present) testsupport::write_file(Env::get().mnt_kvs + "/" + f, want[f] = "data of " + f);
  }
  return want;
}

Files standby_files() {
  Files got;
  std::error_code ec;
  for (const auto &e : fs::directory_iterator(Env::get().standby + "/mnt/kvs", ec))
    got[e.path().filename().string()] = read_file(e.path().string());
  return got;
}

Files without(Files f, const std::set<int> &gone) {
  for (int i : gone) f.erase(kFiles[i]);
  return f;
}

retcode_t startup(const char *from = "4.2(1)", const char *to = "3.1(1)") {
  set_move(from, to);
  auto f = Env::get().fn<retcode_t(char *, char *, char *, char *)>("convert_startup");
  std::string path = Env::get().store_dir, pkg = "wayshunt", t = "t", fr = "f";
  return f(path.data(), pkg.data(), t.data(), fr.data());
}

// The hub's listener program at point 225, answering opcode 4204 or not.
class Listener {
 public:
  explicit Listener(bool answers) {
    Lines argv = {testsupport::bin_dir() + "/plat-hub-listener", "--sap", "225", "--opcode", "4204",
                  "--record", dir_ / "record", "--ready", dir_ / "ready"};
    if (!answers) argv.push_back("--no-reply");
    child_ = std::make_unique<testsupport::Child>(argv, dir_ / "out");
    EXPECT_TRUE(testsupport::wait_for_path(dir_ / "ready", 10000)) << read_file(dir_ / "out");
  }
  // Stops the listener; what it received, one line per message.
  std::string stop() {
    child_->stop(SIGTERM);
    return read_file(dir_ / "record");
  }

 private:
  testsupport::TempDir dir_;
  std::unique_ptr<testsupport::Child> child_;
};

// Replaces each from in l that no further hex digit follows.
void name_all(std::string &l, const std::string &from, const std::string &to) {
  for (size_t p = 0; (p = l.find(from, p)) != std::string::npos;) {
    size_t end = p + from.size();
    if (end < l.size() && std::isxdigit(static_cast<unsigned char>(l[end]))) {
      p = end;
      continue;
    }
    l.replace(p, from.size(), to);
    p += to.size();
  }
}

// The hub and standby calls of the journal, with the bound queue, its point
// and the request's token written Q, S and T, so that a line shows whether
// it names the same queue and token as the others.
class Journal {
 public:
  Journal() { EXPECT_EQ(plat_journal_set((dir_ / "journal").c_str()), 0); }
  ~Journal() { plat_journal_set(nullptr); }
  Lines calls() {
    Lines out;
    std::istringstream in(read_file(dir_ / "journal"));
    int q, s;
    for (std::string l; std::getline(in, l);) {
      if (l.rfind("hub_", 0) != 0 && l.rfind("overseercmn_", 0) != 0) continue;
      size_t r = l.rfind(") = ");
      if (l.rfind("hub_bind(", 0) == 0 && std::sscanf(l.c_str() + r, ") = %d sap=%d", &q, &s) == 2)
        q_ = std::to_string(q), s_ = std::to_string(s);
      if (l.rfind("hub_send(", 0) == 0 && (r = l.rfind(" token=0x")) != std::string::npos)
        t_ = std::stoul(l.substr(r + 9), nullptr, 16);
      out.push_back(l);
    }
    for (auto &l : out) l = with_names(l);
    return out;
  }
  std::string with_names(std::string l) const {
    if (!q_.empty()) {
      name_all(l, "= " + q_ + " sap=" + s_, "= Q sap=S");
      name_all(l, "q=" + q_, "q=Q");
      name_all(l, "/" + s_, "/S");
    }
    char token[16];
    for (const char *form : {"0x%x", "0x%08x"}) {  // the listener pads, the journal does not
      std::snprintf(token, sizeof token, form, t_);
      if (t_) name_all(l, token, "0xT");
    }
    return l;
  }

 private:
  testsupport::TempDir dir_;
  std::string q_, s_;
  unsigned long t_ = 0;
};

std::string trace(const std::string &s) { return Env::get().gate_open ? s : ""; }

// The whole log of convert_startup from 4.2(1) to 3.1(1) around body.
std::string startup_log(const std::string &body) {
  std::string all =
      trace("wayshunt_cnv_log_init():N file opened sucessfully at <time>\n\n"
            "convert_startup():N wayshunt convert_startup invoked\n"
            "convert_startup():N pkg_name: wayshunt, path = " + Env::get().store_dir + ", to = t, from = f\n"
            "wayshunt_cnv_read_versions():N to_ver = 3.1(1), from_ver = 4.2(1)\n"
            "wayshunt_cnv_read_versions():N from_major = 4, from_minor = 2, to_major = 3, to_minor = 1\n") +
      body;
  return all.empty() ? "" : all + "wayshunt_cnv_log_cleanup():N file Closed at <time>\n\n";
}

// What a bound decommission logs: the exchange's error record, if any, and
// one copy trace pair per file, failed ones with the text why.
std::string decom_log(const std::string &error, const std::set<int> &failed = {}, const std::string &why = "") {
  std::string copies;
  for (int i = 0; i < 12; i++) {
    std::string head = "wayshunt_cnv_sync_file_to_standby():N ", p = "/mnt/kvs/" + kFiles[i];
    copies += head + "gSyncing File - " + p + "\n" +
              (failed.count(i) ? head + "overseercmn_file_gsync FAILED - " + why + "\n"
                               : head + "GSYNC DONE for File " + p + "\n");
  }
  return trace("wayshunt_handle_downgrade():N HUB Bind Done\n"
               "wayshunt_cnv_decom_switch():N wayshunt 3.2 Decommissioning Switch\n") +
         error + trace("wayshunt_handle_downgrade():N Before Syncing KVS to Standby\n" + copies +
                       "wayshunt_handle_downgrade():N After Syncing KVS to Standby\n");
}

}  // namespace

// Which moves decommission: downgrades and equal releases to 3.1 or lower.
// Others leave the hub and the standby alone and say nothing of it, but for
// an upgrade's trace.
TEST(Decom, VersionTable) {
  CNV_REQUIRE();
  const struct {
    const char *from, *to;
    bool decom, upgrade;
  } cases[] = {
      {"4.2(1)", "3.1(1)", true, false},  {"4.2(1)", "2.5(3)", true, false},  {"4.2(1)", "1.0(1)", true, false},
      {"3.1(1)", "3.0(1)", true, false},  {"3.1(1)", "3.1(2)", true, false},  {"2.0(1)", "2.0(1)", true, false},
      {"4.2(1)", "3.2(1)", false, false}, {"4.2(1)", "3.3(1)", false, false}, {"5.0(1)", "4.1(3)", false, false},
      {"3.2(1)", "3.2(1)", false, false}, {"4.2(1)", "0.9(1)", false, false}, {"4.2(1)", "-1.0(1)", false, false},
      {"3.1(1)", "4.2(1)", false, true},  {"1.0(1)", "3.1(1)", false, true},  {"2.9(1)", "2.10(1)", false, true},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(c.from) + " -> " + c.to);
    testsupport::FaultScope faults;
    EXPECT_EQ(startup(c.from, c.to), 0u);
    EXPECT_EQ(plat_call_count("hub_bind"), c.decom ? 1u : 0u);
    EXPECT_EQ(plat_call_count("overseercmn_file_gsync"), c.decom ? 12u : 0u);
    std::string log = normalized(take_log());
    if (c.decom) continue;
    std::string own;
    std::istringstream in(log);
    for (std::string l; std::getline(in, l);) {
      for (const char *fn : {"wayshunt_handle_downgrade(", "wayshunt_cnv_decom_switch(", "wayshunt_cnv_sync_"}) {
        if (l.rfind(fn, 0) == 0) own += l + "\n";
      }
    }
    EXPECT_EQ(own, trace(c.upgrade ? "wayshunt_handle_downgrade():N Conversion NOT Needed\n" : "")) << log;
    if (!Env::get().gate_open) {
      EXPECT_EQ(log, "");
    }
  }
}

// Answered, unsent or unanswered, the request is followed by all twelve
// copies and the unbind, and convert_startup succeeds. Failed copies stop
// neither the later copies nor the unbind, and with the gate shut they leave
// no trace.
TEST(Decom, ExchangeThenCopies) {
  CNV_REQUIRE();
  enum Service { kNone, kAnswers, kSilent };
  const Lines answered = {kSend + "0 token=0xT", kToken, kDrop,
                          kRecv + "0 opcode=4204 token=0xT reply=1 from=0xfe000000/225 len=4"};
  const struct {
    const char *name;
    Service service;
    std::string error;
    Lines exchange;
    const char *faults = "";
    bool sources = true;
    std::set<int> failed = {};
    std::string why = kInjected;
  } cases[] = {
      {"answered", kAnswers, "", answered},
      {"nobody listens", kNone, "wayshunt_cnv_decom_switch():N \nError in Sending HUB Message - 2 (No such file or directory)\n",
       {kSend + "-1 errno=ENOENT"}},
      {"never answered", kSilent,
       "wayshunt_cnv_decom_switch():N \n***Error in Receiving hub msg - 110 (Connection timed out)\n",
       {kSend + "0 token=0xT", kToken, kDrop, kRecv + "-1 errno=ETIMEDOUT"}},
      {"first copy fails", kAnswers, "", answered, "overseercmn_file_gsync:1", true, {0}},
      {"fifth and last fail", kAnswers, "", answered, "overseercmn_file_gsync:5 overseercmn_file_gsync:12", true, {4, 11}},
      {"every copy fails", kAnswers, "", answered, "overseercmn_file_gsync", true, kAll},
      {"no file to copy", kAnswers, "", answered, "", false, kAll, "40600002 (overseer: source file missing)"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    testsupport::ScopedEnv wait("PLAT_HUB_WAIT_MS", c.service == kSilent ? "300" : "10000");
    Files files = put_files(c.sources);
    std::unique_ptr<Listener> service;
    if (c.service != kNone) service = std::make_unique<Listener>(c.service == kAnswers);
    testsupport::FaultScope faults;
    faults.add(c.faults);
    Journal journal;
    EXPECT_EQ(startup(), 0u);
    EXPECT_EQ(plat_call_count("overseercmn_file_gsync"), 12u);
    // An injected failure leaves the call out of the journal; a real one shows.
    Lines want = {kBind + "Q sap=S"};
    want.insert(want.end(), c.exchange.begin(), c.exchange.end());
    for (int i = 0; i < 12; i++)
      if (!c.sources || !c.failed.count(i)) want.push_back(gsync_call(i, c.sources ? "0x0" : "0x40600002"));
    want.push_back(kUnbind);
    EXPECT_EQ(journal.calls(), want);
    EXPECT_EQ(standby_files(), without(files, c.failed));
    EXPECT_EQ(normalized(take_log()), startup_log(decom_log(c.error, c.failed, c.why)));
    if (service) {
      EXPECT_EQ(journal.with_names(service->stop()),
                "opcode=4204 token=0xT from=0xfe000000/S len=128 data=" + kRequestHex + "\n");
    }
  }
}

// A failed bind is the one failure: nothing is sent, copied or unbound.
TEST(Decom, FailedBindStopsEverything) {
  CNV_REQUIRE();
  const struct {
    const char *name, *faults;
    bool hub_dir_is_file;
    std::string error;
    Lines calls;  // the injected failure leaves the bind out of the journal
  } cases[] = {
      {"hub folder is a file", "", true, "20", {kBind + "-1 errno=ENOTDIR"}},
      {"point taken", "hub_bind=EADDRINUSE", false, "98", {}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    put_files(true);
    testsupport::TempDir d;
    testsupport::write_file(d / "file", "");
    testsupport::ScopedEnv hub("PLAT_HUB_DIR", c.hub_dir_is_file ? (d / "file").c_str() : Env::get().hub_dir.c_str());
    testsupport::FaultScope faults;
    faults.add(c.faults);
    Journal journal;
    EXPECT_EQ(startup(), 16u);
    EXPECT_EQ(journal.calls(), c.calls);
    EXPECT_EQ(plat_call_count("hub_bind"), 1u);
    EXPECT_EQ(standby_files(), Files{});
    EXPECT_EQ(normalized(take_log()),
              startup_log("wayshunt_handle_downgrade():N \nHUB BIND Error " + c.error +
                          "convert_startup():N Handle Downgrade Failed"));
  }
}

// The exported steps by themselves: the decommission ignores its path, and
// the request and a single copy work on a queue the caller bound.
TEST(Decom, ExportedSteps) {
  CNV_REQUIRE();
  const Env &e = Env::get();
  auto handle = e.fn<retcode_t(char *)>("wayshunt_handle_downgrade");
  auto decom = e.fn<retcode_t(hub_q_handle_t)>("wayshunt_cnv_decom_switch");
  auto sync_one = e.fn<void(hub_q_handle_t, uchar *)>("wayshunt_cnv_sync_file_to_standby");
  ASSERT_TRUE(handle && decom && sync_one && e.sym("wayshunt_cnv_sync_kvs_to_standby"));
  Files files = put_files(true);
  Listener service(true);
  testsupport::FaultScope faults;
  set_move("4.2(1)", "2.1(1)");
  e.fn<uint32_t()>("wayshunt_cnv_read_versions")();
  EXPECT_EQ(handle(nullptr), 0u);
  EXPECT_EQ(plat_call_count("hub_unbind"), 1u);
  EXPECT_EQ(standby_files(), files);

  hub_q_handle_t q = hub_bind(HUB_Q_KIND_MSG, HUB_SAP_DYNAMIC, nullptr, "test");
  ASSERT_GE(q, 0);
  EXPECT_EQ(decom(q), 0u);
  testsupport::write_file(e.mnt_kvs + "/other.kvs", "other");
  std::string other = "/mnt/kvs/other.kvs";
  sync_one(q, reinterpret_cast<uchar *>(other.data()));
  EXPECT_EQ(read_file(e.standby + other), "other");
  EXPECT_EQ(hub_unbind(q, 0), 0);
  EXPECT_EQ(decom(q), 0u) << "a queue no longer bound: the send fails and is passed over";
  std::string record = service.stop();
  EXPECT_EQ(std::count(record.begin(), record.end(), '\n'), 2) << record;
  fs::remove(e.mnt_kvs + "/other.kvs");
  e.fn<void()>("wayshunt_cnv_log_cleanup")();  // no entry point closed the log
  EXPECT_NE(take_log().find("\nError in Sending HUB Message - 9 (Bad file descriptor)\n"), std::string::npos);
}
