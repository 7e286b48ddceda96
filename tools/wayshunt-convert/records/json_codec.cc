// Records decoded into named fields and encoded back, by stored form (the
// forms and their fields are in form_tables.h).
#include "records/json_codec.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <set>
#include <utility>

#include "records/form_tables.h"
#include "records/formats.h"

namespace wsc {

namespace {

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
  j["form"] = form ? form->name : std::string("raw");
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

// The bytes of a raw part: its "hex"; a key's first byte must be the type.
Bytes encode_raw(const Json &j, const std::string &where, uint8_t type, bool is_key) {
  const Json *hex = find_at(j, "hex");
  if (!hex) throw FieldError(where + ".hex", "missing");
  Bytes out;
  try {
    out = from_hex(json_string(*hex));
  } catch (const std::invalid_argument &e) {
    throw FieldError(where + ".hex", e.what());
  }
  if (is_key && out.empty()) throw FieldError(where + ".hex", "a key holds at least its type byte");
  if (is_key && out[0] != type)
    throw FieldError(where + ".hex", "first byte " + to_hex(out.data(), 1) + " is not the record's type " +
                                         to_hex(&type, 1));
  return out;
}

// The bytes of a part in a form: every field of the form from j; known gets
// the field names. For a key, byte 0 is the key type and the fields follow.
Bytes encode_fields(const Json &j, const std::string &where, const Form &form, uint8_t type, bool is_key,
                    std::set<std::string> &known) {
  Bytes out(form.size, 0);
  if (is_key) out[0] = type;
  for (const Field &f : form.fields) {
    known.insert(f.path);
    const Json *v = find_at(j, f.path);
    if (!v) throw FieldError(where + "." + f.path, "missing");
    try {
      encode_field(f, *v, out.data() + f.off);
    } catch (const std::invalid_argument &e) {
      throw FieldError(where + "." + f.path, e.what());
    }
  }
  return out;
}

// The form named by j's "form" member, or null for raw.
const Form *named_form(const Json &j, const std::string &where, const Form *(*find)(const std::string &),
                       const std::vector<std::string> &allowed, uint8_t type) {
  auto fit = j.find("form");
  if (fit == j.end() || !fit->is_string()) {
    std::string forms = "raw";
    for (const std::string &a : allowed) forms += ", " + a;
    throw FieldError(where + ".form", "missing (one of: " + forms + ")");
  }
  const std::string &name = fit->get_ref<const std::string &>();
  if (name == "raw") return nullptr;
  const Form *form = find(name);
  if (!form || std::find(allowed.begin(), allowed.end(), name) == allowed.end())
    throw FieldError(where + ".form", "'" + name + "' is not a form of " + type_label(type) + " " + where + "s");
  return form;
}

// Encodes j, a key or value part, into bytes. where: "key" or "value".
Bytes encode_part(const Json &j, const std::string &where, const Form *(*find)(const std::string &),
                  const std::vector<std::string> &allowed, uint8_t type, bool is_key) {
  if (!j.is_object()) throw FieldError(where, "expected an object with \"form\" and its fields");
  const Form *form = named_form(j, where, find, allowed, type);
  std::set<std::string> known = {"form", "size"};
  if (!form) known.insert("hex");
  Bytes out = form ? encode_fields(j, where, *form, type, is_key, known) : encode_raw(j, where, type, is_key);
  check_members(j, known, where);
  if (const Json *size = find_at(j, "size")) {
    if (!size->is_number_unsigned())
      throw FieldError(where + ".size", "expected a number, got " + std::string(size->type_name()) + " " + size->dump());
    if (size->get<uint64_t>() != out.size())
      throw FieldError(where + ".size", size->dump() + " does not match the " + std::to_string(out.size()) +
                                            " bytes of form " + (form ? form->name : std::string("raw")));
  }
  return out;
}

}  // namespace

std::string type_label(uint8_t type) {
  std::string name = key_type_name(type);
  return name.empty() ? std::to_string(type) : name;
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
  r.key = encode_part(*k, "key", find_key_form, allowed_key_forms(*type), *type, true);
  r.value = encode_part(*v, "value", find_value_form, allowed_value_forms(*type), *type, false);
  return r;
}

bool json_nests_deeper(const std::string &text, int max_depth) {
  int depth = 0;
  bool in_string = false;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (in_string) {
      if (c == '\\')
        ++i;
      else if (c == '"')
        in_string = false;
    } else if (c == '"') {
      in_string = true;
    } else if (c == '[' || c == '{') {
      if (++depth > max_depth) return true;
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return false;
}

std::string field_text(const Field &f, const uint8_t *p) {
  Json v = decode_field(f, p);
  return v.is_string() ? v.get<std::string>() : v.dump();
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
