// 'diff': two stores compared record by record (by key) and field by field.
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>

#include "commands/commands.h"
#include "compare/store_compare.h"
#include "store/store_io.h"

namespace wsc {

namespace {

struct DiffOptions {
  std::string a, b;
  bool json = false, quiet = false;
  std::string color = "auto";
};

void run_diff(const DiffOptions &o) {
  StoreRef a = resolve_store(o.a), b = resolve_store(o.b);
  Records ra = read_store(a), rb = read_store(b);
  StoreChanges res = compare_stores(ra, rb);
  bool color = o.color == "always" || (o.color == "auto" && isatty(STDOUT_FILENO) && !std::getenv("NO_COLOR"));
  if (o.json)
    std::cout << changes_to_json(res).dump(2) << "\n";
  else if (o.quiet)
    print_change_counts(res, std::cout);
  else
    print_changes(res, a.file, b.file, color, std::cout);
  std::cout.flush();
  if (!res.equal()) throw CLI::RuntimeError(kExitFound);
}

}  // namespace

void add_diff_command(CLI::App &app) {
  auto o = std::make_shared<DiffOptions>();
  CLI::App *cmd = app.add_subcommand("diff", "Compare two stores record by record and field by field.");
  cmd->add_option("a", o->a, "the first store (the 'before')")->required();
  cmd->add_option("b", o->b, "the second store (the 'after')")->required();
  cmd->add_flag("--json", o->json, "Write the differences as JSON");
  cmd->add_flag("--quiet", o->quiet, "Print only the counts line");
  cmd->add_option("--color", o->color, "Colour the text: auto (on a terminal, unless NO_COLOR is set), always, never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->capture_default_str();
  cmd->footer(
      "Records are matched by key: '-' a record only in a, '+' only in b, '~' a record whose\n"
      "value changed, with each changed field and the acl_flags bits set (+) and cleared (-).\n"
      "Exit status 0 when the stores are equal, 1 when they differ, 2 on error.\n\n"
      "Example:\n"
      "  wayshunt-convert diff before/wayshunt_runtime_ha.mdb after/wayshunt_runtime_ha.mdb\n"
      "  wayshunt-convert diff --json nonvolatile:/tmp/a/wayshunt_runtime_ha /tmp/b > changes.json");
  cmd->callback([o] { run_diff(*o); });
}

}  // namespace wsc
