// 'manpage' (not listed in --help): writes the manual pages from the
// commands' own options and help texts, one for the tool and one per
// command, in the sections NAME, SYNOPSIS, DESCRIPTION, OPTIONS, EXIT
// STATUS, EXAMPLES, FILES and SEE ALSO. The build runs it, so a page never
// differs from the help. Text is filled by man; laid-out lines (tables,
// examples) are wrapped to fit 80 columns as man renders them.
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "commands/commands.h"
#include "device/device_image.h"
#include "tool_error.h"
#include "wayshunt_cnv.h"

namespace wsc {

namespace {

// Columns a laid-out line may take: man indents the text 7 of 80.
constexpr size_t kWidth = 72;

std::string roff(std::string text) {
  std::string out;
  for (char c : text) out += c == '\\' ? std::string("\\e") : c == '-' ? std::string("\\-") : std::string(1, c);
  if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out = "\\&" + out;
  return out;
}

// A laid-out line broken at spaces to kWidth, continuations indented two
// more than the line.
std::vector<std::string> wrapped(const std::string &line) {
  std::vector<std::string> out;
  size_t indent = line.find_first_not_of(' ');
  std::string rest = line, lead;
  while (rest.size() > kWidth) {
    size_t cut = rest.rfind(' ', kWidth);
    if (cut == std::string::npos || cut <= indent + lead.size()) break;
    out.push_back(rest.substr(0, cut));
    lead = std::string(indent == std::string::npos ? 2 : indent + 2, ' ');
    rest = lead + rest.substr(cut + 1);
  }
  out.push_back(rest);
  return out;
}

// Footer text split into the description, the exit status and the examples.
struct Footer {
  std::vector<std::string> description, exit_status, examples;
};

Footer split_footer(const std::string &footer) {
  Footer f;
  std::istringstream in(footer);
  std::vector<std::string> *to = &f.description;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("Example")) {
      to = &f.examples;
      continue;
    }
    if (line.starts_with("Exit status")) to = &f.exit_status;
    else if (line.empty() && to == &f.exit_status) to = &f.description;
    to->push_back(line);
  }
  return f;
}

// Paragraphs filled by man; lines that begin with a space kept as laid out.
void text_block(const std::vector<std::string> &lines, std::ostream &out) {
  bool laid_out = false;
  for (const std::string &line : lines) {
    bool indented = !line.empty() && line[0] == ' ';
    if (line.empty()) {
      if (laid_out) out << ".fi\n";
      laid_out = false;
      out << ".PP\n";
      continue;
    }
    if (indented != laid_out) out << (indented ? ".nf\n" : ".fi\n");
    laid_out = indented;
    if (indented)
      for (const std::string &part : wrapped(line)) out << roff(part) << "\n";
    else
      out << roff(line) << "\n";
  }
  if (laid_out) out << ".fi\n";
}

void options_block(const CLI::App &cmd, std::ostream &out) {
  for (const CLI::Option *opt : cmd.get_options()) {
    std::string names = opt->get_name(false, true);
    if (!opt->get_type_name().empty() && opt->get_type_size() != 0) names += " " + opt->get_type_name();
    out << ".TP\n.B " << roff(names) << "\n" << roff(opt->get_description()) << "\n";
  }
}

std::string files_text() {
  return "In a device image <image>: <image>" WAYSHUNT_CNV_LOG_PATH " (the conversion log), <image>" +
         device_log_dir() + "/wayshunt-convert-history.jsonl (the history of moves), <image>" + device_kvs_dir() +
         "/" WAYSHUNT_CNV_RUNTIME_KVS ".mdb (the runtime store) and the service's stored files beside it, "
         "<image>/standby (the standby's files), <image>/hub (the hub's sockets), <image>/reldesc (the release "
         "descriptors of the last move).";
}

void write_page(const CLI::App &app, const CLI::App *cmd, const std::vector<std::string> &all, const std::string &dir) {
  const CLI::App &page = cmd ? *cmd : app;
  std::string name = cmd ? app.get_name() + "-" + cmd->get_name() : app.get_name();
  std::ofstream out(dir + "/" + name + ".1");
  Footer f = split_footer(page.get_footer());
  std::string title = name;
  for (char &c : title) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  out << ".TH \"" << title << "\" 1 \"\" \"" << app.get_name() << "\" \"User Commands\"\n";
  out << ".SH NAME\n" << roff(name) << " \\- " << roff(page.get_description()) << "\n";
  out << ".SH SYNOPSIS\n.B " << roff(app.get_name() + (cmd ? " " + cmd->get_name() : "")) << "\n"
      << roff(cmd ? "[OPTIONS]" + std::string(cmd->get_options([](const CLI::Option *o) { return o->get_positional(); }).empty() ? "" : " ARGUMENTS")
                  : "COMMAND [OPTIONS]") << "\n";
  out << ".SH DESCRIPTION\n";
  text_block(f.description, out);
  if (!cmd) {
    out << ".PP\nCommands:\n";
    for (const CLI::App *sub : app.get_subcommands({})) 
      if (!sub->get_group().empty()) out << ".TP\n.B " << roff(sub->get_name()) << "\n" << roff(sub->get_description()) << "\n";
  }
  out << ".SH OPTIONS\n";
  options_block(page, out);
  out << ".SH EXIT STATUS\n";
  if (f.exit_status.empty())  // a command that only reads or writes: the tool's rule
    out << "0 success; 2 an error, told in one line on stderr, with every input left as it was.\n";
  else
    text_block(f.exit_status, out);
  if (!f.examples.empty()) {
    out << ".SH EXAMPLES\n";
    text_block(f.examples, out);
  }
  out << ".SH FILES\n" << roff(files_text()) << "\n.SH SEE ALSO\n";
  std::string see;
  for (const std::string &other : all)
    if (other != name) see += (see.empty() ? "" : ",\n") + roff(other) + "(1)";
  out << see << "\n";
  if (!out) throw ToolError("cannot write " + dir + "/" + name + ".1; check the folder");
}

}  // namespace

void add_manpage_command(CLI::App &app) {
  auto dir = std::make_shared<std::string>();
  CLI::App *cmd = app.add_subcommand("manpage", "Write the manual pages into a folder (for the build).");
  cmd->group("");  // not listed: the build's, not an operator's
  cmd->add_option("dir", *dir, "Folder for the pages")->required();
  cmd->callback([&app, dir] {
    std::filesystem::create_directories(*dir);
    std::vector<std::string> names = {app.get_name()};
    std::vector<const CLI::App *> cmds;
    for (const CLI::App *sub : app.get_subcommands({}))
      if (!sub->get_group().empty()) cmds.push_back(sub), names.push_back(app.get_name() + "-" + sub->get_name());
    write_page(app, nullptr, names, *dir);
    for (const CLI::App *sub : cmds) write_page(app, sub, names, *dir);
  });
}

}  // namespace wsc
