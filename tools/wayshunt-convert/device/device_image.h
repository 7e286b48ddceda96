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
#include "store/store_arg.h"
#include "wayshunt_cli.h"
#include "wayshunt_cnv.h"

namespace wsc {

// The stored files of the service, below mnt/kvs, in copy order.
extern const std::vector<std::string> kServiceFiles;

// The hub access point and opcode of the running service's decommission.
inline constexpr int kServiceSap = HUB_SAP_WAYSHUNT;
inline constexpr int kServiceOpcode = WAYSHUNT_CLI_HUB_OPCODE;

// Where the library finds things on a switch: the folder of the runtime
// store and the service's stored files, and the folder of the conversion log.
// An image mirrors them below its own folder.
std::string device_kvs_dir();    // "/mnt/kvs"
std::string device_log_dir();    // "/bootflash"

struct DeviceImage {
  std::string dir;  // absolute
  std::string bootflash() const { return dir + device_log_dir(); }
  std::string mnt_kvs() const { return dir + device_kvs_dir(); }
  std::string standby() const { return dir + "/standby"; }
  std::string hub() const { return dir + "/hub"; }
  std::string reldesc() const { return dir + "/reldesc"; }
  std::string store_file() const;  // the runtime store's data file in mnt/kvs
  StoreRef store() const;          // the runtime store by URL and file (PLAT_KVS_ROOT unset)
  std::string log_file() const;    // the conversion log in bootflash
  // The image's record of the moves run on it, one JSON object a line.
  std::string history_file() const { return bootflash() + "/wayshunt-convert-history.jsonl"; }
};

// The image at dir (made absolute). With need_store, throws ToolError when
// mnt/kvs/wayshunt_runtime_ha.mdb is missing.
DeviceImage image_at(const std::string &dir, bool need_store);
// Creates the image's folders that are missing.
void make_image_folders(const DeviceImage &img);

// A copy of the image in folder to (which must not exist), with its store
// and files; the hub's sockets are left out, so that a conversion of the
// copy reaches no running service. Throws ToolError.
DeviceImage copy_image(const DeviceImage &img, const std::string &to);

// A temporary folder in $TMPDIR, removed with its contents at the end of
// the scope.
class TempFolder {
 public:
  explicit TempFolder(const std::string &what);  // what: part of the folder's name
  ~TempFolder();
  TempFolder(const TempFolder &) = delete;
  TempFolder &operator=(const TempFolder &) = delete;
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

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

}  // namespace wsc

#endif
