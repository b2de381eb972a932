#include <optional>

#include "host/failure.h"
#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// Laboratory requests of ESAMI (tipo 1 or 4), by date: the rows of one
// calendar day make one prescription (Tipo 2) and each row one item. The last
// day starts as today, so the first rows dated today open nothing; a row
// without a date is passed over.
bool clsAmbulor::ConvertiPrescrizioniEsami(const std::string& cod_cart, host::Value& paziente) {
  try {
    const host::Date oggi = Today();
    host::Date ultimo_giorno{oggi.year, oggi.month, oggi.day};
    host::Value ricetta;
    source::Recordset rs;
    rs.Open("SELECT * from ESAMI where ((tipo=1) or (tipo=4)) and CodCart = (?) order by Data", {cod_cart},
            conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      if (rs.Field("Data").is_null()) continue;
      std::string data = DateText(rs.Field("Data"));
      if (data != DateText(ultimo_giorno)) {
        std::optional<host::Date> giorno = host::DateOf(data);
        if (!giorno) host::failures::Raise(host::failures::kTypeMismatch);
        ultimo_giorno = *giorno;
        ricetta = host::Call(host::Get(InterfaceCorrente(), "framework"), "NewRicetta");
        host::Set(ricetta, "Data", DateText(ultimo_giorno));
        host::Set(ricetta, "IDDiagnosi", "");
        host::Set(ricetta, "Diagnosi", "");
        host::Set(ricetta, "CodiceEsenzione", TextOf(rs.Field("Esenzione")));
        host::Set(ricetta, "IDEsenzione", "");
        host::Set(ricetta, "DescrizioneEsenzione", "");
        ImpostaMedicoEPaziente(ricetta, paziente);
        host::Set(ricetta, "Tipo", host::Value::I16(2));
        host::Set(ricetta, "TipoStampa", host::Value::I16(2));
        host::Call(host::Get(paziente, "Ricette"), "Salva", {ricetta});
      }
      if (!ricetta.is_object()) continue;
      host::Value item = host::Call(host::Get(InterfaceCorrente(), "framework"), "NewItemRicetta");
      host::Set(item, "Tipo", host::Get(ricetta, "Tipo"));
      host::Set(item, "IDDiagnosi", "");
      host::Set(item, "Descrizione", host::text::Upper(RaddoppiaApici(TextOf(rs.Field("Testo")))));
      host::Set(item, "Qt", host::Value::I16(1));
      host::Set(item, "CodiceEsenzione", TextOf(rs.Field("Esenzione")));
      host::Set(item, "CodiceDMR", TextOf(rs.Field("CodRif")));
      host::Call(host::Get(paziente, "PrescrizioneEsami"), "Salva", {item, ricetta});
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Prescrizioni Esami Laboratorio");
    return false;
  }
}

}  // namespace cnv
