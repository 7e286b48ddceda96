// 'gen': a synthetic store of a chosen era and size (see synth.h).
#include <filesystem>
#include <iostream>
#include <memory>

#include "commands/commands.h"
#include "device/folder_lock.h"
#include "records/era.h"
#include "store/store_io.h"
#include "store/synth.h"

namespace wsc {

namespace {

struct GenOptions {
  std::string era;
  size_t records = 0;
  uint64_t seed = 1;
  bool force = false;
  double wait = 0;
  std::string store;
};

void run_gen(const GenOptions &o) {
  StoreRef store = resolve_store(o.store, true);
  FolderLock lock(std::filesystem::path(store.file).parent_path(), "store folder of " + store.file, o.wait);
  Records records = synthesize_store(era_from_name(o.era), o.records, o.seed);
  write_store(store, records, o.force, true);
  std::cout << "wrote " << records.size() << " records of era " << o.era << " to " << store.file << "\n";
}

}  // namespace

void add_gen_command(CLI::App &app) {
  auto o = std::make_shared<GenOptions>();
  CLI::App *cmd = app.add_subcommand("gen", "Write a realistic synthetic store of a release era.");
  cmd->add_option("--era", o->era, "Release era of the stored forms: 3.2, 4.1 (above 3.2, below 4.2) or 4.2 (and above)")
      ->required()
      ->check(CLI::IsMember(kEraNames));
  cmd->add_option("--records", o->records, "Number of records")->required()->check(CLI::Range(size_t{1}, size_t{100000000}));
  cmd->add_option("--seed", o->seed, "Seed: the same seed, era and size give the same store")->capture_default_str();
  cmd->add_flag("--force", o->force, "Replace the store if it exists");
  cmd->add_option("--wait", o->wait, kWaitHelp);
  cmd->add_option("store", o->store, kStoreArgHelp)->required();
  cmd->footer(
      "The store holds targets behind storage arrays and hosts in a few fabrics: flow-thru\n"
      "records, RW ACL entries (a third on ISLs, in groups of physical and virtual entries on\n"
      "one slot with one source pair), ELS ACL entries on line-card slots 1-4 and 7-10 and some\n"
      "port-channels, and outside 3.2 one RUNTIME_LC_INFO record per slot. A progress bar shows\n"
      "on a terminal for 10000 records or more.\n\n"
      "Example:\n"
      "  wayshunt-convert gen --era 3.2 --records 100000 --seed 7 /tmp/img/mnt/kvs");
  cmd->callback([o] { run_gen(*o); });
}

}  // namespace wsc
