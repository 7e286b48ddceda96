// 'diff': two stores compared record by record (by key) and field by field,
// or with --classify told in the classes of a move's forecast.
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>

#include "commands/commands.h"
#include "compare/classify.h"
#include "compare/store_compare.h"
#include "store/store_io.h"

namespace wsc {

namespace {

// Lost items printed with --classify; --json has them all.
constexpr size_t kShown = 20;

struct DiffOptions {
  std::string a, b;
  bool json = false, quiet = false, classify = false;
  std::string color = "auto";
};

void run_diff(const DiffOptions &o) {
  StoreRef a = resolve_store(o.a), b = resolve_store(o.b);
  Records ra = read_store(a), rb = read_store(b);
  if (o.classify) {
    Classified c = classify_changes(ra, rb, o.json ? SIZE_MAX : kShown);
    if (o.json)
      std::cout << classified_json(c, "change").dump(2) << "\n";
    else if (o.quiet)
      std::cout << change_headline(c, "change") << "\n";
    else
      print_classified(c, "change", kShown, std::cout);
    std::cout.flush();
    if (c.changed) throw CLI::RuntimeError(kExitFound);
    return;
  }
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
  cmd->add_flag("--quiet", o->quiet, "Print only the counts line (with --classify: the headline)");
  cmd->add_flag("--classify", o->classify,
                "Tell what changed from a to b as 'run' tells a move: records lost, repaired, reshaped, new");
  cmd->add_option("--color", o->color, "Colour the text: auto (on a terminal, unless NO_COLOR is set), always, never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->capture_default_str();
  cmd->footer(
      "Records are matched by key: '-' a record only in a, '+' only in b, '~' a record whose\n"
      "value changed, with each changed field and the acl_flags bits set (+) and cleared (-).\n"
      "--classify matches a record whose key changed form (a flow-thru key widened or narrowed) with\n"
      "its other self and sorts each change: lost (information b keeps nowhere), repaired (flags,\n"
      "slots, zero fields filled), reshaped (sizes, where only zero bytes go), new (records only in b).\n"
      "The operator guide gives the rules.\n"
      "Exit status 0 when the stores are equal, 1 when they differ, 2 on error.\n\n"
      "Example:\n"
      "  wayshunt-convert diff /tmp/before/mnt/kvs /tmp/img/mnt/kvs\n"
      "  wayshunt-convert diff --classify /tmp/before/mnt/kvs /tmp/img/mnt/kvs\n"
      "  wayshunt-convert diff --json /tmp/a/mnt/kvs /tmp/b/mnt/kvs > changes.json");
  cmd->callback([o] { run_diff(*o); });
}

}  // namespace wsc
