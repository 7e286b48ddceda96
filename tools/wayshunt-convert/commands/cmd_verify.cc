// 'verify': checks a store against the invariants of its era, and with
// --after-upgrade / --after-downgrade against what a move up from 3.2 or 4.1
// / a move down from a later era leaves behind.
//
// Every era: each key starts with the 2-byte type header; flow-thru values
// are 4 bytes; RW ACL keys 10 bytes; ELS ACL values 37 bytes.
//   3.2   flow-thru keys 18 bytes; ACL_RW_1 values 84 bytes, ACL_RW_2/3 82;
//         no RUNTIME_LC_INFO record (the move down to 3.2 deletes them)
//   4.1   flow-thru keys 18 bytes; RW values 82 bytes
//   4.2   flow-thru keys 22 bytes; RW values 82 bytes
// After a move up (the store is then in the 4.2 forms):
//   - flow-thru keys were widened: vsan 0 and value 0;
//   - the RW repair leaves no DROP_ALL with a non-zero dst_sid_wwn, no
//     PGM_BUSY with FO, no VW with VIRTUAL or PGM_BUSY, on any RW type;
//   - the trunk fix-up leaves no ACL_RW_1 entry on an ISL with both
//     PHYSICAL and VIRTUAL (it writes its results under ACL_RW_1, so an
//     ACL_RW_2/3 record may keep both and is not checked for it);
//   - slot_num of every RW and ELS value is the slot of its if_index as
//     the interface map gives it (255 when it has none).
// After a move down (to 3.2 or 4.1):
//   - no move down rewrites an RW value, so in 3.2 ACL_RW_1 values keep the
//     82 bytes of the later eras instead of 84;
//   - flow-thru records were narrowed: value 0.
#include <cstring>
#include <set>
#include <iostream>
#include <memory>

#include "commands/commands.h"
#include "records/era.h"
#include "records/form_tables.h"
#include "records/formats.h"
#include "portmap.h"
#include "records/json_codec.h"
#include "store/store_io.h"
#include "tool_error.h"
#include "wayshunt.h"

