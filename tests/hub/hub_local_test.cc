// Hub queues within one process: selecting messages, wait limits, points,
// and what unbind and drop release.
#include <algorithm>
#include <chrono>
#include <functional>

#include "hub_test_util.h"

namespace hubtest {
namespace {

constexpr int kA = 300, kB = 301;

TEST_F(HubTest, ReceiveSelectsByReplyTokenAndOpcodeAndKeepsTheRest) {
  hub_q_handle_t a = bind(kA), b = bind(kB);
  uint32 t0 = send(a, kB, 1, "req-1");
  EXPECT_NE(send(a, kB, 2, "req-2"), t0) << "request tokens repeat";
  send(a, kB, 7, "rep-x", 0x1234);
  send(a, kB, 7, "rep-t0", t0);  // a reply carrying the token of the first request
  struct Row {
    const char *what;
    uint32 rr_token;
    int opcode;
    const char *want;  // null: nothing selected (EAGAIN)
  } rows[] = {
      {"reply by token, not the request of that token", t0, 0, "rep-t0"},
      {"by opcode, skipping an earlier message", 0, 2, "req-2"},
      {"token and opcode together", 0x1234, 7, "rep-x"},
      {"opcode with nothing left", 0, 7, nullptr},
      {"anything: the kept message", 0, 0, "req-1"},
      {"anything on an empty queue", 0, 0, nullptr},
  };
  for (const auto &r : rows) {
    auto o = opts(r.rr_token, r.opcode, 1);
    Got g = recv(b, &o);
    if (r.want) {
      EXPECT_EQ(g.rc, 0) << r.what << ": " << std::strerror(g.err);
      EXPECT_EQ(g.body, r.want) << r.what;
    } else {
      EXPECT_EQ(g.rc, -1) << r.what << " got " << g.body;
      EXPECT_EQ(g.err, EAGAIN) << r.what;
    }
  }
}

TEST_F(HubTest, QueueHoldsMoreMessagesThanItsSocket) {
  hub_q_handle_t a = bind(kA), b = bind(kB);
  constexpr int kCount = 60;
  for (int i = 0; i < kCount; ++i) send(a, kB, 1, std::to_string(i));
  for (int i = 0; i < kCount; ++i) {
    auto o = opts(0, 0, 1);
    EXPECT_EQ(recv(b, &o).body, std::to_string(i)) << "arrival order";
  }
}

TEST_F(HubTest, BindTakesFreeAndStalePointsOnly) {
  bind(kA);
  leave_stale_point(kB);
  std::string missing = dir_ / "no/such/dir";
  struct Row {
    const char *what;
    int kind, sap;
    const char *hub_dir;  // null: the test's directory
    int err;              // 0: bound
  } rows[] = {
      {"free fixed point", HUB_Q_KIND_MSG, 303, nullptr, 0},
      {"point held by a live queue", HUB_Q_KIND_MSG, kA, nullptr, EADDRINUSE},
      {"stale point of a dead process", HUB_Q_KIND_MSG, kB, nullptr, 0},
      {"unknown kind", HUB_Q_KIND_MSG + 1, 304, nullptr, EINVAL},
      {"point above 0xffff", HUB_Q_KIND_MSG, 0x10000, nullptr, EINVAL},
      {"negative point", HUB_Q_KIND_MSG, -2, nullptr, EINVAL},
      {"runtime directory cannot be made", HUB_Q_KIND_MSG, 305, missing.c_str(), ENOENT},
  };
  for (const auto &r : rows) {
    ScopedEnv env("PLAT_HUB_DIR", r.hub_dir ? r.hub_dir : dir_.path().c_str());
    hub_q_handle_t q = hub_bind(r.kind, r.sap, nullptr, r.what);
    int err = errno;
    if (q >= 0) bound_.push_back(q);
    EXPECT_EQ(q >= 0 ? 0 : err, r.err) << r.what;
  }
  hub_q_handle_t a2 = bind(306);
  EXPECT_NE(send(a2, kB, 9, "to the reclaimed point"), 0u);
}

TEST_F(HubTest, SendersNameTheirPointDynamicOrAtAnotherNode) {
  hub_bind_options_t at_node{0, HUB_BIND_F_NODE, 0, 0, 0x2A000000u, 0};
  hub_q_handle_t server = bind(kA), other = bind(kB, &at_node);
  std::vector<int> seen;
  for (int i = 0; i < 4; ++i) {
    send(bind(HUB_SAP_DYNAMIC), kA, 1, "hi");
    Got g = recv(server, nullptr);
    EXPECT_TRUE(g.rc == 0 && g.info.src_node == HUB_NODE_LOCAL_SUP && g.info.src_sap >= 0x8000 &&
                g.info.src_sap <= 0xFFFF && std::count(seen.begin(), seen.end(), g.info.src_sap) == 0)
        << g.info.src_sap;
    seen.push_back(g.info.src_sap);
  }
  EXPECT_EQ(hub_send(server, HUB_NODE_LOCAL_SUP, kB, 1, nullptr, 0, nullptr, 0, 0), -1) << "found at the wrong node";
  ASSERT_EQ(hub_send(server, at_node.node, kB, 1, nullptr, 0, nullptr, 0, 0), 0) << std::strerror(errno);
  Got g = recv(other, nullptr);
  EXPECT_EQ(g.info.src_sap, kA);
}

TEST_F(HubTest, ReceiveWaitsAreBounded) {
  struct Row {
    const char *what;
    const char *limit_ms;
    int timeout, non_blocking, err;
    int min_ms, max_ms;
  } rows[] = {
      {"non-blocking", "3000", 0, 1, EAGAIN, 0, 100},
      {"hub wait limit", "200", 0, 0, ETIMEDOUT, 190, 1500},
      {"caller's shorter time-out", "3000", 100, 0, ETIMEDOUT, 95, 1500},
      {"hub limit under a longer time-out", "200", 5000, 0, ETIMEDOUT, 190, 1500},
  };
  hub_q_handle_t q = bind(kA);
  for (const auto &r : rows) {
    ScopedEnv env("PLAT_HUB_WAIT_MS", r.limit_ms);
    auto o = opts(0, 0, r.non_blocking, r.timeout);
    auto start = std::chrono::steady_clock::now();
    Got g = recv(q, &o);
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(g.rc, -1) << r.what;
    EXPECT_EQ(g.err, r.err) << r.what;
    EXPECT_GE(ms, r.min_ms) << r.what;
    EXPECT_LE(ms, r.max_ms) << r.what;
  }
}

// Runs call and expects it to fail at once with err.
void expect_refused(const char *what, const std::function<int()> &call, int err) {
  errno = 0;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(call(), -1) << what;
  EXPECT_EQ(errno, err) << what;
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000)) << what;
}

