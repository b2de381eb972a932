#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// Blood pressure readings of BIOMETRIC into Pressione. A row without both
// pressures holds no reading; a reading without date goes with an empty one.
bool clsAmbulor::ConvertiPressioneArteriosa(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("SELECT * from BIOMETRIC where CodCart = (?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      if (rs.Field("PADIST").is_null() || rs.Field("PASIST").is_null()) continue;
      std::string nota = TextOf(rs.Field("Note"));
      host::Call(host::Get(paziente, "Pressione"), "Salva",
                 {"", DateText(rs.Field("Data")), NumberOf(rs.Field("PADIST")), NumberOf(rs.Field("PASIST")),
                  host::text::Length(nota) > 12 ? nota : "", "", "", ""});
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Pressione Arteriosa");
    return false;
  }
}

}  // namespace cnv
