// The hub as the library and the operator's tool use it: a queue bound at a
// dynamic point sends a request to the service's point, takes the message's
// token, drops the sent message, receives the reply selected by token and
// opcode, and unbinds; the plat-hub-listener program plays the service.
// Faults and the journal of hub calls are in the platform fault table.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "hub_admin.h"
#include "hub_defs.h"
#include "test_support.h"

namespace {

using testsupport::ScopedEnv;

class Hub : public ::testing::Test {
 protected:
  ~Hub() override { hub_unbind(q_, 0); }

  // The listener at the service's point; extra arguments as given.
  std::unique_ptr<testsupport::Child> listener(std::vector<std::string> extra = {}) {
    unlink(ready_.c_str());
    std::vector<std::string> argv{testsupport::bin_dir() + "/plat-hub-listener", "--record", dir_ / "record",
                                  "--ready", ready_};
    argv.insert(argv.end(), extra.begin(), extra.end());
    auto child = std::make_unique<testsupport::Child>(argv, dir_ / "out");
    EXPECT_TRUE(testsupport::wait_for_path(ready_, 10000)) << testsupport::read_file(dir_ / "out");
    return child;
  }

  // One exchange as the library makes it: 0 and the reply's length, or -1
  // with errno.
  int exchange(int opcode, const std::string &body, uint32 *len, uint32 *token_out = nullptr) {
    hub_msg_ref_t sent{}, got{};
    if (hub_send(q_, HUB_NODE_LOCAL_SUP, HUB_SAP_WAYSHUNT, opcode, const_cast<char *>(body.data()),
                 static_cast<uint32>(body.size()), &sent, 0, 0) != 0)
      return -1;
    hub_recv_options_t o{};
    o.version = 1;
    o.rr_token = hub_rr_token_get(&sent);
    o.opcode = opcode;
    if (token_out) *token_out = o.rr_token;
    EXPECT_EQ(hub_drop(q_, &sent), 0);
    if (hub_recv(q_, &got, &o) != 0) return -1;
    hub_msg_info_t info{};
    EXPECT_EQ(hub_msg_info(&got, &info), 0);
    EXPECT_EQ(info.is_reply, 1);
    EXPECT_EQ(info.token, o.rr_token);
    *len = info.len;
    return 0;
  }

  testsupport::TempDir dir_;
  ScopedEnv hub_dir_{"PLAT_HUB_DIR", dir_.path().c_str()}, wait_{"PLAT_HUB_WAIT_MS", "3000"};
  testsupport::FaultScope faults_;
  std::string ready_ = dir_ / "ready";
  hub_q_handle_t q_ = hub_bind(HUB_Q_KIND_MSG, HUB_SAP_DYNAMIC, nullptr, "test");
};

// Each request is recorded and answered with the reply of its opcode; the
// answer of an earlier request waits while a later one is taken.
TEST_F(Hub, RequestsAreRecordedAndAnswered) {
  ASSERT_GE(q_, 0) << std::strerror(errno);
  auto service = listener({"--opcode", "4204"});
  EXPECT_EQ(hub_bind(HUB_Q_KIND_MSG, HUB_SAP_WAYSHUNT, nullptr, "taken"), -1);
  EXPECT_EQ(errno, EADDRINUSE) << "the point of a live process";
  uint32 len = 9, token = 0;
  ASSERT_EQ(exchange(4204, std::string(128, '\x44'), &len, &token), 0) << std::strerror(errno);
  EXPECT_EQ(len, 4u);
  ScopedEnv wait("PLAT_HUB_WAIT_MS", "200");
  EXPECT_EQ(exchange(77, "abc", &len), -1) << "another opcode is not answered";
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_EQ(service->stop(SIGTERM), 0);
  std::string rec = testsupport::read_file(dir_ / "record");
  char head[64];
  std::snprintf(head, sizeof head, "opcode=4204 token=0x%08x from=0xfe000000/", token);
  EXPECT_EQ(rec.rfind(head, 0), 0u) << rec;
  EXPECT_NE(rec.find(" len=128 data=" + std::string(256, '4') + "\nopcode=77 "), std::string::npos) << rec;
}

// What the library meets when the service is not there or does not answer:
// sends and receives fail with errno, at once or within the hub's limit.
TEST_F(Hub, AbsentOrSilentServiceFailsTheCall) {
  struct Row {
    const char *what;
    std::vector<std::string> args;  // listener arguments, or none at all
    bool started;
    int err;
  } rows[] = {{"no service", {}, false, ENOENT},
              {"--no-reply", {"--no-reply"}, true, ETIMEDOUT},
              {"service ended", {"--count", "0"}, true, ENOENT}};
  ScopedEnv wait("PLAT_HUB_WAIT_MS", "200");
  for (const auto &r : rows) {
    std::unique_ptr<testsupport::Child> service;
    if (r.started) service = listener(r.args);
    if (r.args == std::vector<std::string>{"--count", "0"}) service->stop(SIGTERM);
    uint32 len = 0;
    errno = 0;
    EXPECT_EQ(exchange(4204, "x", &len), -1) << r.what;
    EXPECT_EQ(errno, r.err) << r.what;
  }
}

// The listener refuses what it cannot do with one line and a failure.
TEST_F(Hub, ListenerRefusesBadUse) {
  for (std::vector<std::string> args : {std::vector<std::string>{"--sap", "70000"}, {"--bogus"}, {"--opcode", "x"}}) {
    args.insert(args.begin(), testsupport::bin_dir() + "/plat-hub-listener");
    unlink((dir_ / "bad").c_str());
    testsupport::Child child(args, dir_ / "bad");
    int status = child.wait(10000);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 0) << args[1];
    std::string err = testsupport::read_file(dir_ / "bad");
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
  }
}

}  // namespace
