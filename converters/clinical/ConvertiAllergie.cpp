#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// Reactions of REAZIONI into Allergie: one record with the row's text and, when
// the drug archive knows the row's drug code, a second with the drug's name.
bool clsAmbulor::ConvertiAllergie(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("SELECT * from REAZIONI where CodCart = (?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      std::string data = DateText(rs.Field("Data"), "01/01/2012");
      host::Call(host::Get(paziente, "Allergie"), "Salva",
                 {"", data, TextOf(rs.Field("Testo")), "", "", host::Value::I16(0), ""});
      if (rs.Field("CodTer").is_null()) continue;
      host::Value farmaco = host::Call(host::Get(host::Get(InterfaceCorrente(), "archivio"), "Farmaci"), "Carica",
                                       {host::text::Trim(TextOf(rs.Field("CodTer")))});
      if (!farmaco.is_object()) continue;
      host::Call(host::Get(paziente, "Allergie"), "Salva",
                 {"", data, TextOf(host::Get(farmaco, "Descrizione")), "", "", host::Value::I16(0), ""});
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Allergie");
    return false;
  }
}

}  // namespace cnv
