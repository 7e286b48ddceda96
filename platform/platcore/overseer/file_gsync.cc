// overseercmn_file_gsync(): copies a file to the standby supervisor. The
// standby is modelled as a folder named by PLAT_STANDBY_ROOT (read at each
// call); the standby's path dst lands at <root>/<dst>.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "hub/hub_internal.h"
#include "overseer.h"
#include "plat_hooks.h"
#include "standby_copy.h"
#include "standby_path.h"

namespace {

retcode_t gsync(hub_q_handle_t q, int timeout_s, const char *src, const char *dst, int replace) {
  if (!plat::hub::queue_bound(q)) return OVERSEER_ERR_BAD_QUEUE;
  const char *root = std::getenv("PLAT_STANDBY_ROOT");
  if (!root || !*root) return OVERSEER_ERR_NO_STANDBY;
  int root_fd = open(root, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (root_fd < 0) return OVERSEER_ERR_NO_STANDBY;
  struct stat st;
  std::vector<std::string> parts;
  retcode_t rc = PLAT_OK;
  try {
    if (!src || stat(src, &st) != 0 || !S_ISREG(st.st_mode))
      rc = OVERSEER_ERR_NO_SOURCE;
    else if (!plat::overseer::standby_components(dst, parts))
      rc = OVERSEER_ERR_BAD_PATH;
    else
      rc = plat::overseer::copy_to_standby(root_fd, src, parts, replace != 0, timeout_s);
  } catch (const std::bad_alloc &) {
    rc = PLAT_ERR_NO_MEMORY;
  } catch (...) {
    rc = OVERSEER_ERR_IO;
  }
  close(root_fd);
  return rc;
}

}  // namespace

extern "C" retcode_t overseercmn_file_gsync(hub_q_handle_t q, int timeout_s, uuid_t uuid, const char *src,
                                            const char *dst, int replace, int reserved1, int reserved2, int reserved3,
                                            int reserved4) {
  // A call failed by a rule copies nothing, and its journal line says so.
  plat_fault_t f;
  bool injected = plat_fault_hit("overseercmn_file_gsync", &f);
  retcode_t rc = injected ? (f.value ? f.value : PLAT_ERR_INJECTED) : gsync(q, timeout_s, src, dst, replace);
  plat_journal(
      "overseercmn_file_gsync(q=%d, timeout_s=%d, uuid=%u, src=\"%s\", dst=\"%s\", replace=%d, %d, %d, %d, %d) = 0x%x%s",
      q, timeout_s, static_cast<unsigned>(uuid), src ? src : "(null)", dst ? dst : "(null)", replace, reserved1,
      reserved2, reserved3, reserved4, static_cast<unsigned>(rc), injected ? " (injected)" : "");
  return rc;
}
