// 'rehearse': every move of a release tried on copies of many device
// images with the real library, each with its forecast and audit, in
// parallel; written as a report page, JSON and JUnit XML (rehearse/). With
// --merge, the JSON of shards run apart joined into one rehearsal.
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <set>

#include "commands/commands.h"
#include "device/conversion_library.h"
#include "device/fault_option.h"
#include "device/folder_lock.h"
#include "device/history.h"
#include "records/form_tables.h"
#include "records/formats.h"
#include "rehearse/fleet_run.h"
#include "rehearse/rehearsal_doc.h"
#include "plat_ctl.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

struct RehearseOptions {
  std::vector<std::string> inputs, moves, faults, allow_loss;
  bool ladder = false, merge = false, quiet = false;
  std::string out, shard = "1/1", library;
  unsigned jobs = 0;
  double wait = 0;
};

// "rehearsal-20261125-101500", in the current folder.
std::string default_out() { return time_now("rehearsal-%Y%m%d-%H%M%S", true); }

// Key type names as the reports write them.
std::set<std::string> loss_classes(const std::vector<std::string> &given) {
  std::set<std::string> out;
  for (const std::string &g : given) {
    std::optional<uint8_t> t = parse_key_type(g);
    if (!t) throw ToolError("--allow-loss " + g + ": no key type (e.g. FLOW_THRU_HOST, ACL_RW_1, RUNTIME_LC_INFO)");
    out.insert(type_label(*t));
  }
  return out;
}

// A failure without the failed call's arguments, which the outputs have.
std::string without_call(const std::string &failure) { return failure.substr(0, failure.find(" (failed call: ")); }

// What the outputs say at the end: where they are and the cases' tally.
void tell(const RehearseOptions &o, const std::string &out, const Json &doc) {
  size_t failed = failed_cases(doc), cases = doc["cells"].size();
  for (const Json &img : doc["images"]) cases += !img["error"].get<std::string>().empty();
  auto n = [](size_t k, const char *one, const char *many) { return std::to_string(k) + " " + (k == 1 ? one : many); };
  std::cout << "rehearsal: " << n(doc["images"].size(), "image", "images") << ", " << n(doc["cells"].size(), "move", "moves")
            << ", " << failed
            << " failed" << (doc["rehearsal"]["interrupted"].get<bool>() ? " (interrupted: the moves that finished)" : "")
            << "\n";
  if (!o.quiet)
    for (const Json &c : doc["cells"])
      if (!c["failure"].get<std::string>().empty())
        std::cout << "  failed: " << c["image"].get<std::string>() << " " << c["move"].get<std::string>() << ": "
                  << without_call(c["failure"].get<std::string>()) << "\n";
  for (const Json &img : doc["images"])
    if (!img["error"].get<std::string>().empty())
      std::cout << "  error: " << img["name"].get<std::string>() << ": " << img["error"].get<std::string>() << "\n";
  std::cout << "report: " << out << "/report.html (JSON: rehearsal.json, JUnit: junit.xml; " << cases << " cases)\n";
}

// The rehearsal's document; files gets its cells' whole texts, kept in
// folder until the outputs are written.
Json rehearse(const RehearseOptions &o, std::vector<std::string> &files, std::shared_ptr<TempFolder> &folder) {
  if (o.moves.empty() == !o.ladder) throw ToolError("give the moves to try: --move FROM->TO (repeatable) or --ladder");
  std::vector<MovePlan> moves;
  for (const std::string &m : o.moves) moves.push_back(parse_move(m));
  check_fault_rules(o.faults);
  auto [shard, shards] = parse_shard(o.shard);
  disarm_faults();            // the tool's own reads meet no rule; each conversion arms its own
  plat_journal_set(nullptr);  // nor are they journaled
  unsetenv("PLAT_KVS_ROOT");  // image paths are meant as they stand
  std::vector<ImageInput> images = shard_of(find_images(o.inputs), shard, shards);
  std::string library = o.library.empty() ? find_library(false) : fs::absolute(o.library).string();
  ConversionLibrary lib(library);
  std::vector<Rung> ladder = ladder_of(lib);
  FleetOptions fo;
  fo.moves = moves;
  fo.cell.faults = o.faults;
  fo.cell.allow_loss = loss_classes(o.allow_loss);
  fo.cell.judge_losses = !o.allow_loss.empty();
  fo.jobs = o.jobs ? o.jobs : std::max(1L, sysconf(_SC_NPROCESSORS_ONLN));
  fo.wait = o.wait;
  fo.progress = !o.quiet;
  auto start = std::chrono::steady_clock::now();
  Json run = {{"started", utc_now()},  {"seconds", 0},          {"library", library},
              {"jobs", fo.jobs},       {"shards", {o.shard}},   {"faults", o.faults},
              {"allow_loss", fo.cell.allow_loss}, {"interrupted", false}, {"images_total", images.size()}};
  FleetResult r = rehearse_images(lib, images, ladder, fo);
  int interrupted = r.interrupted;
  files = std::move(r.cell_files);
  folder = r.folder;
  run["seconds"] = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  Json doc = rehearsal_doc(run, ladder, moves, std::move(r));
  doc["rehearsal"]["signal"] = interrupted;
  return doc;
}

