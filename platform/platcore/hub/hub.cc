// The hub's C interface: argument checks, fault injection and the journal
// around the queues of hub_queue.cc. Every call returns -1 with errno set on
// failure; no exception leaves this file.
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "hub_admin.h"
#include "hub_defs.h"
#include "hub_paths.h"
#include "hub_table.h"
#include "plat_hooks.h"

using plat::hub::Message;
using plat::hub::Queue;
using plat::hub::Selector;
using plat::hub::WireHeader;

namespace {

constexpr int kMaxSap = 0xFFFF;

// Fails a call as the injected fault says: errno is the fault's value, EIO
// by default.
int fault_errno(const plat_fault_t &f) { return f.value ? static_cast<int>(f.value) : EIO; }

const char *errname(int err) {
  const char *name = strerrorname_np(err);
  return name ? name : "?";
}

// Runs fn (returning 0 or an errno value), turning exceptions into errno
// values so that none crosses the C boundary.
template <typename Fn>
int guarded(Fn fn) {
  try {
    return fn();
  } catch (const std::bad_alloc &) {
    return ENOMEM;
  } catch (...) {
    return EIO;
  }
}

// A fresh request token, never 0: a per-process counter spread by the pid,
// so tokens of one process never repeat (until 2^32 requests) and tokens of
// different processes rarely meet.
uint32 new_token() {
  static std::atomic<uint32> counter{0};
  for (;;) {
    uint32 t = counter.fetch_add(1) + 1 + static_cast<uint32>(getpid()) * 0x9E3779B1u;
    if (t) return t;
  }
}

int finish(int err) {
  if (err == 0) return 0;
  errno = err;
  return -1;
}

int do_bind(int kind, int sap, const hub_bind_options_t *o, hub_q_handle_t &handle, int &bound_sap) {
  if (kind != HUB_Q_KIND_MSG) return EINVAL;
  if (sap != HUB_SAP_DYNAMIC && (sap < 0 || sap > kMaxSap)) return EINVAL;
  uint32 node = (o && (o->flags & HUB_BIND_F_NODE)) ? o->node : HUB_NODE_LOCAL_SUP;
  auto q = std::make_shared<Queue>(plat::hub::runtime_dir(), node, o ? o->uuid : 0);
  if (int err = q->bind(sap)) return err;
  try {
    handle = plat::hub::table_add(q);
  } catch (...) {
    q->unlink_point();
    throw;
  }
  if (handle < 0) {
    q->unlink_point();
    return EMFILE;
  }
  bound_sap = q->sap();
  return 0;
}

int do_send(hub_q_handle_t q, uint32 node, int sap, hub_opc_t opcode, const void *msg, uint32 len, int flags,
            int rr_token, uint32 &token) {
  auto queue = plat::hub::table_get(q);
  if (!queue) return EBADF;
  bool reply = flags & HUB_SEND_F_REPLY;
  if (sap < 0 || sap > kMaxSap || (len && !msg) || (flags & ~HUB_SEND_F_REPLY) || (reply && rr_token == 0))
    return EINVAL;
  if (len > plat::hub::kMaxBody) return EMSGSIZE;
  WireHeader h{};
  h.magic = plat::hub::kMagic;
  h.version = plat::hub::kVersion;
  h.flags = reply ? plat::hub::kFlagReply : 0;
  h.opcode = opcode;
  h.token = reply ? static_cast<uint32>(rr_token) : new_token();
  h.src_node = queue->node();
  h.src_sap = queue->sap();
  h.len = len;
  token = h.token;
  auto local = plat::hub::table_find_point(queue->dir(), node, sap);
  return queue->send(node, sap, h, msg, local.get());
}

int do_recv(hub_q_handle_t q, hub_msg_ref_t *ref, const hub_recv_options_t *o, WireHeader &got) {
  if (!ref || (o && (o->rr_token_list || o->opcode_list))) return EINVAL;
  auto queue = plat::hub::table_get(q);
  if (!queue) return EBADF;
  Selector sel;
  bool non_blocking = false;
  int limit = plat::hub::wait_limit_ms();
  if (o) {
    sel.rr_token = o->rr_token;
    sel.opcode = o->opcode;
    non_blocking = o->non_blocking != 0;
    if (o->timeout > 0 && o->timeout < limit) limit = o->timeout;
  }
  Message m;
  if (int err = queue->receive(sel, non_blocking, limit, m)) return err;
  got = m.hdr;
  void *payload = queue->hold(std::move(m));
  *ref = hub_msg_ref_t{};
  ref->state = HUB_REF_RECEIVED;
  ref->payload = payload;
  ref->q_entry = got.token;
  return 0;
}

int do_drop(hub_q_handle_t q, hub_msg_ref_t *ref) {
  if (!ref) return EINVAL;
  auto queue = plat::hub::table_get(q);
  if (!queue) return EBADF;
  if (ref->state == HUB_REF_RECEIVED) {
    if (!queue->release(ref->payload)) return EINVAL;
  } else if (ref->state != HUB_REF_SENT && ref->state != HUB_REF_EMPTY) {
    return EINVAL;
  }
  *ref = hub_msg_ref_t{};
  return 0;
}

int do_unbind(hub_q_handle_t q) {
  auto queue = plat::hub::table_remove(q);
  if (!queue) return EBADF;
  queue->unlink_point();
  return 0;  // the socket and every message go with the last reference
}

}  // namespace

