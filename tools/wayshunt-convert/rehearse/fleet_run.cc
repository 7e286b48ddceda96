// The worker processes of a rehearsal (fleet_run.h). Each worker writes its
// image's entry and each finished cell as a JSON file in the rehearsal's
// temporary folder, and a line on a shared pipe per event for the progress
// bar; the parent gathers the files once every worker has ended.
#include "rehearse/fleet_run.h"

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <bit>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "compare/store_profile.h"
#include "device/device_image.h"
#include "device/folder_lock.h"
#include "report/rehearsal_html.h"
#include "store/progress.h"
#include "store/store_arg.h"
#include "store/store_io.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

volatile sig_atomic_t g_stop = 0;
extern "C" void note_stop(int sig) { g_stop = sig; }

// SIGINT and SIGTERM noted, not obeyed, while the rehearsal runs; a poll
// they interrupt returns at once.
class StopSignals {
 public:
  StopSignals() {
    g_stop = 0;
    struct sigaction sa = {};
    sa.sa_handler = note_stop;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, &old_int_);
    sigaction(SIGTERM, &sa, &old_term_);
  }
  ~StopSignals() {
    sigaction(SIGINT, &old_int_, nullptr);
    sigaction(SIGTERM, &old_term_, nullptr);
  }

 private:
  struct sigaction old_int_, old_term_;
};

void write_json_file(const std::string &path, const Json &j) {
  {
    std::ofstream f(path + ".part");
    f << j.dump();
    if (!f) throw ToolError("cannot write " + path + ".part");
  }
  fs::rename(path + ".part", path);
}

Json read_json_file(const std::string &path) {
  std::ifstream f(path);
  return Json::parse(f);
}

void say(int fd, const std::string &line) {
  std::string l = line + "\n";
  (void)!write(fd, l.data(), l.size());  // one short write: lines of workers do not mix
}

std::string results(const std::string &root) { return root + "/results"; }
std::string image_file(const std::string &root, size_t i) { return results(root) + "/" + std::to_string(i) + ".image.json"; }
std::string cell_file(const std::string &root, size_t i, size_t m) {
  return results(root) + "/" + std::to_string(i) + "." + std::to_string(m) + ".cell.json";
}
// The cell cut short for the page (brief()), written beside it.
std::string brief_file(const std::string &root, size_t i, size_t m) {
  return results(root) + "/" + std::to_string(i) + "." + std::to_string(m) + ".brief.json";
}

// A cell as the page needs it: its lost items cut to the page's cap, their
// number beside them. Only the cells' files hold every item, so that the
// tool's memory does not grow with the fleet's losses.
Json brief(const Json &full) {
  Json cell = Json::object();
  for (const auto &[key, value] : full.items())
    if (key != "lost") cell[key] = value;
  const Json &lost = full["lost"];
  cell["lost"] = Json(lost.begin(), lost.begin() + static_cast<std::ptrdiff_t>(std::min(lost.size(), kReportListCap)));
  cell["lost_total"] = lost.size();
  return cell;
}

// A copy of the image (a device image) in to, taken while the image's
// folder is locked against a move run on it meanwhile; every cell of the
// image starts from it.
ImageInput pristine_copy(const ImageInput &img, const std::string &to, double wait) {
  std::string folder = img.bare ? fs::path(img.path).parent_path().string() : image_at(img.path, true).mnt_kvs();
  FolderLock lock(folder, (img.bare ? "store folder " : "image ") + folder, wait);
  DeviceImage copy{to};
  if (img.bare) {
    make_image_folders(copy);
    fs::copy_file(img.path, copy.store_file());
  } else {
    copy = copy_image(image_at(img.path, true), to);
  }
  ImageInput p = img;
  p.path = copy.dir, p.bare = false;
  return p;
}

// The era the store is in, and whether it fits no one era (then it is
// converted as the era most records fit, as --force would).
std::pair<Era, bool> era_of(const Records &store) {
  StoreProfile p = profile_store(store);
  if (p.fits_moved_down) return {static_cast<Era>(std::countr_zero(p.fits_moved_down)), false};
  return {static_cast<Era>(std::countr_zero(p.majority)), true};
}

