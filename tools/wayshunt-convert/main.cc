// wayshunt-convert: the operator's tool for the wayshunt service's runtime
// store. Registers the commands, runs the one named on the command line and
// turns every failure into one line on stderr and an exit status.
#include <iostream>
#include <new>
#include <string>

#include "commands/commands.h"
#include "device/conversion_library.h"
#include "store/store_arg.h"
#include "tool_error.h"

namespace {

std::string footer() {
  return std::string(R"footer(Exit status:
  0  success (diff: the stores are equal; verify: no violation; run, demo:
     every entry point returned 0 and the audit found the store intact)
  1  diff: the stores differ; verify: violations found; run, demo: an entry
     point returned a non-zero status, or the audit found damage
  2  error: bad arguments or input, a store that cannot be read or written, a
     store whose forms are not those of the release --from names, or a device
     image that cannot be set up

A <store> is a URL nonvolatile:<dir>/<name>, a data file <dir>/<name>)footer") +
         wsc::kStoreFileExtension + ", or\na folder holding " + wsc::kRuntimeStoreName + wsc::kStoreFileExtension + R"footer(. PLAT_KVS_ROOT, when set, is the
folder every store URL is taken relative to.

Examples:
  wayshunt-convert demo
  wayshunt-convert gen --era 3.2 --records 1000 /tmp/img/mnt/kvs
  wayshunt-convert run --from "3.2(1)" --to "4.2(1a)" --image /tmp/img
  wayshunt-convert dump /tmp/img/mnt/kvs
Run 'wayshunt-convert <command> --help' for a command's options.)footer";
}

std::string one_line(std::string s) {
  for (char &c : s)
    if (c == '\n') c = ' ';
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

// "wayshunt-convert load" when a command was named, else "wayshunt-convert".
std::string who(const CLI::App &app) {
  auto subs = app.get_subcommands();
  return subs.empty() ? app.get_name() : app.get_name() + " " + subs.front()->get_name();
}

// The tool's release, and the conversion library it would load: its path,
// and whether it loads and is a conversion library.
std::string version() {
  std::string text = std::string("wayshunt-convert ") + WAYSHUNT_VERSION;
  try {
    std::string path = wsc::find_library(false);
    wsc::ConversionLibrary lib(path);
    return text + "\nconversion library " + path + " (loads; entry points convert_running, convert_startup, "
                  "convert_gsync, convert_running_fs_upg)";
  } catch (const std::exception &e) {
    return text + "\nconversion library: none loads (" + one_line(e.what()) + ")";
  }
}

}  // namespace

int main(int argc, char **argv) {
  CLI::App app{"Run release moves of the wayshunt service's runtime store on a device image, and inspect, build, "
               "compare, generate and check such stores.",
               "wayshunt-convert"};
  app.require_subcommand(1);
  app.set_version_flag("--version", version, "Print the tool's release and the conversion library it loads");
  app.footer(footer());

  wsc::add_dump_command(app);
  wsc::add_info_command(app);
  wsc::add_load_command(app);
  wsc::add_diff_command(app);
  wsc::add_gen_command(app);
  wsc::add_verify_command(app);
  wsc::add_run_command(app);
  wsc::add_service_command(app);
  wsc::add_demo_command(app);
  wsc::add_log_command(app);
  wsc::add_history_command(app);
  wsc::add_rehearse_command(app);
  wsc::add_manpage_command(app);

  try {
    app.parse(argc, argv);
    return wsc::kExitOk;
  } catch (const CLI::CallForHelp &e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp &e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion &e) {
    return app.exit(e);
  } catch (const CLI::RuntimeError &e) {
    return e.get_exit_code();
  } catch (const CLI::ParseError &e) {
    if (app.get_subcommands().empty() && argc > 1 && argv[1][0] != '-')
      std::cerr << who(app) << ": unknown command '" << argv[1] << "'; run '" << who(app) << " --help' for the commands\n";
    else
      std::cerr << who(app) << ": " << one_line(e.what()) << "; run '" << who(app) << " --help'\n";
  } catch (const wsc::ToolError &e) {
    std::cerr << who(app) << ": " << one_line(e.what()) << "\n";
    return e.status();
  } catch (const std::bad_alloc &) {
    std::cerr << who(app) << ": out of memory; try a smaller store or free memory\n";
  } catch (const std::exception &e) {
    std::cerr << who(app) << ": " << one_line(e.what()) << "\n";
  }
  return wsc::kExitError;
}