extern "C" hub_q_handle_t hub_bind(int kind, int sap, hub_bind_options_t *options, const char *name) {
  plat_fault_t f;
  if (plat_fault_hit("hub_bind", &f)) return finish(fault_errno(f));
  hub_q_handle_t handle = -1;
  int bound_sap = -1;
  int err = guarded([&] { return do_bind(kind, sap, options, handle, bound_sap); });
  if (plat_journal_on()) {
    char opts[96] = "options=null";
    if (options)
      std::snprintf(opts, sizeof opts, "flags=0x%x, node=0x%08x, uuid=%u", options->flags,
                    static_cast<unsigned>(options->node), static_cast<unsigned>(options->uuid));
    if (err)
      plat_journal("hub_bind(kind=%d, sap=%d, %s, name=\"%s\") = -1 errno=%s", kind, sap, opts, name ? name : "",
                   errname(err));
    else
      plat_journal("hub_bind(kind=%d, sap=%d, %s, name=\"%s\") = %d sap=%d", kind, sap, opts, name ? name : "", handle,
                   bound_sap);
  }
  return err ? finish(err) : handle;
}

extern "C" int hub_send(hub_q_handle_t q, uint32 node, int sap, hub_opc_t opcode, void *msg, uint32 len,
                        hub_msg_ref_t *ref, int flags, int rr_token) {
  plat_fault_t f;
  if (plat_fault_hit("hub_send", &f)) return finish(fault_errno(f));
  uint32 token = 0;
  int err = guarded([&] { return do_send(q, node, sap, opcode, msg, len, flags, rr_token, token); });
  if (err == 0 && ref) {
    *ref = hub_msg_ref_t{};
    ref->state = HUB_REF_SENT;
    ref->q_entry = token;
  }
  if (err)
    plat_journal("hub_send(q=%d, node=0x%08x, sap=%d, opcode=%d, len=%u, flags=%d, rr_token=%d) = -1 errno=%s", q,
                 static_cast<unsigned>(node), sap, opcode, static_cast<unsigned>(len), flags, rr_token, errname(err));
  else
    plat_journal("hub_send(q=%d, node=0x%08x, sap=%d, opcode=%d, len=%u, flags=%d, rr_token=%d) = 0 token=0x%x", q,
                 static_cast<unsigned>(node), sap, opcode, static_cast<unsigned>(len), flags, rr_token,
                 static_cast<unsigned>(token));
  return finish(err);
}

