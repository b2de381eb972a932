// The archive that a conversion files into: one SQLite file with the tables
// patients, records, prescriptions, prescription_items, files, messages and
// runs. Every write goes into the transaction that is open, if any (one per
// patient), and stands on its own otherwise. Members and arguments arrive as
// JSON text of typed values.
//
// The writes run on a thread of the archive's own, in the order they were
// asked for, while the caller goes on: a patient's records are written while
// the plug-in reads the next one. A write that fails takes back the
// transaction it was in, and the writes after it in that transaction are
// dropped; the failure (WriteError, naming the cause) is raised by the
// caller's next operation. What is waiting to be written is bounded (some
// thousands of writes, 8 MiB of file content, or one larger file).
// Operations come from the run's thread; Abandon may also come from the one
// that ends the program on a second signal.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace refhost {

struct StoredFile {
  std::string id;  // "F1", "F2", ...
  int64_t patient_id = 0;
  std::string title;
  std::string name;    // the file's name, without its folder
  std::string sha256;  // lower-case hex
  int64_t size = 0;
  std::string path;  // where the content lies
};

class Archive {
 public:
  // Makes the empty file at path (reserved by OutputFiles) a new archive
  // with empty tables.
  static std::unique_ptr<Archive> Open(const std::string& path);

  // Empty when the file at path is an archive that Open made (the same
  // tables with the same columns); otherwise why not, in words. Reads only.
  static std::string NotOurArchive(const std::string& path);
  ~Archive();
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;

  // A runs row; started and ended are local times "YYYY-MM-DDTHH:MM:SS".
  // Both wait until the row is written.
  int64_t BeginRun(const std::string& started, const std::string& conn, const std::string& options);
  void EndRun(int64_t run, const std::string& ended, bool result, const std::string& last_error);

  // Commits the open transaction, if any, and opens a new one.
  void BeginTransaction();
  // Commits the open transaction, if any, and waits until every write asked
  // for is done.
  void Commit();

  // Writes the patients row of id, replacing one there is.
  void SavePatient(int64_t id, std::string members);
  void AddRecord(int64_t patient_id, std::string store, std::string args);
  // Gives the new row's id at once; the row is written in turn.
  int64_t AddPrescription(int64_t patient_id, std::string members);
  void AddPrescriptionItem(std::optional<int64_t> prescription_id, std::string store, std::string members);
  // The files row of file with the content of file.path, read before the
  // call returns, and file.sha256 as given. WriteError when the file can't
  // be read whole.
  void AddFile(const StoredFile& file);
  // The files row of file with the content that fd gives (file.size bytes,
  // read before the call returns) and, in place of file.sha256, the SHA-256
  // digest of that content. False, and no row, when fd can't be read;
  // WriteError when it ends before file.size bytes.
  bool AddFileDigesting(const StoredFile& file, int fd);
  void AddMessage(std::string kind, std::string text);

  // Commits and closes the file, leaving it without journal beside it, once
  // every write asked for is done. Any later operation raises; a second
  // Close does nothing.
  void Close();

  // Ends the writes at once: those asked for up to the last commit are
  // done, the transaction under way is taken back and the file is closed as
  // Close does. The archive keeps every patient committed before the one
  // under way. Any later operation raises; Abandon after Close does nothing.
  void Abandon();

 private:
  struct Write {
    std::function<void()> run;
    size_t bytes = 0;            // file content that it holds
    bool ends_transaction = false;  // a commit, or an end of the run
  };

  explicit Archive(sqlite3* db);
  // Hands a write to the writer, waiting while too much is waiting; first
  // raises the failure of an earlier write that no caller has seen.
  void Post(Write write);
  // Waits until every write asked for is done; raises as Post does.
  void Drain();
  void RaiseUnseenFailure();
  void WriterLoop();
  void StopWriter();

  // On the writer's thread only.
  void Execute(const char* sql);
  struct FileInWriting;
  bool PostFile(const StoredFile& file, int fd, bool digest);
  int64_t InsertFile(const StoredFile& file);
  sqlite3_stmt* Prepared(const char* sql);
  void FinalizeStatements();
  void CommitOpen();
  void CloseFile();

  sqlite3* db_;
  std::map<const char*, sqlite3_stmt*> statements_;
  bool in_transaction_ = false;
  bool dropping_ = false;  // a write failed: the rest of its transaction is dropped

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Write> queue_;
  size_t queued_bytes_ = 0;
  bool writing_ = false;    // the writer runs a write taken from the queue
  bool abandon_ = false;    // Abandon was asked for
  bool finished_ = false;   // the file is closed; the writer has stopped
  std::string unseen_failure_;
  int64_t last_prescription_ = 0;
  std::thread writer_;
  std::mutex join_mutex_;  // Close and Abandon may both wait for the writer
};

}  // namespace refhost
