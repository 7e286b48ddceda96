// A progress bar on stderr for long runs, shown only when stderr is a
// terminal and the run is large enough to be worth watching.
#ifndef TOOLS_WAYSHUNT_CONVERT_PROGRESS_H
#define TOOLS_WAYSHUNT_CONVERT_PROGRESS_H

#include <cstddef>
#include <string>

namespace wsc {

class Progress {
 public:
  // Shown when stderr is a terminal and total reaches min_total.
  Progress(std::string label, size_t total, size_t min_total = 10000);
  ~Progress();  // ends the line of a shown bar
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;
  void update(size_t done);
  // Text shown after the counts, e.g. "2 failed, about 1m10s left".
  void note(size_t done, std::string text);
  // Erases a shown bar, so that a line can be printed in its place; the
  // next update draws it again.
  void clear();

 private:
  void draw(size_t done);
  std::string label_;
  size_t total_;
  bool shown_;
  int last_permille_ = -1;
  std::string note_;
};

}  // namespace wsc

#endif
