// One bound hub queue: its socket, the messages read from the socket that no
// receive has taken yet (the backlog), messages of this process that found
// the socket full (the overflow), and the received messages whose payloads
// callers still hold.
#ifndef PLATCORE_HUB_QUEUE_H
#define PLATCORE_HUB_QUEUE_H

#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>

#include "hub_point.h"
#include "hub_wire.h"

namespace plat::hub {

// Only one thread at a time may send or receive on a queue. The overflow
// and the held payloads have a lock of their own, since other queues of the
// process add to the overflow and hub_msg_info() looks at every queue.
class Queue {
 public:
  Queue(std::string dir, uint32 node, uuid_t uuid);
  ~Queue();  // closes the socket and frees every message
  Queue(const Queue &) = delete;
  Queue &operator=(const Queue &) = delete;

  uint32 node() const { return node_; }
  int sap() const { return point_.sap; }
  uuid_t uuid() const { return uuid_; }
  const std::string &dir() const { return dir_; }

  // Binds the queue's socket at sap of its node (HUB_SAP_DYNAMIC: a free
  // point). 0 or an errno value (see bind_point()).
  int bind(int sap);

  // Removes the socket file, so nobody can send here any more.
  void unlink_point();

  // Sends hdr and hdr.len bytes of body to (node, sap) in this queue's
  // runtime directory; local is the queue bound there when it belongs to
  // this process, else null. Fails at once when nobody listens there. A
  // full socket of a local queue takes the message into its overflow (a
  // queue holds any number of messages); a full socket of another process
  // is waited for, up to the hub's wait limit. 0 or an errno value (EAGAIN
  // when the receiver stayed full).
  int send(uint32 node, int sap, const WireHeader &hdr, const void *body, Queue *local);

  // Takes the first message sel selects, from the backlog, the socket or
  // the overflow; messages read meanwhile that sel does not select join the
  // backlog. Waits up to limit_ms unless non_blocking. 0 or an errno value
  // (EAGAIN, ETIMEDOUT, ...).
  int receive(const Selector &sel, bool non_blocking, int limit_ms, Message &out);

  // Keeps m until release(); returns its payload address.
  void *hold(Message &&m);
  // Frees the held message at payload; false if it is not held here.
  bool release(const void *payload);
  // The header of the held message at payload; false if it is not held here.
  bool held_header(const void *payload, WireHeader &out) const;

 private:
  int read_one(Message &m);
  void drain();
  // Adds a message to the overflow; with only_if_busy, only when the
  // overflow already holds messages (so that one sender's messages stay in
  // order). True if added.
  bool add_overflow(const WireHeader &hdr, const void *body, bool only_if_busy);
  // Moves the overflow to the end of the backlog; false if it was empty.
  bool pull_overflow();

  BoundPoint point_;
  std::string dir_;
  uint32 node_;
  uuid_t uuid_;
  std::deque<Message> backlog_;
  mutable std::mutex mu_;  // guards overflow_ and held_
  std::deque<Message> overflow_;
  std::unordered_map<const void *, Message> held_;
};

}  // namespace plat::hub

#endif
