// 'verify': checks a store against the invariants of its era, and with
// --after-upgrade / --after-downgrade against what a move up or down leaves
// behind (compare/invariants.h lists them). Slots are looked up through the
// conversion library, as its conversions look them up.
#include <cstring>
#include <set>
#include <iostream>
#include <memory>

#include "commands/commands.h"
#include "compare/invariants.h"
#include "device/conversion_library.h"
#include "records/era.h"
#include "records/formats.h"
#include "records/json_codec.h"
#include "store/store_io.h"
#include "tool_error.h"

namespace wsc {

namespace {

struct VerifyOptions {
  std::string era;
  bool after_upgrade = false;
  bool after_downgrade = false;
  bool json = false, quiet = false;
  std::string store;
};

void print_text(const std::vector<Violation> &found, const StoreRef &store,
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

Json to_json(const std::vector<Violation> &found, const StoreRef &store, size_t records,
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
  ConversionLibrary lib(find_library(false));
  After after = o.after_upgrade ? After::upgrade : o.after_downgrade ? After::downgrade : After::nothing;
  auto found = violations(records, era, after, [&lib](uint32_t i) { return lib.slot_of(i); });
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
      "(PLAT_PORTMAP_TABLE applies).\nExit status 0 when clean, 1 on violations, 2 on error.\n\n"
      "Example:\n"
      "  wayshunt-convert verify --era 3.2 /tmp/img/mnt/kvs\n"
      "  wayshunt-convert verify --era 4.2 --after-upgrade /tmp/img\n"
      "  wayshunt-convert verify --era 3.2 --after-downgrade /tmp/img/mnt/kvs");
  cmd->callback([o] { run_verify(*o); });
}

}  // namespace wsc
