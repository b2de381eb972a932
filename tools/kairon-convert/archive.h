// The archive that a conversion files into: one SQLite file with the tables
// patients, records, prescriptions, prescription_items, files, messages and
// runs. Every write goes into the transaction that is open, if any (one per
// patient), and stands on its own otherwise. Members and arguments arrive as
// JSON text of typed values. Each operation raises WriteError, naming the
// cause, when the file can't be written. Operations may come from two
// threads (the run's, and the one that ends the program on a second signal).
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/kairon-convert/output_files.h"

struct sqlite3;
struct sqlite3_stmt;

namespace refhost {

class Sha256;

struct StoredFile {
  std::string id;  // "F1", "F2", ...
  int64_t patient_id = 0;
  std::string title;
  std::string name;    // the file's name, without its folder
  std::string sha256;  // lower-case hex
  int64_t size = 0;
  std::string path;  // where the content lies; it is copied into the archive a chunk at a time
};

class Archive {
 public:
  // Makes the empty file at path (reserved by OutputFiles) a new archive
  // with empty tables.
  static std::unique_ptr<Archive> Open(const std::string& path);

  // Empty when the file at path is an archive that Open made (the same
  // tables with the same columns); otherwise why not, in words. Reads only.
  static std::string NotOurArchive(const std::string& path);
  // Which run filled the archive at path, for a person: "made by the run of
  // CONN started ... and ended ..., with N patients"; empty when it can't be
  // read. Reads only.
  static std::string RunThatMadeIt(const std::string& path);
  ~Archive();
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;

  // A runs row; started and ended are local times "YYYY-MM-DDTHH:MM:SS".
  int64_t BeginRun(const std::string& started, const std::string& conn, const std::string& options);
  void EndRun(int64_t run, const std::string& ended, bool result, const std::string& last_error);

  // Commits the open transaction, if any, and opens a new one.
  void BeginTransaction();
  // Commits the open transaction, if any.
  void Commit();

  // Writes the patients row of id, replacing one there is.
  void SavePatient(int64_t id, const std::string& members);
  void AddRecord(int64_t patient_id, const std::string& store, const std::string& args);
  // The same for args of length bytes given in pieces: the row is made with
  // the room of the text and the pieces are written into it, so that a long
  // text is never whole in memory beside the row.
  void AddRecord(int64_t patient_id, const std::string& store, size_t length, const TextPieces& pieces);
  int64_t AddPrescription(int64_t patient_id, const std::string& members);
  void AddPrescriptionItem(std::optional<int64_t> prescription_id, const std::string& store,
                           const std::string& members);
  // The files row of file, its content copied from file.path a chunk at a
  // time into a zero blob of file.size bytes.
  void AddFile(const StoredFile& file);
  // The files row of file with the content that fd gives (file.size bytes,
  // a chunk at a time) and the SHA-256 digest of it, taken on the way, in
  // place of file.sha256; gives that digest. Nullopt, and no row, when fd
  // can't be read; WriteError when it ends before file.size bytes.
  std::optional<std::string> AddFileDigesting(const StoredFile& file, int fd);
  // Whether one row of files holds file (its size and its texts) within the
  // longest row that SQLite takes on this archive (1 GB unless lowered): a
  // file that doesn't fit is refused before anything of it is written.
  bool Holds(const StoredFile& file);
  // The longest row of the archives opened from now on, for tests of files
  // that don't fit; 0 leaves SQLite's own.
  static void LimitRowLengthForTesting(int bytes);
  void AddMessage(const std::string& kind, const std::string& text);

  // Commits and closes the file, leaving it without journal beside it. Any
  // later operation raises; a second Close does nothing.
  void Close();

  // Takes back the transaction under way and closes the file as Close does:
  // the archive keeps what was committed. Waits for an operation under way.
  void Abandon();

 private:
  explicit Archive(sqlite3* db);
  void Execute(const char* sql);
  int64_t InsertFile(const StoredFile& file);
  bool CopyContent(int64_t row, const StoredFile& file, int fd, Sha256* digest);
  sqlite3_stmt* Prepared(const char* sql);
  void FinalizeStatements();
  void CommitLocked();
  void CloseLocked();
  sqlite3* db_;
  std::map<const char*, sqlite3_stmt*> statements_;
  bool in_transaction_ = false;
  std::recursive_mutex mutex_;
};

}  // namespace refhost
