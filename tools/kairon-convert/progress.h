// How far a conversion is, on standard error: on a terminal one line redrawn
// in place with the percentage, the patients so far against the source's,
// the time gone and an estimate of the time left; elsewhere (a log) one line
// at each tenth of the way. Either ends on the count of patients taken.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

namespace refhost {

class ProgressBar {
 public:
  ProgressBar(std::FILE* out, bool terminal);

  // The patients of the source, shown against those taken.
  void SetSourcePatients(int64_t patients) { source_patients_ = patients; }

  // The patient-th patient begins, at percent of the source. On a terminal
  // the line is redrawn at most ten times a second unless the percentage
  // changed; in a log a line is written when a new tenth is reached.
  void Update(int percent, int64_t patient, bool stopping);

  // The end of the run, with the patients it took: the last line says them.
  void Finish(int64_t patients);

 private:
  // "45%  900 of 1998 patients  0:00:05 elapsed  0:00:06 left", or with
  // taken "100%  1998 of 1998 patients taken  0:00:11".
  std::string Line(int percent, int64_t patients, bool taken) const;
  static std::string Bar(int percent);

  std::FILE* out_;
  bool terminal_;
  std::optional<int64_t> source_patients_;
  std::chrono::steady_clock::time_point started_;
  std::chrono::steady_clock::time_point drawn_{};
  int percent_ = 0;  // the last percentage written
  bool shown_ = false;  // Update came: Finish has a line to end
};

}  // namespace refhost
