// The files a run's report is written to. Like the archive, a report never
// destroys a file that lay there before: every path is checked before
// anything is written, a new file appears only whole (written beside it and
// moved into place), and an existing file is replaced only with overwrite,
// and only if it is a report of ours.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace runreport {

enum class Format { Html, Json };

struct ReportTarget {
  std::string path;
  Format format;
};

// A report can't be written; what() names the file and the cause.
class ReportWriteError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The target for a path by its extension, .html or .json (any case); raises
// std::runtime_error for another.
ReportTarget TargetOf(const std::string& path);

// Raises std::runtime_error naming the cause, writing nothing, when a target
// can't be used: two targets one file, a target that is one of others (the
// archive, the trace, the source's files), a folder, link or device, an
// existing file without overwrite or one that is not a report of ours, a
// missing or read-only folder.
void CheckTargets(const std::vector<ReportTarget>& targets, const std::vector<std::string>& others, bool overwrite);

// Writes content to the target, whole or not at all; without overwrite, a
// file that appeared there meanwhile stays. Raises ReportWriteError.
void WriteReport(const ReportTarget& target, const std::string& content, bool overwrite);

}  // namespace runreport
