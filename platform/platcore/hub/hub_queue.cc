// Sending and receiving on a hub queue's datagram socket.
//
// The kernel keeps only a few datagrams waiting on a socket. Two things keep
// that from stalling the hub: a sender facing a full socket of another
// process takes in its own waiting messages while it retries (the receiver
// may be waiting to send to it), and a full socket of this process's own
// queue spills into that queue's overflow, which receive() reads once the
// socket is empty.
#include "hub_queue.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "hub_paths.h"

namespace plat::hub {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFullRetryMs = 5;  // pause between sends to a full receiver
constexpr int kWakeMs = 100;     // longest sleep before a receive looks at the overflow again

int ms_left(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left < 0 ? 0 : static_cast<int>(std::min<long long>(left, 1 << 30));
}

// Waits up to ms for fd to become readable. 0 or an errno value (EINTR
// counts as success: the caller looks again).
int wait_readable(int fd, int ms) {
  pollfd p{fd, POLLIN, 0};
  if (poll(&p, 1, ms) < 0 && errno != EINTR) return errno;
  return 0;
}

}  // namespace

Queue::Queue(std::string dir, uint32 node, uuid_t uuid) : dir_(std::move(dir)), node_(node), uuid_(uuid) {}

Queue::~Queue() {
  if (point_.fd >= 0) close(point_.fd);
}

int Queue::bind(int sap) { return bind_point(dir_, node_, sap, point_); }

void Queue::unlink_point() {
  if (point_.fd >= 0) unlink(point_.path.c_str());
}

int Queue::send(uint32 node, int sap, const WireHeader &hdr, const void *body, Queue *local) {
  if (local && local->add_overflow(hdr, body, true)) return 0;
  sockaddr_un addr;
  socklen_t addr_len;
  if (int err = unix_address(point_path(dir_, node, sap), addr, addr_len)) return err;
  iovec iov[2] = {{const_cast<WireHeader *>(&hdr), sizeof hdr}, {const_cast<void *>(body), hdr.len}};
  msghdr msg{};
  msg.msg_name = &addr;
  msg.msg_namelen = addr_len;
  msg.msg_iov = iov;
  msg.msg_iovlen = hdr.len ? 2 : 1;
  auto deadline = Clock::now() + std::chrono::milliseconds(wait_limit_ms());
  for (;;) {
    if (sendmsg(point_.fd, &msg, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) return 0;
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return errno;
    if (local) {
      local->add_overflow(hdr, body, false);
      return 0;
    }
    drain();
    int left = ms_left(deadline);
    if (left == 0) return EAGAIN;
    if (int err = wait_readable(point_.fd, std::min(left, kFullRetryMs))) return err;
  }
}

int Queue::read_one(Message &m) {
  ssize_t size = recv(point_.fd, nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
  if (size < 0) return errno;
  size_t body_len = static_cast<size_t>(size) > sizeof m.hdr ? static_cast<size_t>(size) - sizeof m.hdr : 0;
  m.body = std::make_unique<uint8_t[]>(body_len ? body_len : 1);
  iovec iov[2] = {{&m.hdr, sizeof m.hdr}, {m.body.get(), body_len}};
  msghdr msg{};
  msg.msg_iov = iov;
  msg.msg_iovlen = 2;
  ssize_t n = recvmsg(point_.fd, &msg, MSG_DONTWAIT);
  if (n < 0) return errno;
  if ((msg.msg_flags & MSG_TRUNC) || !valid_datagram(m.hdr, static_cast<size_t>(n))) return EBADMSG;
  return 0;
}

void Queue::drain() {
  for (;;) {
    Message m;
    int err = read_one(m);
    if (err == 0)
      backlog_.push_back(std::move(m));
    else if (err != EBADMSG && err != EINTR)
      return;
  }
}

bool Queue::add_overflow(const WireHeader &hdr, const void *body, bool only_if_busy) {
  Message m;
  m.hdr = hdr;
  m.body = std::make_unique<uint8_t[]>(hdr.len ? hdr.len : 1);
  if (hdr.len) std::memcpy(m.body.get(), body, hdr.len);
  std::lock_guard lock(mu_);
  if (only_if_busy && overflow_.empty()) return false;
  overflow_.push_back(std::move(m));
  return true;
}

bool Queue::pull_overflow() {
  std::lock_guard lock(mu_);
  if (overflow_.empty()) return false;
  for (auto &m : overflow_) backlog_.push_back(std::move(m));
  overflow_.clear();
  return true;
}

int Queue::receive(const Selector &sel, bool non_blocking, int limit_ms, Message &out) {
  auto deadline = Clock::now() + std::chrono::milliseconds(limit_ms);
  size_t scanned = 0;  // backlog entries known not to match
  for (;;) {
    auto hit = std::find_if(backlog_.begin() + static_cast<std::ptrdiff_t>(scanned), backlog_.end(),
                            [&](const Message &m) { return sel.matches(m.hdr); });
    if (hit != backlog_.end()) {
      out = std::move(*hit);
      backlog_.erase(hit);
      return 0;
    }
    scanned = backlog_.size();
    Message m;
    int err = read_one(m);
    if (err == 0 && sel.matches(m.hdr)) {
      out = std::move(m);
      return 0;
    }
    if (err == 0) backlog_.push_back(std::move(m));
    if (err == 0 || err == EBADMSG || err == EINTR) continue;  // EBADMSG: not a hub message, dropped
    if (err != EAGAIN) return err;
    if (pull_overflow()) continue;
    if (non_blocking) return EAGAIN;
    int left = ms_left(deadline);
    if (left == 0) return ETIMEDOUT;
    if (int werr = wait_readable(point_.fd, std::min(left, kWakeMs))) return werr;
  }
}

void *Queue::hold(Message &&m) {
  void *payload = m.body.get();
  std::lock_guard lock(mu_);
  held_.emplace(payload, std::move(m));
  return payload;
}

bool Queue::release(const void *payload) {
  std::lock_guard lock(mu_);
  return held_.erase(payload) == 1;
}

bool Queue::held_header(const void *payload, WireHeader &out) const {
  std::lock_guard lock(mu_);
  auto it = held_.find(payload);
  if (it == held_.end()) return false;
  out = it->second.hdr;
  return true;
}

}  // namespace plat::hub
