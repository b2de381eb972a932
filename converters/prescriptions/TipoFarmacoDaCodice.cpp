#include "host/object.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"

namespace cnv {

// The drug archive is asked only for a code that isn't empty, and gets it by
// reference, as the host's Carica takes it.
std::string clsAmbulor::TipoFarmacoDaCodice(const std::string& codice) {
  if (codice.empty()) return "";
  host::Value codice_value = codice;
  host::Value farmaco = host::Call(host::Get(host::Get(InterfaceCorrente(), "archivio"), "Farmaci"), "Carica",
                                   {host::Arg::Ref(codice_value)});
  if (!farmaco.is_object()) return "";
  return TextOf(host::Get(farmaco, "Tipo"));
}

}  // namespace cnv
