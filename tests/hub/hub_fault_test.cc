// Injected faults on every hub call fail it without side effects, and calls
// are journalled.
#include <functional>

#include "hub_test_util.h"
#include "plat_ctl.h"

namespace hubtest {
namespace {

constexpr int kA = 300, kB = 301;

TEST_F(HubTest, InjectedFaultsFailTheCallAndChangeNothing) {
  hub_q_handle_t a = bind(kA), b = bind(kB);
  send(a, kB, 5, "queued");
  hub_msg_ref_t held{};
  auto only5 = opts(0, 5);
  ASSERT_EQ(hub_recv(b, &held, &only5), 0);
  send(a, kB, 6, "still queued");
  hub_msg_info_t info{};
  auto recv_any = [&] {
    hub_msg_ref_t r{};
    return hub_recv(b, &r, nullptr);
  };
  auto waiting = [&](int opcode) {
    auto o = opts(0, opcode, 1);
    return recv(b, &o);
  };
  auto token_of_sent = [] {
    hub_msg_ref_t r{HUB_REF_SENT, nullptr, 0, 42, 0};
    return hub_rr_token_get(&r) == 0 ? -1 : 0;
  };
  struct Row {
    const char *rule;
    std::function<int()> call;
    int err;
    std::function<bool()> unchanged;
  } rows[] = {
      {"hub_bind", [] { return hub_bind(HUB_Q_KIND_MSG, 302, nullptr, "f"); }, EIO,
       [&] { return hub_unbind(bind(302), 0) == 0; }},
      {"hub_send=ECONNREFUSED", [&] { return hub_send(a, HUB_NODE_LOCAL_SUP, kB, 7, nullptr, 0, nullptr, 0, 0); },
       ECONNREFUSED, [&] { return waiting(7).err == EAGAIN; }},
      {"hub_recv=ETIMEDOUT", recv_any, ETIMEDOUT, [&] { return waiting(6).body == "still queued"; }},
      {"hub_drop", [&] { return hub_drop(b, &held); }, EIO, [&] { return hub_msg_info(&held, &info) == 0; }},
      {"hub_unbind=77", [&] { return hub_unbind(a, 0); }, 77, [&] { return send(a, kB, 8, "a still bound") != 0; }},
      {"hub_rr_token_get=EINVAL", token_of_sent, EINVAL, [] { return true; }},
  };
  for (const auto &r : rows) {
    faults_.add(r.rule);
    errno = 0;
    EXPECT_EQ(r.call(), -1) << r.rule;
    EXPECT_EQ(errno, r.err) << r.rule;
    plat_fault_reset();
    EXPECT_TRUE(r.unchanged()) << r.rule << ": the failed call had an effect";
  }
}

TEST_F(HubTest, CallsAreJournalled) {
  std::string journal = dir_ / "journal";
  ASSERT_EQ(plat_journal_set(journal.c_str()), 0);
  hub_q_handle_t a = bind(kA);
  uint32 token = send(a, kA, 4204, std::string(16, 'j'));
  plat_journal_set(nullptr);
  char want[256];
  std::snprintf(want, sizeof want,
                "hub_bind(kind=1, sap=300, options=null, name=\"test\") = %d sap=300\n"
                "hub_send(q=%d, node=0xfe000000, sap=300, opcode=4204, len=16, flags=0, rr_token=0) = 0 token=0x%x\n",
                a, a, token);
  EXPECT_EQ(testsupport::read_file(journal).substr(0, std::strlen(want)), want);
}

}  // namespace
}  // namespace hubtest
