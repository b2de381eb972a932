// The accounts of a run: for the master record and each category that the
// run converted, what the source holds for the patients it converted against
// what reached the host, every difference with its cause where the
// conversion's rules give one, so that a difference without one stands out.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/run-report/run_record.h"

namespace runreport {

// Rows, or records, counted under one cause, in words for a person:
// "empty text", "the patient ended in ERR in an earlier category".
struct Cause {
  std::string text;
  int64_t rows = 0;
};

// Records of one store that a category should have made, and those of them
// that reached the host.
struct StoreCount {
  std::string store;  // as in the archive: "Problemi", "Ricette", "PrescrizioneFarmaci", "Files"; the master
                      // record itself (the table patients) is "patients"
  int64_t expected = 0;
  int64_t arrived = 0;
};

// The accounts of one category over the patients of the run's log (refused
// ones and those whose category never ran included), told by the category's
// rules walked in the run's option order (so the per-patient lists of used
// images hold what the categories before it took). For each store,
// expected - arrived = the rows of not_arrived that belong to it + what is
// missing without cause; what arrived beyond expected is unexplained too.
struct CategoryAccount {
  std::string keyword;               // "anagrafica" for the master record, else as in ListaOpzioni, lower case
  std::vector<std::string> tables;   // the source tables it reads by the patient's key
  int64_t source_rows = 0;           // rows of its per-patient table for those patients, once each time it ran
                                     // (a keyword given twice counts them twice)
  std::vector<Cause> left_out;       // rows (or files of a row) that the rules leave out, which make no record
  std::vector<Cause> not_arrived;    // records that the rows would have made but that never came, by cause
  std::vector<StoreCount> stores;    // what the rest make, store by store
  int64_t unexplained = 0;           // records missing or in excess that no cause accounts for
  std::vector<size_t> err_lines;     // indexes into RunRecord::patient_lines whose "ERR" came from this category
  // Where the rules themselves end the converter in its trap (a Null
  // content, a key with a quote...), counted over the patients for whom it
  // ran. The row where it ends counts the records it made before that
  // point; the records of the rows after it are not_arrived.
  std::vector<Cause> failures;
  // Patient lines whose outcome the rules don't foresee: the rules end the
  // converter, yet the line shows it reached its end. Each counts once in
  // unexplained.
  std::vector<size_t> unforeseen_lines;
};

// A file that a category found in the source but could not store.
struct UndecodedStream {
  size_t patient_line = 0;  // index into RunRecord::patient_lines
  std::string keyword;      // the category
  std::string title;
  std::string why;          // "gzip stream cut short", "fewer than 4 bytes"
};

// A document at which a category's rules ended it, on a line that ended in
// "ERR" there: what the patient's "ERR" came from.
struct EndingDocument {
  size_t patient_line = 0;  // index into RunRecord::patient_lines
  std::string keyword;      // the category
  std::string title;
  std::string why;          // "its file name \"a/b.rtf\" holds \"/\", which can't be written (52)"
};

// Patients of the run whose key the source's database takes as another's too:
// each got the master record and the records of all of them.
struct SharedKeyLines {
  std::string key;
  std::vector<size_t> patient_lines;  // indexes into RunRecord::patient_lines
};

struct Reconciliation {
  bool done = false;
  std::string why_not;  // when not done, in words: the source's opening cause, or why the log doesn't match it
  std::vector<CategoryAccount> categories;  // the master record, then each category of the run once, in option order
  std::vector<UndecodedStream> undecoded;
  std::vector<EndingDocument> ending_documents;
  std::vector<SharedKeyLines> shared_keys;
  int64_t unexplained = 0;  // over all categories
};

// What the accounts read besides the run, and whom they tell how far they
// are. Empty texts: the run's own source, and the host's archives that
// kairon-convert takes by default (installed with the programs).
struct AccountsInputs {
  std::string source;                       // a connection text, as Test takes it
  std::string farmaci_csv, esenzioni_csv;   // decide whether some rows make a record (an allergy's drug code...)
  std::function<void(size_t done, size_t total)> progress;  // after each patient line
};

// Opens the source, reading only and by the plug-in's own opening rules,
// finds the patient row of each of run's patient lines, and reconciles,
// patient by patient: what the source holds and what the archive received
// are read again for each, so memory doesn't grow with the run. Never
// raises for the source: what stops it is why_not. Raises
// std::runtime_error when the archive can't be read again.
Reconciliation Reconcile(const RunRecord& run, const AccountsInputs& inputs = {});

}  // namespace runreport
