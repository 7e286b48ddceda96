// 'info': what a store is at a glance (see store_profile.h).
#include <filesystem>
#include <iostream>
#include <memory>

#include "commands/commands.h"
#include "device/move_marker.h"
#include "store/store_io.h"
#include "compare/store_profile.h"

namespace wsc {

namespace {

struct InfoOptions {
  std::string store;
  bool json = false;
};

// A store in a device image where a move stopped before its end: the
// store may stand between two of the move's passes, whatever its forms say.
std::string stopped_move(const std::string &file, const StoreProfile &p) {
  std::optional<DeviceImage> img = image_of_store_folder(std::filesystem::path(file).parent_path());
  std::optional<MoveMark> m = img ? move_mark(*img) : std::nullopt;
  if (!m) return "";
  return "forms of " + era_verdict(p) + ", left by a move " + m->from + " -> " + m->to + " that stopped before its end" +
         (m->stopped.empty() ? " (or is under way)" : " (" + m->stopped + ")") +
         "; run the same move again to finish it";
}

void run_info(const InfoOptions &o) {
  StoreRef store = resolve_store(o.store);
  Records records = read_store(store);
  StoreProfile p = profile_store(records);
  std::string stopped = stopped_move(store.file, p);
  Json j = profile_to_json(p, store.file);
  if (!stopped.empty()) j["stopped_move"] = stopped;
  if (o.json)
    std::cout << j.dump(2) << "\n";
  else
    print_profile(p, store.file, std::cout);
  if (!o.json && !stopped.empty()) std::cout << "stopped: " << stopped << "\n";
  std::cout.flush();
}

}  // namespace

void add_info_command(CLI::App &app) {
  auto o = std::make_shared<InfoOptions>();
  CLI::App *cmd = app.add_subcommand("info", "Show what a store is at a glance: records, sizes and era per key type.");
  cmd->add_option("store", o->store, kStoreArgHelp)->required();
  cmd->add_flag("--json", o->json, "Write the summary as JSON");
  cmd->footer(
      "Prints the records and bytes (keys and values) per key type, the key and value sizes found\n"
      "per type (with their counts where a type has more than one), and the release era whose stored\n"
      "forms every record fits: 3.2, 4.1.3 or lower, 4.2 and above; 'either of: ...' when the forms\n"
      "cannot tell (no flow-thru record, say); 'mixed' when no era fits all, naming the records that do\n"
      "not fit the era most records fit. A store moved down keeps its later RW values, so a store\n"
      "moved down to 3.2 reads as 4.1.3 or lower.\nExit status 0, or 2 on error.\n\n"
      "Example:\n"
      "  wayshunt-convert info /tmp/img/mnt/kvs\n"
      "  wayshunt-convert info --json /tmp/img/mnt/kvs");
  cmd->callback([o] { run_info(*o); });
}

}  // namespace wsc
