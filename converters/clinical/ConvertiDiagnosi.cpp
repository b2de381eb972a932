#include "host/failure.h"
#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// Every row of VISITE as a problem. A title "description - (code)" whose code
// the ICD9 archive knows gives the archive's ID and description; any other
// title goes whole. Open problems (termine Null) get state 2, closed ones 4.
bool clsAmbulor::ConvertiDiagnosi(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("Select * from VISITE Where (CodCart= ?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      std::string data = DateText(rs.Field("Inizio"), "01/01/2014");
      host::Value stato = host::Value::I32(rs.Field("termine").is_null() ? 2 : 4);

      // The code is all that follows the first "- (", less the title's last
      // character, whichever it is; a title that ends right after the marker
      // asks for a cut of negative length.
      std::string titolo = TextOf(rs.Field("Titolo"));
      host::Value voce;
      size_t marker = titolo.find("- (");
      if (marker != std::string::npos) {
        size_t titolo_length = host::text::Length(titolo);
        size_t code_start = host::text::Length(titolo.substr(0, marker)) + 3;
        if (titolo_length <= code_start) host::failures::Raise(host::failures::kInvalidArgument);
        std::string code = host::text::Left(titolo.substr(marker + 3), titolo_length - code_start - 1);
        voce = host::Call(host::Get(host::Get(InterfaceCorrente(), "archivio"), "ICD9"), "Carica", {code});
      }

      const host::Value testo = host::TextValueOf(rs.Field("Testo"));  // two arguments, one text
      if (voce.is_object()) {
        host::Call(host::Get(paziente, "Problemi"), "Salva",
                   {"", data, TextOf(host::Get(voce, "ID")), TextOf(host::Get(voce, "Descrizione")),
                    testo, testo, host::Arg::Ref(stato), host::Value::I16(0),
                    "", ""});
      } else {
        host::Call(host::Get(paziente, "Problemi"), "Salva",
                   {"", data, "", titolo, testo, testo, host::Arg::Ref(stato),
                    host::Value::I16(0), "", ""});
      }
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Diagnosi");
    return false;
  }
}

}  // namespace cnv