// One image's moves, in a worker process.
void rehearse_image(ConversionLibrary &lib, const ImageInput &img, const std::vector<Rung> &ladder,
                    const FleetOptions &o, const std::string &root, int report) {
  Json entry = {{"name", img.name}, {"path", img.path}, {"index", img.index}, {"records", 0},
                {"era", nullptr},   {"error", ""},      {"note", ""},     {"moves", Json::array()}};
  try {
    ImageInput copy = pristine_copy(img, root + "/image-" + std::to_string(img.index), o.wait);
    Records before = read_store(image_at(copy.path, true).store());
    auto [era, mixed] = era_of(before);
    entry["records"] = before.size();
    entry["era"] = era_name(era);
    if (mixed)
      entry["note"] = "the store fits no one era (" + era_verdict(profile_store(before)) + "); rehearsed as " +
                      era_title(era) + ", as --force would";
    std::vector<MovePlan> moves = o.moves.empty() ? ladder_moves(ladder, rung_of_era(ladder, era).release) : o.moves;
    for (const MovePlan &m : moves) entry["moves"].push_back(m.label());
    write_json_file(image_file(root, img.index), entry);
    say(report, "plan " + std::to_string(moves.size()));
    Json counts = store_counts(before);
    CellOptions co = o.cell;
    co.force = mixed;
    for (size_t m = 0; m < moves.size(); ++m) {
      std::string work = root + "/work-" + std::to_string(img.index);
      Json cell = rehearse_cell(lib, copy, before, counts, moves[m], co, work);
      write_json_file(brief_file(root, img.index, m), brief(cell));  // first: a cell file means both are there
      write_json_file(cell_file(root, img.index, m), cell);
      malloc_trim(0);  // the next cell's conversion processes are forked from this one: keep it small
      say(report, std::string(cell["failure"].get<std::string>().empty() ? "cell passed " : "cell failed ") +
                      std::to_string(img.index) + " " + std::to_string(m));
    }
  } catch (const ToolError &e) {
    entry["error"] = e.what();
    write_json_file(image_file(root, img.index), entry);
  }
}

// Starts a worker for the image in a process group of its own, which the
// parent stops as one (the worker and its conversion processes).
int start_worker(ConversionLibrary &lib, const ImageInput &img, const std::vector<Rung> &ladder, const FleetOptions &o,
                 const std::string &root, int report) {
  sigset_t stops, old;
  sigemptyset(&stops);
  sigaddset(&stops, SIGINT);
  sigaddset(&stops, SIGTERM);
  sigprocmask(SIG_BLOCK, &stops, &old);  // the child meets them only with its own handlers
  int pid = fork();
  if (pid == 0) {
    setpgid(0, 0);
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    sigprocmask(SIG_SETMASK, &old, nullptr);
    std::string tmp = root + "/tmp-" + std::to_string(img.index);
    fs::create_directories(tmp);
    setenv("TMPDIR", tmp.c_str(), 1);  // the move's own copies, removed with the rehearsal's folder
    int rc = 0;
    try {
      rehearse_image(lib, img, ladder, o, root, report);
    } catch (const std::exception &e) {
      std::fprintf(stderr, "wayshunt-convert rehearse: %s: %s\n", img.name.c_str(), e.what());
      rc = 1;
    }
    std::fflush(nullptr);
    say(report, "done " + std::to_string(getpid()));  // reaped at once, not at the next poll's time-out
    _exit(rc);
  }
  if (pid > 0) setpgid(pid, pid);  // either side may come first
  sigprocmask(SIG_SETMASK, &old, nullptr);
  if (pid < 0) throw ToolError(std::string("cannot start a worker process: ") + std::strerror(errno));
  return pid;
}

std::string duration_text(double s) {
  long t = static_cast<long>(s + 0.5);
  return t >= 60 ? std::to_string(t / 60) + "m" + std::to_string(t % 60) + "s" : std::to_string(t) + "s";
}

// Counts from the workers' lines, for the bar: images done, cells failed,
// time left from the pace so far.
struct Tally {
  size_t images_done = 0, planned = 0, planned_images = 0, cells = 0, failed = 0;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  void take(const std::string &line) {
    if (line.rfind("plan ", 0) == 0) planned += std::stoul(line.substr(5)), ++planned_images;
    if (line.rfind("cell ", 0) == 0) ++cells, failed += line.rfind("cell failed", 0) == 0;
  }
  std::string note(size_t images) const {
    std::string s = std::to_string(failed) + (failed == 1 ? " move failed" : " moves failed");
    if (cells == 0 || planned_images == 0) return s;
    double per_image = static_cast<double>(planned) / static_cast<double>(planned_images);
    double total = static_cast<double>(planned) + per_image * static_cast<double>(images - planned_images);
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return s + ", about " + duration_text(elapsed * (total - static_cast<double>(cells)) / static_cast<double>(cells)) +
           " left";
  }
};

class Workers {
 public:
  Workers(ConversionLibrary &lib, const std::vector<ImageInput> &images, const std::vector<Rung> &ladder,
          const FleetOptions &o, const std::string &root)
      : lib_(lib), images_(images), ladder_(ladder), o_(o), root_(root),
        bar_("rehearse", images.size(), o.progress ? 1 : SIZE_MAX) {
    if (pipe2(pipe_, O_CLOEXEC) != 0) throw ToolError(std::string("cannot make a pipe: ") + std::strerror(errno));
  }
  ~Workers() {
    close(pipe_[0]);
    close(pipe_[1]);
  }

