// What the host's objects of one conversion share: the archive and the
// trace they write, the --fail plan, the archives of archivio, the filters,
// the running numbers of patients, prescriptions, problems and files, and
// what the summary counts. It also keeps the archive's transactions: one
// per patient, from the patient's creation to the next patient's or the end
// of the run.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/kairon-convert/archive.h"
#include "tools/kairon-convert/catalogues.h"
#include "tools/kairon-convert/failure_plan.h"
#include "tools/kairon-convert/output_files.h"
#include "tools/kairon-convert/host_object.h"
#include "tools/kairon-convert/progress.h"
#include "tools/kairon-convert/trace.h"

namespace refhost {

// A patient's members, shared by the patient object and the session, which
// writes them again at the end of the patient if they changed after the
// master record was stored.
struct PatientRecord {
  int64_t number = 0;  // Paziente#N, and the patient's id in the archive
  MemberBag members;
  bool imported = false;  // the patients row is written
  bool changed_since_write = false;
};

struct SessionSetup {
  std::unique_ptr<Archive> archive;
  std::unique_ptr<Trace> trace;  // null: no trace
  FailurePlan failures;
  Catalogue icd9, farmaci, esenzioni;
  Provinces provinces;
  std::string from, to;  // FiltroDa, FiltroA
  std::map<std::string, std::string> utente;
  bool progress = false;  // draw a progress bar on standard error
  bool progress_lines = false;  // write a line of progress at each tenth on standard error
  int stop_at_progress = 0;  // >0: the stop comes with that UpdateProgress, as a Ctrl-C would
};

struct SessionCounts {
  std::map<std::string, int64_t> records_per_store;
  int patients_taken = 0;    // lines during which DaiPaziente was asked
  int patients_refused = 0;  // of those, where DaiPaziente gave no patient
  int patients_ok = 0, patients_err = 0;
  int64_t files = 0, file_bytes = 0;
};

class Session {
 public:
  explicit Session(SessionSetup setup);

  Archive& archive() { return *setup_.archive; }
  const SessionSetup& setup() const { return setup_; }
  const SessionCounts& counts() const { return counts_; }

  // A line of the trace, as the JSON text of one object; nothing without a
  // trace.
  void WriteTrace(const std::string& line);
  void WriteTrace(const TextPieces& line);
  // Whether there is a trace: without one, no line needs making.
  bool tracing() const { return setup_.trace != nullptr; }
  // Counts a call against the --fail plan; true if it must fail.
  bool CountCall(std::string_view object_name, std::string_view member) {
    return setup_.failures.CountCall(object_name, member);
  }

  // AddMsg, ChangeMsg, AddInfo: into the archive, and the outcome of a
  // patient's line into the counts.
  void Message(const std::string& kind, const std::string& text);

  // When each line of the log opened (AddMsg) and received its last
  // message, in the order of the archive's messages; kept for the run's
  // report only.
  struct LineTime {
    std::chrono::steady_clock::time_point opened, last;
  };
  const std::vector<LineTime>& line_times() const { return line_times_; }
  // Whether UpdateProgress ever answered that the run must stop.
  bool stop_answered() const { return stop_answered_; }
  // The percentage of the last UpdateProgress (-1 before the first): 100
  // once the last row of the source was taken.
  int last_percent() const { return last_percent_; }

  // DaiPaziente was asked: the line that AddMsg opened is a patient's, and
  // its ChangeMsg "OK" or "ERR" counts.
  void PatientLineOpened() {
    if (!patient_line_open_) ++counts_.patients_taken;
    patient_line_open_ = true;
  }
  // DaiPaziente gave no patient.
  void PatientRefused() { ++counts_.patients_refused; }

  // The source's patients, once known: the progress shows them.
  void SourcePatientsKnown(int64_t patients) {
    if (progress_) progress_->SetSourcePatients(patients);
  }

  // UpdateProgress: draws the bar; true once a stop was asked for, or the
  // archive or trace failed.
  bool Progress(int percent);

  // The archive or the trace couldn't be written: the first cause is kept,
  // and the run is asked to stop.
  void WriteFailed(const std::string& cause);
  const std::string& write_failure() const { return write_failure_; }
  // Runs a step of the archive or the trace; a WriteError is kept as
  // WriteFailed keeps it instead of passing on.
  template <typename Step>
  void Record(Step step) {
    try {
      step();
    } catch (const WriteError& e) {
      WriteFailed(e.what());
    }
  }

  // A new patient: ends the transaction of the one before (writing again
  // the members that changed since their master record) and opens the
  // patient's own.
  std::shared_ptr<PatientRecord> BeginPatient();
  // ImportaAnagrafica: writes the patients row.
  void ImportPatient(PatientRecord& patient);
  // A member of patient was set.
  void PatientChanged(const std::shared_ptr<PatientRecord>& patient);

  void CountRecord(const std::string& store) { ++counts_.records_per_store[store]; }
  void CountFile(int64_t size) {
    ++counts_.files;
    counts_.file_bytes += size;
  }

  int64_t NextRicetta() { return ++ricette_; }
  int64_t NextItemRicetta() { return ++items_; }
  int64_t NextProblem() { return ++problems_; }
  int64_t NextFile() { return ++files_; }
  // The number that NextFile will give, for a file not yet sure to be stored.
  int64_t PeekFile() const { return files_ + 1; }

  // The end of the run: the last patient's transaction is committed, the
  // trace written out, and the progress ends on the patients taken. The archive stays
  // open for the runs row. Failures are kept as WriteFailed keeps them.
  void Finish();

  // Ends at once, from another thread: the patient under way is taken
  // back, the archive closed (Archive::Abandon), the trace written out.
  void Abandon();

 private:
  void WritePendingPatients();

  SessionSetup setup_;
  SessionCounts counts_;
  std::optional<ProgressBar> progress_;
  std::vector<std::shared_ptr<PatientRecord>> pending_;
  int64_t progress_calls_ = 0;
  int64_t patients_ = 0, ricette_ = 0, items_ = 0, problems_ = 0, files_ = 0;
  bool patient_line_open_ = false;  // DaiPaziente came after the last AddMsg
  std::vector<LineTime> line_times_;
  bool stop_answered_ = false;
  int last_percent_ = -1;
  bool stop_ = false;                // this run's own reason to stop (stop_at_progress, a write failure)
  std::string write_failure_;
};

// Ctrl-C's flag (see RequestStop), read by Session::Progress; the end of a
// run clears it.
bool StopRequested();
void ClearStopRequest();

}  // namespace refhost
