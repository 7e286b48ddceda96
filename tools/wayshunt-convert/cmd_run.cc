// 'run': a release move on a device image, played as the upgrade manager
// plays it: release descriptors written, the image shown at /bootflash and
// /mnt/kvs, the conversion library loaded and its entry points called. With
// --dry-run the move runs on a copy and only its differences are printed.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>

#include "commands.h"
#include "device_image.h"
#include "fault_option.h"
#include "store_compare.h"
#include "store_io.h"
#include "store_profile.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

struct RunOptions {
  std::string from, to, image, step = "all", library;
  bool trace = false, dry_run = false;
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

// Prints the store's changes as 'diff' prints them.
void print_store_diff(const std::string &before, const std::string &after) {
  StoreRef a = resolve_store(before), b = resolve_store(after);
  Records ra = read_store(a), rb = read_store(b);
  bool color = isatty(STDOUT_FILENO) && !std::getenv("NO_COLOR");
  print_changes(compare_stores(ra, rb), a.file, b.file, color, std::cout);
}

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

void print_dry_run_changes(const DeviceImage &img, const DeviceImage &work, const TempFolder &temp,
                           const FileSet &standby_before) {
  std::cout << "dry run: changes to the runtime store:\n";
  print_store_diff(temp.path() + "/before/wayshunt_runtime_ha.mdb", work.store_file());
  std::vector<std::string> standby = file_changes(standby_before, files_below(work.standby()), "  ");
  std::cout << "dry run: changes to the standby: " << (standby.empty() ? "none" : "") << "\n";
  for (const std::string &line : standby) std::cout << line << "\n";
  std::cout << "dry run: " << img.dir << " was not changed\n";
}

// After a rehearsed failure: what the store holds now.
void print_store_after(const DeviceImage &work) {
  StoreRef store = resolve_store(work.store_file());
  StoreProfile p = profile_store(read_store(store));
  std::cout << "runtime store after the move: " << p.records << " records, era " << era_verdict(p) << "; look with "
            << "'wayshunt-convert info " << work.mnt_kvs() << "' or 'dump'\n";
}

void run_move(const RunOptions &o) {
  check_version("--from", o.from);
  check_version("--to", o.to);
  check_fault_rules(o.faults);
  DeviceImage img = image_at(o.image, true);
  std::string library = o.library.empty() ? find_library(o.trace) : fs::absolute(o.library).string();

  std::unique_ptr<TempFolder> temp;
  if (o.dry_run) temp = std::make_unique<TempFolder>();
  DeviceImage work = o.dry_run ? copy_for_dry_run(img, *temp) : img;
  make_image_folders(work);
  check_hub_dir(work.hub());
  FileSet standby_before = files_below(work.standby());
  prepare_move(work, o.from, o.to);
  enter_device_root(work);

  bool ok;
  {
    ConversionLibrary lib(library);
    std::cout << "move " << o.from << " -> " << o.to << " on " << img.dir << (o.dry_run ? " (dry run on a copy)" : "")
              << ", library " << library << "\n";
    // Fault rules count the library's calls only; none is set on a plain run.
    if (o.dry_run || !o.faults.empty()) arm_faults(o.faults);
    ok = run_steps(lib, work, steps_of(o.step), o.from, o.to, std::cout);
    if (o.dry_run || !o.faults.empty()) disarm_faults();
  }
  if (!o.faults.empty()) print_store_after(work);
  if (o.dry_run) print_dry_run_changes(img, work, *temp, standby_before);
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
      "--dry-run copies the image to $TMPDIR, runs there (hub folder included, so no service is reached),\n"
      "prints the 'diff' of the runtime store and the standby's changed files, and removes the copy.\n"
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
