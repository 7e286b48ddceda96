// 'run': a release move on a device image, played as the upgrade manager
// plays it: release descriptors written, the image shown at /bootflash and
// /mnt/kvs, the conversion library loaded and its entry points called. With
// --dry-run the move runs on a copy and only its differences are printed.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>

#include "commands/commands.h"
#include "device/device_image.h"
#include "device/fault_option.h"
#include "compare/move_losses.h"
#include "records/json_codec.h"
#include "compare/store_compare.h"
#include "store/store_io.h"
#include "compare/store_profile.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

struct RunOptions {
  std::string from, to, image, step = "all", library;
  bool trace = false, dry_run = false, json = false, quiet = false;
  std::vector<std::string> faults;
};

std::vector<Step> steps_of(const std::string &step) {
  if (step == "running") return {Step::running};
  if (step == "startup") return {Step::startup};
  if (step == "gsync") return {Step::gsync};
  if (step == "fs_upg") return {Step::fs_upg};
  return {Step::running, Step::startup, Step::gsync};
}

// Copies the folder tree; sockets and other special files (the hub's) are left out.
void copy_tree(const fs::path &from, const fs::path &to) {
  fs::create_directories(to);
  for (auto it = fs::recursive_directory_iterator(from); it != fs::recursive_directory_iterator(); ++it) {
    fs::path dst = to / it->path().lexically_relative(from);
    fs::file_status st = it->symlink_status();
    if (fs::is_directory(st))
      fs::create_directory(dst);
    else if (fs::is_regular_file(st))
      fs::copy_file(it->path(), dst);
    else if (fs::is_symlink(st))
      fs::copy_symlink(it->path(), dst);
  }
}

