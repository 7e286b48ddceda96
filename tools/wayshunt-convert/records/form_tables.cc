// The fields of every stored form, and the choice of a record's form from
// the service's table of forms per key type and era.
#include "records/form_tables.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

namespace wsc {

namespace {

#define FIELD(T, member, name, kind, brief) \
  Field { name, offsetof(T, member), sizeof(std::declval<T &>().member), Kind::kind, brief }

using FtKey = wayshunt_kvs_key_flow_thru_host_t;
using FtKey413 = wayshunt_kvs_key_flow_thru_host_413_t;
using RwKey = wayshunt_kvs_key_rw_acl_entry_t;
using Rw = wayshunt_kvs_data_rw_acl_entry_t;
using Rw32 = wayshunt_kvs_data_rw_acl_entry_32_t;
using Els = wayshunt_kvs_data_els_acl_entry_t;

// The fields shared by both RW value forms (offsets 0 to 80).
template <typename T>
std::vector<Field> rw_fields() {
  return {
      FIELD(T, tgt_pwwn, "tgt_pwwn", Wwn, true),
      FIELD(T, acl_flags, "acl_flags", AclFlags, true),
      FIELD(T, src_sid_wwn, "src_sid_wwn", Wwn, true),
      FIELD(T, src_did_wwn, "src_did_wwn", Wwn, true),
      FIELD(T, dst_sid_wwn, "dst_sid_wwn", Wwn, false),
      FIELD(T, dst_did_wwn, "dst_did_wwn", Wwn, false),
      FIELD(T, if_index, "if_index", IfIndex, true),
      FIELD(T, rw_key.vsan, "rw_key.vsan", I32, false),
      FIELD(T, rw_key.sid, "rw_key.sid", Fcid, false),
      FIELD(T, rw_key.did, "rw_key.did", Fcid, false),
      FIELD(T, rw_key.num_luns, "rw_key.num_luns", U8, false),
      FIELD(T, rw_info.vsan, "rw_info.vsan", I32, false),
      FIELD(T, rw_info.sid, "rw_info.sid", Fcid, false),
      FIELD(T, rw_info.did, "rw_info.did", Fcid, false),
      FIELD(T, rw_info.up, "rw_info.up", U8, false),
      FIELD(T, rw_info.up_valid, "rw_info.up_valid", U8, false),
      FIELD(T, rw_info.num_prog_if_MSB, "rw_info.num_prog_if_MSB", U8, false),
      FIELD(T, rw_info.num_del_if_MSB, "rw_info.num_del_if_MSB", U8, false),
      FIELD(T, rw_info.flags, "rw_info.flags", U32Hex, false),
  };
}

std::vector<Field> join(std::vector<Field> a, const std::vector<Field> &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

const std::vector<Form> &key_forms() {
  static const std::vector<Form> forms = {
      {WAYSHUNT_FORM_FLOW_THRU_KEY, sizeof(FtKey),
       {FIELD(FtKey, key_type.kvs_sub_type, "sub_type", U8, false), FIELD(FtKey, vsan, "vsan", I32, true),
        FIELD(FtKey, host_pwwn, "host_pwwn", Wwn, true), FIELD(FtKey, tgt_pwwn, "tgt_pwwn", Wwn, true)}},
      {WAYSHUNT_FORM_FLOW_THRU_KEY_413, sizeof(FtKey413),
       {FIELD(FtKey413, key_type.kvs_sub_type, "sub_type", U8, false),
        FIELD(FtKey413, host_pwwn, "host_pwwn", Wwn, true), FIELD(FtKey413, tgt_pwwn, "tgt_pwwn", Wwn, true)}},
      {WAYSHUNT_FORM_RW_KEY, sizeof(RwKey),
       {FIELD(RwKey, key_type.kvs_sub_type, "sub_type", U8, false),
        FIELD(RwKey, acl_hash_key_lower, "acl_hash_key_lower", U64Hex, true)}},
  };
  return forms;
}

const std::vector<Form> &value_forms() {
  static const std::vector<Form> forms = {
      {WAYSHUNT_FORM_FLOW_THRU_VALUE, WAYSHUNT_FLOW_THRU_VALUE_SIZE,
       {Field{"value", 0, WAYSHUNT_FLOW_THRU_VALUE_SIZE, Kind::U32, true}}},
      {WAYSHUNT_FORM_RW_VALUE, sizeof(Rw), join(rw_fields<Rw>(), {FIELD(Rw, slot_num, "slot_num", U8, true)})},
      {WAYSHUNT_FORM_RW_VALUE_32, sizeof(Rw32), join(rw_fields<Rw32>(), {FIELD(Rw32, unused, "unused", Hex, false)})},
      {WAYSHUNT_FORM_ELS_VALUE,
       sizeof(Els),
       {FIELD(Els, tgt_pwwn, "tgt_pwwn", Wwn, true), FIELD(Els, src_pwwn, "src_pwwn", Wwn, true),
        FIELD(Els, src_vsan, "src_vsan", I32, true), FIELD(Els, src_fcid, "src_fcid", Fcid, false),
        FIELD(Els, dst_fcid, "dst_fcid", Fcid, false), FIELD(Els, if_index, "if_index", IfIndex, true),
        FIELD(Els, flags, "flags", U32Hex, true), FIELD(Els, slot_num, "slot_num", U8, true)}},
  };
  return forms;
}

#undef FIELD

const Form *find_form(const std::vector<Form> &forms, const std::string &name) {
  for (const Form &f : forms)
    if (name == f.name) return &f;
  return nullptr;
}

// The distinct names of a type's forms, newest era first.
std::vector<std::string> form_names(uint8_t type, const wayshunt_form_t (wayshunt_type_forms_t::*part)[WAYSHUNT_ERA_COUNT]) {
  std::vector<std::string> names;
  const wayshunt_type_forms_t *t = type_forms(type);
  for (int era = WAYSHUNT_ERA_COUNT; t && era-- > 0;) {
    const char *name = (t->*part)[era].name;
    if (name && std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  }
  return names;
}

const Form *form_of(const std::vector<Form> &forms, const std::vector<std::string> &allowed, size_t size) {
  for (const std::string &name : allowed)
    if (const Form *f = find_form(forms, name); f && f->size == size) return f;
  return nullptr;
}

}  // namespace

const wayshunt_type_forms_t *type_forms(uint8_t type) { return wayshunt_forms_of(type); }

std::string key_type_name(uint8_t type) {
  const wayshunt_type_forms_t *t = type_forms(type);
  return t ? t->type_name : "";
}

// Each type's form names, made once for keys and once for values: they are
// asked for every record read.
static const std::vector<std::string> &names_of(uint8_t type, bool key) {
  static const auto names = [] {
    std::array<std::array<std::vector<std::string>, 256>, 2> all;
    for (int t = 0; t < 256; ++t) {
      all[0][t] = form_names(static_cast<uint8_t>(t), &wayshunt_type_forms_t::value);
      all[1][t] = form_names(static_cast<uint8_t>(t), &wayshunt_type_forms_t::key);
    }
    return all;
  }();
  return names[key][type];
}

const std::vector<std::string> &allowed_key_forms(uint8_t type) { return names_of(type, true); }
const std::vector<std::string> &allowed_value_forms(uint8_t type) { return names_of(type, false); }

const Form *find_key_form(const std::string &name) { return find_form(key_forms(), name); }
const Form *find_value_form(const std::string &name) { return find_form(value_forms(), name); }

namespace {

// The form of a part of a type and size, looked up once per pair.
const Form *cached_form(const std::vector<Form> &forms, const std::vector<std::string> &(*allowed)(uint8_t), uint8_t type,
                        size_t size) {
  struct Cache {
    std::map<std::pair<uint8_t, size_t>, const Form *> forms;
  };
  static thread_local std::map<const std::vector<Form> *, Cache> caches;
  auto &cache = caches[&forms].forms;
  auto it = cache.find({type, size});
  if (it == cache.end()) it = cache.emplace(std::pair{type, size}, form_of(forms, allowed(type), size)).first;
  return it->second;
}

}  // namespace

const Form *key_form(const Record &r) { return cached_form(key_forms(), allowed_key_forms, r.type(), r.key.size()); }
const Form *value_form(const Record &r) {
  return cached_form(value_forms(), allowed_value_forms, r.type(), r.value.size());
}

unsigned eras_fitting(const Record &r, bool moved_down) {
  const wayshunt_type_forms_t *t = type_forms(r.type());
  if (!t) return kAllEras;
  auto fits = [](const wayshunt_form_t &f, size_t size) { return !f.name || f.size == size; };
  const wayshunt_form_t &latest = t->value[WAYSHUNT_ERA_COUNT - 1];
  unsigned eras = 0;
  for (int era = 0; era < WAYSHUNT_ERA_COUNT; ++era)
    if (t->stored[era] && fits(t->key[era], r.key.size()) &&
        (fits(t->value[era], r.value.size()) || (moved_down && is_rw(r.type()) && fits(latest, r.value.size()))))
      eras |= 1u << era;
  return eras;
}

}  // namespace wsc