extern "C" hub_rr_token_t hub_rr_token_get(hub_msg_ref_t *ref) {
  plat_fault_t f;
  if (plat_fault_hit("hub_rr_token_get", &f)) {
    errno = fault_errno(f);
    return 0;
  }
  bool has = ref && (ref->state == HUB_REF_SENT || ref->state == HUB_REF_RECEIVED);
  hub_rr_token_t token = has ? ref->q_entry : 0;
  plat_journal("hub_rr_token_get(state=%u) = 0x%x", ref ? static_cast<unsigned>(ref->state) : 0u,
               static_cast<unsigned>(token));
  return token;
}

extern "C" int hub_drop(hub_q_handle_t q, hub_msg_ref_t *ref) {
  plat_fault_t f;
  if (plat_fault_hit("hub_drop", &f)) return finish(fault_errno(f));
  unsigned state = ref ? ref->state : 0u, token = ref ? ref->q_entry : 0u;
  int err = guarded([&] { return do_drop(q, ref); });
  if (err)
    plat_journal("hub_drop(q=%d, state=%u, token=0x%x) = -1 errno=%s", q, state, token, errname(err));
  else
    plat_journal("hub_drop(q=%d, state=%u, token=0x%x) = 0", q, state, token);
  return finish(err);
}

extern "C" int hub_recv(hub_q_handle_t q, hub_msg_ref_t *ref, hub_recv_options_t *options) {
  plat_fault_t f;
  if (plat_fault_hit("hub_recv", &f)) return finish(fault_errno(f));
  WireHeader got{};
  int err = guarded([&] { return do_recv(q, ref, options, got); });
  if (plat_journal_on()) {
    char opts[128] = "options=null";
    if (options)
      std::snprintf(opts, sizeof opts, "version=%u, non_blocking=%d, timeout=%d, rr_token=0x%x, opcode=%d",
                    static_cast<unsigned>(options->version), options->non_blocking, options->timeout,
                    static_cast<unsigned>(options->rr_token), options->opcode);
    if (err)
      plat_journal("hub_recv(q=%d, %s) = -1 errno=%s", q, opts, errname(err));
    else
      plat_journal("hub_recv(q=%d, %s) = 0 opcode=%d token=0x%x reply=%d from=0x%08x/%d len=%u", q, opts, got.opcode,
                   static_cast<unsigned>(got.token), (got.flags & plat::hub::kFlagReply) ? 1 : 0,
                   static_cast<unsigned>(got.src_node), got.src_sap, static_cast<unsigned>(got.len));
  }
  return finish(err);
}

extern "C" int hub_unbind(hub_q_handle_t q, int flags) {
  plat_fault_t f;
  if (plat_fault_hit("hub_unbind", &f)) return finish(fault_errno(f));
  int err = guarded([&] { return do_unbind(q); });
  if (err)
    plat_journal("hub_unbind(q=%d, flags=%d) = -1 errno=%s", q, flags, errname(err));
  else
    plat_journal("hub_unbind(q=%d, flags=%d) = 0", q, flags);
  return finish(err);
}

extern "C" int hub_msg_info(const hub_msg_ref_t *ref, hub_msg_info_t *info) {
  if (!ref || !info || ref->state != HUB_REF_RECEIVED) return finish(EINVAL);
  int err = guarded([&] {
    WireHeader h{};
    for (const auto &q : plat::hub::table_queues()) {
      if (!q->held_header(ref->payload, h)) continue;
      info->opcode = h.opcode;
      info->src_node = h.src_node;
      info->src_sap = h.src_sap;
      info->len = h.len;
      info->token = h.token;
      info->is_reply = (h.flags & plat::hub::kFlagReply) ? 1 : 0;
      return 0;
    }
    return EINVAL;
  });
  return finish(err);
}

extern "C" const char *hub_dir(void) {
  thread_local std::string dir;
  try {
    dir = plat::hub::runtime_dir();
  } catch (...) {
    dir.clear();
  }
  return dir.c_str();
}
