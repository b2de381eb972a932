#include <optional>

#include "host/failure.h"
#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// Drug rows of TERAPIE, by date: the rows of one calendar day make one
// prescription (Tipo 1) and each row one item. The last day starts as today,
// so the first rows dated today open nothing; a row without a drug text is
// passed over, and one with a text but no date ends the converter.
bool clsAmbulor::ConvertiPrescrizioniFarmaceutiche(const std::string& cod_cart, host::Value& paziente) {
  try {
    const host::Date oggi = Today();
    host::Date ultimo_giorno{oggi.year, oggi.month, oggi.day};
    host::Value ricetta;
    source::Recordset rs;
    rs.Open("SELECT * from TERAPIE where CodCart = (?) order by Data", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      if (host::text::Trim(TextOf(rs.Field("Testo"))).empty()) continue;
      std::string data = DateText(rs.Field("Data"));
      if (data != DateText(ultimo_giorno)) {
        std::optional<host::Date> giorno = host::DateOf(data);
        if (!giorno) host::failures::Raise(host::failures::kTypeMismatch);
        ultimo_giorno = *giorno;
        ricetta = host::Call(host::Get(InterfaceCorrente(), "framework"), "NewRicetta");
        host::Set(ricetta, "Data", DateText(ultimo_giorno));
        host::Set(ricetta, "IDDiagnosi", "");
        host::Set(ricetta, "CodiceEsenzione", TextOf(rs.Field("Esenzione")));
        host::Set(ricetta, "IDEsenzione", "");
        host::Set(ricetta, "DescrizioneEsenzione", "");
        host::Set(ricetta, "ICD9", "");
        ImpostaMedicoEPaziente(ricetta, paziente);
        host::Set(ricetta, "Tipo", host::Value::I16(1));
        host::Set(ricetta, "TipoStampa", host::Value::I16(TextOf(rs.Field("Classe")) == "A" ? 1 : 2));
        host::Set(ricetta, "TipoRicetta", "");
        host::Set(ricetta, "StampaDiagnosi", host::Value::Bool(false));
        host::Set(ricetta, "QtTotale", host::Value::I16(1));
        host::Call(host::Get(paziente, "Ricette"), "Salva", {ricetta});
      }
      if (!ricetta.is_object()) continue;
      host::Value item = host::Call(host::Get(InterfaceCorrente(), "framework"), "NewItemRicetta");
      host::Set(item, "Tipo", host::Get(ricetta, "Tipo"));
      host::Set(item, "TipoFarmaco", "");
      host::Set(item, "IDRif", TextOf(rs.Field("CodTer")));
      host::Set(item, "TipoFarmaco", TipoFarmacoDaCodice(TextOf(host::Get(item, "IDRif"))));
      host::Set(item, "Descrizione", host::text::Upper(TextOf(rs.Field("Testo"))));
      host::Set(item, "IDDiagnosi", "");
      host::Set(item, "Diagnosi", "");
      host::Set(item, "Qt", NumberOf(rs.Field("NumPezzi")));
      host::Set(item, "Classe", "");
      host::Set(item, "NotaAifa", TextOf(rs.Field("NOTA")));
      host::Set(item, "Posologia", TextOf(rs.Field("Indicaz")));
      host::Set(item, "CodiceEsenzione", TextOf(rs.Field("Esenzione")));
      host::Set(item, "CodiceATC", TextOf(rs.Field("CodATC")));
      if (!rs.Field("Importo").is_null()) host::Set(item, "PREZZO", TextOf(rs.Field("Importo")));
      host::Set(item, "StampaDiagnosi", host::Value::Bool(false));
      host::Set(item, "NonSostituibile", host::Value::Bool(false));
      host::Set(item, "Ripetibile", host::Value::Bool(false));
      host::Set(item, "CodiceBranca", "");
      host::Call(host::Get(paziente, "PrescrizioneFarmaci"), "Salva", {item, ricetta});
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Prescrizioni Farmaceutiche");
    return false;
  }
}

}  // namespace cnv
