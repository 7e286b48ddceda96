// wayshunt-convert run as an operator runs it, against golden files. Each
// case is a list of steps run in a fresh copy of a small world of stores,
// device images and logs; every step's exit status, stdout and stderr go to
// golden/<case>.txt (folders, times and hub addresses masked). Every step is
// also held to what an operator relies on: a refused command (exit 2) says
// what is wrong and what to do in one line on stderr, and a refused, reading
// or dry-run command leaves every file of the world as it was.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <memory>
#include <regex>

#include "test_support.h"
#include "tool_run.h"

namespace {

namespace fs = std::filesystem;
using Args = std::vector<std::string>;
using testsupport::ScopedEnv;

// A step is the tool's command line, "@/" in an argument standing for the
// world's folder, with these additions:
//   NAME=value ...    leading assignments: environment of this step only
//   ... <FILE         FILE is the step's standard input
//   ... &             runs in the background (the running service) until "stop"
//   stop              stops it; its exit status is recorded
//   edit SRC RE TEXT  writes @/edited.json: SRC with the first match of RE replaced by TEXT
struct Case {
  const char *name;
  std::vector<Args> steps;
};

void PrintTo(const Case &c, std::ostream *os) { *os << c.name; }

// Hand-written logs: a clean close, and failures whose records run on into
// the next where the library writes no line feed.
constexpr const char *kCleanLog = "wayshunt_cnv_log_cleanup():71 file Closed at Mon Nov 23 10:00:00 2026\n\n";
constexpr const char *kErrorLog =
    "convert_gsync():140 wayshunt convert_gsync invoked\n"
    "wayshunt_cnv_handle_downgrade_for_runtime_kvs():60 Downgrade Failed"
    "wayshunt_cnv_log_cleanup():71 file Closed at Mon Nov 23 10:00:01 2026\n\n"
    "wayshunt_handle_downgrade():88 \nHUB BIND Error -1"
    "convert_startup():120 Handle Downgrade Failed"
    "wayshunt_cnv_decom_switch():150 \n***Error in Receiving hub msg - 110 (Connection timed out)\n"
    "wayshunt_cnv_log_cleanup():71 file Closed at Mon Nov 23 10:00:02 2026\n\n";

// One FLOW_THRU_HOST key in each width: no era fits both.
constexpr const char *kMixed = R"({"records": [
  {"type": 54, "key": {"form": "raw", "hex": "3600000000002000002500000001500601600000000a"}, "value": {"form": "raw", "hex": "00000000"}},
  {"type": 54, "key": {"form": "raw", "hex": "36002000002500000002500601600000000a"}, "value": {"form": "raw", "hex": "00000000"}}]})";

// A store written by hand in the 4.2 forms, as a move up leaves it (vsan 0
// in flow-thru keys, slots as the interface map gives them); clean for
// 'verify --era 4.2 --after-upgrade'. The cases break it one field at a time.
constexpr const char *kFixture = R"({"records": [
  {"type": "FLOW_THRU_HOST", "key": {"form": "flow_thru_host", "sub_type": 0, "vsan": 0, "host_pwwn": "20:00:00:25:b5:01:00:01",
    "tgt_pwwn": "50:06:01:60:3b:a0:11:22"}, "value": {"form": "flow_thru", "value": 0}},
  {"type": "ACL_RW_1", "key": {"form": "rw_acl", "sub_type": 0, "acl_hash_key_lower": "0x2a"},
    "value": {"form": "rw_acl", "tgt_pwwn": "50:06:01:60:3b:a0:11:22", "acl_flags": "ISL|PHYSICAL", "if_index": "fc2/1",
      "src_sid_wwn": "20:00:00:25:b5:01:00:01", "src_did_wwn": "50:06:01:60:3b:a0:11:22", "slot_num": 2,
      "dst_sid_wwn": "00:00:00:00:00:00:00:00", "dst_did_wwn": "2f:ff:00:0d:ec:00:00:01",
      "rw_key": {"vsan": 10, "sid": "0x0a0100", "did": "0x0b0200", "num_luns": 0}, "rw_info": {"vsan": 1010, "sid": "0x0a0100",
      "did": "0x0b0200", "up": 1, "up_valid": 1, "num_prog_if_MSB": 0, "num_del_if_MSB": 0, "flags": "0x0"}}},
  {"type": "ACL_ELS_1", "key": {"form": "raw", "hex": "3a000000000000000001"}, "value": {"form": "els_acl",
    "tgt_pwwn": "50:06:01:60:3b:a0:11:22", "src_pwwn": "20:00:00:25:b5:01:00:01", "src_vsan": 10, "src_fcid": "0x0a0100",
    "dst_fcid": "0x0b0200", "if_index": "fc3/2", "flags": "0x0", "slot_num": 3}},
  {"type": 97, "key": {"form": "raw", "hex": "6101"}, "value": {"form": "raw", "hex": "00ff"}}]})";

