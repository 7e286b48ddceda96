// Records decoded into named fields and encoded back, by stored form. The
// field tables take every offset and width from the layouts in wayshunt.h.
#include "record_codec.h"

#include <cstddef>
#include <cstring>
#include <set>
#include <utility>

#include "formats.h"
#include "wayshunt.h"

namespace wsc {

namespace {

enum class Kind { U8, I32, U32, U32Hex, U64Hex, Wwn, Fcid, AclFlags, IfIndex, Hex };

struct Field {
  const char *path;  // "rw_key.vsan": nested objects in the JSON
  size_t off;
  size_t width;
  Kind kind;
  bool brief;  // shown in the table by default
};

struct Form {
  const char *name;
  size_t size;
  std::vector<Field> fields;
};

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

template <typename... Parts>
std::vector<Field> join(std::vector<Field> a, Parts... rest) {
  (a.insert(a.end(), rest.begin(), rest.end()), ...);
  return a;
}

const std::vector<Form> &key_forms() {
  static const std::vector<Form> forms = {
      {"flow_thru_host", sizeof(FtKey),
       {FIELD(FtKey, key_type.kvs_sub_type, "sub_type", U8, false), FIELD(FtKey, vsan, "vsan", I32, true),
        FIELD(FtKey, host_pwwn, "host_pwwn", Wwn, true), FIELD(FtKey, tgt_pwwn, "tgt_pwwn", Wwn, true)}},
      {"flow_thru_host_413", sizeof(FtKey413),
       {FIELD(FtKey413, key_type.kvs_sub_type, "sub_type", U8, false),
        FIELD(FtKey413, host_pwwn, "host_pwwn", Wwn, true), FIELD(FtKey413, tgt_pwwn, "tgt_pwwn", Wwn, true)}},
      {"rw_acl", sizeof(RwKey),
       {FIELD(RwKey, key_type.kvs_sub_type, "sub_type", U8, false),
        FIELD(RwKey, acl_hash_key_lower, "acl_hash_key_lower", U64Hex, true)}},
  };
  return forms;
}

const std::vector<Form> &value_forms() {
  static const std::vector<Form> forms = {
      {"flow_thru", sizeof(uint32), {Field{"value", 0, 4, Kind::U32, true}}},
      {"rw_acl", sizeof(Rw), join(rw_fields<Rw>(), std::vector<Field>{FIELD(Rw, slot_num, "slot_num", U8, true)})},
      {"rw_acl_32", sizeof(Rw32), join(rw_fields<Rw32>(), std::vector<Field>{FIELD(Rw32, unused, "unused", Hex, false)})},
      {"els_acl",
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

bool is_rw(uint8_t t) { return t >= WAYSHUNT_KVS_KEY_ACL_RW_1 && t <= WAYSHUNT_KVS_KEY_ACL_RW_3; }
bool is_els(uint8_t t) { return t >= WAYSHUNT_KVS_KEY_ACL_ELS_1 && t <= WAYSHUNT_KVS_KEY_ACL_ELS_3; }

// The forms a key or value of this type may take, besides raw.
std::vector<std::string> allowed_key_forms(uint8_t t) {
  if (t == WAYSHUNT_KVS_KEY_FLOW_THRU_HOST) return {"flow_thru_host", "flow_thru_host_413"};
  if (is_rw(t)) return {"rw_acl"};
  return {};
}

std::vector<std::string> allowed_value_forms(uint8_t t) {
  if (t == WAYSHUNT_KVS_KEY_FLOW_THRU_HOST) return {"flow_thru"};
  if (is_rw(t)) return {"rw_acl", "rw_acl_32"};
  if (is_els(t)) return {"els_acl"};
  return {};
}

// The form of the bytes: the allowed one of their size, else null (raw).
const Form *form_of(const std::vector<Form> &forms, const std::vector<std::string> &allowed, size_t size) {
  for (const std::string &name : allowed)
    if (const Form *f = find_form(forms, name); f && f->size == size) return f;
  return nullptr;
}

const Form *key_form(const Record &r) { return form_of(key_forms(), allowed_key_forms(r.type()), r.key.size()); }
const Form *value_form(const Record &r) { return form_of(value_forms(), allowed_value_forms(r.type()), r.value.size()); }

uint64_t read_le(const uint8_t *p, size_t n) {
  uint64_t v = 0;
  for (size_t i = n; i-- > 0;) v = v << 8 | p[i];
  return v;
}

void write_le(uint8_t *p, size_t n, uint64_t v) {
  for (size_t i = 0; i < n; ++i, v >>= 8) p[i] = static_cast<uint8_t>(v);
}

Json decode_field(const Field &f, const uint8_t *p) {
  switch (f.kind) {
    case Kind::U8:
    case Kind::U32: return read_le(p, f.width);
    case Kind::I32: return static_cast<int32_t>(static_cast<uint32_t>(read_le(p, 4)));
    case Kind::U32Hex: return format_hex32(static_cast<uint32_t>(read_le(p, 4)));
    case Kind::U64Hex: return format_hex64(read_le(p, 8));
    case Kind::Wwn: return format_wwn(p);
    case Kind::Fcid: return format_fcid(p);
    case Kind::AclFlags: return format_acl_flags(static_cast<uint32_t>(read_le(p, 4)));
    case Kind::IfIndex: return format_if_index(static_cast<uint32_t>(read_le(p, 4)));
    case Kind::Hex: return to_hex(p, f.width);
  }
  return nullptr;
}

// An unsigned number from a JSON number or a numeric string.
uint64_t json_unsigned(const Json &v, uint64_t max) {
  if (v.is_number_unsigned()) {
    if (v.get<uint64_t>() > max) throw std::invalid_argument(v.dump() + " is larger than " + std::to_string(max));
    return v.get<uint64_t>();
  }
  if (v.is_number_integer()) throw std::invalid_argument(v.dump() + " is negative");
  if (v.is_string()) return parse_number(v.get<std::string>(), max);
  throw std::invalid_argument("expected a number, got " + std::string(v.type_name()));
}

const std::string &json_string(const Json &v) {
  if (!v.is_string()) throw std::invalid_argument("expected a string, got " + std::string(v.type_name()));
  return v.get_ref<const std::string &>();
}

void encode_field(const Field &f, const Json &v, uint8_t *p) {
  switch (f.kind) {
    case Kind::U8:
    case Kind::U32:
    case Kind::U32Hex:
    case Kind::U64Hex: write_le(p, f.width, json_unsigned(v, f.width == 8 ? UINT64_MAX : (1ull << (8 * f.width)) - 1)); return;
    case Kind::I32: {
      if (!v.is_number_integer()) throw std::invalid_argument("expected an integer, got " + std::string(v.type_name()));
      int64_t n = v.get<int64_t>();
      if (v.is_number_unsigned() && v.get<uint64_t>() > INT32_MAX) n = INT64_MAX;
      if (n < INT32_MIN || n > INT32_MAX) throw std::invalid_argument(v.dump() + " is outside the 32-bit signed range");
      write_le(p, 4, static_cast<uint32_t>(static_cast<int32_t>(n)));
      return;
    }
    case Kind::Wwn: parse_wwn(json_string(v), p); return;
    case Kind::Fcid: parse_fcid(json_string(v), p); return;
    case Kind::AclFlags: write_le(p, 4, v.is_string() ? parse_acl_flags(json_string(v)) : json_unsigned(v, UINT32_MAX)); return;
    case Kind::IfIndex: write_le(p, 4, v.is_string() ? parse_if_index(json_string(v)) : json_unsigned(v, UINT32_MAX)); return;
    case Kind::Hex: {
      Bytes b = from_hex(json_string(v));
      if (b.size() != f.width) throw std::invalid_argument("expected " + std::to_string(f.width) + " bytes of hex");
      std::memcpy(p, b.data(), b.size());
      return;
    }
  }
}

// The JSON node at a dotted path below obj, created on the way.
Json &node_at(Json &obj, const std::string &path) {
  Json *cur = &obj;
  size_t start = 0;
  for (size_t dot; (dot = path.find('.', start)) != std::string::npos; start = dot + 1)
    cur = &(*cur)[path.substr(start, dot - start)];
  return (*cur)[path.substr(start)];
}

const Json *find_at(const Json &obj, const std::string &path) {
  const Json *cur = &obj;
  size_t start = 0;
  for (;;) {
    size_t dot = path.find('.', start);
    std::string name = path.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
    if (!cur->is_object()) return nullptr;
    auto it = cur->find(name);
    if (it == cur->end()) return nullptr;
    cur = &*it;
    if (dot == std::string::npos) return cur;
    start = dot + 1;
  }
}

Json decode_part(const Form *form, const Bytes &bytes) {
  Json j = Json::object();
  j["form"] = form ? form->name : "raw";
  j["size"] = bytes.size();
  if (!form) {
    j["hex"] = to_hex(bytes);
    return j;
  }
  for (const Field &f : form->fields) node_at(j, f.path) = decode_field(f, bytes.data() + f.off);
  return j;
}

// Rejects members of j (and of its nested objects) that the form has no
// field for, so that a misspelt field is not silently ignored.
void check_members(const Json &j, const std::set<std::string> &known, const std::string &where,
                   const std::string &prefix = "") {
  for (auto it = j.begin(); it != j.end(); ++it) {
    std::string path = prefix.empty() ? it.key() : prefix + "." + it.key();
    if (it->is_object()) {
      check_members(*it, known, where, path);
      continue;
    }
    if (!known.count(path)) throw FieldError(where + "." + path, "unknown field for this form");
  }
}

// Encodes j, a key or value part, into bytes. where: "key" or "value".
// For a key, bytes[0] is the key type and the form's fields start behind it.
Bytes encode_part(const Json &j, const std::string &where, const std::vector<Form> &forms,
                  const std::vector<std::string> &allowed, uint8_t type, bool is_key) {
  if (!j.is_object()) throw FieldError(where, "expected an object with \"form\" and its fields");
  auto fit = j.find("form");
  if (fit == j.end() || !fit->is_string()) {
    std::string forms = "raw";
    for (const std::string &a : allowed) forms += ", " + a;
    throw FieldError(where + ".form", "missing (one of: " + forms + ")");
  }
  const std::string &name = fit->get_ref<const std::string &>();
  Bytes out;
  std::set<std::string> known = {"form", "size"};
  if (name == "raw") {
    known.insert("hex");
    const Json *hex = find_at(j, "hex");
    if (!hex) throw FieldError(where + ".hex", "missing");
    try {
      out = from_hex(json_string(*hex));
    } catch (const std::invalid_argument &e) {
      throw FieldError(where + ".hex", e.what());
    }
    if (is_key && out.empty()) throw FieldError(where + ".hex", "a key holds at least its type byte");
    if (is_key && out[0] != type)
      throw FieldError(where + ".hex", "first byte " + to_hex(out.data(), 1) + " is not the record's type " +
                                           to_hex(&type, 1));
  } else {
    bool ok = false;
    for (const std::string &a : allowed) ok |= a == name;
    const Form *form = find_form(forms, name);
    if (!form || !ok)
      throw FieldError(where + ".form", "'" + name + "' is not a form of " + type_label(type) + " " + where + "s");
    out.assign(form->size, 0);
    if (is_key) out[0] = type;
    for (const Field &f : form->fields) {
      known.insert(f.path);
      const Json *v = find_at(j, f.path);
      if (!v) throw FieldError(where + "." + f.path, "missing");
      try {
        encode_field(f, *v, out.data() + f.off);
      } catch (const std::invalid_argument &e) {
        throw FieldError(where + "." + f.path, e.what());
      }
    }
  }
  check_members(j, known, where);
  if (const Json *size = find_at(j, "size")) {
    if (!size->is_number_unsigned() || size->get<uint64_t>() != out.size())
      throw FieldError(where + ".size", size->dump() + " does not match the " + std::to_string(out.size()) +
                                            " bytes of form " + name);
  }
  return out;
}

}  // namespace

std::string type_label(uint8_t type) {
  std::string name = key_type_name(type);
  return name.empty() ? std::to_string(type) : name;
}

std::string key_form_name(const Record &r) {
  const Form *f = key_form(r);
  return f ? f->name : "raw";
}

std::string value_form_name(const Record &r) {
  const Form *f = value_form(r);
  return f ? f->name : "raw";
}

Json record_to_json(const Record &r) {
  Json j = Json::object();
  std::string name = key_type_name(r.type());
  if (name.empty())
    j["type"] = r.type();
  else
    j["type"] = name;
  j["key"] = decode_part(key_form(r), r.key);
  j["value"] = decode_part(value_form(r), r.value);
  return j;
}

Record record_from_json(const Json &j) {
  if (!j.is_object()) throw FieldError("", "expected an object with \"type\", \"key\" and \"value\"");
  for (auto it = j.begin(); it != j.end(); ++it)
    if (it.key() != "type" && it.key() != "key" && it.key() != "value") throw FieldError(it.key(), "unknown field");
  auto t = j.find("type");
  if (t == j.end()) throw FieldError("type", "missing (a name such as ACL_RW_1, or a number)");
  std::optional<uint8_t> type;
  if (t->is_string()) type = parse_key_type(t->get<std::string>());
  if (t->is_number_unsigned() && t->get<uint64_t>() <= 255) type = static_cast<uint8_t>(t->get<uint64_t>());
  if (!type) throw FieldError("type", t->dump() + " is not a key type (a name such as ACL_RW_1, or 0..255)");
  auto k = j.find("key"), v = j.find("value");
  if (k == j.end()) throw FieldError("key", "missing");
  if (v == j.end()) throw FieldError("value", "missing");
  Record r;
  r.key = encode_part(*k, "key", key_forms(), allowed_key_forms(*type), *type, true);
  r.value = encode_part(*v, "value", value_forms(), allowed_value_forms(*type), *type, false);
  return r;
}

std::vector<std::pair<std::string, std::string>> record_fields(const Record &r, bool all) {
  std::vector<std::pair<std::string, std::string>> out;
  auto add_part = [&](const Form *form, const Bytes &bytes, bool is_key) {
    if (!form) {
      size_t shown = all ? bytes.size() : std::min<size_t>(bytes.size(), 32);
      out.emplace_back(is_key ? "key" : "value", to_hex(bytes.data(), shown) + (shown < bytes.size() ? "..." : ""));
      return;
    }
    for (const Field &f : form->fields) {
      if (!all && !f.brief) continue;
      Json v = decode_field(f, bytes.data() + f.off);
      out.emplace_back(f.path, v.is_string() ? v.get<std::string>() : v.dump());
    }
  };
  add_part(key_form(r), r.key, true);
  add_part(value_form(r), r.value, false);
  return out;
}

std::vector<std::pair<std::string, std::string>> flatten(const Json &j, const std::string &prefix) {
  std::vector<std::pair<std::string, std::string>> out;
  for (auto it = j.begin(); it != j.end(); ++it) {
    std::string path = prefix.empty() ? it.key() : prefix + "." + it.key();
    if (it->is_object()) {
      auto inner = flatten(*it, path);
      out.insert(out.end(), inner.begin(), inner.end());
    } else {
      out.emplace_back(path, it->is_string() ? it->get<std::string>() : it->dump());
    }
  }
  return out;
}

}  // namespace wsc
