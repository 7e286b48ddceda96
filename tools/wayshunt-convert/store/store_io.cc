// Reading a whole store, and writing a whole new one through a temporary
// store that is renamed into place.
#include "store/store_io.h"

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "records/formats.h"
#include "kvs_admin.h"
#include "store/progress.h"
#include "records/json_codec.h"
#include "tool_error.h"

namespace wsc {

namespace {

std::string why(retcode_t rc) {
  std::string text = rc ? retcode2str(rc) : "no datum returned";
  const char *detail = kvs_last_error_detail();
  if (detail && *detail) text += std::string(" (") + detail + ")";
  return text;
}

// What to do after a failed read or write of a store.
constexpr const char *kReadAdvice = "the store may be damaged: keep a copy and check it with 'verify'";
constexpr const char *kWriteAdvice = "no store was written; check free space and the folder's permissions, then run again";

std::string open_advice(retcode_t rc) {
  switch (rc) {
    case KVS_ERR_NO_STORE: return "check the path, or create a store with 'load' or 'gen'";
    case KVS_ERR_CORRUPT: return "the file is damaged or not a store";
    default: return "check the path and its permissions";
  }
}

// Closes an open store at the end of the scope unless released.
struct OpenStore {
  kvs_service_t handle = 0;
  ~OpenStore() {
    if (handle) kvs_close(handle);
  }
  retcode_t close() {
    retcode_t rc = kvs_close(handle);
    handle = 0;
    return rc;
  }
};

Bytes copy(const kvs_datum_t *d) {
  const auto *p = static_cast<const uint8_t *>(d->ptr);
  return d->siz ? Bytes(p, p + d->siz) : Bytes();
}

// SIGINT, SIGTERM and SIGHUP only set a flag while a store is written, so
// that the write can remove its temporary files before the tool ends.
volatile std::sig_atomic_t g_interrupted = 0;

extern "C" void note_signal(int) { g_interrupted = 1; }

class SignalGuard {
 public:
  SignalGuard() {
    g_interrupted = 0;
    struct sigaction sa = {};
    sa.sa_handler = note_signal;
    sigemptyset(&sa.sa_mask);
    for (int i = 0; i < 3; ++i) {
      sigaction(kSignals[i], &sa, &old_[i]);
      if (old_[i].sa_handler == SIG_IGN) sigaction(kSignals[i], &old_[i], nullptr);  // keep nohup and the like
    }
  }
  ~SignalGuard() {
    for (int i = 0; i < 3; ++i) sigaction(kSignals[i], &old_[i], nullptr);
  }

 private:
  static constexpr int kSignals[3] = {SIGINT, SIGTERM, SIGHUP};
  struct sigaction old_[3];
};

// The URL of a hidden temporary store beside the one named by url.
std::string temp_url(const std::string &url) {
  size_t slash = url.rfind('/');
  return url.substr(0, slash + 1) + "." + url.substr(slash + 1) + ".tmp-" + std::to_string(getpid());
}

void fill(kvs_service_t handle, const Records &records, bool progress) {
  Progress bar("writing", progress ? records.size() : 0);  // none at all without progress
  for (size_t i = 0; i < records.size(); ++i) {
    if (g_interrupted) throw ToolError("interrupted; no store was written");
    const Record &r = records[i];
    uint8_t empty = 0;
    kvs_datum_t key{const_cast<uint8_t *>(r.key.data()), static_cast<unsigned>(r.key.size())};
    kvs_datum_t value{r.value.empty() ? &empty : const_cast<uint8_t *>(r.value.data()),
                      static_cast<unsigned>(r.value.size())};
    if (retcode_t rc = kvs_store(handle, KVS_STORE_REPLACE, &key, &value))
      throw ToolError("cannot store record " + std::to_string(i) + " (" + type_label(r.type()) + ", key " +
                      to_hex(r.key) + "): " + why(rc) + "; " + kWriteAdvice);
    bar.update(i + 1);
  }
}

// The folders a write makes for its store. Unless the write succeeds they
// are removed again, deepest first and only while empty, so that a failed
// write leaves no folder behind and never takes one that existed before.
class NewFolders {
 public:
  explicit NewFolders(const std::string &folder) {
    namespace fs = std::filesystem;
    std::error_code ec;
    for (fs::path p = folder; !p.empty() && !fs::exists(p, ec); p = p.parent_path()) made_.push_back(p.string());
    fs::create_directories(folder, ec);
    if (ec) {
      remove();
      throw ToolError("cannot create folder " + folder + " (" + ec.message() + "); check the path and its permissions");
    }
  }
  ~NewFolders() {
    if (!kept_) remove();
  }
  NewFolders(const NewFolders &) = delete;
  NewFolders &operator=(const NewFolders &) = delete;
  void keep() { kept_ = true; }