// A temporary folder removed with its contents at the end of the scope.
class TempFolder {
 public:
  TempFolder() {
    const char *tmp = std::getenv("TMPDIR");
    std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/wayshunt-dry.XXXXXX";
    if (!mkdtemp(tmpl.data())) throw ToolError("cannot create a temporary folder in " + tmpl + "; set TMPDIR to a writable folder");
    path_ = tmpl;
  }
  ~TempFolder() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  TempFolder(const TempFolder &) = delete;
  TempFolder &operator=(const TempFolder &) = delete;
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

// The copy of the image a dry run converts, with the store as it was kept
// aside in <temp>/before.
DeviceImage copy_for_dry_run(const DeviceImage &img, const TempFolder &temp) {
  DeviceImage work{temp.path() + "/image"};
  try {
    copy_tree(img.dir, work.dir);
    fs::create_directories(temp.path() + "/before");
    fs::copy_file(work.store_file(), temp.path() + "/before/wayshunt_runtime_ha.mdb");
  } catch (const fs::filesystem_error &e) {
    throw ToolError(std::string("cannot copy the image for a dry run: ") + e.what() + "; check free space in TMPDIR");
  }
  return work;
}

// What a run reports: text on out (a null stream with --json), and the
// same facts in doc for --json.
struct Report {
  const RunOptions &o;
  std::ostream &out;
  Json doc = Json::object();
  bool color() const { return isatty(STDOUT_FILENO) && !std::getenv("NO_COLOR"); }
};

// The store's changes as 'diff' prints them (counts only with --quiet).
void report_store_diff(Report &r, const std::string &before, const std::string &after) {
  StoreRef a = resolve_store(before), b = resolve_store(after);
  Records ra = read_store(a), rb = read_store(b);
  StoreChanges c = compare_stores(ra, rb);
  r.doc["store_changes"] = changes_to_json(c);
  if (r.o.quiet)
    print_change_counts(c, r.out);
  else
    print_changes(c, a.file, b.file, r.color(), r.out);
}

void report_dry_run_changes(Report &r, const DeviceImage &img, const DeviceImage &work, const TempFolder &temp,
                            const FileSet &standby_before) {
  r.out << "dry run: changes to the runtime store:\n";
  report_store_diff(r, temp.path() + "/before/wayshunt_runtime_ha.mdb", work.store_file());
  std::vector<std::string> standby = file_changes(standby_before, files_below(work.standby()), "");
  r.doc["standby_changes"] = standby;
  r.out << "dry run: changes to the standby: " << (standby.empty() ? "none" : "") << "\n";
  for (const std::string &line : standby) r.out << "  " << line << "\n";
  r.out << "dry run: " << img.dir << " was not changed\n";
}

// What the move's store conversions will drop, foreseen from the store
// before the library writes anything. Only convert_gsync and
// convert_running_fs_upg convert the store.
void report_losses(Report &r, ConversionLibrary &lib, const DeviceImage &work) {
  bool down = false;
  std::vector<std::string> conversions;
  if (r.o.step == "all" || r.o.step == "gsync" || r.o.step == "fs_upg")
    conversions = lib.store_conversions(r.o.from, r.o.to, down);
  // The forecast asks the interface map as it stands and meets no fault rule
  // (--fault or PLAT_FAULTS): a rule counts calls, and the library makes
  // lookups of its own besides one per record (the 3.2 trunk and target
  // fix-ups) in an order of its own, so an N-th-call rule applied here would
  // name other records than the move's. The rules apply to the move that
  // follows, whose result shows them.
  disarm_faults();
  MoveLosses m = foresee_losses(read_store(resolve_store(work.store_file())), conversions, down);
  r.doc["losses"] = losses_to_json(m);
  if (r.o.quiet)
    r.out << loss_headline(m) << "\n";
  else
    print_losses(m, r.out);
}

// After a rehearsed failure: what the store holds now.
void report_store_after(Report &r, const DeviceImage &work) {
  StoreRef store = resolve_store(work.store_file());
  StoreProfile p = profile_store(read_store(store));
  r.doc["store_after"] = profile_to_json(p, store.file);
  r.out << "runtime store after the move: " << p.records << " records, era " << era_verdict(p);
  if (r.o.dry_run)  // the copy goes at the end: name no path to look at
    r.out << " (the dry run's copy; its changes follow)\n";
  else
    r.out << "; look with 'wayshunt-convert info " << work.mnt_kvs() << "' or 'dump'\n";
}

Json steps_json(const std::vector<StepResult> &steps) {
  Json j = Json::array();
  for (const StepResult &s : steps)
    j.push_back({{"call", s.call}, {"status", s.status}, {"status_text", s.status_text}, {"standby", s.standby},
                 {"log", s.log}});
  return j;
}

// Calls the steps; the move's losses first on a dry run.
bool call_steps(Report &r, ConversionLibrary &lib, const std::string &library, const DeviceImage &img,
                const DeviceImage &work) {
  const RunOptions &o = r.o;
  if (o.dry_run) report_losses(r, lib, work);
  r.out << "move " << o.from << " -> " << o.to << " on " << img.dir << (o.dry_run ? " (dry run on a copy)" : "")
        << ", library " << library << "\n";
  r.doc["move"] = {{"from", o.from}, {"to", o.to}, {"image", img.dir}, {"step", o.step}, {"dry_run", o.dry_run},
                   {"library", library}};
  // Fault rules count the library's calls only; none is set on a plain run.
  if (o.dry_run || !o.faults.empty()) arm_faults(o.faults);
  std::vector<StepResult> steps;
  bool ok = run_steps(lib, work, steps_of(o.step), o.from, o.to, r.out, &steps);
  if (o.dry_run || !o.faults.empty()) disarm_faults();
  r.doc["steps"] = steps_json(steps);
  r.doc["ok"] = ok;
  return ok;
}

void run_move(const RunOptions &o) {
  check_version("--from", o.from);
  check_version("--to", o.to);
  check_fault_rules(o.faults);
  DeviceImage img = image_at(o.image, true);
  std::string library = o.library.empty() ? find_library(o.trace) : fs::absolute(o.library).string();
  ConversionLibrary lib(library);  // loaded before the image is touched: a bad library changes nothing

  std::unique_ptr<TempFolder> temp;
  if (o.dry_run) temp = std::make_unique<TempFolder>();
  DeviceImage work = o.dry_run ? copy_for_dry_run(img, *temp) : img;
  make_image_folders(work);
  check_hub_dir(work.hub());
  FileSet standby_before = files_below(work.standby());
  prepare_move(work, o.from, o.to);
  enter_device_root(work);

  std::ostream null_out(nullptr);
  Report r{o, o.json ? null_out : std::cout};
  bool ok = call_steps(r, lib, library, img, work);
  if (!o.faults.empty()) report_store_after(r, work);
  if (o.dry_run) report_dry_run_changes(r, img, work, *temp, standby_before);
  if (o.json) std::cout << r.doc.dump(2) << "\n";
  std::cout.flush();
  if (!ok) throw CLI::RuntimeError(kExitFound);
}

}  // namespace

