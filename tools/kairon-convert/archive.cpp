#include "tools/kairon-convert/archive.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "tools/kairon-convert/file_content.h"
#include "tools/kairon-convert/output_files.h"

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

// The tables and columns of an archive, as the schema makes them.
constexpr const char* kTables[][8] = {
    {"patients", "id", "members"},
    {"records", "id", "patient_id", "store", "args"},
    {"prescriptions", "id", "patient_id", "members"},
    {"prescription_items", "id", "prescription_id", "store", "members"},
    {"files", "id", "patient_id", "title", "name", "size", "sha256", "content"},
    {"messages", "seq", "kind", "text"},
    {"runs", "id", "started", "ended", "conn", "options", "result", "last_error"},
};

// The length of a SHA-256 digest in hex.
constexpr size_t kSha256HexLength = 64;

// What a files row takes besides its texts and content: the record's header
// and its two integers, with room to spare.
constexpr int64_t kFileRowOverhead = 256;

int row_length_for_testing = 0;

// How long an operation waits for another program that holds the file.
constexpr int kBusyMilliseconds = 5000;

// Why SQLite couldn't do what it was asked, in words.
std::string Cause(sqlite3* db) {
  if (db == nullptr) return "the archive is closed";
  switch (sqlite3_errcode(db)) {
    case SQLITE_FULL:
      return "the disk is full";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return "the archive is locked by another program";
    case SQLITE_READONLY:
      return "the archive can't be written (" + std::string(sqlite3_errmsg(db)) + ")";
    case SQLITE_IOERR:
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
      if (int error_number = sqlite3_system_errno(db); error_number != 0) return CauseOf(error_number);
      break;
    default:
      break;
  }
  return sqlite3_errmsg(db);
}

[[noreturn]] void Fail(sqlite3* db) { throw WriteError("the archive can't be written: " + Cause(db)); }

// One run of a statement that the archive keeps prepared, bound by position
// from 1 and run to its end; the statement is reset for its next run.
class Statement {
 public:
  Statement(sqlite3* db, sqlite3_stmt* stmt) : db_(db), stmt_(stmt) {}
  ~Statement() {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
  }

  Statement& Bind(std::string_view text) {
    Check(sqlite3_bind_text64(stmt_, ++index_, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8));
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
  // Runs the statement; the new row's id.
  int64_t Run() {
    if (sqlite3_step(stmt_) != SQLITE_DONE) Fail(db_);
    return sqlite3_last_insert_rowid(db_);
  }

 private:
  void Check(int status) {
    if (status != SQLITE_OK) Fail(db_);
  }
  sqlite3* db_;
  sqlite3_stmt* stmt_;
  int index_ = 0;
};

// A URI for SQLite that names the file at path, whatever its characters.
std::string FileUri(const std::string& path) {
  std::string uri = "file:";
  for (unsigned char c : path) {
    if (c == '%' || c == '?' || c == '#' || c < 0x20) {
      char escaped[4];
      std::snprintf(escaped, sizeof escaped, "%%%02X", c);
      uri += escaped;
    } else {
      uri += static_cast<char>(c);
    }
  }
  return uri;
}

std::string ColumnText(sqlite3_stmt* stmt, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, column));
  return text != nullptr ? text : "";
}

}  // namespace

std::unique_ptr<Archive> Archive::Open(const std::string& path) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
    std::string cause = db ? Cause(db) : "out of memory";
    sqlite3_close(db);
    throw WriteError("cannot open the archive " + path + ": " + cause);
  }
  sqlite3_busy_timeout(db, kBusyMilliseconds);
  if (row_length_for_testing > 0) sqlite3_limit(db, SQLITE_LIMIT_LENGTH, row_length_for_testing);
  std::unique_ptr<Archive> archive(new Archive(db));
  // A crash of the program loses no committed patient; a crash of the
  // machine may, which is the price of not syncing at every patient.
  archive->Execute("PRAGMA journal_mode=WAL");
  archive->Execute("PRAGMA synchronous=NORMAL");
  // Each patient's commit adds the pages it changed to the log; copying
  // them into the file less often copies a page changed by many patients
  // once instead of again and again (the log grows to some 40 MB at most).
  archive->Execute("PRAGMA wal_autocheckpoint=10000");
  archive->Execute(kSchema);
  return archive;
}

