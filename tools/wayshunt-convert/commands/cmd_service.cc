// 'service': plays the running wayshunt service for 'run' on a move below
// 3.2. The hub's listener program takes this process's place, bound at the
// service's access point in the image's hub folder, answering and recording
// the decommission requests.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>

#include "commands/commands.h"
#include "device/folder_lock.h"
#include "device/conversion_library.h"
#include "device/device_image.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

struct ServiceOptions {
  std::string image, record, ready;
  bool no_reply = false;
  double wait = 0;
};

void run_service(const ServiceOptions &o) {
  DeviceImage img = image_at(o.image, false);
  check_hub_dir(img.hub());
  std::error_code ec;
  fs::create_directories(img.hub(), ec);
  if (ec) throw ToolError("cannot create " + img.hub() + " (" + ec.message() + "); check the image folder's permissions");
  // One running service per image; the lock goes on to the listener this process becomes.
  FolderLock lock(img.hub(), "the service of image " + img.dir, o.wait, true);
  std::string listener = program_dir() + "/plat-hub-listener";
  if (access(listener.c_str(), X_OK) != 0)
    throw ToolError("cannot find " + listener + "; build or install plat-hub-listener beside wayshunt-convert");
  std::string record = o.record.empty() ? img.dir + "/service-requests.txt" : fs::absolute(o.record).string();
  std::vector<std::string> args = {listener, "--sap", std::to_string(kServiceSap), "--opcode",
                                   std::to_string(kServiceOpcode), "--record", record};
  if (o.no_reply) args.push_back("--no-reply");
  if (!o.ready.empty()) args.insert(args.end(), {"--ready", fs::absolute(o.ready).string()});
  setenv("PLAT_HUB_DIR", img.hub().c_str(), 1);
  std::cerr << "service: listening at access point " << kServiceSap << " in " << img.hub() << ", recording requests in "
            << record << (o.no_reply ? ", not answering" : "") << "; stop with Ctrl-C\n";
  std::vector<char *> argv;
  for (std::string &a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  execv(listener.c_str(), argv.data());
  throw ToolError("cannot start " + listener + ": " + std::strerror(errno) + "; check that it is executable");
}

}  // namespace

void add_service_command(CLI::App &app) {
  auto o = std::make_shared<ServiceOptions>();
  CLI::App *cmd = app.add_subcommand("service", "Play the running wayshunt service for 'run' on a move below 3.2.");
  cmd->add_option("--image", o->image, "Device image folder (see 'run --help'); the service listens in its hub/")->required();
  cmd->add_flag("--no-reply", o->no_reply, "Record requests but never answer, so the library's wait runs out");
  cmd->add_option("--record", o->record, "File that gets one line per request (default: <image>/service-requests.txt)");
  cmd->add_option("--ready", o->ready, "File created once the service listens (for scripts)");
  cmd->add_option("--wait", o->wait, kWaitHelp);
  cmd->footer(
      "Runs plat-hub-listener (found beside this program) bound at access point " + std::to_string(kServiceSap) +
      " with PLAT_HUB_DIR set to\n"
      "<image>/hub, answering decommission requests (opcode " + std::to_string(kServiceOpcode) +
      "). Each request is appended as a line\n"
      "  opcode=" + std::to_string(kServiceOpcode) + " token=0x... from=0xfe000000/<point> len=" +
      std::to_string(sizeof(wayshunt_show_cli_req_t)) + " data=<hex>\n"
      "Runs until interrupted (Ctrl-C or SIGTERM).\nExit status: 0 when interrupted; 1 if the listener fails; 2 on bad arguments, or when the\nimage has a running service already.\n\n"
      "Example:\n"
      "  wayshunt-convert service --image /tmp/img &\n"
      "  wayshunt-convert run --from \"4.2(1)\" --to \"3.1(1)\" --image /tmp/img\n"
      "  kill %1; cat /tmp/img/service-requests.txt");
  cmd->callback([o] { run_service(*o); });
}

}  // namespace wsc
