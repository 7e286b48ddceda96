// 'run': a release move on a device image, played as the upgrade manager
// plays it: release descriptors written, the image shown at /bootflash and
// /mnt/kvs, the conversion library loaded and its entry points called,
// between a forecast and an audit (commands/move_flow.h). With --dry-run the
// move runs on a copy and only its differences are printed.
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>

#include "commands/commands.h"
#include "commands/move_flow.h"
#include "device/conversion_run.h"
#include "device/fault_option.h"
#include "device/folder_lock.h"
#include "store/store_io.h"
#include "plat_ctl.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

// A move writes the store, the conversion log, the history and the image's
// folders: all must be the user's to write without the namespace's help.
void check_image_writable(const DeviceImage &img) {
  check_writable(img.store_file(), "store");
  check_writable(img.log_file(), "conversion log");
  check_writable(img.dir + "/.", "image");
}

void run_command(const MoveOptions &o) {
  check_version("--from", o.from);
  check_version("--to", o.to);
  check_fault_rules(o.faults);
  disarm_faults();         // the tool's own reads meet no rule; each conversion arms its own
  plat_journal_set(nullptr);  // nor are they journaled: the journal is the move's
  unsetenv("PLAT_KVS_ROOT");  // the image's paths are meant as they stand, by the tool as by the library
  DeviceImage img = image_at(o.image, true);
  FolderLock lock(img.mnt_kvs(), "image " + img.dir, o.wait);
  if (!o.dry_run) check_image_writable(img);
  std::string library = o.library.empty() ? find_library(o.trace) : fs::absolute(o.library).string();
  ConversionLibrary lib(library);  // loaded before the image is touched: a bad library changes nothing
  std::ostream null_out(nullptr);
  InterruptGuard interrupts;  // told, then obeyed: exit 128 + the signal
  MoveVerdict v = run_move(o, lib, img, o.json ? null_out : std::cout);
  if (o.json) std::cout << v.doc.dump(2) << "\n";
  std::cout.flush();
  if (v.interrupted) throw CLI::RuntimeError(128 + v.interrupted);
  if (!v.statuses_ok || v.damaged) throw CLI::RuntimeError(kExitFound);
}

}  // namespace

void add_run_command(CLI::App &app) {
  auto o = std::make_shared<MoveOptions>();
  CLI::App *cmd = app.add_subcommand("run", "Run a release move on a device image, as the upgrade manager runs it.");
  cmd->add_option("--from", o->from, "Release being left, e.g. 3.2(1)")->required();
  cmd->add_option("--to", o->to, "Release being entered, e.g. 4.2(1a)")->required();
  cmd->add_option("--image", o->image, "Device image folder (layout below)")->required();
  cmd->add_option("--step", o->step, "Entry point to call: running, startup, gsync, fs_upg (convert_running_fs_upg), "
                                     "or all (running, startup, gsync in that order)")
      ->check(CLI::IsMember({"running", "startup", "gsync", "fs_upg", "all"}))
      ->capture_default_str();
  CLI::Option *trace = cmd->add_flag("--trace", o->trace, "Load the trace build, which logs every step");
  CLI::Option *lib = cmd->add_option("--library", o->library, "Load this libconvertwayshunt.so instead of the one beside the tool");
  trace->excludes(lib);
  cmd->add_flag("--dry-run", o->dry_run, "Convert a copy of the image and print what changed; the image stays as it is");
  CLI::Option *no_audit = cmd->add_flag("--no-audit", o->no_audit, "Run the move alone: no forecast before it, no audit after it");
  no_audit->excludes(cmd->get_option("--dry-run"));
  cmd->add_option("--wait", o->wait, kWaitHelp);
  cmd->add_flag("--force", o->force, "Convert the store even when its forms are not those of the release --from names");
  cmd->add_flag("--json", o->json, "Write what the run did as JSON (shape in the operator guide)");
  cmd->add_flag("--quiet", o->quiet, "Shorter: the forecast's one line and the store's counts only");
  cmd->add_option("--fault", o->faults, "Make a platform call fail, e.g. kvs_store:3 (rules below); repeatable")
      ->allow_extra_args(false);
  cmd->footer(
      "Device image layout (only the runtime store in mnt/kvs/ must exist; missing folders are created):\n"
      "  bootflash/   shown at /bootflash: the conversion log, and the image's history of moves\n"
      "  mnt/kvs/     shown at /mnt/kvs: the runtime store (convert_gsync's path is \"/mnt/kvs\") and the\n"
      "               service's twelve stored files\n"
      "  standby/     the standby supervisor's file system (copies arrive at standby/mnt/kvs/)\n"
      "  hub/         the hub's socket folder, where 'service' plays the running service\n"
      "  reldesc/     from.reldesc and to.reldesc, written by each run\n"
      "The image is mapped in a private mount namespace: no root needed, the machine's / is untouched.\n"
      "Before anything is converted, the store's forms are checked against the release --from names;\n"
      "a store of another era is refused (exit 2) unless --force is given.\n"
      "A move runs in three parts, each conversion by the library itself in a process of its own:\n"
      "  forecast  the library converts a copy of the image (with the fault rules given), and what it did\n"
      "            is told record by record: lost (information no field keeps), repaired (flags, slots),\n"
      "            reshaped (sizes, where only zero bytes go) and new records; lost ones are named first\n"
      "  move      each call printed with its status and text, the files that reached the standby and\n"
      "            the lines it wrote to the conversion log; the first non-zero status stops the move\n"
      "  audit     the store the move left against a clean conversion (no fault rules) of a copy of the\n"
      "            store as it was, the era's invariants, and the service's files on the standby byte for\n"
      "            byte; each difference is named with the failed platform call that explains it\n"
      "The move starts once the store has passed the check, while the forecast is told; the reports are\n"
      "printed in the order above. The last line is the audit's verdict. Each run adds a record to the\n"
      "image's history ('history').\n"
      "--dry-run converts a copy only and prints the forecast and the 'diff' of the store; --no-audit\n"
      "runs the move alone. A move below 3.2 asks the running service to decommission: start\n"
      "'wayshunt-convert service' on the image first, or the request fails (logged) and the files are\n"
      "copied all the same; the forecast's copy never reaches the service.\n"
      "Exit status: 0 every status was 0 and the audit is clean; 1 a conversion returned non-zero or\n"
      "the audit found damage; 2 bad arguments or setup, or a store that does not match --from.\n\n" +
      std::string(kFaultHelp) + "\n"
      "Example:\n"
      "  wayshunt-convert run --from \"3.2(1)\" --to \"4.2(1)\" --image /tmp/img\n"
      "  wayshunt-convert run --from \"4.2(1)\" --to \"3.1(1)\" --image /tmp/img --step startup --trace\n"
      "  wayshunt-convert run --from \"4.2(1)\" --to \"3.2(1)\" --image /tmp/img --dry-run\n"
      "  wayshunt-convert run --from \"4.2(1)\" --to \"4.1(3)\" --image /tmp/img --fault kvs_store:3");
  cmd->callback([o] { run_command(*o); });
}

}  // namespace wsc
