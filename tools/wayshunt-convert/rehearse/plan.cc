// The images and moves of a rehearsal (plan.h).
#include "rehearse/plan.h"

#include <algorithm>
#include <filesystem>
#include <cstdio>
#include <map>
#include <tuple>

#include "device/device_image.h"
#include "store/store_arg.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

// A release of each era, and one below them: where the library says each
// belongs is checked when the ladder is made.
const char *const kLadderReleases[] = {"3.1(1)", "3.2(1)", "4.1(3)", "4.2(1)"};

size_t rung_index(const std::vector<Rung> &ladder, const std::string &release) {
  for (size_t i = 0; i < ladder.size(); ++i)
    if (ladder[i].release == release) return i;
  return ladder.size();  // not a rung: after every rung
}

bool is_store_file(const fs::path &p) { return p.extension() == kStoreFileExtension && fs::is_regular_file(p); }
bool is_image(const fs::path &p) {
  return fs::is_regular_file(p / "mnt/kvs" / (std::string(kRuntimeStoreName) + kStoreFileExtension));
}

// The images below a folder that is no image itself: its image folders and
// store files, by name.
std::vector<fs::path> images_below(const fs::path &dir) {
  std::vector<fs::path> found;
  for (const fs::directory_entry &e : fs::directory_iterator(dir))
    if (is_image(e.path()) || is_store_file(e.path())) found.push_back(e.path());
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace

std::vector<Rung> ladder_of(ConversionLibrary &lib) {
  std::vector<Rung> ladder;
  for (const char *release : kLadderReleases) ladder.push_back({release, lib.era_of_release(release)});
  // Lowest first: no era, then the eras in order, one each.
  for (size_t i = 0; i < ladder.size(); ++i) {
    bool fits = i == 0 ? !ladder[i].era : ladder[i].era && era_index(*ladder[i].era) == i - 1;
    if (!fits)
      throw ToolError("the conversion library " + lib.path() + " does not keep the eras of the ladder's releases as " +
                      "this tool knows them (" + ladder[i].release + "); use the library built with this tool");
  }
  return ladder;
}

const Rung &rung_of_era(const std::vector<Rung> &ladder, Era era) {
  for (const Rung &r : ladder)
    if (r.era == era) return r;
  throw ToolError("no release of the ladder keeps the era " + era_name(era));
}

std::string MovePlan::label() const {
  std::string s;
  for (const std::string &r : path) s += (s.empty() ? "" : "->") + r;
  return s;
}

MovePlan parse_move(const std::string &text) {
  MovePlan m;
  for (size_t start = 0;;) {
    size_t arrow = text.find("->", start);
    m.path.push_back(text.substr(start, arrow == std::string::npos ? std::string::npos : arrow - start));
    if (arrow == std::string::npos) break;
    start = arrow + 2;
  }
  for (const std::string &r : m.path) check_version("--move", r);
  bool trip = m.path.size() == 3 && m.path[0] == m.path[2];
  if ((m.path.size() != 2 && !trip) || m.path[0] == m.path[1])
    throw ToolError("--move " + text + ": give FROM->TO, or FROM->TO->FROM for a round trip, e.g. \"3.2(1)->4.2(1)\"");
  return m;
}

std::vector<MovePlan> ladder_moves(const std::vector<Rung> &ladder, const std::string &from) {
  size_t at = rung_index(ladder, from);
  std::vector<size_t> others;
  for (size_t i = 0; i < ladder.size(); ++i)
    if (i != at) others.push_back(i);
  auto distance = [at](size_t i) { return i > at ? i - at : at - i; };
  std::stable_sort(others.begin(), others.end(), [&](size_t a, size_t b) { return distance(a) < distance(b); });
  std::vector<MovePlan> moves;
  for (size_t i : others) moves.push_back({{from, ladder[i].release}});
  for (size_t i : others)
    if (ladder[i].era) moves.push_back({{from, ladder[i].release, from}});
  return moves;
}

void sort_moves(std::vector<std::string> &labels, const std::vector<Rung> &ladder) {
  auto rank = [&](const std::string &label) {
    MovePlan m = parse_move(label);
    size_t from = rung_index(ladder, m.path[0]), turn = rung_index(ladder, m.path[1]);
    size_t distance = turn > from ? turn - from : from - turn;
    return std::make_tuple(from, m.round_trip(), distance, turn, label);
  };
  std::sort(labels.begin(), labels.end(), [&](const std::string &a, const std::string &b) { return rank(a) < rank(b); });
}

std::vector<ImageInput> find_images(const std::vector<std::string> &args) {
  std::vector<ImageInput> images;
  std::map<std::string, int> taken;
  auto add = [&](const fs::path &p, bool bare) {
    std::string name = bare ? p.stem().string() : p.filename().string();
    if (int n = ++taken[name]; n > 1) name += "-" + std::to_string(n);  // two folders' img-01
    images.push_back({name, p.string(), bare, images.size()});
  };
  for (const std::string &arg : args) {
    fs::path p = fs::absolute(arg).lexically_normal();
    if (p.has_parent_path() && p.filename().empty()) p = p.parent_path();  // "fleet/"
    if (is_image(p)) {
      add(p, false);
    } else if (is_store_file(p)) {
      add(p, true);
    } else if (fs::is_directory(p)) {
      std::vector<fs::path> below = images_below(p);
      if (below.empty())
        throw ToolError(arg + ": holds no device image (a folder with mnt/kvs/" + kRuntimeStoreName +
                        kStoreFileExtension + ") and no store file");
      for (const fs::path &b : below) add(b, is_store_file(b));
    } else {
      throw ToolError(arg + ": no device image, store file (" + kStoreFileExtension + ") or folder of them");
    }
  }
  return images;
}

std::vector<ImageInput> shard_of(const std::vector<ImageInput> &all, unsigned index, unsigned count) {
  std::vector<ImageInput> mine;
  for (size_t i = index - 1; i < all.size(); i += count) mine.push_back(all[i]);
  return mine;
}

std::pair<unsigned, unsigned> parse_shard(const std::string &text) {
  unsigned i = 0, n = 0;
  char extra = 0;
  if (std::sscanf(text.c_str(), "%u/%u%c", &i, &n, &extra) != 2 || i < 1 || i > n)
    throw ToolError("--shard " + text + ": give I/N with 1 <= I <= N, e.g. 2/4");
  return {i, n};
}

}  // namespace wsc
