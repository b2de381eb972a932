// The reference host: the host objects that a conversion calls (Interface,
// patients and their stores, archives, framework, utente), the SQLite archive
// they file into, the trace, and the runs of the kairon-convert commands.
// The command line is a thin shell over these; tests use them directly.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/component.h"
#include "host/object.h"
#include "tools/kairon-convert/leftovers.h"

namespace refhost {

// A plug-in library loaded with dlopen and its class factory.
class Plugin {
 public:
  // Loads the library and looks up its entry points. Raises
  // std::runtime_error with dlerror's text when it can't.
  explicit Plugin(const std::string& path);
  // Unloads the library, unless it still reports live objects.
  ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  // A new Conversione, created through DllGetClassObject with its class
  // identity. Raises std::runtime_error when the library refuses it.
  host::ObjectRef CreateConversione();

  // The library's own answer to DllCanUnloadNow (0: no object alive).
  int32_t CanUnloadNow();

  // The address of a symbol of the library or of a library it brought in;
  // null if none has it.
  void* FindSymbol(const char* name) const;

 private:
  void* handle_ = nullptr;
};

// The class identity of Conversione.
extern const char* const kConversioneClassId;

// A class identity from its registry form "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}".
// Raises std::invalid_argument for anything else.
host::ClassId ParseClassId(std::string_view text);

// The plug-in's fixed properties, in the order the info command prints them:
// NomeProgramma, TipoOrigine, the Default... properties, ListaOpzioni.
// Passes on a host::Failure that reading one of them raises.
std::vector<std::pair<std::string, host::Value>> ReadInfo(const host::ObjectRef& conversione);

// info --json: one JSON object, property name to value (text as a string,
// integers as numbers).
std::string InfoJson(const std::vector<std::pair<std::string, host::Value>>& info);

struct TestOutcome {
  bool result = false;
  std::string lista_medici;  // as returned
  std::string last_error;
  // Read only from a plug-in that has them (beside the contract): why the
  // source didn't open, in words, and the folder of its private copies.
  std::string opening_cause;
  std::string private_copy;
};

// Calls Test with conn, as given. Passes on a host::Failure that Test raises.
TestOutcome RunTest(const host::ObjectRef& conversione, const std::string& conn);

// A text property that a plug-in may not have: its text, or empty text when
// the plug-in answers that it has no such member (438).
std::string OptionalText(const host::ObjectRef& conversione, const char* property);

// test --json: {"result": bool, "ListaMedici": text, "LastError": text},
// and "cause": text when the source didn't open.
std::string TestJson(const TestOutcome& outcome);

// The doctors of a ListaMedici text (separated by ";"), first to last.
std::vector<std::string> SplitDoctors(const std::string& lista_medici);

// Every category of a ListaOpzioni text, blanks around each taken off,
// joined by ";": the option list that Converti gets by default.
std::string DefaultOptions(const std::string& lista_opzioni);

// A warning naming the elements of an option list (split at ";") that match
// no category of lista_opzioni (compared without regard to case, blanks
// counting), with the list of categories; empty when every element matches.
// Empty elements are passed over.
std::string UnmatchedOptions(const std::string& option_list, const std::string& lista_opzioni);

// The option list of --categories: names of categories as lista_opzioni
// gives them, separated by ";" or ",", blanks around a name and case
// ignored, joined by ";" in the order given and spelt as lista_opzioni
// spells them. Raises std::runtime_error naming an unknown name with the
// closest names of the list, or for a text that names none.
std::string CategoryOptions(const std::string& categories, const std::string& lista_opzioni);

// The members of --utente: a JSON object whose members are texts (numbers
// and booleans are taken as their JSON text). Raises std::runtime_error for
// anything else.
std::map<std::string, std::string> ParseUtente(const std::string& json);

// The doctor that utente describes when nothing else is given.
std::map<std::string, std::string> DefaultUtente();

struct ConvertOptions {
  std::string conn;                                  // connection text, as given to Test
  std::string archive;                               // SQLite file to write
  std::optional<std::string> categories;             // --categories: names, to CategoryOptions
  std::optional<std::string> options;                // default: every category of ListaOpzioni joined by ";"
  std::optional<std::string> medico;                 // default: the first doctor of the list
  std::string from, to;                              // FiltroDa, FiltroA
  std::string trace;                                 // trace file, empty for none
  std::string icd9_csv, farmaci_csv, esenzioni_csv;  // default: the catalogues in data_dir
  std::string province_csv;                          // default: province.csv in data_dir
  std::string data_dir;                              // where the default catalogues lie
  std::map<std::string, std::string> utente;         // text members of utente, over DefaultUtente()
  std::string tempdir;            // overrides utente's tempdir; empty: a new temporary folder, removed at the end
  std::vector<std::string> reports;  // the report's files, written after the run: no temporary folder may hold them
  std::vector<std::string> fail;  // "MEMBER@N" or "Obj.MEMBER@N"
  bool overwrite = false;   // replace an archive and a trace of an earlier run
  bool progress = false;    // draw a progress bar on standard error
  bool progress_lines = false;  // write a line at each tenth of the run on standard error (a log)
  // Counts the source's patients of a connection text, for the progress;
  // asked once Test gave true (the databases are then attached anyway).
  // Nullopt, or no function, leaves the count out.
  std::function<std::optional<int64_t>(const std::string& conn)> count_source_patients;
  std::function<void(const std::string&)> warn;  // told each warning as it arises
  // Told each leftover of a killed run that the run removed (or couldn't)
  // from the system's temporary folders and the folders of its files,
  // before it starts.
  std::function<void(const Removal&)> leftover_removed;
  int stop_at_patient = 0;  // >0: Stop is set in the UpdateProgress of that patient (counted from 1), as a Ctrl-C would
};

// A failure that the plug-in raised out of Test or Converti.
struct PluginFailure {
  int32_t number = 0;
  std::string description;
};

struct ConvertOutcome {
  bool test_result = false;
  bool result = false;  // Converti's result (false if Test gave false)
  std::string last_error;
  std::string lista_medici;
  std::string opening_cause;  // as TestOutcome's
  std::optional<PluginFailure> raised;               // Test or Converti raised instead of answering
  std::map<std::string, int64_t> records_per_store;  // every Salva, by store
  int patients_taken = 0;    // the patient rows the driver took (lines that asked DaiPaziente)
  int patients_refused = 0;  // of those, the ones DaiPaziente gave no patient for
  int patients_ok = 0, patients_err = 0;
  int64_t files = 0, file_bytes = 0;
  double seconds = 0;
  std::string write_failure;          // why the archive or trace couldn't be written; the run stopped there
  std::vector<std::string> warnings;  // what a person would want to know: unmatched options, unused --fail, ...
  bool archived = false;  // this run's runs row was written: the archive is this run's
  // The run took no patient because Test gave false or the run failed
  // first: the archive and the trace it made were removed (archived is
  // false), and what they would replace stays as it was.
  bool removed_empty = false;
  // UpdateProgress told the plug-in to stop (Ctrl-C, or a write failure)
  // before the last row of the source was taken.
  bool stopped = false;
  // When each line of the log opened and received its last message, in
  // seconds from the start of the run (seconds is its end): for the report.
  std::vector<std::pair<double, double>> line_seconds;
};

// Runs Test and Converti on conversione as the convert command does, filing
// into a new archive. Raises std::runtime_error, naming the cause, for
// unusable arguments (see OutputFiles::Check; a temporary folder that can't
// be used, an unreadable catalogue, a bad --fail), and then nothing is
// written. When the archive or the trace can't be written once the run is
// under way, the run stops after the patient under way and write_failure
// says why.
ConvertOutcome Convert(const host::ObjectRef& conversione, const ConvertOptions& options);

// The first Ctrl-C: asks the run under way, or the next one to start, to
// stop after its patient. Safe to call from a signal handler.
void RequestStop();

// The second: ends the run under way at once, if any. The patient under way
// is taken back, the archive is closed with every patient committed before
// it (runs.ended stays unset), and put in place. Called from another thread
// than the run's, which must not go on afterwards: the program ends next.
void EndRunNow();

}  // namespace refhost
