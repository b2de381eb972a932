#include "host/object.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"

namespace cnv {

void clsAmbulor::CercaProblema(host::Value& paziente, const host::Value& diagnosi, host::Value& id_problema,
                               host::Value& id_rif1) {
  id_problema = "";
  id_rif1 = "";
  std::string cercata = TextOf(diagnosi);
  for (const host::Value& problema : host::Items(host::Get(host::Get(paziente, "Problemi"), "Lista"))) {
    if (TextOf(host::Get(problema, "Descrizione")) != cercata) continue;
    id_problema = TextOf(host::Get(problema, "ID"));
    id_rif1 = TextOf(host::Get(problema, "idrif1"));
    return;
  }
}

}  // namespace cnv