TEST_F(HubTest, RefusedSendsFailAtOnce) {
  ScopedEnv long_wait("PLAT_HUB_WAIT_MS", "5000");
  hub_q_handle_t a = bind(kA), gone = bind(303);
  bind(kB);
  leave_stale_point(304);
  ASSERT_EQ(hub_unbind(gone, 0), 0);
  std::string big(64 * 1024 + 1, 'x');
  struct Row {
    const char *what;
    hub_q_handle_t q;
    int sap, flags, rr_token;
    uint32 len;
    char *buf;
    int err;
  } rows[] = {
      {"no socket file", a, 302, 0, 0, 0, nullptr, ENOENT},
      {"socket of a dead process", a, 304, 0, 0, 0, nullptr, ECONNREFUSED},
      {"unbound handle", gone, kB, 0, 0, 0, nullptr, EBADF},
      {"point above 0xffff", a, 0x10000, 0, 0, 0, nullptr, EINVAL},
      {"reply without a token", a, kB, HUB_SEND_F_REPLY, 0, 0, nullptr, EINVAL},
      {"bytes without a buffer", a, kB, 0, 0, 4, nullptr, EINVAL},
      {"body over the hub's limit", a, kB, 0, 0, static_cast<uint32>(big.size()), big.data(), EMSGSIZE},
  };
  for (const auto &r : rows)
    expect_refused(
        r.what, [&] { return hub_send(r.q, HUB_NODE_LOCAL_SUP, r.sap, 1, r.buf, r.len, nullptr, r.flags, r.rr_token); },
        r.err);
}

TEST_F(HubTest, RefusedReceivesDropsAndUnbindsChangeNothing) {
  hub_q_handle_t a = bind(kA), b = bind(kB), gone = bind(303);
  ASSERT_EQ(hub_unbind(gone, 0), 0);
  send(a, kB, 1, "x");
  hub_msg_ref_t on_b{};
  ASSERT_EQ(hub_recv(b, &on_b, nullptr), 0);
  int dummy = 0;
  auto recv_lists = [&](hub_q_handle_t q, void *tokens, void *opcodes) {
    hub_msg_ref_t r{};
    auto o = opts();
    o.rr_token_list = tokens;
    o.opcode_list = opcodes;
    return hub_recv(q, &r, &o);
  };
  expect_refused(
      "receive on an unbound handle", [&] { return recv_lists(gone, nullptr, nullptr); }, EBADF);
  expect_refused(
      "receive with a token list", [&] { return recv_lists(b, &dummy, nullptr); }, EINVAL);
  expect_refused(
      "receive with an opcode list", [&] { return recv_lists(b, nullptr, &dummy); }, EINVAL);
  expect_refused(
      "unbind twice", [&] { return hub_unbind(gone, 0); }, EBADF);
  expect_refused(
      "unbind of a handle never given", [&] { return hub_unbind(-5, 0); }, EBADF);
  expect_refused(
      "drop of another queue's message", [&] { return hub_drop(a, &on_b); }, EINVAL);
  hub_msg_info_t info{};
  EXPECT_EQ(hub_msg_info(&on_b, &info), 0) << "the refused drop released the message";
}

TEST_F(HubTest, DropAndUnbindReleaseReceivedMessages) {
  hub_q_handle_t a = bind(kA), b = bind(kB);
  for (int i = 0; i < 5; ++i) send(a, kB, i + 1, "body " + std::to_string(i));
  hub_msg_ref_t kept[2]{}, dropped{};
  hub_msg_info_t info{};
  ASSERT_EQ(hub_recv(b, &dropped, nullptr), 0);
  ASSERT_EQ(hub_drop(b, &dropped), 0);
  EXPECT_EQ(dropped.state, HUB_REF_EMPTY);
  EXPECT_EQ(hub_rr_token_get(&dropped), 0u);
  auto by_opcode = opts(0, 4);
  ASSERT_EQ(hub_recv(b, &kept[0], &by_opcode), 0);  // leaves opcodes 2 and 3 in the backlog
  ASSERT_EQ(hub_recv(b, &kept[1], nullptr), 0);
  EXPECT_EQ(std::string(static_cast<char *>(kept[1].payload), 6), "body 1");
  EXPECT_EQ(hub_unbind(b, 0), 0);  // two messages held, one in the backlog, one unread
  for (auto &k : kept) EXPECT_EQ(hub_msg_info(&k, &info), -1) << "still held after unbind";
  hub_msg_ref_t ref{};
  EXPECT_EQ(hub_send(a, HUB_NODE_LOCAL_SUP, kB, 1, nullptr, 0, &ref, 0, 0), -1) << "point still there";
}

}  // namespace
}  // namespace hubtest