// Breaks the fixture (or another file) and loads the result into @/v.mdb.
Args edit(const char *re, const char *text, const char *src = "@/fixture.json") { return {"edit", src, re, text}; }
const Args kLoadEdited = {"load", "--force", "@/edited.json", "@/v.mdb"};
Args verify_edited(const char *era, const char *after) { return {"verify", "--era", era, after, "@/v.mdb"}; }
Args run(const char *from, const char *to, const char *image, Args more = {}) {
  Args a = {"run", "--from", from, "--to", to, "--image", image};
  a.insert(a.end(), more.begin(), more.end());
  return a;
}

const Case kCases[] = {
    // The generator's stores record by record, and the same store from the same seed.
    {"gen", {{"dump", "@/s32"}, {"dump", "@/s41"}, {"dump", "@/s42"}, {"gen", "--era", "4.2", "--records", "40", "--seed", "3", "@/again"},
             {"diff", "--quiet", "@/s42", "@/again"}, {"gen", "--era", "4.2", "--records", "40", "--seed", "4", "@/other"},
             {"diff", "--quiet", "@/s42", "@/other"}, {"gen", "--era", "4.1", "--records", "3", "@/new/deeper"}}},
    // A fleet of images, every shape among the first five; a fleet is replaced only with --force, and nothing else ever.
    {"gen_fleet", {{"gen", "--fleet", "@/fleet", "--images", "10", "--records", "30..60", "--seed", "3"}, {"info", "@/fleet/img-03/mnt/kvs"},
                   {"gen", "--fleet", "@/fleet", "--images", "2", "--records", "40", "--eras", "4.2"},
                   {"gen", "--force", "--fleet", "@/fleet", "--images", "2", "--records", "40", "--eras", "4.2"},
                   {"gen", "--force", "--fleet", "@/full", "--images", "2", "--records", "40"},
                   {"gen", "--fleet", "@/new", "--records", "40"}, {"gen", "--fleet", "@/new", "--images", "2", "--records", "5..2"},
                   {"gen", "--fleet", "@/new", "--images", "2", "--records", "40", "--era", "3.2"},
                   {"gen", "--era", "3.2", "--records", "10..20", "@/new"}, {"gen", "--records", "10", "@/new"},
                   // A failing write removes the images made before it, and the folder it made.
                   {"PLAT_FAULTS=kvs_open:3", "gen", "--fleet", "@/new/fleet", "--images", "4", "--records", "30..40"}}},
    {"load", {{"load", "@/s32.json", "@/r32.mdb"}, {"diff", "--quiet", "@/s32", "@/r32.mdb"}, {"load", "@/s41.json", "@/r41.mdb"},
              {"diff", "--quiet", "@/s41", "@/r41.mdb"}, {"load", "@/s42.json", "@/new/other/r42.mdb"},
              {"diff", "--quiet", "@/s42", "@/new/other/r42.mdb"}, {"load", "-", "@/f.mdb", "<@/fixture.json"},
              {"dump", "--all", "@/f.mdb"}, {"dump", "--json", "@/f.mdb"}, {"load", "--force", "@/mixed.json", "@/s32"},
              {"diff", "--quiet", "@/mixed.mdb", "@/s32"}}},
    {"load_rejects", {edit("ISL\\|PHYSICAL", "ISL|BOGUS"), kLoadEdited, edit(",\\s*\"tgt_pwwn\": \"[^\"]*\"\\}", "}"), kLoadEdited,
                      edit("\"src_pwwn\": \"[^\"]*\"", "\"src_pwwn\": \"50:06:zz\""), kLoadEdited,
                      edit("\"form\": \"rw_acl\", \"tgt", "\"form\": \"rw_acl\", \"size\": 84, \"tgt"), kLoadEdited,
                      edit("\"slot_num\": 2,", "\"slot_num\": 2, \"slot\": 3,"), kLoadEdited, edit("els_acl", "rw_acl"), kLoadEdited,
                      edit("\"vsan\": 10,", "\"vsan\": 4294967296,"), kLoadEdited, edit("fc2/1", "fc17/1"), kLoadEdited,
                      edit("\"hex\": \"6101\"", "\"hex\": \"3e01\""), kLoadEdited,
                      edit("\"form\": \"rw_acl\", \"tgt", "\"form\": \"rw_acl\", \"size\": \"82\", \"tgt"), kLoadEdited,
                      edit("(\\{\"type\": 97.*)\\]\\}", "$1, $1]}"), kLoadEdited, edit("^[\\s\\S]*$", "[]"), kLoadEdited,
                      {"load", "@/garbled.json", "@/new.mdb"}, {"load", "@/mixed.json", "@/s32"}}},
    // Failing store calls: nothing new left behind, folders made for it included; a replaced store untouched.
    {"store_failures", {{"PLAT_FAULTS=kvs_store:5", "load", "@/s42.json", "@/new.mdb"},
                        {"PLAT_FAULTS=kvs_close:1=0x40480009", "load", "@/s42.json", "@/new/deeper/new.mdb"},
                        {"PLAT_FAULTS=kvs_open:1", "gen", "--era", "3.2", "--records", "9", "@/new/deeper"},
                        {"PLAT_FAULTS=kvs_store:3", "load", "--force", "@/s42.json", "@/s32"}}},
    // A store named by URL, file or folder, with and without PLAT_KVS_ROOT.
    {"store_forms", {{"info", "nonvolatile:@/s42/wayshunt_runtime_ha"}, {"info", "@/s42/wayshunt_runtime_ha.mdb"}, {"info", "@/s42/"},
                     {"PLAT_KVS_ROOT=@/s42", "info", "nonvolatile:/wayshunt_runtime_ha"}, {"PLAT_KVS_ROOT=@/s42", "info", "@/s42"},
                     {"info", "--json", "@/mixed.mdb"}, {"info", "@/mixed.mdb"}, {"info", "@/none.mdb"}, {"info", "@/junk.mdb"}}},
    // A damaged store is one line and exit 2; a read-only one reads as any other.
    {"store_damage", {{"info", "@/trunc.mdb"}, {"verify", "--era", "4.2", "@/trunc.mdb"}, {"dump", "@/trunc.mdb"},
                      {"info", "@/junk.mdb"}, {"info", "@/damaged.mdb"}, {"info", "@/ro"}, {"verify", "--quiet", "--era", "4.1", "@/ro"},
                      {"diff", "--quiet", "@/ro", "@/s41"},
                      // Writing it is refused: the tool's private namespace would let a move write anyway.
                      {"load", "--force", "@/s41.json", "@/ro"}, {"gen", "--force", "--era", "4.1", "--records", "3", "@/ro"},
                      {"run", "--from", "4.1(3)", "--to", "4.2(1)", "--image", "@/imgro"},
                      {"run", "--from", "4.1(3)", "--to", "4.2(1)", "--image", "@/imgro", "--dry-run", "--quiet"}}},
    {"bad_arguments", {{}, {"frobnicate"}, {"dump"}, {"gen", "--era", "5.0", "--records", "3", "@/x.mdb"},
                       {"gen", "--era", "3.2", "--records", "3", "@/junk.mdb/x.mdb"}, {"gen", "--era", "3.2", "--records", "3", "@/s32"},
                       {"verify", "--era", "3.2", "--after-upgrade", "@/s32"}, {"dump", "@/notes.txt"}, {"dump", "@/missing.mdb"},
                       {"dump", "@/junk.mdb"}, {"dump", "nonvolatile:nodir"}, {"diff", "@/s32", "@/nothere.mdb"}}},
    {"help", {{"--help"}, {"dump", "--help"}, {"info", "--help"}, {"load", "--help"}, {"diff", "--help"}, {"gen", "--help"},
              {"verify", "--help"}, {"run", "--help"}, {"service", "--help"}, {"demo", "--help"}, {"log", "--help"},
              {"rehearse", "--help"}}},
    // A rehearsal's arguments refused, then one move and a round trip on a bare store.
    {"rehearse_args",
     {{"rehearse", "@/s32"}, {"rehearse", "--move", "4.2(1)", "@/s32"}, {"rehearse", "--move", "4.2(1)->4.2(1)", "@/s32"},
      {"rehearse", "--move", "3.2(1)->4.2(1)->4.1(3)", "@/s32"}, {"rehearse", "--ladder", "--shard", "3/2", "@/s32"},
      {"rehearse", "--ladder", "--allow-loss", "BOGUS", "@/s32"}, {"rehearse", "--ladder", "@/nothing"},
      {"rehearse", "--merge", "@/s32"},
      {"rehearse", "--move", "3.2(1)->4.2(1)", "--move", "3.2(1)->4.2(1)->3.2(1)", "--quiet", "--out", "@/reh", "@/s32"},
      {"rehearse", "--ladder", "--out", "@/reh", "@/s32"}}},
    // Added, removed and changed records, flags set and cleared, with and without colour.
    {"diff", {{"load", "@/fixture.json", "@/a.mdb"}, edit("ISL\\|PHYSICAL([\\s\\S]*)6101", "ISL|PGM_BUSY$016102"),
              {"load", "@/edited.json", "@/b.mdb"}, {"diff", "--json", "@/a.mdb", "@/b.mdb"},
              {"diff", "--color", "always", "@/a.mdb", "@/b.mdb"}, {"diff", "@/a.mdb", "@/b.mdb"}, {"diff", "--quiet", "@/s32", "@/s42"}}},
    {"verify_eras", {{"verify", "--quiet", "--era", "3.2", "@/s32"}, {"verify", "--quiet", "--era", "4.1", "@/s41"},
                     {"verify", "--quiet", "--era", "4.2", "@/s42"}, {"verify", "--era", "3.2", "@/s42"},
                     {"verify", "--quiet", "--era", "4.2", "@/s41"}, {"verify", "--json", "--era", "4.2", "@/mixed.mdb"}}},
    // Each violation named on the line of the broken record; a clean fixture first.
    {"verify_violations",
     {{"load", "@/fixture.json", "@/v.mdb"}, verify_edited("4.2", "--after-upgrade"),
      edit("\"value\": 0", "\"value\": 7", "@/s41.json"), kLoadEdited, verify_edited("4.1", "--after-downgrade"),
      edit("\\[", "[{\"type\": \"ACL_ELS_1\", \"key\": {\"form\": \"raw\", \"hex\": \"3a0001\"}, \"value\": {\"form\": \"raw\", \"hex\": \"00\"}},",
           "@/s41.json"),
      kLoadEdited, verify_edited("4.1", "--after-downgrade"),
      edit("ISL\\|PHYSICAL", "ISL|PHYSICAL|VIRTUAL"), kLoadEdited, verify_edited("4.2", "--after-upgrade"),
      edit("\"ACL_RW_1\"([\\s\\S]*?)ISL\\|PHYSICAL", "\"ACL_RW_2\"$1ISL|PHYSICAL|VIRTUAL"), kLoadEdited, verify_edited("4.2", "--after-upgrade"),
      edit("\"slot_num\": 2", "\"slot_num\": 200"), kLoadEdited, verify_edited("4.2", "--after-upgrade"),
      edit("\"slot_num\": 3", "\"slot_num\": 200"), kLoadEdited, verify_edited("4.2", "--after-upgrade"),
      edit("ISL\\|PHYSICAL([\\s\\S]*?)00:00:00:00:00:00:00:00", "DROP_ALL$012f:ff:00:0d:ec:00:00:99"), kLoadEdited,
      verify_edited("4.2", "--after-upgrade"),
      edit("\"ACL_RW_1\"([\\s\\S]*?)ISL\\|PHYSICAL", "\"ACL_RW_3\"$1PGM_BUSY|FO"), kLoadEdited, verify_edited("4.2", "--after-upgrade"),
      edit("\"ACL_RW_1\"([\\s\\S]*?)ISL\\|PHYSICAL", "\"ACL_RW_2\"$1VIRTUAL|VW"), kLoadEdited, verify_edited("4.2", "--after-upgrade"),
      edit("\"vsan\": 0", "\"vsan\": 20"), kLoadEdited, verify_edited("4.2", "--after-upgrade"),
      edit("\"slot_num\": 2", "\"slot_num\": 9"), kLoadEdited, verify_edited("4.2", "--after-upgrade"),
      {"PLAT_PORTMAP_TABLE=@/portmap", "verify", "--era", "4.2", "--after-upgrade", "@/v.mdb"}}},
    {"log", {{"log", "@/tmp/.keep"}, {"log", "@/clean.log"}, {"log", "@/errors.log"}, {"log", "--json", "@/errors.log"}, {"log", "@/img42"},
             {"log", "@/notes.txt"}, {"log", "@/s42/wayshunt_runtime_ha.mdb"}}},
    // Release moves on images made by gen: the entry points called in order, the store converted.
    {"run_moves", {run("3.2(1)", "4.2(1)", "@/img32", {"--step", "running"}), {"verify", "--quiet", "--era", "3.2", "@/img32/mnt/kvs"},
                   run("3.2(1)", "4.2(1a)", "@/img32"), {"verify", "--quiet", "--era", "4.2", "--after-upgrade", "@/img32/mnt/kvs"},
                   run("4.2(1)", "3.2(1)", "@/img32"), {"verify", "--quiet", "--era", "3.2", "--after-downgrade", "@/img32/mnt/kvs"},
                   run("4.2(1)", "4.1(3)", "@/img42", {"--step", "gsync"}), {"verify", "--quiet", "--era", "4.1", "--after-downgrade", "@/img42/mnt/kvs"},
                   run("4.1(3)", "4.2(1)", "@/img41", {"--step", "fs_upg"}), {"verify", "--quiet", "--era", "4.2", "--after-upgrade", "@/img41/mnt/kvs"},
                   {"history", "@/img32"}, {"history", "--json", "@/img42"}, {"history", "@/img41"}}},
    // A failing step stops the move (exit 1) and shows its part of the log.
    {"run_faults", {{"PLAT_FAULTS=hub_bind", "run", "--from", "4.2(1)", "--to", "3.1(1)", "--image", "@/img42"},
                    {"PLAT_FAULTS=kvs_open", "run", "--from", "3.2(1)", "--to", "4.2(1)", "--image", "@/img32"},
                    {"verify", "--quiet", "--era", "3.2", "@/img32/mnt/kvs"}, run("4.2(1)", "4.1(3)", "@/img42", {"--fault", "kvs_open:1"}),
                    run("4.2(1)", "4.1(1)", "@/img42", {"--step", "gsync", "--json", "--fault", "kvs_open:1=0x40480002"}),
                    run("4.2(1)", "4.1(3)", "@/img42", {"--fault", "kvs_stor:3"}), run("4.2(1)", "4.1(3)", "@/img42", {"--fault", "kvs_store:0"}),
                    // Status 0 but damage: the audit names the record or file and the call that failed (exit 1).
                    run("4.2(1)", "4.1(3)", "@/img42", {"--fault", "kvs_store:3"}),
                    run("4.1(3)", "3.1(1)", "@/img42", {"--fault", "overseercmn_file_gsync:2"}),
                    run("3.2(1)", "4.2(1)", "@/img32", {"--quiet", "--fault", "kvs_store:3"}), {"history", "@/img42"}}},
    // A move killed between its two passes says so and exits 128 + the signal;
    // info names the store as what it is; the same move run again finishes it.
    {"run_interrupted", {run("4.2(1)", "3.2(1)", "@/img42", {"--quiet", "--fault", "kvs_open:2=SIGTERM"}),
                         {"info", "@/img42/mnt/kvs"}, run("4.2(1)", "4.1(3)", "@/img42", {"--quiet"}),
                         run("4.2(1)", "3.2(1)", "@/img42", {"--quiet"}),
                         {"verify", "--quiet", "--era", "3.2", "--after-downgrade", "@/img42/mnt/kvs"}}},
    // The trace build logs every step; each run shows only its own part.
    {"run_trace", {run("4.2(1)", "4.1(1)", "@/img42", {"--step", "gsync", "--trace"}),
                   run("4.2(1)", "4.1(1)", "@/img42", {"--step", "gsync", "--trace"}), {"log", "@/img42"}}},
    // Below 3.2 the running service is asked to decommission (it answers, it
    // does not, there is none) and the service's files reach the standby.
    {"run_below_32", {{"service", "--ready", "@/ready1", "--image", "@/img42", "&"}, run("4.2(1)", "3.1(1)", "@/img42", {"--step", "startup"}),
                      {"stop"}, {"service", "--ready", "@/ready2", "--no-reply", "--image", "@/img42", "&"},
                      run("4.2(1)", "3.1(1)", "@/img42", {"--step", "startup"}), {"stop"},
                      run("4.2(1)", "3.1(1)", "@/img41", {"--step", "startup"}), {"verify", "--quiet", "--era", "4.2", "@/img42/mnt/kvs"}}},
    // The loss forecast, then the changes of the copy; the image stays as it was.
    {"run_dry", {run("4.2(1)", "3.1(1)", "@/img42", {"--dry-run"}), run("4.2(1)", "3.2(1)", "@/img42", {"--dry-run", "--quiet"}),
                 {"PLAT_FAULTS=portmap_get_slot:1-2", "run", "--from", "3.2(1)", "--to", "4.2(1)", "--image", "@/img32", "--dry-run", "--quiet"},
                 run("3.2(1)", "4.2(1)", "@/img32", {"--dry-run", "--quiet", "--fault", "portmap_get_slot:1-2"})}},
    {"run_setup_errors", {run("3.2(1)", "4.2(1)", "@/empty"), run("3.2(1)", "4.2(1)", "@/missing"), run("3.2", "4.2(1)", "@/img32"),
                          run("3.2(1)", "4.2(1)", "@/img32", {"--library", "@/none.so"}),
                          run("3.2(1)", "4.2(1)", "@/img32", {"--trace", "--library", "x.so"}),
                          run("3.2(1)", "4.2(1)", "@/img32", {"--step", "later"}), {"service", "--image", "@/missing"},
                          {"demo", "--dir", "@/full"}, run("3.2(1)", "4.2(1)", "@/img42"), {"history", "@/empty"},
                          run("3.2(1)", "4.2(1)", "@/notes.txt"), {"--version"}}},
    // The demo runs to the end; a move on the image it made.
    {"demo", {{"demo", "--dir", "@/demo", "--records", "60"}, {"verify", "--quiet", "--era", "4.1", "--after-downgrade", "@/demo/mnt/kvs"},
              run("4.1(3)", "4.2(1)", "@/demo", {"--step", "fs_upg"})}},
};

