// The files that a conversion writes: the archive and, if asked for, the
// trace. Every path is checked before anything is written, and a file that
// lay there before the run is never truncated or removed by a run that
// fails: a new file is created only where nothing lay, and a file that
// --overwrite replaces is written beside it under a temporary name and
// renamed over it when the run ends.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace refhost {

// The archive or the trace can't be written; what() names the cause in
// words ("the disk is full").
class WriteError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A text handed over a piece at a time, for one too long to be copied whole:
// it calls write with each piece, in order.
using TextPieces = std::function<void(const std::function<void(std::string_view)>& write)>;

// An error number of the system as a person reads it: "the disk is full",
// "no permission", ... and strerror's text for the others.
std::string CauseOf(int error_number);

// The name, for mkstemp, of the file that replaces the file name once it is
// whole: hidden, beside it, with this process's mark ".NAME.kairon-MARK-XXXXXX".
std::string ReplacementName(const std::string& name);

struct OutputPaths {
  std::string archive;
  std::string trace;                 // empty: no trace
  std::vector<std::string> sources;  // files that neither may be (the source's databases)
  bool overwrite = false;
};

// The source's three databases, in the folder of the connection text's first
// field (the path of GX_USER.FDB).
std::vector<std::string> SourceFiles(const std::string& conn);

class OutputFiles {
 public:
  // Checks every path and raises std::runtime_error with the cause, before
  // anything is written, when one can't be used: a folder, a device, a FIFO,
  // a link, a file of the source, the archive and the trace one file, a
  // missing or read-only folder, an existing file without overwrite, or a
  // file that overwrite may not replace (not an archive or trace of ours,
  // held by another run, with a journal of an unfinished run beside it).
  static void Check(const OutputPaths& paths);

  // Check, then creates the files that the run writes (empty) and holds
  // them, and the files they replace, against other runs.
  static std::unique_ptr<OutputFiles> Reserve(const OutputPaths& paths);

  // Removes what the run created, unless PutInPlace came first; the files
  // that were there before stay as they were.
  ~OutputFiles();
  OutputFiles(const OutputFiles&) = delete;
  OutputFiles& operator=(const OutputFiles&) = delete;

  // Where SQLite writes the archive: its path, or the replacement's beside it.
  const std::string& archive_file() const { return archive_.written; }
  // The trace's open file descriptor (-1 without a trace); it stays open
  // until the object ends.
  int trace_descriptor() const { return trace_.descriptor; }

  // Removes at once what the run created and didn't put in place, while
  // the run may still write into it: for a program that ends next.
  void Discard();

  // Renames the replacements over the files they replace. Called once the
  // archive is closed; later calls do nothing. Raises WriteError.
  void PutInPlace();

 private:
  struct Output {
    std::string path;     // as given
    std::string written;           // created by this run: path, or the replacement beside it
    int descriptor = -1;           // of written; holds the lock that tells other runs it's in use
    int replaced_descriptor = -1;  // of the file replaced, locked likewise
    bool kept = false;             // in place: stays when the object ends
  };
  OutputFiles() = default;
  static void Create(Output& output, bool replace);
  static void Release(Output& output);

  Output archive_, trace_;
  std::mutex mutex_;
};

}  // namespace refhost
