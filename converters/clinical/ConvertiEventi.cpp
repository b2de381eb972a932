#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// Rows of VISITE into Eventi, every row, with title and text trimmed.
bool clsAmbulor::ConvertiEventi(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("SELECT * from VISITE where CodCart = (?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      const host::Value testo(host::text::Trim(TextOf(rs.Field("Testo"))));  // two arguments, one text
      host::Call(host::Get(paziente, "Eventi"), "Salva",
                 {"", DateText(rs.Field("Inizio"), "01/01/2012"), "", "", host::text::Trim(TextOf(rs.Field("Titolo"))),
                  testo, testo, ""});
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Eventi");
    return false;
  }
}

}  // namespace cnv
