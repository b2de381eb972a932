// The report of a run: the figures that a person (HTML) and a program (JSON)
// read about one conversion, taken from the run read back from its archive,
// its accounts against the source, and, when the report is made by the
// conversion itself, the times of its phases and what only the host saw.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/run-report/accounting.h"
#include "tools/run-report/run_record.h"

namespace runreport {

// A stretch of the run, timed by the host as it received the log's lines.
struct Phase {
  std::string name;  // "opening and Test", "first pass", "archive start", "patients", "closing"
  double seconds = 0;
};

// When each line of the log opened (AddMsg) and received its last message,
// in seconds from the start of the run, and when the run ended (archive
// closed). Lines are in the order of the archive's messages.
struct LineTimes {
  double opened = 0, last = 0;
};
struct Timeline {
  std::vector<LineTimes> lines;
  double ended = 0;
};

// What only the conversion that writes the report knows of its run.
struct LiveRun {
  std::vector<Phase> phases;        // contiguous, from the start of the run to its end
  double seconds = 0;               // the whole run
  bool stopped = false;             // a stop was asked for (Ctrl-C) and the run ended after a patient
  std::string write_failure;        // the archive or trace couldn't be written: the run stopped there
  std::string raised;               // Test or Converti raised instead of answering: "1001 ..."
  std::optional<bool> test_result;  // Test's answer
  std::vector<std::string> warnings;
};

// The phases of a run from its timeline: opening and Test (up to the first
// line), first pass (the driver's lines up to the archive's start), archive
// start (up to the first patient), patients (to the last patient's last
// message), closing (to the end). Phases whose lines never came are left out.
std::vector<Phase> PhasesOf(const Timeline& timeline, const RunRecord& run);

// Every figure of the report; the HTML and the JSON show these and nothing else.
struct Figures {
  struct Store {
    std::string store;
    std::optional<int64_t> expected;       // from the accounts
    int64_t arrived = 0;
    std::vector<std::string> shared_with;  // other categories of the run that file into the same store
  };
  struct Category {
    std::string keyword;  // lower case, as the accounts and the catalogue give it
    std::string name;     // as ListaOpzioni names it: "Pressione Arteriosa"; "Anagrafica" for the master record
    std::vector<std::string> tables;
    std::optional<int64_t> source_rows;  // known from the accounts only
    std::vector<Cause> left_out, not_arrived;
    std::vector<Store> stores;
    int64_t records = 0;                 // arrived, over its stores (a shared store counted whole)
    std::optional<int64_t> unexplained;  // known from the accounts only
    std::vector<std::string> err_patients;  // the names of the patients that ended in "ERR" here
    std::vector<Cause> ended_by_rule;       // where the rules themselves end the category, from the accounts
    std::vector<std::string> unforeseen;    // patients whose line reached an end that the rules don't foresee
  };
  struct ErrReason {
    std::string reason;    // "Diagnosi Errore 94 Utilizzo non valido di Null", without the patient's name
    std::string category;  // its name, empty when no category's text is found in it
    std::vector<std::string> patients;
  };
  struct File {
    std::string patient, id, title, name;
    int64_t size = 0;
  };
  struct Undecoded {
    std::string patient, category, title, why;
  };
  // The document at which a patient's "ERR" came, from the accounts.
  struct EndingDocument {
    std::string patient, category, title, why;
  };

  struct SharedKey {
    std::string key;
    std::vector<std::string> patients;  // those of the run
  };

  std::string archive;
  RunRecord run;  // the parameters and result, the lines and the totals (its file_list left empty)
  std::optional<LiveRun> live;
  int64_t patient_lines = 0, patients_ok = 0, patients_err = 0, patients_refused = 0;
  std::string ended_with_error;  // the patient whose line ended in "Errore", when the run ended there
  bool accounts_done = false;
  std::string accounts_why_not;
  int64_t unexplained = 0;
  std::vector<Category> categories;  // the master record, then the run's categories in option order
  std::vector<ErrReason> err_reasons;  // most patients first
  std::vector<File> files;
  std::vector<Undecoded> undecoded;
  std::vector<EndingDocument> ending_documents;
  std::vector<SharedKey> shared_keys;  // keys that the source's database takes as one for several patients
  std::optional<double> archive_seconds;  // from the runs row's started and ended

  // "every record accounted for", "3 records unexplained", or why the accounts weren't made.
  std::string AccountsSummary() const;
  // "ended", "ended with an error", "never closed", ...: the run's result in words.
  std::string Outcome() const;
};

Figures MakeFigures(const std::string& archive, const RunRecord& run, const Reconciliation& accounts,
                    std::optional<LiveRun> live = std::nullopt);

// The reason of an "ERR" detail without the patient's name, and the keyword
// of the category whose text it carries ("anagrafica" for a patient that
// the host refused; empty when none is found).
struct DetailReason {
  std::string reason, keyword;
};
DetailReason ReasonOf(const std::string& detail);

// One self-contained page: inline style and SVG, no script, every text escaped.
std::string RenderHtml(const Figures& figures);
// The figures as JSON text, indented by two, ending in a line break.
std::string RenderJson(const Figures& figures);

// A size for a person, as the report and the terminal give it:
// "12.3 MiB, 12897484 bytes" ("512 bytes" below a KiB).
std::string SizeText(int64_t bytes);

// text with & < > " ' replaced by their entities.
std::string EscapeHtml(const std::string& text);

}  // namespace runreport