void add_run_command(CLI::App &app) {
  auto o = std::make_shared<RunOptions>();
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
  cmd->add_flag("--json", o->json, "Write what the run did as JSON (shape in the operator guide)");
  cmd->add_flag("--quiet", o->quiet, "Shorter: the losses' one line and the store's counts only");
  cmd->add_option("--fault", o->faults, "Make a platform call fail, e.g. kvs_store:3 (rules below); repeatable")
      ->allow_extra_args(false);
  cmd->footer(
      "Device image layout (only mnt/kvs/wayshunt_runtime_ha.mdb must exist; missing folders are created):\n"
      "  bootflash/   shown at /bootflash: the conversion log wayshunt_cnv.log\n"
      "  mnt/kvs/     shown at /mnt/kvs: the runtime store wayshunt_runtime_ha.mdb (convert_gsync's path\n"
      "               is \"/mnt/kvs\") and the service's twelve files wayshunt_*.{dat,kvs,map}\n"
      "  standby/     the standby supervisor's file system (copies arrive at standby/mnt/kvs/)\n"
      "  hub/         the hub's socket folder, where 'service' plays the running service\n"
      "  reldesc/     from.reldesc and to.reldesc, written by each run\n"
      "The image is mapped in a private mount namespace: no root needed, the machine's / is untouched.\n"
      "Each call is printed with its status and text, then the files that reached the standby and the\n"
      "lines the call wrote to the conversion log. The first non-zero status stops the move.\n"
      "A move below 3.2 asks the running service to decommission: start 'wayshunt-convert service' on the\n"
      "image first, or the request fails (logged) and the files are copied all the same.\n"
      "--dry-run copies the image to $TMPDIR, first names what the move's store conversions will drop (one\n"
      "line with the counts, then the records: vsan of narrowed flow-thru keys, records collapsing into one,\n"
      "flow-thru values set to 0, line card records deleted on the way to 3.2, RW values cut from 84 to 82\n"
      "bytes, records getting slot 255), runs there (hub folder included, so no service is reached), prints\n"
      "the 'diff' of the runtime store and the standby's changed files, and removes the copy.\n"
      "The forecast asks the interface map as it stands: fault rules (--fault, PLAT_FAULTS) count the\n"
      "library's calls, whose lookups the forecast cannot replay, so they apply to the move only and\n"
      "show in its result and diff, not in the forecast.\n"
      "Exit status: 0 every status was 0; 1 a conversion returned non-zero; 2 bad arguments or setup.\n\n" +
      std::string(kFaultHelp) + "\n"
      "Example:\n"
      "  wayshunt-convert run --from 3.2(1) --to 4.2(1) --image /tmp/img\n"
      "  wayshunt-convert run --from 4.2(1) --to 3.1(1) --image /tmp/img --step startup --trace\n"
      "  wayshunt-convert run --from 4.2(1) --to 3.2(1) --image /tmp/img --dry-run\n"
      "  wayshunt-convert run --from 4.2(1) --to 4.1(3) --image /tmp/img --fault kvs_store:3");
  cmd->callback([o] { run_move(*o); });
}

}  // namespace wsc
