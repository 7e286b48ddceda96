// libFuzzer harness of release descriptor text: each input is the text of a
// descriptor file, read by the stand-in (reldesc_sw_ver_file_get) and the
// version it gives checked as the tool checks --from and --to
// (check_version: accepted, or a ToolError, exactly for the texts of the
// pattern major.minor(patch), e.g. 4.2(1a)). A version given is text of the
// file, and of a file without NUL bytes non-empty and trimmed; with a line
// "SW_VERSION=9.9(9)" added at the end that line's version is given, since
// the last one counts.
#include <stdio.h>
#include <stdlib.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <regex>
#include <string>
#include <string_view>

#include "device/device_image.h"
#include "fuzz_folder.h"
#include "reldesc.h"
#include "tool_error.h"

namespace {

std::string g_file;

void fail(const char *what, const char *version) {
  fprintf(stderr, "fuzz_reldesc: %s: '%s'\n", what, version ? version : "(null)");
  abort();
}

const char *read_descriptor(const std::string &text) {
  std::ofstream out(g_file, std::ios::binary | std::ios::trunc);
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  if (!out.flush()) abort();
  out.close();
  return reldesc_sw_ver_file_get(g_file.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  g_file = fuzz_folder("fuzzreldesc") + "/to.reldesc";
  unsetenv("PLAT_FAULTS");  // no rule may fail the reads
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string text(reinterpret_cast<const char *>(data), size);
  if (const char *v = read_descriptor(text)) {
    std::string_view s(v);
    // A NUL in the file ends the version early: "SW_VERSION=\0" gives "".
    if (text.find('\0') == std::string::npos) {
      if (s.empty()) fail("empty version", v);
      if (std::strchr(" \t\r\n\f\v", s.front()) || std::strchr(" \t\r\n\f\v", s.back())) fail("version not trimmed", v);
    }
    if (text.find(s) == std::string::npos) fail("version not in the file", v);
    bool accepted = true;
    try {
      wsc::check_version("--to", v);
    } catch (const wsc::ToolError &) {
      accepted = false;  // not a release version: the tool refuses it with one line
    }
    // The pattern, for texts short enough for std::regex's recursion.
    static const std::regex kVersion(R"([0-9]+\.[0-9]+\([0-9]+[A-Za-z0-9]*\))");
    if (s.size() < 1000 && accepted != std::regex_match(v, kVersion)) fail("version checked against the pattern", v);
  }
  const char *last = read_descriptor(text + "\nSW_VERSION=9.9(9)\n");
  if (!last || std::strcmp(last, "9.9(9)") != 0) fail("the last SW_VERSION line does not count", last);
  return 0;
}