  // Runs every image; returns the signal that stopped it, or 0.
  int run() {
    size_t next = 0;
    while ((!g_stop && next < images_.size()) || !running_.empty()) {
      if (g_stop) stop_all();
      while (!g_stop && running_.size() < o_.jobs && next < images_.size()) {
        const ImageInput &img = images_[next++];
        running_[start_worker(lib_, img, ladder_, o_, root_, pipe_[1])] = img.index;
      }
      pollfd p = {pipe_[0], POLLIN, 0};
      if (poll(&p, 1, 200) > 0) read_lines();
      reap();
    }
    read_lines();
    return g_stop;
  }

  // Why each worker that did not end well ended, by image index.
  const std::map<size_t, std::string> &ended_early() const { return ended_early_; }
  // The cells read so far, by image index and move.
  std::map<std::pair<size_t, size_t>, Json> &cells() { return cells_; }

 private:
  void stop_all() {
    for (const auto &[pid, index] : running_) kill(-pid, SIGTERM);
  }

  void read_lines() {
    char buf[4096];
    pollfd p = {pipe_[0], POLLIN, 0};
    while (poll(&p, 1, 0) > 0) {
      ssize_t n = read(pipe_[0], buf, sizeof buf);
      if (n <= 0) break;
      pending_.append(buf, static_cast<size_t>(n));
    }
    for (size_t nl; (nl = pending_.find('\n')) != std::string::npos; pending_.erase(0, nl + 1)) {
      std::string line = pending_.substr(0, nl);
      if (line.rfind("done ", 0) == 0) {
        int status = 0, pid = std::stoi(line.substr(5));
        if (waitpid(pid, &status, 0) == pid) ended(pid, status);
      }
      tally_.take(line);
      size_t image = 0, move = 0;
      if (std::sscanf(line.c_str(), "cell %*s %zu %zu", &image, &move) == 2)  // read while the workers work on
        cells_[{image, move}] = read_json_file(brief_file(root_, image, move));
    }
    bar_.note(tally_.images_done, tally_.note(images_.size()));
  }

  void reap() {
    int status = 0;
    for (int pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) ended(pid, status);
  }

  void ended(int pid, int status) {
    auto it = running_.find(pid);
    if (it == running_.end()) return;
    if (!(WIFEXITED(status) && WEXITSTATUS(status) == 0))
      ended_early_[it->second] = WIFSIGNALED(status) ? std::string("signal ") + std::to_string(WTERMSIG(status)) + " (" +
                                                            strsignal(WTERMSIG(status)) + ")"
                                                      : "exit status " + std::to_string(WEXITSTATUS(status));
    running_.erase(it);
    ++tally_.images_done;
  }

  ConversionLibrary &lib_;
  const std::vector<ImageInput> &images_;
  const std::vector<Rung> &ladder_;
  const FleetOptions &o_;
  std::string root_;
  Progress bar_;
  int pipe_[2] = {-1, -1};
  std::map<int, size_t> running_;  // pid -> image index
  std::map<size_t, std::string> ended_early_;
  std::map<std::pair<size_t, size_t>, Json> cells_;
  std::string pending_;
  Tally tally_;
};

}  // namespace

FleetResult rehearse_images(ConversionLibrary &lib, const std::vector<ImageInput> &images,
                            const std::vector<Rung> &ladder, const FleetOptions &o) {
  FleetResult r;
  r.folder = std::make_shared<TempFolder>("rehearse");
  const TempFolder &root = *r.folder;
  fs::create_directories(results(root.path()));
  StopSignals stops;
  std::map<size_t, std::string> early;
  std::map<std::pair<size_t, size_t>, Json> cells;
  {
    Workers w(lib, images, ladder, o, root.path());
    r.interrupted = w.run();
    early = w.ended_early();
    cells = std::move(w.cells());
  }
  for (const ImageInput &img : images) {
    std::string file = image_file(root.path(), img.index);
    Json entry = fs::exists(file) ? read_json_file(file)
                                  : Json{{"name", img.name}, {"path", img.path}, {"index", img.index}, {"records", 0},
                                         {"era", nullptr},   {"error", ""},      {"note", ""},     {"moves", Json::array()}};
    if (entry["error"].get<std::string>().empty() && !r.interrupted && early.count(img.index))
      entry["error"] = "the rehearsal of this image ended early (" + early[img.index] + ")";
    if (entry["error"].get<std::string>().empty() && !fs::exists(file))
      entry["error"] = "not rehearsed: the rehearsal was interrupted";
    for (size_t m = 0; fs::exists(cell_file(root.path(), img.index, m)); ++m) {
      auto it = cells.find({img.index, m});  // a worker stopped between a cell's file and its line: read now
      r.cells.push_back(it != cells.end() ? std::move(it->second) : read_json_file(brief_file(root.path(), img.index, m)));
      r.cell_files.push_back(cell_file(root.path(), img.index, m));
    }
    r.images.push_back(entry);
  }
  return r;
}

}  // namespace wsc
