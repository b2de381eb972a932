#include "tools/run-report/run_record.h"

#include <sqlite3.h>

#include <functional>
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

  // Calls row for each row of sql, with the statement at that row.
  void Each(const char* sql, const std::function<void(sqlite3_stmt*)>& row) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db_, sql, -1, &stmt, nullptr) != SQLITE_OK) Fail();
    int step;
    while ((step = sqlite3_step(stmt)) == SQLITE_ROW) row(stmt);
    sqlite3_finalize(stmt);
    if (step != SQLITE_DONE) Fail();
  }

 private:
  [[noreturn]] void Fail() {
    std::string cause = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
    throw std::runtime_error(path_ + " can't be read: " + cause);
  }
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
void NumberPatients(RunRecord& run) {
  int64_t next = 1;
  for (LogLine& line : run.patient_lines) {
    const bool refused = line.outcome == "ERR" && !line.details.empty() && EndsWith(line.details.front(), kNoPatientDetail);
    const bool ended_without_patient = line.outcome == "Errore" && !run.received.contains(next);
    if (refused || ended_without_patient) continue;
    line.patient = next++;
  }
}

}  // namespace

RunRecord ReadRun(const std::string& path) {
  ReadOnlyArchive archive(path);
  RunRecord run;
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

  archive.Each("SELECT id, members FROM patients", [&](sqlite3_stmt* row) {
    PatientReceived& patient = run.received[sqlite3_column_int64(row, 0)];
    patient.imported = true;
    const nlohmann::json members = nlohmann::json::parse(Text(row, 1), nullptr, false);
    if (!members.is_object()) return;
    for (const auto& [name, value] : members.items())
      if (value.is_object() && value.value("type", "") == "text" && value["value"].is_string())
        patient.texts[name] = value["value"].get<std::string>();
  });
  auto count = [&](int64_t patient, const std::string& store, int64_t n) {
    run.received[patient].records[store] += n;
    run.records_per_store[store] += n;
  };
  archive.Each("SELECT patient_id, store, COUNT(*) FROM records GROUP BY patient_id, store", [&](sqlite3_stmt* row) {
    count(sqlite3_column_int64(row, 0), Text(row, 1), sqlite3_column_int64(row, 2));
  });
  archive.Each("SELECT patient_id, COUNT(*) FROM prescriptions GROUP BY patient_id", [&](sqlite3_stmt* row) {
    count(sqlite3_column_int64(row, 0), "Ricette", sqlite3_column_int64(row, 1));
  });
  archive.Each(
      "SELECT COALESCE(p.patient_id, 0), i.store, COUNT(*) FROM prescription_items i "
      "LEFT JOIN prescriptions p ON p.id = i.prescription_id "
      "GROUP BY p.patient_id, i.store",
      [&](sqlite3_stmt* row) { count(sqlite3_column_int64(row, 0), Text(row, 1), sqlite3_column_int64(row, 2)); });
  archive.Each("SELECT id, patient_id, title, name, size FROM files ORDER BY rowid", [&](sqlite3_stmt* row) {
    const int64_t patient = sqlite3_column_int64(row, 1);
    ReceivedFile file{Text(row, 0), Text(row, 2), Text(row, 3), sqlite3_column_int64(row, 4)};
    run.files += 1;
    run.file_bytes += file.size;
    count(patient, "Files", 1);
    run.received[patient].files.push_back(std::move(file));
  });
  NumberPatients(run);
  return run;
}

}  // namespace runreport
