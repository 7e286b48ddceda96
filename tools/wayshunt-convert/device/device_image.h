// A device image: a folder that holds what the conversion library finds at
// fixed paths on a switch, so that a release move can be run on an ordinary
// machine. Layout of <image>:
//
//   bootflash/        shown at /bootflash: the conversion log wayshunt_cnv.log
//   mnt/kvs/          shown at /mnt/kvs: the runtime store
//                     wayshunt_runtime_ha.mdb (the path "/mnt/kvs" is what
//                     convert_gsync gets) and the service's stored files
//                     (wayshunt_stored_files.h), copied to the standby on a
//                     move below 3.2
//   standby/          the standby supervisor's file system (PLAT_STANDBY_ROOT):
//                     /mnt/kvs/x on the standby is standby/mnt/kvs/x
//   hub/              the hub's runtime folder of sockets (PLAT_HUB_DIR), where
//                     'service' listens as the running service
//   reldesc/          from.reldesc and to.reldesc, the release descriptors
//                     that 'run' writes for each move
//
// Only mnt/kvs/wayshunt_runtime_ha.mdb must exist; 'run' creates the missing
// folders. /bootflash and /mnt/kvs are mapped in a private mount namespace
// (devroot), so nothing on the machine's own / changes and no root is needed.
#ifndef TOOLS_WAYSHUNT_CONVERT_DEVICE_IMAGE_H
#define TOOLS_WAYSHUNT_CONVERT_DEVICE_IMAGE_H

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "hub_defs.h"
#include "wayshunt_cli.h"

namespace wsc {

// The stored files of the service, below mnt/kvs, in copy order.
extern const std::vector<std::string> kServiceFiles;

// The hub access point and opcode of the running service's decommission.
inline constexpr int kServiceSap = HUB_SAP_WAYSHUNT;
inline constexpr int kServiceOpcode = WAYSHUNT_CLI_HUB_OPCODE;

struct DeviceImage {
  std::string dir;  // absolute
  std::string bootflash() const { return dir + "/bootflash"; }
  std::string mnt_kvs() const { return dir + "/mnt/kvs"; }
  std::string standby() const { return dir + "/standby"; }
  std::string hub() const { return dir + "/hub"; }
  std::string reldesc() const { return dir + "/reldesc"; }
  std::string store_file() const { return mnt_kvs() + "/wayshunt_runtime_ha.mdb"; }
  std::string log_file() const { return bootflash() + "/wayshunt_cnv.log"; }
};

// The image at dir (made absolute). With need_store, throws ToolError when
// mnt/kvs/wayshunt_runtime_ha.mdb is missing.
DeviceImage image_at(const std::string &dir, bool need_store);
// Creates the image's folders that are missing.
void make_image_folders(const DeviceImage &img);

// Throws ToolError unless text is a release version such as "4.2(1a)".
void check_version(const std::string &option, const std::string &text);

// Throws ToolError when a socket in hub_dir would have too long a path.
void check_hub_dir(const std::string &hub_dir);

// Writes reldesc/from.reldesc and reldesc/to.reldesc and sets the
// environment for the library: both descriptor paths, PLAT_STANDBY_ROOT,
// PLAT_HUB_DIR (the image's hub/) and no PLAT_KVS_ROOT (the library's "/mnt/kvs" is
// meant as it stands).
void prepare_move(const DeviceImage &img, const std::string &from, const std::string &to);

// Shows img's bootflash and mnt/kvs at /bootflash and /mnt/kvs for this
// process and its children. Call while the process has one thread.
void enter_device_root(const DeviceImage &img);

// Folder of this program (from /proc/self/exe).
std::string program_dir();
// The conversion library beside the tool: the build as configured, or the
// trace build. Throws ToolError naming where it looked.
std::string find_library(bool trace);

// The entry points that the upgrade manager calls.
enum class Step { running, startup, gsync, fs_upg };
std::string step_name(Step s);

// The conversion library, loaded with dlopen as the upgrade manager loads it.
class ConversionLibrary {
 public:
  explicit ConversionLibrary(const std::string &path);  // throws ToolError
  ~ConversionLibrary();
  ConversionLibrary(const ConversionLibrary &) = delete;
  ConversionLibrary &operator=(const ConversionLibrary &) = delete;
  // Calls the step's entry point for a move from -> to, with path "/mnt/kvs"
  // and package "wayshunt"; call_text gets the call as written in C.
  uint32_t call(Step step, const std::string &from, const std::string &to, std::string &call_text);
  // The store conversions convert_gsync runs on a move from -> to, in ladder
  // order, as the library's own release predicates decide; down tells a move
  // down. The library's release integers are set for the question (every
  // entry point reads them afresh); no file, log or platform call is touched.
  std::vector<std::string> store_conversions(const std::string &from, const std::string &to, bool &down);

 private:
  void *handle_;
};

// A file's contents, and its inode and change time, which tell a file
// written anew with the same contents from one left alone.
struct FileState {
  std::string data;
  std::string stamp;
};
// The files below dir, by relative path.
using FileSet = std::map<std::string, FileState>;
FileSet files_below(const std::string &dir);
// Lines "+ path (N bytes)", "~ path (N -> M bytes)" (", same contents" for a
// file written anew), "- path" for what differs from before to after, each
// prefixed by indent.
std::vector<std::string> file_changes(const FileSet &before, const FileSet &after, const std::string &indent);

// What one entry point's call did.
struct StepResult {
  std::string call;   // as written in C
  uint32_t status = 0;
  std::string status_text;
  std::vector<std::string> standby;  // file_changes lines, no indent
  std::string log;                   // what the call wrote to the conversion log
};

// Calls the steps in order on the device root entered for img, printing each
// call and its status with its text, the files that reached the standby and
// the part of the conversion log each call wrote. Stops at the first non-zero
// status. True when all were 0. With results, each call's result is kept.
bool run_steps(ConversionLibrary &lib, const DeviceImage &img, const std::vector<Step> &steps, const std::string &from,
               const std::string &to, std::ostream &out, std::vector<StepResult> *results = nullptr);

}  // namespace wsc

#endif
