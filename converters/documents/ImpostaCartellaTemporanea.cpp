#include "converters/documents/filing.h"
#include "converters/documents/temp_files.h"
#include "host/object.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"

namespace cnv {

// The folder for temporary files is utente's tempdir. When nothing of that
// name exists it is made, one level: a missing parent is a failure (76).
void clsAmbulor::ImpostaCartellaTemporanea() {
  path_ambulor_ = TextOf(host::Get(host::Get(InterfaceCorrente(), "utente"), "tempdir"));
  if (const auto failure = filing::temp_files::MakeFolder(path_ambulor_)) filing::RaiseFileFailure(*failure);
}

}  // namespace cnv
