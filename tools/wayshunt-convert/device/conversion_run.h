// One run of a move's entry points on a device image, in a child process of
// its own, as the upgrade manager runs them on a switch: the release
// descriptors written into the image, the image shown at /bootflash and
// /mnt/kvs, the library's entry points called in order until one fails.
// A child per run keeps each run's library state, fault counts and device
// root apart, so that a forecast on a copy, the move and a clean conversion
// can follow one another in one command, and a library that crashes takes
// only its child down.
#ifndef TOOLS_WAYSHUNT_CONVERT_DEVICE_CONVERSION_RUN_H
#define TOOLS_WAYSHUNT_CONVERT_DEVICE_CONVERSION_RUN_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "device/conversion_library.h"
#include "device/device_image.h"

namespace wsc {

// What one entry point's call did.
struct StepResult {
  Step step = Step::running;
  std::string call;  // as written in C
  uint32_t status = 0;
  std::string status_text;
  std::vector<std::string> standby;  // file_changes lines, no indent
  std::string log;                   // what the call wrote to the conversion log
  double seconds = 0;
};

// The platform the child's library meets.
struct ConversionSetup {
  std::vector<std::string> faults;  // fault rules armed for the library's calls
  bool env_faults = false;          // the rules of PLAT_FAULTS as well
  std::string journal;              // the file that journals its platform calls ("": none)
};

struct ConversionOutcome {
  std::vector<StepResult> steps;  // those that ran, the failing one last
  bool ok() const;                // every step ran with status 0
  std::string died;               // why the child ended early ("" when it did not)
  int signal = 0;                 // the signal that ended it, if one did
  std::string rung;               // the rung it was in when SIGINT or SIGTERM met it ("": none)
};

// A conversion started in a child process, so that the caller can go on
// with other work while it runs. A child not waited for is killed and
// reaped when the object goes.
class ConversionChild {
 public:
  ConversionChild(ConversionLibrary &lib, const DeviceImage &img, const std::string &from, const std::string &to,
                  const std::vector<Step> &steps, const ConversionSetup &setup);
  ~ConversionChild();
  ConversionChild(const ConversionChild &) = delete;
  ConversionChild &operator=(const ConversionChild &) = delete;
  // Reads the child's reports until it ends; on_step gets each step's
  // result as it ends. Throws ToolError when the child could not set the
  // image up (its reason).
  ConversionOutcome wait(const std::function<void(const StepResult &)> &on_step);

 private:
  ConversionLibrary &lib_;
  int pid_ = -1;
  FILE *from_child_ = nullptr;
};

// SIGINT and SIGTERM are passed on to every conversion process running,
// and remembered, while the guard lives: the tool then ends as they say
// only after it has told what the interrupted move left.
class InterruptGuard {
 public:
  InterruptGuard();
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard &) = delete;
  InterruptGuard &operator=(const InterruptGuard &) = delete;
  static int caught();  // the signal caught, or 0
};

// Runs the steps of from -> to on img in a child process and waits for it.
ConversionOutcome run_conversion(ConversionLibrary &lib, const DeviceImage &img, const std::string &from,
                                 const std::string &to, const std::vector<Step> &steps, const ConversionSetup &setup,
                                 const std::function<void(const StepResult &)> &on_step);

// The text 'run' prints for a step: the call, its status and text, the
// files that reached img's standby and what it logged.
void print_step(const StepResult &s, const DeviceImage &img, std::ostream &out);

}  // namespace wsc

#endif
