// The reference host: the host objects that a conversion calls (Interface,
// patients and their stores, archives, framework, utente), the SQLite archive
// they file into, the trace, and the runs of the kairon-convert commands.
// The command line is a thin shell over these; tests use them directly.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/object.h"

namespace refhost {

// A plug-in library loaded with dlopen and its class factory.
class Plugin {
 public:
  // Loads the library and looks up its entry points. Raises
  // std::runtime_error with dlerror's text when it can't.
  explicit Plugin(const std::string& path);
  ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  // A new Conversione, created through DllGetClassObject with its class
  // identity.
  host::ObjectRef CreateConversione();

  // The library's own answer to DllCanUnloadNow (0: no object alive).
  int32_t CanUnloadNow();

 private:
  void* handle_ = nullptr;
};

// The class identity of Conversione.
extern const char* const kConversioneClassId;

struct ConvertOptions {
  std::string conn;                    // connection text, as given to Test
  std::string archive;                 // SQLite file to write
  std::optional<std::string> options;  // default: every category of ListaOpzioni joined by ";"
  std::optional<std::string> medico;   // default: the first doctor of the list
  std::string from, to;                // FiltroDa, FiltroA
  std::string trace;                   // trace file, empty for none
  std::string icd9_csv, farmaci_csv, esenzioni_csv;  // default: data/ catalogues
  std::string data_dir;                // where the default catalogues lie
  std::map<std::string, std::string> utente;  // text members of utente
  std::string tempdir;                 // overrides utente's tempdir; empty: a new temporary folder, removed at the end
  std::vector<std::string> fail;       // "MEMBER@N" or "Obj.MEMBER@N"
  bool overwrite = false;
  bool progress = false;               // draw a progress bar on standard error
};

struct ConvertOutcome {
  bool test_result = false;
  bool result = false;                 // Converti's result (false if Test gave false)
  std::string last_error;
  std::string lista_medici;
  std::map<std::string, int64_t> records_per_store;
  int patients_ok = 0, patients_err = 0;
  int64_t files = 0, file_bytes = 0;
  double seconds = 0;
};

// Runs Test and Converti on conversione as the convert command does, filing
// into a new archive. Raises std::runtime_error for unusable arguments (an
// existing archive without overwrite, an unreadable catalogue, a bad --fail).
ConvertOutcome Convert(const host::ObjectRef& conversione, const ConvertOptions& options);

// Ctrl-C: the first asks the run under way to stop after its patient.
void RequestStop();

}  // namespace refhost
