// Writing, reading and removing the mark of a move under way.
#include "device/move_marker.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "device/history.h"
#include "records/json_codec.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

std::string mark_file(const DeviceImage &img) { return img.bootflash() + "/wayshunt-convert-move.json"; }

void write_mark(const DeviceImage &img, const MoveMark &m) {
  std::string file = mark_file(img), tmp = file + ".tmp";
  {
    std::ofstream out(tmp, std::ios::trunc);
    out << Json{{"from", m.from}, {"to", m.to}, {"started", m.started}, {"stopped", m.stopped}}.dump() << "\n";
    if (!out) throw ToolError("cannot write " + tmp + "; check the image's bootflash folder");
  }
  std::error_code ec;
  fs::rename(tmp, file, ec);
  if (ec) throw ToolError("cannot write " + file + " (" + ec.message() + ")");
}

}  // namespace

void mark_move(const DeviceImage &img, const std::string &from, const std::string &to) {
  write_mark(img, {from, to, utc_now(), ""});
}

void unmark_move(const DeviceImage &img) {
  std::error_code ec;
  fs::remove(mark_file(img), ec);
}

void mark_stopped(const DeviceImage &img, const std::string &why) {
  if (std::optional<MoveMark> m = move_mark(img)) {
    m->stopped = why;
    write_mark(img, *m);
  }
}

std::optional<MoveMark> move_mark(const DeviceImage &img) {
  std::ifstream in(mark_file(img));
  if (!in) return std::nullopt;
  std::stringstream text;
  text << in.rdbuf();
  Json j = Json::parse(text.str(), nullptr, false);
  if (!j.is_object()) return MoveMark{"?", "?", "", "its mark " + mark_file(img) + " is unreadable"};
  return MoveMark{j.value("from", "?"), j.value("to", "?"), j.value("started", ""), j.value("stopped", "")};
}

std::optional<DeviceImage> image_of_store_folder(const std::string &folder) {
  fs::path p = fs::absolute(folder).lexically_normal();
  std::string tail = device_kvs_dir();
  std::string s = p.string();
  while (s.size() > 1 && s.back() == '/') s.pop_back();
  if (!s.ends_with(tail) || s.size() == tail.size()) return std::nullopt;
  return DeviceImage{s.substr(0, s.size() - tail.size())};
}

}  // namespace wsc