// Every entry below dir: folders as "/", files with their bytes, others as
// "?". A reading command leaves no lock file behind either.
std::map<std::string, std::string> tree(const std::string &dir) {
  std::map<std::string, std::string> t;
  for (const auto &e : fs::recursive_directory_iterator(dir))
    t[e.path().lexically_relative(dir).string()] =
        e.is_directory() ? "/" : e.is_regular_file() ? testsupport::read_file(e.path().string()) : "?";
  return t;
}

// Commands that may change files: all but refused ones, reading ones and dry runs.
bool may_write(const Args &a, int status) {
  static const Args writers = {"gen", "load", "run", "demo", "service", "rehearse"};
  return status != 2 && !a.empty() && std::count(writers.begin(), writers.end(), a[0]) &&
         !std::count(a.begin(), a.end(), "--dry-run");
}

class Golden : public ::testing::TestWithParam<Case> {
 protected:
  static void tool(const Args &args, const std::string &out = "") {
    auto r = tooltest::run_tool(args);
    ASSERT_EQ(r.status, 0) << r.err;
    if (!out.empty()) testsupport::write_file(out, r.out);
  }
  // The world every case starts from, made once.
  static void SetUpTestSuite() {
    ScopedEnv no_root("PLAT_KVS_ROOT", nullptr), no_faults("PLAT_FAULTS", nullptr);
    const std::string w = template_.path();
    for (std::string era : {"3.2", "4.1", "4.2"}) {
      std::string s = w + "/s" + std::string(era).erase(1, 1), img = w + "/img" + std::string(era).erase(1, 1) + "/mnt/kvs";
      for (const std::string &dir : {s, img}) tool({"gen", "--era", era, "--records", "40", "--seed", "3", dir});
      tool({"dump", "--json", s}, s + ".json");
      for (const char *f : {"oper_cfg", "target_config", "pending_del_config", "tgt_cfg_v2"})
        for (const char *x : {".dat", ".kvs", ".map"})
          testsupport::write_file(img + "/wayshunt_" + f + x, std::string("contents of ") + f + x);
    }
    // A store cut short as a copy that stopped early leaves it, and a
    // read-only store.
    tool({"gen", "--era", "4.2", "--records", "3000", "--seed", "3", w + "/big"});
    std::string big = testsupport::read_file(w + "/big/wayshunt_runtime_ha.mdb");
    testsupport::write_file(w + "/trunc.mdb", big.substr(0, 8192));
    for (size_t page : {2, 5, 9}) std::fill_n(big.begin() + page * 4096 + 16, 4000, '\xab');  // pages past their header
    testsupport::write_file(w + "/damaged.mdb", big);
    fs::remove_all(w + "/big");
    tool({"gen", "--era", "4.1", "--records", "40", "--seed", "3", w + "/ro"});
    tool({"gen", "--era", "4.1", "--records", "40", "--seed", "3", w + "/imgro/mnt/kvs"});
    for (const char *store : {"/ro/wayshunt_runtime_ha.mdb", "/imgro/mnt/kvs/wayshunt_runtime_ha.mdb"})
      fs::permissions(w + store, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    // An image whose history cannot be written: the moves on it go on all the same.
    fs::create_directories(w + "/img41/bootflash/wayshunt-convert-history.jsonl");
    testsupport::write_file(w + "/mixed.json", kMixed);
    tool({"load", w + "/mixed.json", w + "/mixed.mdb"});
    for (auto [name, text] : {std::pair{"junk.mdb", "not a store\n"}, {"garbled.json", "{\"records\": [ {\"type\": 55,}"},
                              {"clean.log", kCleanLog}, {"errors.log", kErrorLog}, {"notes.txt", "shopping list\n"},
                              {"fixture.json", kFixture}, {"portmap", "fc2/1 9\n"}, {"full/x", "x"}, {"tmp/.keep", ""}}) {
      fs::create_directories(fs::path(w + "/" + name).parent_path());
      testsupport::write_file(w + "/" + name, text);
    }
    fs::create_directories(w + "/empty");
  }
  void SetUp() override { fs::copy(template_.path(), world_.path(), fs::copy_options::recursive); }

  std::string at(std::string a) const {
    size_t p = a.find("@/");
    return p == std::string::npos ? a : a.replace(p, 1, world_.path());
  }
  std::string mask(std::string text) const {
    const std::pair<std::string, std::string> masks[] = {
        {world_.path(), "WORLD"},
        {fs::path(testsupport::bin_dir()).parent_path().string(), "BUILD"},
        {"\\(\\):[0-9]+ ", "():N "},
        {"at [A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]{2} [0-9:]{8} [0-9]{4}", "at TIME"},
        {"/[^ ]*/wayshunt-(dry|run)\\.[A-Za-z0-9]+", "TEMP"}, {"\\.tmp-[0-9]+", ".tmp-PID"},
        {"token=0x[0-9a-f]+ from=0x[0-9a-f]+/[0-9]+", "token=T from=P"},
        {"(\"(seconds|forecast|audit|total)\": )[0-9.e-]+", "$1S"}, {"\\([0-9.]+ s\\)", "(S s)"},
        {"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}Z", "TIME"}};
    for (const auto &[pattern, replacement] : masks) text = std::regex_replace(text, std::regex(pattern), replacement);
    return text;
  }
  // edit SRC RE TEXT: @/edited.json is SRC with the first match of RE replaced.
  void edit(const Args &a) {
    std::string src = testsupport::read_file(at(a[1]));
    testsupport::write_file(world_ / "edited.json",
                            std::regex_replace(src, std::regex(a[2]), a[3], std::regex_constants::format_first_only));
  }
  // ... &: the tool in the background until "stop"; the first option's file tells it is ready.
  void start_service(Args a) {
    a.back() = testsupport::bin_dir() + "/wayshunt-convert";
    std::rotate(a.rbegin(), a.rbegin() + 1, a.rend());
    service_ = std::make_unique<testsupport::Child>(a);
    EXPECT_TRUE(testsupport::wait_for_path(a[3], 10000)) << "the service did not start";
  }
  // Runs the tool, holding it to the rules above; returns its golden text.
  std::string run(const Args &a, const std::string &in, const std::string &what) {
    auto before = tree(world_.path());
    auto r = tooltest::run_tool(a, in);
    if (r.status == 2) {
      EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << what << r.err;
    }
    if (!may_write(a, r.status)) {
      EXPECT_TRUE(tree(world_.path()) == before) << what << "changed the world";
    }
    return "status " + std::to_string(r.status) + "\n--- stdout\n" + r.out + "--- stderr\n" + r.err;
  }
  // Runs one step and returns what it adds to the golden text.
  std::string step(Args a) {
    std::string text = "$";
    for (const std::string &s : a) text += " " + s;
    text += "\n";
    if (!a.empty() && a[0] == "edit") return edit(a), text;
    if (a == Args{"stop"}) return text + "status " + std::to_string(WEXITSTATUS(service_->stop())) + "\n";
    std::vector<std::unique_ptr<ScopedEnv>> env;
    for (; !a.empty() && a[0].find('=') != std::string::npos && isupper(a[0][0]); a.erase(a.begin()))
      env.push_back(std::make_unique<ScopedEnv>(a[0].substr(0, a[0].find('=')).c_str(), at(a[0].substr(a[0].find('=') + 1)).c_str()));
    std::string in = "/dev/null";
    if (!a.empty() && a.back()[0] == '<') in = at(a.back().substr(1)), a.pop_back();
    for (std::string &s : a) s = at(s);
    if (!a.empty() && a.back() == "&") return start_service(a), text;
    return text + run(a, in, text);
  }

  static inline testsupport::TempDir template_;
  ScopedEnv no_root_{"PLAT_KVS_ROOT", nullptr}, no_table_{"PLAT_PORTMAP_TABLE", nullptr}, no_faults_{"PLAT_FAULTS", nullptr};
  ScopedEnv hub_wait_{"PLAT_HUB_WAIT_MS", "300"}, no_journal_{"PLAT_JOURNAL", nullptr};
  testsupport::TempDir world_;
  ScopedEnv tmp_{"TMPDIR", (world_ / "tmp").c_str()};
  std::unique_ptr<testsupport::Child> service_;
};

TEST_P(Golden, Matches) {
  std::string text;
  for (const Args &s : GetParam().steps) text += step(s);
  tooltest::expect_golden(GetParam().name, mask(text));
}

// The operator guide's table of error records is the one 'log --table' prints.
TEST(OperatorGuide, ErrorTableIsTheToolsTable) {
  const std::string guide = std::string(TOOL_GOLDEN_DIR) + "/../../../docs/operator-guide.md";
  const std::string begin = "<!-- log-table: begin -->\n", end = "<!-- log-table: end -->";
  std::string doc = testsupport::read_file(guide);
  size_t b = doc.find(begin), e = doc.find(end);
  ASSERT_TRUE(b != std::string::npos && e > b) << guide << " lacks the log-table markers";
  auto r = tooltest::run_tool({"log", "--table"});
  const char *update = std::getenv("WAYSHUNT_UPDATE_GOLDEN");
  if (update && std::string(update) == "1")
    testsupport::write_file(guide, doc.replace(b + begin.size(), e - b - begin.size(), r.out));
  else
    EXPECT_EQ(doc.substr(b + begin.size(), e - b - begin.size()), r.out) << "WAYSHUNT_UPDATE_GOLDEN=1 rewrites it";
}

INSTANTIATE_TEST_SUITE_P(Cases, Golden, ::testing::ValuesIn(kCases), [](const auto &info) { return std::string(info.param.name); });

}  // namespace