std::string Archive::NotOurArchive(const std::string& path) {
  static const char kHeader[] = "SQLite format 3";
  std::ifstream in(path, std::ios::binary);
  char header[sizeof kHeader] = {};
  if (!in.read(header, sizeof header) || std::memcmp(header, kHeader, sizeof kHeader) != 0)
    return "is not an SQLite file";
  // An archive that a killed run left in WAL mode (the header's read and
  // write versions are 2) is opened as immutable: a plain read-only opening
  // would create -wal and -shm beside it and leave them there, which a
  // refusal mustn't, and which would then bar --overwrite for good. No
  // writer holds it, since the caller has made sure no log lies beside it.
  // Other archives are opened plainly, so that SQLite's lock of another
  // program is seen.
  unsigned char versions[2] = {};
  in.seekg(18);
  in.read(reinterpret_cast<char*>(versions), 2);
  const bool wal = in && versions[0] == 2 && versions[1] == 2;
  std::string uri = FileUri(path);
  if (wal) uri += "?immutable=1";
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(uri.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr) != SQLITE_OK) {
    std::string cause = db ? Cause(db) : "out of memory";
    sqlite3_close(db);
    return "can't be read: " + cause;
  }
  std::string mismatch;
  std::vector<std::string> tables;
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name", -1, &stmt,
                         nullptr) != SQLITE_OK) {
    mismatch = "can't be read: " + Cause(db);
  } else {
    int status;
    while ((status = sqlite3_step(stmt)) == SQLITE_ROW)
      tables.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0)));
    if (status != SQLITE_DONE) mismatch = "can't be read: " + Cause(db);
  }
  sqlite3_finalize(stmt);
  for (const auto& table : kTables) {
    if (!mismatch.empty()) break;
    if (std::find(tables.begin(), tables.end(), table[0]) == tables.end()) {
      mismatch = "has no table " + std::string(table[0]);
      break;
    }
    std::vector<std::string> columns;
    std::string sql = "PRAGMA table_info(" + std::string(table[0]) + ")";
    sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr);
    while (sqlite3_step(stmt) == SQLITE_ROW)
      columns.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 1)));
    sqlite3_finalize(stmt);
    std::vector<std::string> expected;
    for (const char* const* column = table + 1; column < std::end(table) && *column != nullptr; ++column)
      expected.emplace_back(*column);
    if (columns != expected) mismatch = "has other columns in table " + std::string(table[0]);
  }
  if (mismatch.empty() && tables.size() != std::size(kTables)) mismatch = "has tables that an archive hasn't";
  sqlite3_close(db);
  return mismatch;
}

Archive::Archive(sqlite3* db) : db_(db) {}

Archive::~Archive() {
  FinalizeStatements();
  if (db_ != nullptr) sqlite3_close(db_);
}

// A statement of the archive's own, prepared at its first use and kept for
// the next (the texts are the few constants of this file).
sqlite3_stmt* Archive::Prepared(const char* sql) {
  if (db_ == nullptr) Fail(db_);
  sqlite3_stmt*& stmt = statements_[sql];
  if (stmt == nullptr && sqlite3_prepare_v2(db_, sql, -1, &stmt, nullptr) != SQLITE_OK) {
    statements_.erase(sql);
    Fail(db_);
  }
  return stmt;
}

void Archive::FinalizeStatements() {
  for (auto& [sql, stmt] : statements_) sqlite3_finalize(stmt);
  statements_.clear();
}

void Archive::Execute(const char* sql) {
  if (db_ == nullptr) Fail(db_);
  char* error = nullptr;
  if (sqlite3_exec(db_, sql, nullptr, nullptr, &error) != SQLITE_OK) {
    sqlite3_free(error);
    Fail(db_);
  }
}

int64_t Archive::BeginRun(const std::string& started, const std::string& conn, const std::string& options) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return Statement(db_, Prepared("INSERT INTO runs(started, conn, options) VALUES(?, ?, ?)"))
      .Bind(started)
      .Bind(conn)
      .Bind(options)
      .Run();
}

void Archive::EndRun(int64_t run, const std::string& ended, bool result, const std::string& last_error) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  Statement(db_, Prepared("UPDATE runs SET ended = ?, result = ?, last_error = ? WHERE id = ?"))
      .Bind(ended)
      .Bind(int64_t{result ? 1 : 0})
      .Bind(last_error)
      .Bind(run)
      .Run();
}

void Archive::BeginTransaction() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  CommitLocked();
  Execute("BEGIN");
  in_transaction_ = true;
}

void Archive::Commit() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  CommitLocked();
}

