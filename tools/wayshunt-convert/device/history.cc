// Appending to and reading an image's history.
#include "device/history.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "tool_error.h"

namespace wsc {

std::string append_history(const DeviceImage &img, const Json &record) {
  std::string line = record.dump() + "\n";
  // One write of the whole line with O_APPEND: two runs never interleave.
  int fd = open(img.history_file().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) return img.history_file() + ": " + std::strerror(errno);
  ssize_t n = write(fd, line.data(), line.size());
  int err = errno;
  close(fd);
  if (n != static_cast<ssize_t>(line.size())) return img.history_file() + ": " + (n < 0 ? std::strerror(err) : "short write");
  return "";
}

std::vector<Json> read_history(const std::string &file) {
  std::error_code ec;
  if (!std::filesystem::exists(file, ec))
    throw ToolError("no history at " + file + ": no move was run on this image yet");
  if (!std::filesystem::is_regular_file(file, ec)) throw ToolError(file + " is no history file; move it away");
  std::ifstream in(file);
  if (!in) throw ToolError("cannot read " + file + " (" + std::strerror(errno) + "); check its permissions");
  std::vector<Json> out;
  for (std::string line; std::getline(in, line);) {
    if (line.empty()) continue;
    Json j = json_nests_deeper(line, 16) ? Json() : Json::parse(line, nullptr, false);  // a record nests 3 deep
    out.push_back(j.is_object() ? j : Json{{"unreadable", line}});
  }
  return out;
}

std::string time_now(const char *format, bool local) {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
  if (local) localtime_r(&t, &tm);
  else gmtime_r(&t, &tm);
  char buf[64];
  std::strftime(buf, sizeof buf, format, &tm);
  return buf;
}

std::string utc_now() { return time_now("%Y-%m-%dT%H:%M:%SZ", false); }

}  // namespace wsc
