#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// Visit notes of VISNOTE into VisiteAmbDom, marked 0 as outpatient visits.
bool clsAmbulor::ConvertiVisiteAmbulatoriali(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("SELECT * from VISNOTE where CodCart = (?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      host::Call(host::Get(paziente, "VisiteAmbDom"), "Salva",
                 {"", DateText(rs.Field("Data"), "01/01/2012"), "", "", TextOf(rs.Field("Testo")),
                  TextOf(rs.Field("Testo")), "", host::Value::I16(0)});
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Visite Ambulatoriali");
    return false;
  }
}

}  // namespace cnv