Json merged(const RehearseOptions &o) {
  std::vector<Json> docs;
  for (const std::string &in : o.inputs) {
    std::string file = fs::is_directory(in) ? in + "/rehearsal.json" : in;
    std::ifstream f(file);
    if (!f) throw ToolError("--merge: cannot read " + file);
    try {
      docs.push_back(Json::parse(f));
      docs.back().at("rehearsal").at("shards");
    } catch (const Json::exception &e) {
      throw ToolError("--merge: " + file + " is no rehearsal.json (" + e.what() + ")");
    }
  }
  return merge_docs(docs);
}

void run_rehearse(const RehearseOptions &o) {
  std::string out = o.out.empty() ? default_out() : o.out;
  if (fs::exists(out + "/rehearsal.json")) throw ToolError(out + " already holds a rehearsal; give another --out");
  std::vector<std::string> files;
  std::shared_ptr<TempFolder> folder;
  Json doc = o.merge ? merged(o) : rehearse(o, files, folder);
  int signal = doc["rehearsal"].value("signal", 0);
  doc["rehearsal"].erase("signal");
  write_outputs(out, doc, files);
  tell(o, out, doc);
  std::cout.flush();
  if (signal) throw ToolError("interrupted; the report holds the moves that finished", 128 + signal);
  if (failed_cases(doc)) throw CLI::RuntimeError(kExitFound);
}

}  // namespace

void add_rehearse_command(CLI::App &app) {
  auto o = std::make_shared<RehearseOptions>();
  CLI::App *cmd = app.add_subcommand("rehearse", "Try release moves on copies of many device images; report page, JSON, JUnit.");
  cmd->add_option("images", o->inputs, "Device images, store files (.mdb), or folders of them; with --merge, rehearsal "
                                       "folders or their rehearsal.json")
      ->required();
  CLI::Option *move = cmd->add_option("--move", o->moves, "A move to try, FROM->TO, or FROM->TO->FROM for a round trip; repeatable")
                          ->allow_extra_args(false);
  CLI::Option *ladder = cmd->add_flag("--ladder", o->ladder, "Every move up and down the ladder from each image's era, "
                                                             "and the round trips");
  move->excludes(ladder);
  cmd->add_option("--out", o->out, "Folder for report.html, rehearsal.json and junit.xml (default rehearsal-<time>)");
  cmd->add_option("-j,--jobs", o->jobs, "Images rehearsed at once (default: the number of cores)")->check(CLI::Range(1u, 256u));
  cmd->add_option("--fault", o->faults, "Make a platform call of every move fail, e.g. kvs_store:100 (as 'run'); repeatable")
      ->allow_extra_args(false);
  cmd->add_option("--allow-loss", o->allow_loss, "A key type whose records a move may lose; with it, a move that loses "
                                                 "records of another type fails; repeatable")
      ->allow_extra_args(false);
  cmd->add_option("--shard", o->shard, "Take every N-th image from the I-th, for one machine of N")->capture_default_str();
  CLI::Option *merge = cmd->add_flag("--merge", o->merge, "Join the rehearsal.json of shards into one report");
  merge->excludes(move)->excludes(ladder);
  cmd->add_option("--library", o->library, "Load this libconvertwayshunt.so instead of the one beside the tool");
  cmd->add_option("--wait", o->wait, kWaitHelp);
  cmd->add_flag("--quiet", o->quiet, "No progress bar, and only the tally at the end");
  cmd->footer(
      "Each image is copied once, and each move runs on a copy of that copy: the images are never\n"
      "changed. A move is run as 'run' runs it: a forecast (the library's conversion of a copy), the\n"
      "move with the --fault rules, and an audit against a clean conversion. A round trip runs its\n"
      "two moves on one copy, then tells per key type which records came back byte for byte, which\n"
      "changed and which are gone, and checks that every record gone was called lost by a forecast.\n"
      "A cell's outcome is the worst of: failed (a non-zero status), damage (the audit found some),\n"
      "losses (records lost, or gone on a round trip), changes, clean (no record changed).\n"
      "The JUnit case of a move fails on a non-zero status, damage, a record gone that no forecast\n"
      "called lost, or, with --allow-loss, a loss of another key type.\n"
      "Images run in parallel processes, each one move at a time. Ctrl-C stops at once, removes the\n"
      "copies and writes the report of the moves that finished (exit 130).\n"
      "Exit status: 0 every case passed; 1 a case failed or an image could not be rehearsed;\n"
      "2 bad arguments or setup; 128 + the signal when interrupted.\n\n"
      "Example:\n"
      "  wayshunt-convert gen --fleet /tmp/fleet --images 20 --records 2000..50000 --eras 3.2,4.1,4.2 --seed 1\n"
      "  wayshunt-convert rehearse --ladder --out /tmp/rehearsal /tmp/fleet\n"
      "  wayshunt-convert rehearse --move \"4.2(1)->3.2(1)\" --fault kvs_store:100 /tmp/fleet\n"
      "  wayshunt-convert rehearse --ladder --shard 2/4 --out part2 /tmp/fleet   # on machine 2 of 4\n"
      "  wayshunt-convert rehearse --merge --out all part1 part2 part3 part4");
  cmd->callback([o] { run_rehearse(*o); });
}

}  // namespace wsc
