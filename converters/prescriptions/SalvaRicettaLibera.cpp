#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// The header of a free prescription (Tipo 4): diagnosis and exemption code of
// the row, the exemption code trimmed here but not in the items.
void clsAmbulor::SalvaRicettaLibera(host::Value& paziente, host::Value& ricetta, const host::Date& data,
                                    const source::Recordset& rs) {
  host::Set(ricetta, "Data", DateText(data));
  host::Set(ricetta, "IDDiagnosi", "");
  host::Set(ricetta, "Diagnosi", TextOf(rs.Field("Indic1")));
  host::Set(ricetta, "CodiceEsenzione", host::text::Trim(TextOf(rs.Field("CodEsenz"))));
  host::Set(ricetta, "IDEsenzione", "");
  host::Set(ricetta, "DescrizioneEsenzione", "");
  ImpostaMedicoEPaziente(ricetta, paziente);
  host::Set(ricetta, "Tipo", host::Value::I16(4));
  host::Set(ricetta, "TipoStampa", host::Value::I16(2));
  host::Call(host::Get(paziente, "Ricette"), "Salva", {ricetta});
}

}  // namespace cnv
