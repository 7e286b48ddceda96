// 'dump': the records of a store, decoded, as a table or as JSON.
#include <cstdio>
#include <iostream>
#include <map>
#include <memory>

#include "commands/commands.h"
#include "store/json_store.h"
#include "records/json_codec.h"
#include "store/store_io.h"

namespace wsc {

namespace {

struct DumpOptions {
  std::string store;
  bool json = false;
  bool all = false;
};

void print_table(const Records &records, bool all) {
  std::printf("%6s  %-16s %4s %4s  %s\n", "#", "TYPE", "KEY", "VAL", "FIELDS");
  std::map<std::string, size_t> per_type;
  for (size_t i = 0; i < records.size(); ++i) {
    const Record &r = records[i];
    std::string fields;
    for (const auto &[name, value] : record_fields(r, all)) fields += (fields.empty() ? "" : " ") + name + "=" + value;
    std::printf("%6zu  %-16s %4zu %4zu  %s\n", i, type_label(r.type()).c_str(), r.key.size(), r.value.size(),
                fields.c_str());
    ++per_type[type_label(r.type())];
  }
  std::string summary;
  for (const auto &[type, n] : per_type) summary += (summary.empty() ? "" : ", ") + type + " " + std::to_string(n);
  std::printf("%zu records%s%s\n", records.size(), summary.empty() ? "" : ": ", summary.c_str());
}

void run_dump(const DumpOptions &o) {
  Records records = read_store(resolve_store(o.store));
  if (o.json)
    std::cout << store_to_json(records).dump(2) << "\n";
  else
    print_table(records, o.all);
  std::cout.flush();
}

}  // namespace

void add_dump_command(CLI::App &app) {
  auto o = std::make_shared<DumpOptions>();
  CLI::App *cmd = app.add_subcommand("dump", "Print the records of a store, decoded by their stored form.");
  cmd->add_option("store", o->store, kStoreArgHelp)->required();
  cmd->add_flag("--json", o->json, "Write JSON (the input of 'load') instead of a table");
  cmd->add_flag("--all", o->all, "Show every field in the table, not only the main ones");
  cmd->footer(
      "The table shows one record per line: its type, key and value sizes, and its main fields\n"
      "(worldwide names as aa:bb:..., acl_flags by name, interfaces as fc3/12 or port-channel5).\n"
      "A key or value in no known form of its type is shown as hex.\n\n"
      "Example:\n"
      "  wayshunt-convert dump /tmp/img/mnt/kvs\n"
      "  wayshunt-convert dump --json /tmp/img/mnt/kvs > store.json");
  cmd->callback([o] { run_dump(*o); });
}

}  // namespace wsc
