// 'demo': the tool's main job end to end. Builds a device image with a
// generated 3.2 store and the service's files, moves it up to 4.2(1), then
// down to 3.1(1) with the running service played in the background, and
// shows what each move changed: the store by key type, the request the
// service received and the files that reached the standby.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <thread>

#include "commands/commands.h"
#include "device/folder_lock.h"
#include "device/conversion_library.h"
#include "device/device_image.h"
#include "compare/change_summary.h"
#include "device/fault_option.h"
#include "records/formats.h"
#include "commands/move_flow.h"
#include "plat_ctl.h"
#include "store/store_arg.h"
#include "store/store_io.h"
#include "store/synth.h"
#include "tool_error.h"

extern char **environ;

namespace wsc {

namespace fs = std::filesystem;

namespace {

constexpr const char *kUp[2] = {"3.2(1)", "4.2(1)"};
constexpr const char *kDown[2] = {"4.2(1)", "3.1(1)"};
struct DemoOptions {
  std::string dir;
  size_t records = 2000;
};

// The demo folder: the one given (new or empty), else a fresh temporary one.
std::string demo_folder(const std::string &dir) {
  if (dir.empty()) {
    const char *tmp = std::getenv("TMPDIR");
    std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/wayshunt-demo.XXXXXX";
    if (!mkdtemp(tmpl.data())) throw ToolError("cannot create " + tmpl + "; set TMPDIR to a writable folder or give --dir");
    return fs::absolute(tmpl).string();
  }
  std::error_code ec;
  if (fs::exists(dir, ec) && !fs::is_empty(dir, ec))
    throw ToolError("--dir " + dir + " is not empty; give a new or empty folder, or leave --dir out");
  fs::create_directories(dir, ec);
  if (ec) throw ToolError("cannot create --dir " + dir + " (" + ec.message() + "); give a writable folder");
  return fs::absolute(dir).lexically_normal().string();
}

void build_image(const DeviceImage &img, size_t count) {
  make_image_folders(img);
  Records records = synthesize_store(Era::v32, count, 1);
  write_store(img.store(), records, false);
  for (size_t i = 0; i < kServiceFiles.size(); ++i) {
    std::ofstream f(img.mnt_kvs() + "/" + kServiceFiles[i], std::ios::binary);
    f << "stored file " << kServiceFiles[i] << " of the wayshunt service\n" << std::string(64 * (i + 1), 'x') << "\n";
    if (!f) throw ToolError("cannot write the service files in " + img.mnt_kvs() + "; check free space");
  }
  std::cout << "device image " << img.dir << ":\n  mnt/kvs: " << kRuntimeStoreName << kStoreFileExtension << " (a generated 3.2 store of "
            << records.size() << " records) and the service's " << kServiceFiles.size() << " stored files\n"
            << "  bootflash/, standby/ (empty), hub/, reldesc/\n";
}

// ---- the running service, played in the background ----

class BackgroundService {
 public:
  // The service's messages go to log; it is ready once it has made ready.
  BackgroundService(const DeviceImage &img, const std::string &ready, const std::string &log) {
    std::vector<std::string> args = {"wayshunt-convert", "service", "--image", img.dir, "--ready", ready};
    std::vector<char *> argv;
    for (std::string &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int rc = posix_spawn(&pid_, "/proc/self/exe", &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0)
      throw ToolError("cannot start the service in the background; try 'wayshunt-convert service --image " + img.dir + "'");
    for (int waited = 0; !fs::exists(ready); waited += 20) {
      int status;
      if (waited > 10000 || waitpid(pid_, &status, WNOHANG) == pid_) {
        if (waited > 10000) stop();
        pid_ = -1;
        std::ifstream in(log);
        std::string why;
        std::getline(in, why);
        throw ToolError("the service did not start listening in " + img.hub() + " (" + why + "); see " + log);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  ~BackgroundService() { stop(); }
  BackgroundService(const BackgroundService &) = delete;
  BackgroundService &operator=(const BackgroundService &) = delete;
  void stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    int status;
    waitpid(pid_, &status, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
};

// The decommission requests the service recorded, decoded.
void print_requests(const std::string &record_file, std::ostream &out) {
  std::ifstream in(record_file);
  size_t n = 0;
  for (std::string line; std::getline(in, line); ++n) {
    out << "  " << (line.size() > 110 ? line.substr(0, 110) + "..." : line) << "\n";
    size_t at = line.find("data=");
    Bytes data = at == std::string::npos ? Bytes() : from_hex(line.substr(at + 5, line.find(' ', at) - at - 5));
    constexpr size_t kX = offsetof(wayshunt_show_cli_req_t, x);  // force_mode: bit 0 of x's first byte
    if (data.size() <= kX) continue;
    uint32_t msg_type = data[0] | data[1] << 8 | data[2] << 16 | static_cast<uint32_t>(data[3]) << 24;
    size_t other = 0;
    for (size_t i = 0; i < data.size(); ++i)
      if (i != 0 && i != kX && data[i]) ++other;
    out << "    " << data.size() << "-byte request: msg_type " << msg_type << " (clear decommission), force_mode "
        << (data[kX] & 1) << ", " << other << " other non-zero bytes\n";
  }
  if (n == 0) out << "  (none)\n";
}

void print_standby(const DeviceImage &img, std::ostream &out) {
  FileSet standby = files_below(img.standby()), source = files_below(img.mnt_kvs());
  size_t same = 0;
  for (const std::string &name : kServiceFiles) {
    auto it = standby.find("mnt/kvs/" + name);
    if (it != standby.end() && it->second.data == source[name].data) ++same;
  }
  out << "  " << standby.size() << " files in " << img.standby() << ", " << same << " of " << kServiceFiles.size()
      << " service files identical to mnt/kvs\n";
}

bool move(ConversionLibrary &lib, const DeviceImage &img, const char *const (&versions)[2], const std::string &what) {
  std::cout << "\n== " << what << ": " << versions[0] << " -> " << versions[1] << "\n";
  Records before = read_store(img.store());
  MoveOptions o;
  o.from = versions[0], o.to = versions[1], o.image = img.dir;
  MoveVerdict v = run_move(o, lib, img, std::cout);
  std::cout << "-- what changed\n";
  print_change_summary(before, read_store(img.store()), std::cout);
  return v.statuses_ok && !v.damaged;
}

void run_demo(const DemoOptions &o) {
  DeviceImage img{demo_folder(o.dir)};
  check_hub_dir(img.hub());
  unsetenv("PLAT_KVS_ROOT");
  std::string library = find_library(false);
  FolderLock lock(img.mnt_kvs(), "image " + img.dir, 0);
  build_image(img, o.records);
  disarm_faults();            // the tool's own reads meet no rule
  plat_journal_set(nullptr);  // and are not journaled
  ConversionLibrary lib(library);
  std::cout << "library " << library << "; the image is shown at /bootflash and /mnt/kvs in a private mount namespace\n";

  if (!move(lib, img, kUp, "1. move up (upgrade)")) throw CLI::RuntimeError(kExitFound);

  std::string ready = img.dir + "/service.ready", record = img.dir + "/service-requests.txt";
  std::string service_log = img.dir + "/service.log";
  std::cout << "\n== 2. the running service listens at access point " << kServiceSap << " in " << img.hub() << "\n";
  std::cout.flush();
  BackgroundService service(img, ready, service_log);
  bool ok = move(lib, img, kDown, "3. move down below 3.2 (downgrade, decommission, standby copy)");
  service.stop();
  fs::remove(ready);
  std::cout << "-- requests the service received (" << record << ")\n";
  print_requests(record, std::cout);
  std::cout << "-- the standby\n";
  print_standby(img, std::cout);
  std::cout << "\nthe image is kept in " << img.dir << "; look further with e.g.\n"
            << "  wayshunt-convert dump " << shell_word(img.mnt_kvs()) << "\n"
            << "  wayshunt-convert verify --era 4.1 --after-downgrade " << shell_word(img.mnt_kvs()) << "\n";
  std::cout.flush();
  if (!ok) throw CLI::RuntimeError(kExitFound);
}

}  // namespace

void add_demo_command(CLI::App &app) {
  auto o = std::make_shared<DemoOptions>();
  CLI::App *cmd = app.add_subcommand("demo", "Build a device image and run a move up and a move down on it, showing what changed.");
  cmd->add_option("--dir", o->dir, "New or empty folder for the device image (default: a fresh temporary folder)");
  cmd->add_option("--records", o->records, "Records of the generated 3.2 store")
      ->check(CLI::Range(size_t{10}, size_t{1000000}))
      ->capture_default_str();
  cmd->footer(
      "Steps: a device image (see 'run --help') with a generated 3.2 store and the service's twelve\n"
      "files; a move up from 3.2(1) to 4.2(1) (the store converted in two passes); the running service\n"
      "started in the background ('service'); a move down from 4.2(1) to 3.1(1) (decommission request,\n"
      "the twelve files copied to the standby, the store converted down). After each move: records by\n"
      "key type, sizes, fields and acl_flags changed, and a few example records. The image is kept and\n"
      "named at the end. Needs no root: the image is mapped in a private mount namespace.\n"
      "Exit status: 0 the demo ran to the end; 1 a conversion returned non-zero; 2 setup error.\n\n"
      "Example:\n"
      "  wayshunt-convert demo\n"
      "  wayshunt-convert demo --dir /tmp/demo --records 500");
  cmd->callback([o] { run_demo(*o); });
}

}  // namespace wsc
