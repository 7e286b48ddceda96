// Lets a process see chosen host folders at fixed device paths (such as
// /bootflash or /mnt/kvs) without creating anything on the machine's own root
// file system: tests and tools run code that uses those fixed paths against
// temporary folders.
#ifndef TOOLS_DEVROOT_DEVROOT_H
#define TOOLS_DEVROOT_DEVROOT_H

#include <string>
#include <vector>

namespace devroot {

// One folder to show: host_dir appears at device_path, e.g.
// {"/bootflash", "/tmp/x/bootflash"}.
struct Mapping {
  std::string device_path;  // absolute, no "." or ".." parts, not "/"
  std::string host_dir;     // an existing folder (relative to the current one if relative)
};

// Makes the calling process (and the children it starts later) see each
// host_dir at its device_path, and the rest of the file system as before,
// the current directory included. Reads and writes through a device path
// land in the host folder.
//
// How: enters a private mount namespace (inside a new user namespace that
// maps the caller's uid/gid to root when the caller is not root) and switches
// to a new root built on a tmpfs:
// - every entry of "/" is recreated in it: folders rbind-mounted (so /proc,
//   /dev, /sys, /tmp, ... work as before), symlinks copied, files bind-mounted;
// - a folder on the way to a device path (/mnt for /mnt/kvs) becomes a
//   tmpfs folder holding the host folder's other entries, recreated the same
//   way, so /mnt/<anything else> stays visible beside /mnt/kvs;
// - device paths must not overlap (/mnt and /mnt/kvs together are refused);
// - the new "/" itself is read-only: creating a new top-level entry fails
//   with EROFS instead of landing in a tmpfs that nobody else sees.
//
// Must be called while the process has a single thread (e.g. in a child
// right after fork()). Returns "" on success, or a one-line reason, e.g.
// "user namespaces are not available: unshare: Operation not permitted".
// A bad mapping, a second thread or a failure to enter the namespaces
// changes nothing. A later failure leaves the process in its private
// namespaces, normally still seeing the old root (the switch to the new root
// is the last step that can fail besides returning to the current folder).
std::string enter(const std::vector<Mapping> &mappings);

// True when enter() works on this machine for this process's user. Probes in
// a forked child, so the caller is untouched; on false, *why (if given) holds
// enter()'s reason.
bool available(std::string *why = nullptr);

}  // namespace devroot

#endif
