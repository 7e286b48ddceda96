// 'gen': a synthetic store of a chosen era and size (see synth.h), or with
// --fleet a folder of device images of several eras, sizes and shapes
// (see fleet.h).
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "commands/commands.h"
#include "device/fleet.h"
#include "device/folder_lock.h"
#include "records/era.h"
#include "records/formats.h"
#include "store/progress.h"
#include "store/store_io.h"
#include "store/synth.h"

namespace wsc {

namespace {

constexpr size_t kMaxRecords = 100000000;

struct GenOptions {
  std::string era;
  std::string records;
  uint64_t seed = 1;
  bool force = false;
  double wait = 0;
  std::string store;
  std::string fleet;
  size_t images = 0;
  std::vector<std::string> eras = kEraNames;
};

// "N" or "LOW..HIGH", each 1 to kMaxRecords. Throws std::invalid_argument.
std::pair<size_t, size_t> record_range(const std::string &text) {
  size_t dots = text.find("..");
  auto count = [](const std::string &part) {
    size_t n = parse_number(part, kMaxRecords);
    if (n == 0) throw std::invalid_argument("a store holds at least 1 record");
    return n;
  };
  size_t low = count(text.substr(0, dots)), high = dots == std::string::npos ? low : count(text.substr(dots + 2));
  if (low > high) throw std::invalid_argument("the range " + text + " is empty; give LOW..HIGH with LOW <= HIGH");
  return {low, high};
}

void run_gen(const GenOptions &o) {
  if (o.era.empty()) throw CLI::RequiredError("--era");
  if (o.store.empty()) throw CLI::RequiredError("store");
  auto [count, high] = record_range(o.records);
  if (count != high) throw CLI::ValidationError("--records", "a range of counts is for --fleet; give one number");
  StoreRef store = resolve_store(o.store, true);
  FolderLock lock(std::filesystem::path(store.file).parent_path(), "store folder of " + store.file, o.wait);
  Records records = synthesize_store(era_from_name(o.era), count, o.seed);
  write_store(store, records, o.force, true);
  std::cout << "wrote " << records.size() << " records of era " << o.era << " to " << store.file << "\n";
}

void run_fleet(const GenOptions &o) {
  if (o.images == 0) throw CLI::RequiredError("--images");
  FleetOrder order{std::filesystem::absolute(o.fleet).lexically_normal().string(), o.images, 0, 0, {}, o.seed};
  while (order.dir.size() > 1 && order.dir.back() == '/') order.dir.pop_back();
  std::tie(order.min_records, order.max_records) = record_range(o.records);
  for (const std::string &e : o.eras) order.eras.push_back(era_from_name(e));
  FolderLock lock(order.dir, "fleet folder " + order.dir, o.wait);
  std::vector<FleetImage> plan = plan_fleet(order);
  size_t total = 0, done = 0;
  for (const FleetImage &f : plan) total += f.records;
  const int width = static_cast<int>(std::to_string(order.max_records).size());
  {
    Progress bar("fleet", total);
    make_fleet(order, plan, o.force, [&](const FleetImage &f) {
      bar.clear();
      std::cout << f.name << "  " << era_name(f.era) << "  " << std::setw(width) << f.records << " records  "
                << shape_list(f.shapes) << std::endl;
      bar.update(done += f.records);
    });
  }
  std::cout << "wrote " << plan.size() << (plan.size() == 1 ? " device image of " : " device images of ") << total << " records to " << order.dir << " (seed " << o.seed
            << "); images per shape:";
  for (unsigned i = 0; i < kShapeCount; ++i) {
    size_t n = 0;
    for (const FleetImage &f : plan) n += (f.shapes >> i) & 1u;
    std::cout << (i ? ", " : " ") << kShapeNames[i] << " " << n;
  }
  std::cout << "\n";
}

}  // namespace

void add_gen_command(CLI::App &app) {
  auto o = std::make_shared<GenOptions>();
  CLI::App *cmd = app.add_subcommand("gen", "Write a realistic synthetic store of a release era, or a fleet of device images.");
  CLI::Option *fleet =
      cmd->add_option("--fleet", o->fleet, "Write a fleet of device images in this folder (new or empty) instead of one store")
      ->type_name("DIR");
  cmd->add_option("--era", o->era, "Release era of the stored forms: 3.2, 4.1 (above 3.2, below 4.2) or 4.2 (and above)")
      ->check(CLI::IsMember(kEraNames))
      ->excludes(fleet);
  cmd->add_option("--records", o->records, "Number of records; with --fleet a range LOW..HIGH too, drawn per image")
      ->required()
      ->type_name("N|LOW..HIGH")
      ->check(CLI::Validator(
          [](std::string &text) {
            try {
              record_range(text);
              return std::string();
            } catch (const std::invalid_argument &e) {
              return std::string(e.what());
            }
          },
          "", "records"));
  cmd->add_option("--images", o->images, "With --fleet: number of device images")
      ->check(CLI::Range(size_t{1}, size_t{9999}))
      ->needs(fleet);
  cmd->add_option("--eras", o->eras, "With --fleet: the images' eras, taken in turn (default: 3.2,4.1,4.2)")
      ->delimiter(',')
      ->check(CLI::IsMember(kEraNames))
      ->needs(fleet);
  cmd->add_option("--seed", o->seed, "Seed: the same seed, era and size give the same store (with --fleet: the same fleet)")
      ->capture_default_str();
  cmd->add_flag("--force", o->force, "Replace the store if it exists (with --fleet: the fleet in the folder)");
  cmd->add_option("--wait", o->wait, kWaitHelp);
  cmd->add_option("store", o->store, kStoreArgHelp)->excludes(fleet);
  cmd->footer(
      "The store holds targets behind storage arrays and hosts in a few fabrics: flow-thru\n"
      "records, RW ACL entries (a third on ISLs, in groups of physical and virtual entries on\n"
      "one slot with one source pair), ELS ACL entries on line-card slots 1-4 and 7-10 and some\n"
      "port-channels, and outside 3.2 one RUNTIME_LC_INFO record per slot. A progress bar shows\n"
      "on a terminal for 10000 records or more.\n\n"
      "With --fleet DIR it writes --images device images DIR/img-01, DIR/img-02, ..., each as\n"
      "'run --image' takes it, their eras taken in turn from --eras and their record counts\n"
      "drawn from --records, all from --seed, and prints a line per image and one for the fleet.\n"
      "Each image has one or more of these shapes besides the typical store; the first images\n"
      "bring one new shape each, so that a fleet of a few images shows every one:\n"
      "  long-chains      dozens to hundreds of ISL entries of one target\n"
      "                   with PHYSICAL and VIRTUAL (3.2 and 4.1 only)\n"
      "  big-group        hundreds of ISL entries of one target, slot and\n"
      "                   source pair\n"
      "  off-layout-keys  a few ACL_RW_1 keys of 11 and 9 bytes ('info'\n"
      "                   reads the store as mixed)\n"
      "  unused-bytes     ACL_RW_1 values whose unused end is not zero (3.2)\n"
      "  port-channels    most interfaces off the ISLs are port-channels\n"
      "DIR must be new or empty; --force replaces the fleet it holds.\n\n"
      "Examples:\n"
      "  wayshunt-convert gen --era 3.2 --records 100000 --seed 7 /tmp/img/mnt/kvs\n"
      "  wayshunt-convert gen --fleet /tmp/fleet --images 20 --records 2000..50000 --seed 7");
  cmd->callback([o] { o->fleet.empty() ? run_gen(*o) : run_fleet(*o); });
}

}  // namespace wsc
