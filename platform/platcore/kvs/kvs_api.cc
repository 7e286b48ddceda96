// The runtime store's service calls: fault injection and the journal around
// kvs::Handle, found by number in the handle table (kvs_registry.h).
#include <cstdio>
#include <new>
#include <string>

#include "kvs_defs.h"
#include "kvs_handle.h"
#include "kvs_location.h"
#include "kvs_registry.h"
#include "plat_hooks.h"

namespace kvs {

namespace {

// Hex of a datum for the journal, e.g. "37 00 11 22" (at most 64 bytes).
std::string hex(const kvs_datum_t *d) {
  if (!d) return "null";
  if (!d->ptr) return "empty";
  std::string s;
  const auto *p = static_cast<const unsigned char *>(d->ptr);
  char b[4];
  for (unsigned i = 0; i < d->siz && i < 64; i++) {
    std::snprintf(b, sizeof b, i ? " %02x" : "%02x", p[i]);
    s += b;
  }
  if (d->siz > 64) s += " ...";
  return s;
}

const char *mode_name(int mode) {
  return mode == KVS_LOC_FIRST ? "FIRST" : mode == KVS_LOC_NEXT ? "NEXT" : "?";
}

}  // namespace

}  // namespace kvs

using kvs::hex;
using kvs::mode_name;

// Runs body on the handle, or fails with KVS_ERR_BAD_HANDLE. No exception
// leaves: an allocation failure inside the store becomes PLAT_ERR_NO_MEMORY.
template <typename Body>
static auto with_handle(kvs_service_t service, retcode_t &st, Body body) -> decltype(body(nullptr)) {
  kvs::Handle *h = kvs::find_handle(service);
  if (!h) {
    st = KVS_ERR_BAD_HANDLE;
    return decltype(body(nullptr)){};
  }
  try {
    return body(h);
  } catch (const std::bad_alloc &) {
    st = PLAT_ERR_NO_MEMORY;
    return decltype(body(nullptr)){};
  }
}

static void set(retcode_t *status, retcode_t st) {
  if (status) *status = st;
}

// Applies an injected fault to a call returning a datum: true when the call
// must not run; *result then holds what the caller gets.
static bool datum_fault(plat_fault_site_t *site, kvs_service_t service, retcode_t *status,
                        const kvs_datum_t **result, bool *empty) {
  plat_fault_t f;
  const char *name = site->func;
  *empty = false;
  if (!plat_fault_hit_at(site, &f)) return false;
  if (f.kind == PLAT_FAULT_EMPTY) {
    *empty = true;  // the call runs, its result is hidden
    return false;
  }
  set(status, f.kind == PLAT_FAULT_NULL ? 0 : (f.value ? f.value : PLAT_ERR_INJECTED));
  *result = nullptr;
  plat_journal("%s(%u) = 0x%x null (injected)", name, service, f.kind == PLAT_FAULT_NULL ? 0 : f.value);
  return true;
}

extern "C" kvs_service_t kvs_open(const char *url, retcode_t *status) {
  plat_fault_t f;
  if (plat_fault_hit("kvs_open", &f)) {
    retcode_t st = f.value ? f.value : PLAT_ERR_INJECTED;
    set(status, st);
    plat_journal("kvs_open(%s) = 0x%x (injected)", url ? url : "(null)", st);
    return 0;
  }
  std::string file;
  retcode_t st = kvs::store_file(url, file);
  kvs_service_t id = 0;
  if (st == 0 && kvs::is_open(file)) st = KVS_ERR_BUSY;
  if (st == 0) {
    try {
      kvs::Handle *h = nullptr;
      if (kvs::open_count() >= kvs::kMaxOpen) st = KVS_ERR_TOO_MANY;
      // Opening may wait for another process's writer: not under the lock.
      if (st == 0) st = kvs::Handle::open(file, &h);
      // Another thread may have taken the last slot meanwhile.
      if (st == 0 && (st = kvs::add_handle(h, &id)) != 0) delete h;
    } catch (const std::bad_alloc &) {
      st = PLAT_ERR_NO_MEMORY;
    }
  }
  set(status, st);
  plat_journal("kvs_open(%s) = 0x%x handle %u", url ? url : "(null)", st, id);
  return id;
}

extern "C" retcode_t kvs_close(kvs_service_t service) {
  kvs::Handle *h = kvs::remove_handle(service);
  retcode_t st = KVS_ERR_BAD_HANDLE;
  plat_fault_t f;
  bool injected = plat_fault_hit("kvs_close", &f);
  if (h && injected) {
    // A failed close keeps nothing, as a failed commit would, and still
    // releases the handle so that the store can be opened again.
    st = f.value ? f.value : PLAT_ERR_INJECTED;
    delete h;
  } else if (h) {
    st = h->close();
    delete h;
  }
  plat_journal("kvs_close(%u) = 0x%x%s", service, st, injected ? " (injected)" : "");
  return st;
}

