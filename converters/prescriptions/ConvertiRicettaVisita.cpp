#include <string>

#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// A visit prescription (Tipo 3) of one ESAMI record: its header and its one
// item, whose Tipo stays unset. Only the first row of the query counts; each
// call that finds a dated record saves a new prescription.
void clsAmbulor::ConvertiRicettaVisita(host::Value& paziente, int32_t record) {
  source::Recordset rs;
  rs.Open("SELECT * from ESAMI where (RECORD = ?)", {std::to_string(record)}, conn_user_);
  if (!rs.Eof() && !rs.Field("Data").is_null()) {
    host::Value ricetta = host::Call(host::Get(InterfaceCorrente(), "framework"), "NewRicetta");
    host::Set(ricetta, "Data", DateText(rs.Field("Data")));
    host::Set(ricetta, "IDDiagnosi", "");
    host::Set(ricetta, "Diagnosi", TextOf(rs.Field("Indicaz")));
    host::Set(ricetta, "CodiceEsenzione", TextOf(rs.Field("Esenzione")));
    host::Set(ricetta, "IDEsenzione", "");
    host::Set(ricetta, "DescrizioneEsenzione", "");
    ImpostaMedicoEPaziente(ricetta, paziente);
    host::Set(ricetta, "Tipo", host::Value::I16(3));
    host::Set(ricetta, "TipoStampa", host::Value::I16(2));
    host::Call(host::Get(paziente, "Ricette"), "Salva", {ricetta});

    host::Value item = host::Call(host::Get(InterfaceCorrente(), "framework"), "NewItemRicetta");
    host::Set(item, "IDDiagnosi", "");
    host::Set(item, "Diagnosi", TextOf(rs.Field("Indicaz")));
    host::Set(item, "Descrizione", host::text::Upper(TextOf(rs.Field("Testo"))));
    host::Set(item, "Qt", host::Value::I16(1));
    host::Set(item, "CodiceEsenzione", TextOf(rs.Field("Esenzione")));
    host::Call(host::Get(paziente, "PrescrizioneVisite"), "Salva", {item, ricetta});
  }
  rs.Close();
}

}  // namespace cnv
