// The hub across processes, through the plat-hub-listener program.
#include <signal.h>

#include <cstdio>
#include <memory>
#include <sstream>

#include "hub_test_util.h"

namespace hubtest {
namespace {

using testsupport::Child;

constexpr int kClient = 500;

class ListenerTest : public HubTest {
 protected:
  std::unique_ptr<Child> start(std::vector<std::string> extra = {}) {
    std::vector<std::string> argv{testsupport::bin_dir() + "/plat-hub-listener", "--record", record_, "--ready",
                                  ready_};
    argv.insert(argv.end(), extra.begin(), extra.end());
    auto child = std::make_unique<Child>(argv, log_);
    EXPECT_TRUE(testsupport::wait_for_path(ready_, 10000)) << testsupport::read_file(log_);
    return child;
  }

  std::vector<std::string> record_lines() {
    std::vector<std::string> lines;
    std::istringstream in(testsupport::read_file(record_));
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    return lines;
  }

  std::string record_ = dir_ / "record.log", ready_ = dir_ / "ready", log_ = dir_ / "listener.log";
};

std::string hex(const std::string &s) {
  std::string out;
  char b[3];
  for (unsigned char c : s) {
    std::snprintf(b, sizeof b, "%02x", c);
    out += b;
  }
  return out;
}

TEST_F(ListenerTest, RecordsEachRequestAndAnswersItsOpcode) {
  auto listener = start();
  hub_q_handle_t q = bind(kClient);
  EXPECT_EQ(hub_bind(HUB_Q_KIND_MSG, HUB_SAP_WAYSHUNT, nullptr, "taken"), -1) << "point of a live process";
  EXPECT_EQ(errno, EADDRINUSE);
  std::string big(128, '\0');
  for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7);
  struct Row {
    int opcode;
    std::string body;
    bool answered;
  } rows[] = {{4204, big, true}, {77, "abc", false}, {4204, "", true}, {4204, std::string(64 * 1024, 'm'), true}};
  std::vector<std::string> want;
  for (const auto &r : rows) {
    ScopedEnv wait("PLAT_HUB_WAIT_MS", r.answered ? "5000" : "200");
    uint32 token = send(q, HUB_SAP_WAYSHUNT, r.opcode, r.body);
    auto o = opts(token);
    Got g = recv(q, &o);
    if (r.answered) {
      ASSERT_EQ(g.rc, 0) << r.opcode << ": " << std::strerror(g.err);
      EXPECT_EQ(g.body, std::string(4, '\0'));
      EXPECT_EQ(g.info.opcode, r.opcode);
      EXPECT_EQ(g.info.is_reply, 1);
      EXPECT_EQ(g.info.src_sap, HUB_SAP_WAYSHUNT);
    } else {
      EXPECT_EQ(g.err, ETIMEDOUT) << "opcode " << r.opcode << " answered";
    }
    char head[96];
    std::snprintf(head, sizeof head, "opcode=%d token=0x%08x from=0xfe000000/%d len=%zu data=", r.opcode, token,
                  kClient, r.body.size());
    want.push_back(head + hex(r.body));
  }
  EXPECT_EQ(listener->stop(SIGTERM), 0);
  EXPECT_EQ(record_lines(), want);
}

TEST_F(ListenerTest, AnswersUnlessToldNotTo) {
  struct Row {
    const char *what;
    std::vector<std::string> args;
    const char *env_faults;  // PLAT_FAULTS the listener inherits
    bool answered;
  } rows[] = {
      {"--no-reply", {"--no-reply"}, nullptr, false},
      {"its own failing send", {"--faults", "hub_send"}, nullptr, false},
      {"inherited fault rules ignored", {}, "hub_send", true},
  };
  ScopedEnv wait("PLAT_HUB_WAIT_MS", "300");
  hub_q_handle_t q = bind(kClient);
  for (const auto &r : rows) {
    unlink(ready_.c_str());
    unlink(record_.c_str());
    ScopedEnv faults("PLAT_FAULTS", r.env_faults);
    auto listener = start(r.args);
    uint32 token = send(q, HUB_SAP_WAYSHUNT, 4204, "need an answer");
    auto o = opts(token);
    Got g = recv(q, &o);
    EXPECT_EQ(g.rc == 0, r.answered) << r.what << ": " << std::strerror(g.err);
    EXPECT_EQ(g.rc == 0 ? 0 : g.err, r.answered ? 0 : ETIMEDOUT) << r.what;
    EXPECT_EQ(listener->stop(SIGTERM), 0) << r.what;
    EXPECT_EQ(record_lines().size(), 1u) << r.what << ": request not recorded";
  }
}

TEST_F(ListenerTest, ManyRequestsInFlightAllGetTheirReply) {
  auto listener = start();
  hub_q_handle_t q = bind(kClient);
  std::vector<uint32> tokens;
  for (int i = 0; i < 80; ++i) tokens.push_back(send(q, HUB_SAP_WAYSHUNT, 4204, std::string(64, 'r')));
  for (auto it = tokens.rbegin(); it != tokens.rend(); ++it) {
    auto o = opts(*it);
    Got g = recv(q, &o);
    ASSERT_EQ(g.rc, 0) << std::strerror(g.err);
    EXPECT_EQ(g.info.token, *it);
  }
  auto o = opts(0, 0, 1);
  EXPECT_EQ(recv(q, &o).err, EAGAIN) << "more replies than requests";
}

TEST_F(ListenerTest, EndsAsToldAndReleasesItsPoint) {
  struct Row {
    const char *what;
    std::vector<std::string> args;
    int requests;
    bool signal;
  } rows[] = {{"after --count requests", {"--count", "2"}, 2, false}, {"on SIGTERM", {}, 0, true}};
  for (const auto &r : rows) {
    auto listener = start(r.args);
    hub_q_handle_t q = bind(kClient);
    for (int i = 0; i < r.requests; ++i) send(q, HUB_SAP_WAYSHUNT, 1, "x");
    int status = r.signal ? listener->stop(SIGTERM) : listener->wait(10000);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << r.what << ": status " << status;
    hub_msg_ref_t ref{};
    EXPECT_EQ(hub_send(q, HUB_NODE_LOCAL_SUP, HUB_SAP_WAYSHUNT, 1, nullptr, 0, &ref, 0, 0), -1) << r.what;
    EXPECT_EQ(errno, ENOENT) << r.what << ": socket file left behind";
    hub_unbind(q, 0);
    unlink(ready_.c_str());
  }
}

TEST_F(ListenerTest, RefusesBadUseWithOneLine) {
  hub_q_handle_t taken = bind(HUB_SAP_WAYSHUNT);
  std::vector<std::vector<std::string>> cases = {
      {"--sap", "70000"}, {"--bogus"}, {"--opcode", "x"}, {"--sap", "225"}, {"--faults", "hub_send:zz"}};
  for (const auto &args : cases) {
    unlink(log_.c_str());
    std::vector<std::string> argv{testsupport::bin_dir() + "/plat-hub-listener"};
    argv.insert(argv.end(), args.begin(), args.end());
    Child child(argv, log_);
    int status = child.wait(10000);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 0) << args[0] << ": status " << status;
    std::string err = testsupport::read_file(log_);
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
  }
  hub_unbind(taken, 0);
}

}  // namespace
}  // namespace hubtest
