#include "host/object.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"

namespace cnv {

// The middle of every prescription header, in the host's order: the
// prescribing doctor's members and the electronic prescription's numbers stay
// empty, the patient's come from the patient object as they stand now.
void clsAmbulor::ImpostaMedicoEPaziente(host::Value& ricetta, host::Value& paziente) {
  host::Set(ricetta, "MedicoCAP", "");
  host::Set(ricetta, "MedicoCitta", "");
  host::Set(ricetta, "MedicoCodiceFiscale", "");
  host::Set(ricetta, "MedicoCodiceRegionale", "");
  host::Set(ricetta, "MedicoCodiceRegioneASL", "");
  host::Set(ricetta, "MedicoCognome", "");
  host::Set(ricetta, "MedicoIndirizzo", "");
  host::Set(ricetta, "MedicoNome", "");
  host::Set(ricetta, "MedicoProvincia", "");
  host::Set(ricetta, "MedicoRegione", "");
  host::Set(ricetta, "MedicoTelefono", "");
  host::Set(ricetta, "NRE", "");
  host::Set(ricetta, "IUP", "");
  host::Set(ricetta, "PazienteCAP", TextOf(host::Get(paziente, "CAP")));
  host::Set(ricetta, "PazienteCitta", TextOf(host::Get(paziente, "Citta")));
  host::Set(ricetta, "PazienteCodiceFiscale", TextOf(host::Get(paziente, "CodiceFiscale")));
  host::Set(ricetta, "PazienteCognome", TextOf(host::Get(paziente, "cognome")));
  host::Set(ricetta, "PazienteDataNascita", DateText(host::Get(paziente, "DataNascita")));
  host::Set(ricetta, "PazienteIndirizzo", TextOf(host::Get(paziente, "Indirizzo")));
  host::Set(ricetta, "PazienteLuogoNascita", TextOf(host::Get(paziente, "LuogoNascita")));
  host::Set(ricetta, "PazienteNome", TextOf(host::Get(paziente, "nome")));
  host::Set(ricetta, "PazienteProvincia", TextOf(host::Get(paziente, "Provincia")));
  host::Set(ricetta, "PazienteSesso", TextOf(host::Get(paziente, "Sesso")));
  host::Set(ricetta, "PazienteTipo", TextOf(host::Get(paziente, "TipoPaziente")));
  host::Set(ricetta, "Priorita", "");
}

}  // namespace cnv
