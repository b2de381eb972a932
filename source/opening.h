// Opening the source's databases so that a person can tell why they don't
// open, and so that sources on files that can't be written still convert.
//
// Before the engine sees a database file on this machine, the file is looked
// at: that it exists, is a file, can be read, and is a Firebird database of
// the on-disk structure (ODS) that this engine reads, whole pages long. What
// is wrong becomes a cause in words, with what to do about it. A file that
// can be read but not written (a read-only file, medium or copy) is copied
// into a private folder under the system's temporary folder and the copy is
// opened instead, since the engine writes the header page of every file it
// attaches, even for a read-only transaction; the folder goes with the
// Opening that made it. On Windows, where the client reaches the files
// through the installed Firebird or the practice's server, there is no
// private copy and no lock folder, and a file that a running server holds is
// left for the engine to open.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/failure.h"

namespace source::opening {

// The on-disk structure as the header page of a database file tells it.
struct Ods {
  bool firebird = false;  // the version carries Firebird's own flag
  unsigned major = 0;
  unsigned minor = 0;
  unsigned page_size = 0;
};

// The ODS that this engine (Firebird 3) reads.
inline constexpr unsigned kEngineOdsMajor = 12;
inline constexpr unsigned kEngineOdsMinor = 0;

// Reads the header page at the start of a file's bytes; nullopt when they
// don't begin with a database header page (too short, another page type, a
// page size that no database has).
std::optional<Ods> ReadHeaderPage(std::string_view first_bytes);

// True for a database text that names a file on this machine (embedded),
// false for "host:path", "host/port:path" and the URL forms, which a server
// opens. On Windows a drive letter's ":" ("C:\Ambulor\GX_USER.FDB") is
// part of a local path.
bool IsLocalPath(const std::string& database);

// The path of the database file name beside the user database, whose
// folder (with its trailing separator) is folder: folder + name when
// something lies there or the path is a server's; otherwise the regular
// file of that folder whose name is name in another case (files copied from
// Windows shares often come in lower case), the first by name of several;
// folder + name when there is none. On Windows, whose files are found
// whatever the case, always folder + name.
std::string FindBeside(const std::string& folder, const std::string& name);

// The folder where the embedded engine keeps its lock files: FIREBIRD_LOCK,
// or /tmp/firebird; empty on Windows.
std::string LockFolder();

// The number that a cause found before attaching is raised with: the one
// the engine gives for the same trouble.
inline constexpr int32_t kIoError = 335544344;        // isc_io_error
inline constexpr int32_t kNotADatabase = 335544323;   // isc_bad_db_format
inline constexpr int32_t kCorrupt = 335544335;        // isc_db_corrupt
inline constexpr int32_t kWrongOds = 335544379;       // isc_wrong_ods
inline constexpr int32_t kLockFolder = 335544992;     // isc_lock_dir_access

// What is found of a database file before attaching.
struct FileCheck {
  int32_t number = 0;      // 0: the engine may attach it
  std::string cause;       // why it can't, in words, with the remedy
  bool writable = false;   // the file can be opened for writing
};
FileCheck CheckFile(const std::string& path);

// Why the embedded engine can't keep its locks, or empty text (always on
// Windows).
std::string CheckLockFolder();

// The cause of a failure of the engine to attach the database at path (as
// given, before any copy), in words; the engine's own text when there is
// nothing better to say.
std::string CauseOfAttachFailure(const std::string& path, const host::Failure& failure);

#ifndef _WIN32
// Makes every opening copy the file, writable or not, so that tests can go
// the way of a read-only source where they can't make one.
void ForceCopyForTesting(bool force);
#endif

// The opening of one source: the cause of its last failure and the private
// copies it made.
class Opening {
 public:
  Opening() = default;
  // Removes the private folder with what it holds.
  ~Opening();
  Opening(const Opening&) = delete;
  Opening& operator=(const Opening&) = delete;

  // The path to attach for the database text database. A local file is
  // checked first: on a cause, it is kept and host::Failure is raised with
  // it; a file that can't be written is copied (a failing copy is a cause as
  // well). A server's path comes back as it is.
  std::string Prepare(const std::string& database);

  // Keeps the cause of the engine's failure to attach database.
  void Explain(const std::string& database, const host::Failure& failure);

  // Keeps a cause told elsewhere (a path that names no user database).
  void SetCause(std::string cause) { cause_ = std::move(cause); }

  const std::string& cause() const { return cause_; }
  // The private folder, empty while no copy was made.
  const std::string& private_folder() const { return folder_; }

  // Removes the private folder; the connections on its copies must be
  // closed first.
  void RemoveCopies();

 private:
  [[noreturn]] void Fail(int32_t number, std::string cause);
  // The path that the engine attaches for a local file that passed its
  // checks: the file itself, or its private copy.
  std::string PathToAttach(const std::string& database, const FileCheck& check);

  std::string cause_;
  std::string folder_;
  bool lock_folder_checked_ = false;
};

}  // namespace source::opening