 private:
  void remove() {
    std::error_code ec;
    for (const std::string &dir : made_) std::filesystem::remove(dir, ec);
  }
  std::vector<std::string> made_;  // deepest first
  bool kept_ = false;
};

}  // namespace

Records read_store(const StoreRef &store) {
  Records records;
  auto each = [](const kvs_datum_t *k, const kvs_datum_t *v, void *arg) -> retcode_t {
    static_cast<Records *>(arg)->push_back({copy(k), copy(v)});
    return 0;
  };
  // Read-only, beside the service calls: no lock file, no handle number
  // taken. The stand-in refuses a key or value that does not lie within the
  // file before it is handed out.
  if (retcode_t rc = kvs_read_records(store.url.c_str(), each, &records)) {
    std::string detail = kvs_last_error_detail();
    if (rc == KVS_ERR_CORRUPT)
      throw ToolError(store.file + ": " + (detail.starts_with("truncated") ? detail : "damaged or not a store (" + detail + ")") +
                      "; copy it again from the device, or check that it is a runtime store");
    bool opening = rc == KVS_ERR_NO_STORE || records.empty();
    throw ToolError((opening ? "cannot open store " : "cannot walk store ") + store.file + ": " + why(rc) + "; " +
                    (opening ? open_advice(rc) : kReadAdvice));
  }
  return records;
}

void check_writable(const std::string &file, const std::string &what) {
  struct stat st {};
  if (stat(file.c_str(), &st) == 0) {
    bool no_bit = (st.st_mode & 0222) == 0;
    if (no_bit || access(file.c_str(), W_OK) != 0) {
      char mode[8];
      std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(st.st_mode & 07777));
      throw ToolError(what + " " + file + " is read-only (mode " + mode + "); make it writable (chmod u+w) to change it");
    }
  }
  std::string folder = std::filesystem::path(file).parent_path().string();
  if (stat(folder.c_str(), &st) == 0 && access(folder.c_str(), W_OK) != 0)
    throw ToolError("folder " + folder + " is not writable for you; " + what + " " + file + " cannot be changed there");
}

void write_store(const StoreRef &store, const Records &records, bool force, bool progress) {
  namespace fs = std::filesystem;
  std::error_code ec;
  struct stat old {};
  bool replacing = stat(store.file.c_str(), &old) == 0;
  if (replacing && !force) throw ToolError("store " + store.file + " exists; pass --force to replace it");
  check_writable(store.file, "store");

  std::string folder = fs::path(store.file).parent_path().string();
  NewFolders folders(folder);
  std::string tmp = temp_url(store.url);
  char tmp_file[4096];
  if (kvs_store_file(tmp.c_str(), tmp_file, sizeof tmp_file))
    throw ToolError("store path too long: " + store.file);
  kvs_remove(tmp.c_str());  // a leftover of an earlier run with the same pid
  if (retcode_t rc = kvs_create(tmp.c_str())) {
    if (rc == KVS_ERR_NO_STORE) throw ToolError("folder " + folder + " does not exist; create it first");
    throw ToolError("cannot create a store in " + folder + ": " + why(rc) + "; " + kWriteAdvice);
  }

  SignalGuard signals;
  try {
    retcode_t rc = 0;
    OpenStore s;
    s.handle = kvs_open(tmp.c_str(), &rc);
    if (rc) {
      s.handle = 0;
      throw ToolError("cannot open new store " + std::string(tmp_file) + ": " + why(rc) + "; " + kWriteAdvice);
    }
    fill(s.handle, records, progress);
    if ((rc = s.close())) throw ToolError("cannot write store " + std::string(tmp_file) + ": " + why(rc) + "; " + kWriteAdvice);
    if (g_interrupted) throw ToolError("interrupted; no store was written");
    if (replacing) {  // the store it replaces keeps its mode and owner
      chmod(tmp_file, old.st_mode & 07777);
      if (geteuid() == 0 && chown(tmp_file, old.st_uid, old.st_gid) != 0) {
        // the new file stays root's: it is written all the same
      }
    }
    fs::rename(tmp_file, store.file, ec);
    if (ec) throw ToolError("cannot move the new store to " + store.file + ": " + ec.message() + "; " + kWriteAdvice);
    fs::remove(std::string(tmp_file) + "-lock", ec);
    folders.keep();
  } catch (...) {
    kvs_remove(tmp.c_str());
    throw;
  }
}

}  // namespace wsc
