// What an archive of kairon-convert holds of the run that filled it, read
// back for the run's report: the runs row, the lines of the host's log, the
// totals of what reached each store, and the files stored. What each patient
// object received is read again from the archive one patient at a time
// (ReceivedByPatient), so that a run of any size is held in little memory.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
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
  int64_t patient = 0;  // N of the Paziente#N whose Files stored it
  std::string id;       // "F1"
  std::string title, name;
  int64_t size = 0;
};

// What one patient object received. Stores are named as in the archive:
// the store of each Salva ("Problemi"), "Ricette" for prescriptions, the
// item stores for their items ("PrescrizioneFarmaci"), "Files" for files.
struct PatientReceived {
  bool imported = false;                   // ImportaAnagrafica stored its master record
  std::map<std::string, int64_t> records;  // store -> count, files under "Files"
};

struct RunRecord {
  std::string archive;  // the file it was read from
  int64_t run_id = 0;
  std::string started, ended;  // local times "YYYY-MM-DDTHH:MM:SS"; ended empty if the run never closed
  std::string conn, options;   // as Test and Converti received them
  std::optional<bool> result;  // none when the run never closed (a program ended at once)
  std::string last_error;
  std::vector<LogLine> driver_lines;   // the driver's own lines, before the patients
  std::vector<LogLine> patient_lines;  // one per patient row that the driver took, in order
  std::map<std::string, int64_t> records_per_store;  // over all patients, master records not included
  int64_t master_records = 0;                        // patients whose master record was stored
  int64_t files = 0, file_bytes = 0;
  std::vector<ReceivedFile> file_list;  // by patient number, each patient's in the order stored
};

// The texts of the driver's first three lines, in their order.
const std::vector<std::string>& DriverLineTexts();

// The detail that a patient line carries when DaiPaziente gave no patient.
extern const char* const kNoPatientDetail;

// Reads the archive at path without writing to it, and the last run in it.
// Raises std::runtime_error naming the cause when the file can't be read,
// isn't an archive of kairon-convert, or holds no run.
RunRecord ReadRun(const std::string& path);

// What each patient object of a run received, read again from its archive.
// Holds one patient at a time. Raises std::runtime_error as ReadRun does.
class ReceivedByPatient {
 public:
  explicit ReceivedByPatient(const std::string& archive);
  ~ReceivedByPatient();
  ReceivedByPatient(const ReceivedByPatient&) = delete;
  ReceivedByPatient& operator=(const ReceivedByPatient&) = delete;

  // What the patient object numbered patient received (nothing for a number
  // that received nothing). Numbers are asked for in ascending order; one
  // below the last asked gives nothing. Items of a prescription that was
  // never stored belong to no patient.
  PatientReceived Next(int64_t patient);

  // The members of patient's master record that hold text ("CodiceFiscale",
  // "Tessera"); none when no master record was stored. Asked in any order.
  std::optional<std::map<std::string, std::string>> MasterTexts(int64_t patient);

 private:
  struct Walk;
  std::unique_ptr<Walk> walk_;
};

}  // namespace runreport
