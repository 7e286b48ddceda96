// 'load': builds a store from the JSON that 'dump --json' writes. The whole
// document is checked before the store is touched, and the store appears
// complete or not at all.
#include <fstream>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>

#include "commands/commands.h"
#include "device/folder_lock.h"
#include "store/json_store.h"
#include "store/store_io.h"
#include "tool_error.h"

namespace wsc {

namespace {

struct LoadOptions {
  std::string json;
  std::string store;
  bool force = false;
  double wait = 0;
};

std::string read_input(const std::string &path) {
  if (path == "-") return std::string(std::istreambuf_iterator<char>(std::cin), {});
  std::ifstream in(path, std::ios::binary);
  if (!in) throw ToolError("cannot read " + path + "; check the file name");
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void run_load(const LoadOptions &o) {
  StoreRef store = resolve_store(o.store, true);
  FolderLock lock(std::filesystem::path(store.file).parent_path(), "store folder of " + store.file, o.wait);
  Records records = store_from_json_text(read_input(o.json), o.json == "-" ? "stdin" : o.json);
  write_store(store, records, o.force, true);
  std::cout << "wrote " << records.size() << " records to " << store.file << "\n";
}

}  // namespace

void add_load_command(CLI::App &app) {
  auto o = std::make_shared<LoadOptions>();
  CLI::App *cmd = app.add_subcommand("load", "Build a store from JSON as 'dump --json' writes it.");
  cmd->add_option("json", o->json, "JSON file, or - for stdin")->required();
  cmd->add_option("store", o->store, kStoreArgHelp)->required();
  cmd->add_flag("--force", o->force, "Replace the store if it exists");
  cmd->add_option("--wait", o->wait, kWaitHelp);
  cmd->footer(
      "Every record is checked first; a bad one is named with its field, e.g.\n"
      "  store.json: records[3] (ACL_RW_1): value.acl_flags: unknown flag 'ISLX' ...\n"
      "and no store is written. The store is built under a temporary name in the same\n"
      "folder and renamed into place when complete.\n\n"
      "Example:\n"
      "  wayshunt-convert dump --json /tmp/a > a.json && wayshunt-convert load a.json /tmp/b/fixture.mdb");
  cmd->callback([o] { run_load(*o); });
}

}  // namespace wsc
