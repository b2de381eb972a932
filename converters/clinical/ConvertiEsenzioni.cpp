#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// Exemptions of ESENZIONI, resolved against the host's exemption archive by
// the key Codice or Codice "." COD_ICD1; a key the archive doesn't know
// leaves the row out, silently.
bool clsAmbulor::ConvertiEsenzioni(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("Select * from ESENZIONI Where (CodCart= ?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      std::string emissione = DateText(rs.Field("Emissione"), "01/01/2012");
      std::string chiave = TextOf(rs.Field("Codice"));
      if (!TextOf(rs.Field("COD_ICD1")).empty()) chiave += "." + TextOf(rs.Field("COD_ICD1"));
      host::Value esenzione =
          host::Call(host::Get(host::Get(InterfaceCorrente(), "archivio"), "Esenzioni"), "CaricaCodice", {chiave});
      if (!esenzione.is_object()) continue;
      const host::Value no = host::Value::Bool(false);
      host::Call(host::Get(paziente, "Esenzioni"), "Salva",
                 {"", host::Get(esenzione, "ID"), emissione, TextOf(host::Get(esenzione, "Descrizione")), no,
                  TextOf(host::Get(esenzione, "CodiceFarmaci")), TextOf(host::Get(esenzione, "CodiceEsami")), no, no,
                  no, no, "", DateText(rs.Field("Scadenza")), "", host::Value::I16(1), ""});
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Esenzioni");
    return false;
  }
}

}  // namespace cnv
