// The archive that a conversion files into: one SQLite file with the tables
// patients, records, prescriptions, prescription_items, files, messages and
// runs. Every write goes into the transaction that is open, if any (one per
// patient), and stands on its own otherwise. Members and arguments arrive as
// JSON text of typed values. Each operation raises std::runtime_error with
// SQLite's message when the file can't be written.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;

namespace refhost {

struct StoredFile {
  std::string id;  // "F1", "F2", ...
  int64_t patient_id = 0;
  std::string title;
  std::string name;    // the file's name, without its folder
  std::string sha256;  // lower-case hex
  std::vector<uint8_t> content;
};

class Archive {
 public:
  // Creates a new archive at path with empty tables. An existing file is
  // refused unless overwrite, which replaces it whole.
  static std::unique_ptr<Archive> Create(const std::string& path, bool overwrite);
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
  int64_t AddPrescription(int64_t patient_id, const std::string& members);
  void AddPrescriptionItem(std::optional<int64_t> prescription_id, const std::string& store,
                           const std::string& members);
  void AddFile(const StoredFile& file);
  void AddMessage(const std::string& kind, const std::string& text);

  // Commits and closes the file, leaving it without journal beside it. Any
  // later operation raises.
  void Close();

 private:
  explicit Archive(sqlite3* db);
  void Execute(const char* sql);
  sqlite3* db_;
  bool in_transaction_ = false;
};

}  // namespace refhost
