// A progress bar on stderr: "label [#####.....]  42% 420000/1000000",
// redrawn in place only when the tenth of a percent changes.
#include "store/progress.h"

#include <unistd.h>

#include <cstdio>
#include <string>
#include <utility>

namespace wsc {

Progress::Progress(std::string label, size_t total, size_t min_total)
    : label_(std::move(label)), total_(total), shown_(total >= min_total && isatty(STDERR_FILENO)) {}

Progress::~Progress() {
  if (!shown_) return;
  draw(total_);
  std::fputc('\n', stderr);
}

void Progress::update(size_t done) {
  if (!shown_ || total_ == 0) return;
  int permille = static_cast<int>(done * 1000 / total_);
  if (permille == last_permille_) return;
  last_permille_ = permille;
  draw(done);
}

void Progress::note(size_t done, std::string text) {
  if (!shown_ || text == note_) return update(done);
  note_ = std::move(text);
  last_permille_ = static_cast<int>(total_ ? done * 1000 / total_ : 1000);
  draw(done);
}

void Progress::clear() {
  if (!shown_) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
  last_permille_ = -1;
}

void Progress::draw(size_t done) {
  constexpr int kWidth = 30;
  int filled = total_ ? static_cast<int>(done * kWidth / total_) : kWidth;
  char bar[kWidth + 1];
  for (int i = 0; i < kWidth; ++i) bar[i] = i < filled ? '#' : '.';
  bar[kWidth] = '\0';
  // A note is padded, so that a shorter one covers a longer one drawn before.
  std::string tail = note_.empty() ? "" : " " + note_;
  if (!tail.empty() && tail.size() < 48) tail.resize(48, ' ');
  std::fprintf(stderr, "\r%s [%s] %3d%% %zu/%zu%s", label_.c_str(), bar, total_ ? static_cast<int>(done * 100 / total_) : 100,
               done, total_, tail.c_str());
  std::fflush(stderr);
}

}  // namespace wsc
