#include "tools/run-report/run_record.h"

#include <sqlite3.h>

#include <functional>
#include <vector>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "tools/kairon-convert/archive.h"

namespace runreport {

const char* const kNoPatientDetail =
    ": CodFisc, TesseraSSN o Data Nascita non validi (Almeno uno di questi dati è necessario)";

const std::vector<std::string>& DriverLineTexts() {
  static const std::vector<std::string> texts = {"Apertura database di origine", "Inizio conversione pazienti",
                                                 "Inizializzazione archivio..."};
  return texts;
}

namespace {

class ReadOnlyArchive {
 public:
  explicit ReadOnlyArchive(const std::string& path) : path_(path) {
    if (std::string why = refhost::Archive::NotOurArchive(path); !why.empty())
      throw std::runtime_error(path + " " + why);
    if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) Fail();
  }
  ~ReadOnlyArchive() { sqlite3_close(db_); }
  ReadOnlyArchive(const ReadOnlyArchive&) = delete;
  ReadOnlyArchive& operator=(const ReadOnlyArchive&) = delete;

  // Calls row for each row of sql, its "?" bound to the numbers given, with
  // the statement at that row.
  void Each(const char* sql, const std::function<void(sqlite3_stmt*)>& row, std::vector<int64_t> numbers = {}) {
    sqlite3_stmt* stmt = Prepare(sql);
    for (size_t i = 0; i < numbers.size(); ++i) sqlite3_bind_int64(stmt, static_cast<int>(i + 1), numbers[i]);
    int step;
    while ((step = sqlite3_step(stmt)) == SQLITE_ROW) row(stmt);
    sqlite3_finalize(stmt);
    if (step != SQLITE_DONE) Fail();
  }

  // The number in the first column of the first row of sql; 0 without rows.
  int64_t Number(const char* sql, std::vector<int64_t> numbers = {}) {
    int64_t number = 0;
    Each(sql, [&](sqlite3_stmt* row) { number = sqlite3_column_int64(row, 0); }, std::move(numbers));
    return number;
  }

  // A statement that the caller steps and finalizes.
  sqlite3_stmt* Prepare(const char* sql) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db_, sql, -1, &stmt, nullptr) != SQLITE_OK) Fail();
    return stmt;
  }

  [[noreturn]] void Fail() {
    std::string cause = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
    throw std::runtime_error(path_ + " can't be read: " + cause);
  }

 private:
  std::string path_;
  sqlite3* db_ = nullptr;
};

std::string Text(sqlite3_stmt* stmt, int column) {
  const unsigned char* text = sqlite3_column_text(stmt, column);
  return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Which patient object each patient line got. DaiPaziente gives one to every
// line but those it refused (the line's detail says so) and the one whose
// call failed and ended the run ("Errore"), which received nothing.
void NumberPatients(RunRecord& run, ReadOnlyArchive& archive) {
  int64_t next = 1;
  for (LogLine& line : run.patient_lines) {
    const bool refused = line.outcome == "ERR" && !line.details.empty() && EndsWith(line.details.front(), kNoPatientDetail);
    const bool ended_without_patient =
        line.outcome == "Errore" &&
        archive.Number("SELECT EXISTS(SELECT 1 FROM patients WHERE id = ?1) OR "
                       "EXISTS(SELECT 1 FROM records WHERE patient_id = ?1) OR "
                       "EXISTS(SELECT 1 FROM prescriptions WHERE patient_id = ?1) OR "
                       "EXISTS(SELECT 1 FROM files WHERE patient_id = ?1)",
                       {next}) == 0;
    if (refused || ended_without_patient) continue;
    line.patient = next++;
  }
}

}  // namespace

