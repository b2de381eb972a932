#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"

namespace cnv {

// One line of a free prescription, saved as an item that takes its Tipo from
// the prescription it joins.
void clsAmbulor::SalvaVoceRicettaLibera(host::Value& paziente, host::Value& ricetta, int32_t qt,
                                        const std::string& testo, const std::string& cod_esenz) {
  host::Value item = host::Call(host::Get(InterfaceCorrente(), "framework"), "NewItemRicetta");
  host::Set(item, "Tipo", host::Get(ricetta, "Tipo"));
  host::Set(item, "IDDiagnosi", "");
  host::Set(item, "Descrizione", host::text::Trim(host::text::Upper(testo)));
  host::Set(item, "Qt", host::Value::I32(qt));
  host::Set(item, "CodiceEsenzione", cod_esenz);
  host::Call(host::Get(paziente, "PrescrizioneLibera"), "Salva", {item, ricetta});
}

}  // namespace cnv
