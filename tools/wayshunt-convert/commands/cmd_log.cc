// 'log': a conversion log read back, each error record with its meaning and
// the operator's next step (see log_reader.h).
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "commands/commands.h"
#include "device/device_image.h"
#include "records/json_codec.h"
#include "device/log_reader.h"
#include "tool_error.h"
#include "wayshunt_cnv.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

struct LogOptions {
  std::string source;
  bool json = false, quiet = false, table = false;
};

// The log file of source: the file itself, or a device image's log.
std::string log_path(const std::string &source) {
  std::error_code ec;
  if (fs::is_directory(source, ec)) return image_at(source, false).log_file();
  if (!fs::is_regular_file(source, ec))
    throw ToolError("cannot read " + source + "; give a conversion log file or a device image folder");
  return source;
}

std::string read_text(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw ToolError("cannot read " + path + "; check its permissions");
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

Json error_json(const LogRecord &r, const ErrorRecordKind &k) {
  return {{"function", r.function}, {"line", r.line}, {"text", r.text}, {"closing", k.closing},
          {"meaning", k.meaning}, {"next_step", k.next_step}};
}

void print_error(const LogRecord &r, const ErrorRecordKind &k, bool color) {
  std::string head = r.function + "():" + std::to_string(r.line) + " " + r.text;
  while (!head.empty() && head.back() == '\n') head.pop_back();
  for (char &c : head) c = c == '\n' ? ' ' : c;
  std::cout << (color && !k.closing ? "\033[31m" + head + "\033[0m" : head) << "\n  meaning: " << k.meaning
            << "\n  next step: " << k.next_step << "\n";
}

void run_log(const LogOptions &o) {
  if (o.table) {
    std::cout << error_table_markdown();
    return;
  }
  std::string path = log_path(o.source);
  std::error_code ec;
  // No log is no all-clear: a mistyped path reads the same. The library
  // writes one only when something fails, so say so, as an error.
  if (!fs::exists(path, ec))
    throw ToolError(path + " does not exist: no conversion log there (the library writes one only when something "
                           "fails; check the path)");
  std::string text = read_text(path);
  if (text.empty()) throw ToolError(path + " is empty: no conversion log; check the path");
  std::vector<LogRecord> records = split_log(text, path);
  bool color = isatty(STDOUT_FILENO) && !std::getenv("NO_COLOR");
  Json errors = Json::array();
  size_t failures = 0;
  for (const LogRecord &r : records) {
    const ErrorRecordKind *k = error_kind(r);
    if (!k) continue;
    failures += !k->closing;
    errors.push_back(error_json(r, *k));
    if (!o.json && !o.quiet && !k->closing) print_error(r, *k, color);
  }
  if (o.json)
    std::cout << Json{{"log", path}, {"exists", true}, {"records", records.size()}, {"failures", failures},
                      {"error_records", errors}}.dump(2) << "\n";
  else
    std::cout << path << ": " << records.size() << " records, " << failures << " failure record" << (failures == 1 ? "" : "s")
              << ", " << errors.size() - failures << " closing\n";
  std::cout.flush();
  if (failures) throw CLI::RuntimeError(kExitFound);
}

}  // namespace

void add_log_command(CLI::App &app) {
  auto o = std::make_shared<LogOptions>();
  CLI::App *cmd = app.add_subcommand("log", "Read a conversion log and explain each error record.");
  cmd->add_option("source", o->source, "The log file, or a device image folder (its " WAYSHUNT_CNV_LOG_PATH ")");
  cmd->add_flag("--json", o->json, "Write the records found as JSON");
  cmd->add_flag("--quiet", o->quiet, "Print only the summary line");
  cmd->add_flag("--table", o->table, "Print the table of error records (as in the operator guide) and exit");
  cmd->footer(
      "The log is split into its records (a record the library writes without a line feed runs on into\n"
      "the next; it is parted at the next 'function():line ' prefix). Each error record that tells of a\n"
      "failure is printed with its meaning and the next step; debug traces are counted only. The\n"
      "closing record 'file Closed at ...' ends every call that wrote to the log and is no failure.\n"
      "Exit status 0 when the log holds no failure record, 1 when it does, 2 on error: among them a\n"
      "path with no log or an empty one (the library writes a log only when something fails, so a\n"
      "clean move leaves none; a mistyped path must not read as all clear).\n\n"
      "Example:\n"
      "  wayshunt-convert log /tmp/img\n"
      "  wayshunt-convert log --json /tmp/img" WAYSHUNT_CNV_LOG_PATH);
  cmd->callback([o] {
    if (o->source.empty() && !o->table) throw ToolError("give a conversion log file or a device image folder");
    run_log(*o);
  });
}

}  // namespace wsc