void Archive::CommitLocked() {
  if (!in_transaction_) return;
  in_transaction_ = false;
  // A failed write may have taken the transaction back already.
  if (db_ == nullptr || sqlite3_get_autocommit(db_) != 0) return;
  Execute("COMMIT");
}

void Archive::SavePatient(int64_t id, const std::string& members) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  Statement(db_, Prepared("INSERT OR REPLACE INTO patients(id, members) VALUES(?, ?)")).Bind(id).Bind(members).Run();
}

void Archive::AddRecord(int64_t patient_id, const std::string& store, const std::string& args) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  Statement(db_, Prepared("INSERT INTO records(patient_id, store, args) VALUES(?, ?, ?)"))
      .Bind(patient_id)
      .Bind(store)
      .Bind(args)
      .Run();
}

void Archive::AddRecord(int64_t patient_id, const std::string& store, size_t length, const TextPieces& pieces) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  // The room is a text of zero bytes read from pages that are never
  // written, which take no memory: SQLite's copy of it into the row is the
  // only one.
  const size_t mapped = std::max<size_t>(length, 1);
  void* zeros = mmap(nullptr, mapped, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (zeros == MAP_FAILED) throw WriteError("the archive can't be written: " + CauseOf(errno));
  int64_t row = 0;
  try {
    row = Statement(db_, Prepared("INSERT INTO records(patient_id, store, args) VALUES(?, ?, ?)"))
              .Bind(patient_id)
              .Bind(store)
              .Bind(std::string_view(static_cast<const char*>(zeros), length))
              .Run();
  } catch (...) {
    munmap(zeros, mapped);
    throw;
  }
  munmap(zeros, mapped);
  sqlite3_blob* blob = nullptr;
  if (sqlite3_blob_open(db_, "main", "records", "args", row, 1, &blob) != SQLITE_OK) Fail(db_);
  std::unique_ptr<sqlite3_blob, decltype(&sqlite3_blob_close)> open_blob(blob, sqlite3_blob_close);
  size_t written = 0;
  pieces([&](std::string_view piece) {
    if (piece.size() > length - written) throw WriteError("the archive can't be written: a record outgrew its room");
    if (sqlite3_blob_write(blob, piece.data(), static_cast<int>(piece.size()), static_cast<int>(written)) != SQLITE_OK)
      Fail(db_);
    written += piece.size();
  });
  if (written != length) throw WriteError("the archive can't be written: a record fell short of its room");
}

int64_t Archive::AddPrescription(int64_t patient_id, const std::string& members) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return Statement(db_, Prepared("INSERT INTO prescriptions(patient_id, members) VALUES(?, ?)"))
      .Bind(patient_id)
      .Bind(members)
      .Run();
}

void Archive::AddPrescriptionItem(std::optional<int64_t> prescription_id, const std::string& store,
                                  const std::string& members) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  Statement(db_, Prepared("INSERT INTO prescription_items(prescription_id, store, members) VALUES(?, ?, ?)"))
      .Bind(prescription_id)
      .Bind(store)
      .Bind(members)
      .Run();
}

// The row is made with a content of zeros of the file's size, which is then
// written over a chunk at a time: the file is never whole in memory.
int64_t Archive::InsertFile(const StoredFile& file) {
  return Statement(db_, Prepared("INSERT INTO files(id, patient_id, title, name, size, sha256, content) "
                                 "VALUES(?, ?, ?, ?, ?, ?, zeroblob(?))"))
      .Bind(file.id)
      .Bind(file.patient_id)
      .Bind(file.title)
      .Bind(file.name)
      .Bind(file.size)
      .Bind(file.sha256)
      .Bind(file.size)
      .Run();
}

// Writes file.size bytes from fd over the zero content of row, each chunk
// also into digest if one is given. False when fd can't be read.
bool Archive::CopyContent(int64_t row, const StoredFile& file, int fd, Sha256* digest) {
  if (file.size == 0) return true;
  sqlite3_blob* blob = nullptr;
  if (sqlite3_blob_open(db_, "main", "files", "content", row, 1, &blob) != SQLITE_OK) Fail(db_);
  std::unique_ptr<sqlite3_blob, decltype(&sqlite3_blob_close)> open_blob(blob, sqlite3_blob_close);
  std::vector<char> chunk(1 << 16);
  int64_t written = 0;
  while (written < file.size) {
    const ssize_t got =
        read(fd, chunk.data(), static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(chunk.size()), file.size - written)));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) throw WriteError("the file " + file.path + " changed while it was stored");
    if (digest != nullptr) digest->Update(chunk.data(), static_cast<size_t>(got));
    if (sqlite3_blob_write(blob, chunk.data(), static_cast<int>(got), static_cast<int>(written)) != SQLITE_OK)
      Fail(db_);
    written += got;
  }
  return true;
}

