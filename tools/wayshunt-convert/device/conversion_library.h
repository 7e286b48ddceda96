// The conversion library, loaded with dlopen as the upgrade manager loads
// it. Besides its entry points the tool asks it what it alone knows: how it
// reads two releases (which era of stored forms a release keeps, whether a
// move goes up or down), the slot of an interface as its conversions look
// it up, and the text of a status.
#ifndef TOOLS_WAYSHUNT_CONVERT_DEVICE_CONVERSION_LIBRARY_H
#define TOOLS_WAYSHUNT_CONVERT_DEVICE_CONVERSION_LIBRARY_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "records/era.h"

namespace wsc {

// Folder of this program (from /proc/self/exe).
std::string program_dir();
// The conversion library beside the tool: the build as configured, or the
// trace build. Throws ToolError naming where it looked.
std::string find_library(bool trace);

// The entry points that the upgrade manager calls.
enum class Step { running, startup, gsync, fs_upg };
std::string step_name(Step s);

// Which way a move goes, as the library decides it.
enum class Direction { none, up, down };

class ConversionLibrary {
 public:
  explicit ConversionLibrary(const std::string &path);  // throws ToolError
  ~ConversionLibrary();
  ConversionLibrary(const ConversionLibrary &) = delete;
  ConversionLibrary &operator=(const ConversionLibrary &) = delete;
  const std::string &path() const { return path_; }

  // Calls the step's entry point for a move from -> to, with the device's
  // store folder as path and package "wayshunt"; call_text gets the call as
  // written in C.
  uint32_t call(Step step, const std::string &from, const std::string &to, std::string &call_text);

  // The questions below set the library's release integers (every entry
  // point reads them afresh) and touch no file, log or store.
  // The era whose stored forms a store has while the release runs; none for
  // a release below the ladder (below 3.2), from which nothing is converted.
  std::optional<Era> era_of_release(const std::string &release);
  Direction direction(const std::string &from, const std::string &to);

  // The slot of an interface, as the conversions look it up (255 for none).
  uint8_t slot_of(uint32_t if_index);
  // The status's text: the library's own for its codes, else the platform's.
  std::string status_text(uint32_t status);

  // The rung of the ladder that a stack of return addresses (innermost
  // first, taken in a process forked after the library was loaded) was in:
  // its conversion's name and where it goes, e.g.
  // "wayshunt_cnv_config_downgrade_to_3_2, the rung down to the forms of
  // 3.2"; "" when no conversion of the store was on the stack.
  std::string rung_at(const std::vector<uintptr_t> &frames) const;

 private:
  void *sym(const char *name);
  void set_releases(const std::string &from, const std::string &to);
  std::string path_;
  void *handle_;
};

}  // namespace wsc

#endif
