#include <sys/stat.h>

#include <cerrno>

#include "converters/documents/filing.h"
#include "host/object.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"

namespace cnv {

// The folder for temporary files is utente's tempdir. When nothing of that
// name exists it is made, one level: a missing parent is a failure (76).
void clsAmbulor::ImpostaCartellaTemporanea() {
  path_ambulor_ = TextOf(host::Get(host::Get(InterfaceCorrente(), "utente"), "tempdir"));
  if (path_ambulor_.find('\0') != std::string::npos)
    throw host::Failure(filing::kBadFileName, "Nome o numero di file non valido");
  struct stat st {};
  if (lstat(path_ambulor_.c_str(), &st) == 0) return;
  if (mkdir(path_ambulor_.c_str(), 0700) == 0 || errno == EEXIST) return;
  if (errno == ENOENT || errno == ENOTDIR) throw host::Failure(filing::kPathNotFound, "Impossibile trovare il percorso");
  throw host::Failure(filing::kPathAccessError, "Errore di accesso al percorso/file");
}

}  // namespace cnv