RunRecord ReadRun(const std::string& path) {
  ReadOnlyArchive archive(path);
  RunRecord run;
  run.archive = path;
  bool found = false;
  archive.Each("SELECT id, started, ended, conn, options, result, last_error FROM runs ORDER BY id DESC LIMIT 1",
               [&](sqlite3_stmt* row) {
                 found = true;
                 run.run_id = sqlite3_column_int64(row, 0);
                 run.started = Text(row, 1);
                 run.ended = Text(row, 2);
                 run.conn = Text(row, 3);
                 run.options = Text(row, 4);
                 if (sqlite3_column_type(row, 5) != SQLITE_NULL) run.result = sqlite3_column_int(row, 5) != 0;
                 run.last_error = Text(row, 6);
               });
  if (!found) throw std::runtime_error(path + " holds no run");

  std::vector<LogLine> lines;
  archive.Each("SELECT kind, text FROM messages ORDER BY seq", [&](sqlite3_stmt* row) {
    const std::string kind = Text(row, 0);
    std::string text = Text(row, 1);
    if (kind == "AddMsg") {
      lines.push_back(LogLine{std::move(text), "", {}, 0});
    } else if (lines.empty()) {
      return;
    } else if (kind == "ChangeMsg") {
      lines.back().outcome = std::move(text);
    } else if (kind == "AddInfo") {
      lines.back().details.push_back(std::move(text));
    }
  });
  size_t driver = 0;
  while (driver < lines.size() && driver < DriverLineTexts().size() && lines[driver].text == DriverLineTexts()[driver])
    ++driver;
  run.driver_lines.assign(lines.begin(), lines.begin() + driver);
  run.patient_lines.assign(lines.begin() + driver, lines.end());

  // The totals of each store; a store that received nothing isn't named.
  auto total = [&](const std::string& store, int64_t n) {
    if (n > 0) run.records_per_store[store] += n;
  };
  archive.Each("SELECT store, COUNT(*) FROM records GROUP BY store",
               [&](sqlite3_stmt* row) { total(Text(row, 0), sqlite3_column_int64(row, 1)); });
  total("Ricette", archive.Number("SELECT COUNT(*) FROM prescriptions"));
  archive.Each("SELECT store, COUNT(*) FROM prescription_items GROUP BY store",
               [&](sqlite3_stmt* row) { total(Text(row, 0), sqlite3_column_int64(row, 1)); });
  run.master_records = archive.Number("SELECT COUNT(*) FROM patients WHERE id != 0");
  archive.Each("SELECT id, COALESCE(patient_id, 0), title, name, size FROM files ORDER BY 2, rowid",
               [&](sqlite3_stmt* row) {
                 ReceivedFile file{sqlite3_column_int64(row, 1), Text(row, 0), Text(row, 2), Text(row, 3),
                                   sqlite3_column_int64(row, 4)};
                 run.files += 1;
                 run.file_bytes += file.size;
                 run.file_list.push_back(std::move(file));
               });
  total("Files", run.files);
  NumberPatients(run, archive);
  return run;
}

// One statement over the archive whose rows give, in ascending patient
// number, what each patient received: the number, the store (Null for the
// master record) and a count.
struct ReceivedByPatient::Walk {
  explicit Walk(const std::string& path) : archive(path) {
    rows = archive.Prepare(
        "SELECT id, NULL, 1 FROM patients "
        "UNION ALL SELECT patient_id, store, COUNT(*) FROM records GROUP BY patient_id, store "
        "UNION ALL SELECT patient_id, 'Ricette', COUNT(*) FROM prescriptions GROUP BY patient_id "
        "UNION ALL SELECT p.patient_id, i.store, COUNT(*) FROM prescription_items i "
        "JOIN prescriptions p ON p.id = i.prescription_id GROUP BY p.patient_id, i.store "
        "UNION ALL SELECT patient_id, 'Files', COUNT(*) FROM files GROUP BY patient_id "
        "ORDER BY 1");
    Step();
  }
  ~Walk() { sqlite3_finalize(rows); }

  void Step() {
    const int step = sqlite3_step(rows);
    if (step != SQLITE_ROW && step != SQLITE_DONE) archive.Fail();
    at_row = step == SQLITE_ROW;
  }
  int64_t Patient() const { return sqlite3_column_int64(rows, 0); }

  ReadOnlyArchive archive;
  sqlite3_stmt* rows = nullptr;
  bool at_row = false;
};

ReceivedByPatient::ReceivedByPatient(const std::string& archive) : walk_(std::make_unique<Walk>(archive)) {}

ReceivedByPatient::~ReceivedByPatient() = default;

PatientReceived ReceivedByPatient::Next(int64_t patient) {
  PatientReceived received;
  Walk& walk = *walk_;
  while (walk.at_row && (sqlite3_column_type(walk.rows, 0) == SQLITE_NULL || walk.Patient() < patient)) walk.Step();
  for (; walk.at_row && walk.Patient() == patient; walk.Step()) {
    if (sqlite3_column_type(walk.rows, 1) == SQLITE_NULL)
      received.imported = true;
    else
      received.records[Text(walk.rows, 1)] += sqlite3_column_int64(walk.rows, 2);
  }
  return received;
}

std::optional<std::map<std::string, std::string>> ReceivedByPatient::MasterTexts(int64_t patient) {
  std::optional<std::map<std::string, std::string>> texts;
  walk_->archive.Each(
      "SELECT members FROM patients WHERE id = ?",
      [&](sqlite3_stmt* row) {
        texts.emplace();
        const nlohmann::json members = nlohmann::json::parse(Text(row, 0), nullptr, false);
        if (!members.is_object()) return;
        for (const auto& [name, value] : members.items())
          if (value.is_object() && value.value("type", "") == "text" && value["value"].is_string())
            (*texts)[name] = value["value"].get<std::string>();
      },
      {patient});
  return texts;
}

}  // namespace runreport