void Archive::AddFile(const StoredFile& file) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  const int64_t row = InsertFile(file);
  const int fd = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0 && file.size > 0) throw WriteError("the file " + file.path + " changed while it was stored");
  const bool copied = CopyContent(row, file, fd, nullptr);
  if (fd >= 0) close(fd);
  if (!copied) throw WriteError("the file " + file.path + " changed while it was stored");
}

std::optional<std::string> Archive::AddFileDigesting(const StoredFile& file, int fd) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  // The digest's place holds zeros of its length until the content is
  // through, then is written over as the content is: an UPDATE would
  // rewrite the whole row, content and all.
  StoredFile placed = file;
  placed.sha256.assign(kSha256HexLength, '0');
  const int64_t row = InsertFile(placed);
  Sha256 digest;
  if (!CopyContent(row, file, fd, &digest)) {
    Statement(db_, Prepared("DELETE FROM files WHERE rowid = ?")).Bind(row).Run();
    return std::nullopt;
  }
  std::string sha256 = digest.Hex();
  sqlite3_blob* blob = nullptr;
  if (sqlite3_blob_open(db_, "main", "files", "sha256", row, 1, &blob) != SQLITE_OK) Fail(db_);
  std::unique_ptr<sqlite3_blob, decltype(&sqlite3_blob_close)> open_blob(blob, sqlite3_blob_close);
  if (sqlite3_blob_write(blob, sha256.data(), static_cast<int>(sha256.size()), 0) != SQLITE_OK) Fail(db_);
  return sha256;
}

bool Archive::Holds(const StoredFile& file) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (db_ == nullptr) return true;
  const int64_t longest = sqlite3_limit(db_, SQLITE_LIMIT_LENGTH, -1);
  const int64_t texts = static_cast<int64_t>(file.id.size() + file.title.size() + file.name.size()) +
                        static_cast<int64_t>(kSha256HexLength);
  return file.size <= longest - texts - kFileRowOverhead;
}

void Archive::LimitRowLengthForTesting(int bytes) { row_length_for_testing = bytes; }

void Archive::AddMessage(const std::string& kind, const std::string& text) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  Statement(db_, Prepared("INSERT INTO messages(kind, text) VALUES(?, ?)")).Bind(kind).Bind(text).Run();
}

void Archive::Close() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (db_ == nullptr) return;
  try {
    CommitLocked();
  } catch (const WriteError&) {
    CloseLocked();
    throw;
  }
  CloseLocked();
}

void Archive::Abandon() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (db_ == nullptr) return;
  if (sqlite3_get_autocommit(db_) == 0) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  in_transaction_ = false;
  CloseLocked();
}

// Goes back to a rollback journal, which writes what the log holds into the
// file and removes the log, and closes. The file is closed even when that
// fails (the log then stays beside it, and the archive is whole with it).
void Archive::CloseLocked() {
  std::string failure;
  try {
    Execute("PRAGMA journal_mode=DELETE");
  } catch (const WriteError& e) {
    failure = e.what();
  }
  FinalizeStatements();
  sqlite3_close(db_);
  db_ = nullptr;
  if (!failure.empty()) throw WriteError(failure);
}

std::string Archive::RunThatMadeIt(const std::string& path) {
  // Read as an immutable file: nothing is written beside it, and a run that
  // was killed before its log was taken in still shows its start.
  sqlite3* db = nullptr;
  std::string said;
  if (sqlite3_open_v2((FileUri(path) + "?immutable=1").c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI,
                      nullptr) == SQLITE_OK) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db,
                           "SELECT started, ended, conn, (SELECT count(*) FROM patients) FROM runs "
                           "ORDER BY id DESC LIMIT 1",
                           -1, &stmt, nullptr) == SQLITE_OK &&
        sqlite3_step(stmt) == SQLITE_ROW) {
      const std::string ended = ColumnText(stmt, 1);
      const int64_t patients = sqlite3_column_int64(stmt, 3);
      said = "made by the run of " + ColumnText(stmt, 2) + " started " + ColumnText(stmt, 0) +
             (ended.empty() ? ", which never ended" : " and ended " + ended) + ", with " + std::to_string(patients) +
             (patients == 1 ? " patient" : " patients");
    }
    sqlite3_finalize(stmt);
  }
  sqlite3_close(db);
  return said;
}

}  // namespace refhost
