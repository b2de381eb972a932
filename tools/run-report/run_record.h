// What an archive of kairon-convert holds of the run that filled it, read
// back for the run's report: the runs row, the lines of the host's log, and
// what each patient object received, store by store.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace runreport {

// A line of the host's log: opened by AddMsg, given its outcome by
// ChangeMsg, followed by AddInfo details.
struct LogLine {
  std::string text;                  // what AddMsg gave: "ROSSI MARIO...", "Apertura database di origine"
  std::string outcome;               // the last ChangeMsg before the next AddMsg; empty if none came
  std::vector<std::string> details;  // the AddInfo texts before the next AddMsg, in order
  int64_t patient = 0;  // N of the Paziente#N that the line's DaiPaziente gave; 0 when it gave none
};

struct ReceivedFile {
  std::string id;  // "F1"
  std::string title, name;
  int64_t size = 0;
};

// What one patient object received. Stores are named as in the archive:
// the store of each Salva ("Problemi"), "Ricette" for prescriptions, the
// item stores for their items ("PrescrizioneFarmaci"), "Files" for files.
struct PatientReceived {
  bool imported = false;  // ImportaAnagrafica stored its master record
  std::map<std::string, std::string> texts;  // the master record's members that hold text ("CodiceFiscale", "Tessera")
  std::map<std::string, int64_t> records;  // store -> count
  std::vector<ReceivedFile> files;         // in the order stored
};

struct RunRecord {
  int64_t run_id = 0;
  std::string started, ended;  // local times "YYYY-MM-DDTHH:MM:SS"; ended empty if the run never closed
  std::string conn, options;   // as Test and Converti received them
  std::optional<bool> result;  // none when the run never closed (a program ended at once)
  std::string last_error;
  std::vector<LogLine> driver_lines;   // the driver's own lines, before the patients
  std::vector<LogLine> patient_lines;  // one per patient row that the driver took, in order
  // By patient number; 0 holds the items of a prescription that was never stored.
  std::map<int64_t, PatientReceived> received;
  std::map<std::string, int64_t> records_per_store;  // over all patients
  int64_t files = 0, file_bytes = 0;
};

// The texts of the driver's first three lines, in their order.
const std::vector<std::string>& DriverLineTexts();

// The detail that a patient line carries when DaiPaziente gave no patient.
extern const char* const kNoPatientDetail;

// Reads the archive at path without writing to it, and the last run in it.
// Raises std::runtime_error naming the cause when the file can't be read,
// isn't an archive of kairon-convert, or holds no run.
RunRecord ReadRun(const std::string& path);

}  // namespace runreport
