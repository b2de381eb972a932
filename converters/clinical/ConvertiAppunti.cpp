#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// Messages of MESSAGES into Appunti, every row, the text whole.
bool clsAmbulor::ConvertiAppunti(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("SELECT * from MESSAGES where CodCart = (?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      // A message may run to megabytes: its text goes as two arguments
      // without a copy.
      const host::Value testo = host::TextValueOf(rs.Field("MESG"));
      host::Call(host::Get(paziente, "Appunti"), "Salva",
                 {"", DateText(rs.Field("Data_Iniz"), "01/01/2012"), host::Value::Bool(false),
                  host::Value::Bool(false), testo, testo, ""});
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Appunti");
    return false;
  }
}

}  // namespace cnv