namespace wsc {

namespace {

struct VerifyOptions {
  std::string era;
  bool after_upgrade = false;
  bool after_downgrade = false;
  bool json = false, quiet = false;
  std::string store;
};

using Violations = std::vector<std::string>;


uint8_t slot_of(if_index_t i) {
  slot_num_t slot = 0;
  return portmap_get_slot(i, &slot) ? WAYSHUNT_SLOT_INVALID : slot;
}

// The size checks of the era, for one record, from the service's table of
// forms. A store moved down keeps the RW values of the latest era.
void check_forms(const Record &r, Era era, bool moved_down, Violations &out) {
  std::string name = type_label(r.type()), e = era_name(era);
  auto size_is = [&](const char *part, const wayshunt_form_t &form, size_t have) {
    if (form.name && have != form.size)
      out.push_back(std::string(part) + " is " + std::to_string(have) + " bytes; era " + e + " stores " + name + " " +
                    part + "s in " + std::to_string(form.size));
  };
  if (r.key.size() < 2) out.push_back("key is " + std::to_string(r.key.size()) + " bytes, shorter than the type header");
  const wayshunt_type_forms_t *forms = type_forms(r.type());
  if (!forms) return;
  size_is("key", forms->key[era_index(era)], r.key.size());
  size_is("value", forms->value[era_index(moved_down && is_rw(r.type()) ? Era::v42 : era)], r.value.size());
  if (!forms->stored[era_index(era)])
    out.push_back(name + " record in a " + e + " store; the move down to " + e + " deletes every one");
}

void check_rw_after_upgrade(const Record &r, Violations &out) {
  wayshunt_kvs_data_rw_acl_entry_t e;
  std::memcpy(&e, r.value.data(), sizeof e);
  uint32_t f = e.acl_flags;
  auto has = [f](uint32_t bits) { return (f & bits) == bits; };
  std::string flags = " (acl_flags " + format_acl_flags(f) + ")";
  static const uint8_t kZero[8] = {};
  if (has(WAYSHUNT_ACL_FLAG_DROP_ALL) && std::memcmp(e.dst_sid_wwn.str, kZero, 8) != 0)
    out.push_back("DROP_ALL with a non-zero dst_sid_wwn" + flags + "; the upgrade's repair clears it");
  if (has(WAYSHUNT_ACL_FLAG_PGM_BUSY | WAYSHUNT_ACL_FLAG_FO))
    out.push_back("PGM_BUSY with FO" + flags + "; the upgrade's repair clears FO");
  if (has(WAYSHUNT_ACL_FLAG_VW) && (f & (WAYSHUNT_ACL_FLAG_VIRTUAL | WAYSHUNT_ACL_FLAG_PGM_BUSY)))
    out.push_back("VW with VIRTUAL or PGM_BUSY" + flags + "; the upgrade's repair clears VW");
  if (r.type() == WAYSHUNT_KVS_KEY_ACL_RW_1 &&
      has(WAYSHUNT_ACL_FLAG_ISL | WAYSHUNT_ACL_FLAG_PHYSICAL | WAYSHUNT_ACL_FLAG_VIRTUAL))
    out.push_back("entry on an ISL of target " + format_wwn(e.tgt_pwwn.str) + " carries both PHYSICAL and VIRTUAL" +
                  flags + "; the trunk fix-up leaves only one");
  if (uint8_t want = slot_of(e.if_index); e.slot_num != want)
    out.push_back("slot_num " + std::to_string(e.slot_num) + " but if_index " + format_if_index(e.if_index) +
                  " lies in slot " + std::to_string(want));
}

void check_flow_thru_value(const Record &r, const char *how, Violations &out) {
  if (r.value.size() == 4 && (r.value[0] | r.value[1] | r.value[2] | r.value[3]))
    out.push_back("flow-thru value 0x" + to_hex(r.value) + "; " + how + " records have value 0");
}

void check_after_upgrade(const Record &r, Violations &out) {
  uint8_t t = r.type();
  if (t == WAYSHUNT_KVS_KEY_FLOW_THRU_HOST && r.key.size() == sizeof(wayshunt_kvs_key_flow_thru_host_t)) {
    wayshunt_kvs_key_flow_thru_host_t k;
    std::memcpy(&k, r.key.data(), sizeof k);
    if (k.vsan != 0) out.push_back("vsan " + std::to_string(k.vsan) + " in a flow-thru key; widened keys have vsan 0");
    check_flow_thru_value(r, "widened", out);
  } else if (is_rw(t) && r.value.size() == sizeof(wayshunt_kvs_data_rw_acl_entry_t)) {
    check_rw_after_upgrade(r, out);
  } else if (is_els(t) && r.value.size() == sizeof(wayshunt_kvs_data_els_acl_entry_t)) {
    wayshunt_kvs_data_els_acl_entry_t e;
    std::memcpy(&e, r.value.data(), sizeof e);
    if (uint8_t want = slot_of(e.if_index); e.slot_num != want)
      out.push_back("slot_num " + std::to_string(e.slot_num) + " but if_index " + format_if_index(e.if_index) +
                    " lies in slot " + std::to_string(want));
  }
}

// Every violation of the store, as (record, what) pairs in store order.
std::vector<std::pair<const Record *, std::string>> violations(const Records &records, Era era, const VerifyOptions &o) {
  std::vector<std::pair<const Record *, std::string>> out;
  for (const Record &r : records) {
    Violations v;
    check_forms(r, era, o.after_downgrade, v);
    if (o.after_upgrade) check_after_upgrade(r, v);
    if (o.after_downgrade && r.type() == WAYSHUNT_KVS_KEY_FLOW_THRU_HOST) check_flow_thru_value(r, "narrowed", v);
    for (std::string &what : v) out.emplace_back(&r, std::move(what));
  }
  return out;
}

void print_text(const std::vector<std::pair<const Record *, std::string>> &found, const StoreRef &store,
                size_t records, const VerifyOptions &o) {
  std::set<const Record *> bad;
  for (const auto &[r, what] : found) {
    if (!o.quiet) std::cout << to_hex(r->key) << " " << type_label(r->type()) << ": " << what << "\n";
    bad.insert(r);
  }
  std::cout << store.file << ": " << records << " records, era " << o.era
            << (o.after_upgrade ? " after a move up" : o.after_downgrade ? " after a move down" : "") << ": ";
  if (found.empty())
    std::cout << "no violation\n";
  else
    std::cout << found.size() << " violation" << (found.size() == 1 ? "" : "s") << " in " << bad.size() << " record"
              << (bad.size() == 1 ? "" : "s") << "\n";
}

Json to_json(const std::vector<std::pair<const Record *, std::string>> &found, const StoreRef &store, size_t records,
             const VerifyOptions &o) {
  Json j = {{"store", store.file}, {"records", records}, {"era", o.era},
            {"after", o.after_upgrade ? "upgrade" : o.after_downgrade ? "downgrade" : ""}, {"violations", Json::array()}};
  for (const auto &[r, what] : found)
    j["violations"].push_back({{"type", type_label(r->type())}, {"key", to_hex(r->key)}, {"what", what}});
  return j;
}

void run_verify(const VerifyOptions &o) {
  Era era = era_from_name(o.era);
  if (o.after_upgrade && era != Era::v42)
    throw ToolError("--after-upgrade checks the forms a move up writes, those of era 4.2; use --era 4.2");
  if (o.after_downgrade && era == Era::v42)
    throw ToolError("--after-downgrade checks a store moved down to 3.2 or 4.1; use --era 3.2 or --era 4.1");
  StoreRef store = resolve_store(o.store);
  Records records = read_store(store);
  auto found = violations(records, era, o);
  if (o.json)
    std::cout << to_json(found, store, records.size(), o).dump(2) << "\n";
  else
    print_text(found, store, records.size(), o);
  std::cout.flush();
  if (!found.empty()) throw CLI::RuntimeError(kExitFound);
}

}  // namespace

void add_verify_command(CLI::App &app) {
  auto o = std::make_shared<VerifyOptions>();
  CLI::App *cmd = app.add_subcommand("verify", "Check a store against the invariants of its release era.");
  cmd->add_option("--era", o->era, "Release era the store must be in: 3.2, 4.1 or 4.2")
      ->required()
      ->check(CLI::IsMember(kEraNames));
  CLI::Option *up = cmd->add_flag("--after-upgrade", o->after_upgrade,
                                  "Also check what a move up from 3.2 or 4.1 leaves (needs --era 4.2): widened "
                                  "flow-thru keys, repaired flags, resolved ISL entries, slot numbers");
  cmd->add_flag("--after-downgrade", o->after_downgrade,
                "Check a store a move down left (--era 3.2 or 4.1): RW values keep 82 bytes, flow-thru values are 0")
      ->excludes(up);
  cmd->add_option("store", o->store, kStoreArgHelp)->required();
  cmd->add_flag("--json", o->json, "Write the violations as JSON");
  cmd->add_flag("--quiet", o->quiet, "Print only the summary line, not each violation");
  cmd->footer(
      "Era forms: 3.2: flow-thru keys 18 bytes, ACL_RW_1 values 84, ACL_RW_2/3 values 82, no\n"
      "RUNTIME_LC_INFO; 4.1: flow-thru keys 18, RW values 82; 4.2: flow-thru keys 22, RW values 82.\n"
      "All: flow-thru values 4 bytes, RW keys 10, ELS values 37. Each violation is printed as the\n"
      "record's key in hex, its type and what is wrong. Slots are looked up as the conversion does\n"
      "(PLAT_PORTMAP_TABLE applies). Exit status 0 when clean, 1 on violations, 2 on error.\n\n"
      "Example:\n"
      "  wayshunt-convert verify --era 3.2 /tmp/img/wayshunt_runtime_ha.mdb\n"
      "  wayshunt-convert verify --era 4.2 --after-upgrade /tmp/img\n"
      "  wayshunt-convert verify --era 3.2 --after-downgrade nonvolatile:/tmp/img/wayshunt_runtime_ha");
  cmd->callback([o] { run_verify(*o); });
}

}  // namespace wsc
