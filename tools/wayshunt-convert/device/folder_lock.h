// One operator at a time: an exclusive lock on a folder (the store's, or
// the image's hub folder for 'service'), held for a command's length. It is
// flock(2) on the folder itself, so no file is made for it and a killed
// holder releases it. A second command waits up to --wait seconds, then is
// refused with the holder's process, as /proc/locks names it.
#ifndef TOOLS_WAYSHUNT_CONVERT_DEVICE_FOLDER_LOCK_H
#define TOOLS_WAYSHUNT_CONVERT_DEVICE_FOLDER_LOCK_H

#include <string>

namespace wsc {

class FolderLock {
 public:
  // Locks folder, or its deepest existing ancestor when it does not exist
  // yet. what names it in the message ("image /x", "store folder /y").
  // Throws ToolError after wait_seconds.
  // across_exec: the lock stays with a program the process execs ('service'
  // becomes the hub listener).
  FolderLock(const std::string &folder, const std::string &what, double wait_seconds, bool across_exec = false);
  ~FolderLock();
  FolderLock(const FolderLock &) = delete;
  FolderLock &operator=(const FolderLock &) = delete;

 private:
  int fd_ = -1;
};

// The help text of --wait.
inline constexpr const char *kWaitHelp =
    "Seconds to wait for another wayshunt-convert that holds the same image or store (default 0: refuse at once)";

}  // namespace wsc

#endif