extern "C" const kvs_datum_t *kvs_move2location(kvs_service_t service, int mode, retcode_t *status) {
  const kvs_datum_t *res = nullptr;
  bool empty;
  static plat_fault_site_t site = PLAT_FAULT_SITE("kvs_move2location");
  if (datum_fault(&site, service, status, &res, &empty)) return res;
  retcode_t st = 0;
  res = with_handle(service, st, [&](kvs::Handle *h) -> const kvs_datum_t * {
    if (mode == KVS_LOC_FIRST) return h->first(st);
    if (mode == KVS_LOC_NEXT) return h->next(st);
    st = KVS_ERR_BAD_ARG;
    return nullptr;
  });
  if (res && empty) res = with_handle(service, st, [](kvs::Handle *h) { return h->empty(); });
  set(status, st);
  if (plat_journal_on())
    plat_journal("kvs_move2location(%u, %s) = 0x%x %s", service, mode_name(mode), st, hex(res).c_str());
  return res;
}

extern "C" const kvs_datum_t *kvs_getkey(kvs_service_t service, retcode_t *status) {
  const kvs_datum_t *res = nullptr;
  bool empty;
  static plat_fault_site_t site = PLAT_FAULT_SITE("kvs_getkey");
  if (datum_fault(&site, service, status, &res, &empty)) return res;
  retcode_t st = 0;
  res = with_handle(service, st, [&](kvs::Handle *h) { return h->key(st); });
  if (res && empty) res = with_handle(service, st, [](kvs::Handle *h) { return h->empty(); });
  set(status, st);
  if (plat_journal_on()) plat_journal("kvs_getkey(%u) = 0x%x %s", service, st, hex(res).c_str());
  return res;
}

extern "C" const kvs_datum_t *kvs_getvalue(kvs_service_t service, retcode_t *status) {
  const kvs_datum_t *res = nullptr;
  bool empty;
  static plat_fault_site_t site = PLAT_FAULT_SITE("kvs_getvalue");
  if (datum_fault(&site, service, status, &res, &empty)) return res;
  retcode_t st = 0;
  res = with_handle(service, st, [&](kvs::Handle *h) { return h->value(st); });
  if (res && empty) res = with_handle(service, st, [](kvs::Handle *h) { return h->empty(); });
  set(status, st);
  if (plat_journal_on()) plat_journal("kvs_getvalue(%u) = 0x%x %s", service, st, hex(res).c_str());
  return res;
}

static bool valid_key(const kvs_datum_t *key) { return key && key->ptr && key->siz > 0; }

extern "C" retcode_t kvs_store(kvs_service_t service, int mode, const kvs_datum_t *key, const kvs_datum_t *value) {
  plat_fault_t f;
  retcode_t st = 0;
  static plat_fault_site_t site = PLAT_FAULT_SITE("kvs_store");
  bool injected = plat_fault_hit_at(&site, &f);
  if (injected)
    st = f.value ? f.value : PLAT_ERR_INJECTED;
  else if (mode != KVS_STORE_REPLACE || !valid_key(key) || !value || (!value->ptr && value->siz))
    st = KVS_ERR_BAD_ARG;
  else
    with_handle(service, st, [&](kvs::Handle *h) { return st = h->store(*key, *value); });
  if (plat_journal_on())
    plat_journal("kvs_store(%u, %d, [%s], [%s]) = 0x%x%s", service, mode, hex(key).c_str(), hex(value).c_str(), st,
                 injected ? " (injected)" : "");
  return st;
}

// The journal line of a delete shows the key datum as it reads after the
// delete: when it is the walk's own key datum, that is the key the cursor
// moved on to. In the guarded mode the walk's datum is unreadable once its
// key is gone, so the same text is put together from before and after.
extern "C" retcode_t kvs_delete(kvs_service_t service, const kvs_datum_t *key) {
  plat_fault_t f;
  retcode_t st = 0, ignored = 0;
  const bool journal = plat_journal_on();
  std::string key_text = journal ? hex(key) : std::string();
  const kvs_datum_t *walk_key =
      journal ? with_handle(service, ignored, [&](kvs::Handle *h) { return h->key(ignored); }) : nullptr;
  static plat_fault_site_t site = PLAT_FAULT_SITE("kvs_delete");
  bool injected = plat_fault_hit_at(&site, &f);
  if (injected)
    st = f.value ? f.value : PLAT_ERR_INJECTED;  // nothing deleted: the cursor stays on the same key
  else if (!valid_key(key))
    st = KVS_ERR_BAD_ARG;
  else
    with_handle(service, st, [&](kvs::Handle *h) { return st = h->remove(*key); });
  if (journal) {
    const kvs_datum_t *now =
        key == walk_key ? with_handle(service, ignored, [&](kvs::Handle *h) { return h->key(ignored); }) : nullptr;
    if (now) key_text = hex(now);
    plat_journal("kvs_delete(%u, [%s]) = 0x%x%s", service, key_text.c_str(), st, injected ? " (injected)" : "");
  }
  return st;
}
