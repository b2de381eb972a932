#include "tools/kairon-convert/archive.h"

#include <sqlite3.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace refhost {

namespace {

constexpr const char* kSchema = R"sql(
CREATE TABLE patients(id INTEGER PRIMARY KEY, members TEXT);
CREATE TABLE records(id INTEGER PRIMARY KEY, patient_id INTEGER, store TEXT, args TEXT);
CREATE TABLE prescriptions(id INTEGER PRIMARY KEY, patient_id INTEGER, members TEXT);
CREATE TABLE prescription_items(id INTEGER PRIMARY KEY, prescription_id INTEGER, store TEXT, members TEXT);
CREATE TABLE files(id TEXT PRIMARY KEY, patient_id INTEGER, title TEXT, name TEXT, size INTEGER, sha256 TEXT, content BLOB);
CREATE TABLE messages(seq INTEGER PRIMARY KEY, kind TEXT, text TEXT);
CREATE TABLE runs(id INTEGER PRIMARY KEY, started TEXT, ended TEXT, conn TEXT, options TEXT, result INTEGER, last_error TEXT);
)sql";

[[noreturn]] void Fail(sqlite3* db, const std::string& what) {
  throw std::runtime_error("archive: " + what + ": " + (db ? sqlite3_errmsg(db) : "closed"));
}

// One prepared statement, bound by position from 1 and run to its end.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql) : db_(db) {
    if (db_ == nullptr) Fail(db_, sql);
    if (sqlite3_prepare_v2(db_, sql, -1, &stmt_, nullptr) != SQLITE_OK) Fail(db_, sql);
  }
  ~Statement() { sqlite3_finalize(stmt_); }

  Statement& Bind(const std::string& text) {
    Check(sqlite3_bind_text(stmt_, ++index_, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT));
    return *this;
  }
  Statement& Bind(int64_t number) {
    Check(sqlite3_bind_int64(stmt_, ++index_, number));
    return *this;
  }
  Statement& Bind(std::optional<int64_t> number) {
    if (number) return Bind(*number);
    Check(sqlite3_bind_null(stmt_, ++index_));
    return *this;
  }
  Statement& BindBlob(const std::vector<uint8_t>& bytes) {
    // A zero-length blob, not Null, for an empty file.
    Check(sqlite3_bind_blob64(stmt_, ++index_, bytes.empty() ? "" : static_cast<const void*>(bytes.data()),
                              bytes.size(), SQLITE_STATIC));
    return *this;
  }
  // Runs the statement; the new row's id.
  int64_t Run() {
    if (sqlite3_step(stmt_) != SQLITE_DONE) Fail(db_, sqlite3_sql(stmt_));
    return sqlite3_last_insert_rowid(db_);
  }

 private:
  void Check(int status) {
    if (status != SQLITE_OK) Fail(db_, sqlite3_sql(stmt_));
  }
  sqlite3* db_;
  sqlite3_stmt* stmt_ = nullptr;
  int index_ = 0;
};

}  // namespace

std::unique_ptr<Archive> Archive::Create(const std::string& path, bool overwrite) {
  std::error_code ec;
  if (std::filesystem::exists(path, ec)) {
    if (!overwrite) throw std::runtime_error(path + " exists already (give --overwrite to replace it)");
    for (const char* suffix : {"", "-journal", "-wal", "-shm"}) {
      std::filesystem::remove(path + suffix, ec);
      if (ec) throw std::runtime_error("cannot remove " + path + suffix + ": " + ec.message());
    }
  }
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK) {
    std::string message = db ? sqlite3_errmsg(db) : "out of memory";
    sqlite3_close(db);
    throw std::runtime_error("cannot create " + path + ": " + message);
  }
  std::unique_ptr<Archive> archive(new Archive(db));
  // A crash of the program loses no committed patient; a crash of the
  // machine may, which is the price of not syncing at every patient.
  archive->Execute("PRAGMA journal_mode=WAL");
  archive->Execute("PRAGMA synchronous=NORMAL");
  archive->Execute(kSchema);
  return archive;
}

Archive::Archive(sqlite3* db) : db_(db) {}

Archive::~Archive() {
  if (db_ != nullptr) sqlite3_close(db_);
}

void Archive::Execute(const char* sql) {
  if (db_ == nullptr) Fail(db_, sql);
  char* error = nullptr;
  if (sqlite3_exec(db_, sql, nullptr, nullptr, &error) != SQLITE_OK) {
    std::string message = error ? error : "unknown error";
    sqlite3_free(error);
    throw std::runtime_error("archive: " + message);
  }
}

int64_t Archive::BeginRun(const std::string& started, const std::string& conn, const std::string& options) {
  return Statement(db_, "INSERT INTO runs(started, conn, options) VALUES(?, ?, ?)")
      .Bind(started)
      .Bind(conn)
      .Bind(options)
      .Run();
}

void Archive::EndRun(int64_t run, const std::string& ended, bool result, const std::string& last_error) {
  Statement(db_, "UPDATE runs SET ended = ?, result = ?, last_error = ? WHERE id = ?")
      .Bind(ended)
      .Bind(int64_t{result ? 1 : 0})
      .Bind(last_error)
      .Bind(run)
      .Run();
}

void Archive::BeginTransaction() {
  Commit();
  Execute("BEGIN");
  in_transaction_ = true;
}

void Archive::Commit() {
  if (!in_transaction_) return;
  Execute("COMMIT");
  in_transaction_ = false;
}

void Archive::SavePatient(int64_t id, const std::string& members) {
  Statement(db_, "INSERT OR REPLACE INTO patients(id, members) VALUES(?, ?)").Bind(id).Bind(members).Run();
}

void Archive::AddRecord(int64_t patient_id, const std::string& store, const std::string& args) {
  Statement(db_, "INSERT INTO records(patient_id, store, args) VALUES(?, ?, ?)")
      .Bind(patient_id)
      .Bind(store)
      .Bind(args)
      .Run();
}

int64_t Archive::AddPrescription(int64_t patient_id, const std::string& members) {
  return Statement(db_, "INSERT INTO prescriptions(patient_id, members) VALUES(?, ?)")
      .Bind(patient_id)
      .Bind(members)
      .Run();
}

void Archive::AddPrescriptionItem(std::optional<int64_t> prescription_id, const std::string& store,
                                  const std::string& members) {
  Statement(db_, "INSERT INTO prescription_items(prescription_id, store, members) VALUES(?, ?, ?)")
      .Bind(prescription_id)
      .Bind(store)
      .Bind(members)
      .Run();
}

void Archive::AddFile(const StoredFile& file) {
  Statement(db_, "INSERT INTO files(id, patient_id, title, name, size, sha256, content) VALUES(?, ?, ?, ?, ?, ?, ?)")
      .Bind(file.id)
      .Bind(file.patient_id)
      .Bind(file.title)
      .Bind(file.name)
      .Bind(static_cast<int64_t>(file.content.size()))
      .Bind(file.sha256)
      .BindBlob(file.content)
      .Run();
}

void Archive::AddMessage(const std::string& kind, const std::string& text) {
  Statement(db_, "INSERT INTO messages(kind, text) VALUES(?, ?)").Bind(kind).Bind(text).Run();
}

void Archive::Close() {
  if (db_ == nullptr) return;
  Commit();
  Execute("PRAGMA journal_mode=DELETE");
  sqlite3_close(db_);
  db_ = nullptr;
}

}  // namespace refhost
