// Texts of the platform's status codes. The conversion library's own codes
// have their texts in the library itself; here they are numbers like any
// other unknown code.
#include <cstdio>

#include "status.h"
#include "toolkit.h"

namespace {

struct Text {
  retcode_t rc;
  const char *text;
};

constexpr Text kTexts[] = {
    {PLAT_OK, "success"},
    {TK_ERR_INVALID, "toolkit: invalid container or argument"},
    {TK_ERR_NO_MEMORY, "toolkit: out of memory"},
    {TK_ERR_EMPTY, "toolkit: queue is empty"},
    {TK_HASHTABLE_END, "toolkit: end of table"},
    {TK_ERR_NOT_FOUND, "toolkit: key not in table"},
    {TK_ERR_EXISTS, "toolkit: key already in table"},
    {TK_ERR_FULL, "toolkit: queue is full"},
    {TK_ERR_NOT_EMPTY, "toolkit: queue destroyed with items still queued"},
    {PLAT_ERR_INJECTED, "platform: injected fault"},
    {PLAT_ERR_NO_MEMORY, "platform: out of memory"},
    {PLAT_ERR_INVALID, "platform: invalid argument"},
    {KVS_ERR_NO_STORE, "kvs: no such store (create it first)"},
    {KVS_ERR_BAD_URL, "kvs: bad store URL (expected nonvolatile:<dir>/<name>)"},
    {KVS_ERR_NO_KEY, "kvs: no key"},
    {KVS_ERR_BAD_HANDLE, "kvs: not an open store handle"},
    {KVS_ERR_BAD_ARG, "kvs: invalid argument"},
    {KVS_ERR_NO_CURSOR, "kvs: cursor not positioned"},
    {KVS_ERR_BUSY, "kvs: store already open in this process"},
    {KVS_ERR_KEY_TOO_BIG, "kvs: key too long"},
    {KVS_ERR_NO_SPACE, "kvs: no space left for the store"},
    {KVS_ERR_IO, "kvs: I/O error"},
    {KVS_ERR_CORRUPT, "kvs: store file damaged or not a store"},
    {KVS_ERR_EXISTS, "kvs: store already exists"},
    {KVS_ERR_TOO_MANY, "kvs: too many open stores"},
    {KVS_ERR_DB, "kvs: database failure"},
    {PORTMAP_ERR_NO_SLOT, "portmap: interface has no slot"},
    {PORTMAP_ERR_BAD_IF_INDEX, "portmap: invalid interface index"},
    {PORTMAP_ERR_TABLE, "portmap: table file unreadable or malformed"},
    {PORTMAP_ERR_DOWN, "portmap: interface marked failing"},
    {OVERSEER_ERR_NO_STANDBY, "overseer: no standby supervisor"},
    {OVERSEER_ERR_NO_SOURCE, "overseer: source file missing"},
    {OVERSEER_ERR_BAD_PATH, "overseer: destination outside the standby's file system"},
    {OVERSEER_ERR_IO, "overseer: copy failed"},
    {OVERSEER_ERR_BAD_QUEUE, "overseer: hub queue not bound"},
};

}  // namespace

extern "C" const char *retcode2str(retcode_t rc) {
  for (const auto &t : kTexts)
    if (t.rc == rc) return t.text;
  static thread_local char buf[48];
  std::snprintf(buf, sizeof buf, "unknown status 0x%x", rc);
  return buf;
}
