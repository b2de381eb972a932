// The progress bar that UpdateProgress draws on a terminal: one line,
// redrawn in place, with the percentage, the patients so far, the time gone
// and an estimate of the time left.
#pragma once

#include <chrono>
#include <cstdio>

namespace refhost {

class ProgressBar {
 public:
  explicit ProgressBar(std::FILE* out);

  // Redraws the line, at most ten times a second unless the percentage
  // changed.
  void Update(int percent, int patients, bool stopping);

  // Takes the line away, so that what is printed next starts clean.
  void Clear();

 private:
  std::FILE* out_;
  std::chrono::steady_clock::time_point started_;
  std::chrono::steady_clock::time_point drawn_{};
  int percent_ = -1;
  bool shown_ = false;
};

}  // namespace refhost
