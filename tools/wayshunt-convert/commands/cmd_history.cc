// 'history': the moves run on an image, oldest first, as each 'run' wrote
// them into the image's history file.
#include <iomanip>
#include <iostream>
#include <memory>

#include "commands/commands.h"
#include "device/device_image.h"
#include "device/history.h"
#include "tool_error.h"

namespace wsc {

namespace {

struct HistoryOptions {
  std::string image;
  bool json = false;
};

std::string text(const Json &j, const char *name) {
  auto it = j.find(name);
  return it == j.end() || it->is_null() ? "-" : it->is_string() ? it->get<std::string>() : it->dump();
}

// "convert_running 0, convert_startup 0, convert_gsync 0x40480001"
std::string statuses(const Json &steps) {
  std::string out;
  for (const Json &s : steps) {
    char code[16];
    std::snprintf(code, sizeof code, "0x%x", s.value("status", 0u));
    out += (out.empty() ? "" : ", ") + s.value("call", std::string("?")) + " " + code;
  }
  return out.empty() ? "no call" : out;
}

void print_record(const Json &r, std::ostream &out) {
  if (r.contains("unreadable")) {
    out << "(unreadable line) " << r["unreadable"].get<std::string>() << "\n";
    return;
  }
  out << text(r, "time") << "  " << text(r, "from") << " -> " << text(r, "to");
  if (r.value("step", std::string("all")) != "all") out << " (step " << text(r, "step") << ")";
  for (const Json &rule : r.value("faults", Json::array())) out << " --fault " << rule.get<std::string>();
  out << "\n  statuses: " << statuses(r.value("steps", Json::array()));
  if (r.contains("seconds") && r["seconds"].contains("total"))
    out << "  (" << std::fixed << std::setprecision(2) << r["seconds"]["total"].get<double>() << " s)";
  out << "\n  forecast: " << text(r, "forecast") << "\n  audit: " << (r["audit"].is_null() ? "not run (--no-audit)" : text(r, "audit"))
      << "\n";
}

void run_history(const HistoryOptions &o) {
  DeviceImage img = image_at(o.image, false);
  std::vector<Json> records = read_history(img.history_file());
  if (o.json) {
    std::cout << Json(records).dump(2) << "\n";
    return;
  }
  for (const Json &r : records) print_record(r, std::cout);
  std::cout << records.size() << (records.size() == 1 ? " move" : " moves") << " in " << img.history_file() << "\n";
}

}  // namespace

void add_history_command(CLI::App &app) {
  auto o = std::make_shared<HistoryOptions>();
  CLI::App *cmd = app.add_subcommand("history", "List the moves run on a device image, with their statuses and audits.");
  cmd->add_option("image", o->image, "Device image folder")->required();
  cmd->add_flag("--json", o->json, "Write the records as a JSON array");
  cmd->footer(
      "Each 'run' that moves the image (not a dry run) appends one record to\n"
      "bootflash/wayshunt-convert-history.jsonl in the image: its time (UTC), the releases, the fault\n"
      "rules, each call's status and seconds, the forecast's headline and the audit's verdict. They are\n"
      "listed oldest first.\nExit status: 0 listed; 2 no history or an unreadable one.\n\n"
      "Example:\n"
      "  wayshunt-convert history /tmp/img\n"
      "  wayshunt-convert history --json /tmp/img");
  cmd->callback([o] { run_history(*o); });
}

}  // namespace wsc
