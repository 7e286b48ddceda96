// Set-up shared by the hub tests: a private runtime directory, a short wait
// limit and clean fault rules for every test, and small send/receive helpers.
#ifndef TESTS_HUB_HUB_TEST_UTIL_H
#define TESTS_HUB_HUB_TEST_UTIL_H

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "hub_admin.h"
#include "hub_defs.h"
#include "test_support.h"

namespace hubtest {

using testsupport::ScopedEnv;
using testsupport::TempDir;

// Outcome of one receive: rc and errno, and a copy of what arrived.
struct Got {
  int rc = -1;
  int err = 0;
  std::string body;
  hub_msg_info_t info{};
};

class HubTest : public ::testing::Test {
 protected:
  ~HubTest() override {
    for (hub_q_handle_t q : bound_) hub_unbind(q, 0);
  }

  hub_q_handle_t bind(int sap, hub_bind_options_t *o = nullptr) {
    hub_q_handle_t q = hub_bind(HUB_Q_KIND_MSG, sap, o, "test");
    EXPECT_GE(q, 0) << "bind at " << sap << ": " << std::strerror(errno);
    if (q >= 0) bound_.push_back(q);
    return q;
  }

  // Sends a request (or with rr_token a reply) to sap of this supervisor;
  // returns the message's token, 0 on failure.
  static uint32 send(hub_q_handle_t q, int sap, int opcode, const std::string &body, uint32 rr_token = 0) {
    hub_msg_ref_t ref{};
    int flags = rr_token ? HUB_SEND_F_REPLY : 0;
    if (hub_send(q, HUB_NODE_LOCAL_SUP, sap, opcode, const_cast<char *>(body.data()), static_cast<uint32>(body.size()),
                 &ref, flags, static_cast<int>(rr_token)) != 0) {
      ADD_FAILURE() << "send to " << sap << ": " << std::strerror(errno);
      return 0;
    }
    return hub_rr_token_get(&ref);
  }

  // Receives with o and drops the message after copying it.
  static Got recv(hub_q_handle_t q, hub_recv_options_t *o) {
    Got g;
    hub_msg_ref_t ref{};
    g.rc = hub_recv(q, &ref, o);
    g.err = errno;
    if (g.rc != 0) return g;
    EXPECT_EQ(hub_msg_info(&ref, &g.info), 0);
    g.body.assign(static_cast<const char *>(ref.payload), g.info.len);
    EXPECT_EQ(hub_drop(q, &ref), 0);
    return g;
  }

  static hub_recv_options_t opts(uint32 rr_token = 0, int opcode = 0, int non_blocking = 0, int timeout = 0) {
    hub_recv_options_t o{};
    o.version = 1;
    o.rr_token = rr_token;
    o.opcode = opcode;
    o.non_blocking = non_blocking;
    o.timeout = timeout;
    return o;
  }

  // Leaves a stale socket file at sap: a child binds there and dies
  // without unbinding.
  static void leave_stale_point(int sap) {
    pid_t pid = fork();
    if (pid == 0) _exit(hub_bind(HUB_Q_KIND_MSG, sap, nullptr, "dies") >= 0 ? 0 : 1);
    int status = -1;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }

  TempDir dir_;
  ScopedEnv hub_dir_{"PLAT_HUB_DIR", dir_.path().c_str()};
  ScopedEnv wait_{"PLAT_HUB_WAIT_MS", "3000"};
  testsupport::FaultScope faults_;
  std::vector<hub_q_handle_t> bound_;
};

}  // namespace hubtest

#endif
