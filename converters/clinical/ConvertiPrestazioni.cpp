#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// Services of PRESTAZIONI, each linked to the patient's problem of the same
// description and saved in the store that its wording selects: home visits,
// integrated or programmed home care, or any other service.
bool clsAmbulor::ConvertiPrestazioni(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("SELECT * from PRESTAZIONI where CodCart = (?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      host::Value id_problema, id_rif1;
      CercaProblema(paziente, TextOf(rs.Field("Diagnosi")), id_problema, id_rif1);

      std::string prestazione = TextOf(rs.Field("Prestazione"));
      std::string data = DateText(rs.Field("Data"));
      std::string diagnosi = TextOf(rs.Field("Diagnosi"));
      std::string annotazioni = TextOf(rs.Field("Annotazioni"));
      if (prestazione.find("VISITA DOMICILIARE") != std::string::npos) {
        host::Call(host::Get(paziente, "VisiteAmbDom"), "Salva",
                   {"", data, host::Arg::Ref(id_problema), diagnosi, annotazioni, annotazioni, "",
                    host::Value::I16(1)});
      } else if (prestazione.find("VISITA IN ASSISTENZA DOMICILIARE INTEGRATA") != std::string::npos) {
        host::Call(host::Get(paziente, "ADI"), "Salva",
                   {"", "", "", "", host::Value::I16(0), host::Arg::Ref(id_problema), diagnosi, data, annotazioni,
                    annotazioni});
      } else if (prestazione.find("VISITA IN ASSISTENZA DOMICILIARE PROGRAMMATA") != std::string::npos) {
        host::Call(host::Get(paziente, "ADP"), "Salva",
                   {"", "", "", "", host::Value::I16(0), host::Arg::Ref(id_problema), diagnosi, data, annotazioni,
                    annotazioni});
      } else {
        host::Call(host::Get(paziente, "PPIP"), "Salva",
                   {"", data, TextOf(id_problema), diagnosi, prestazione, "", "", host::Value::I16(1), "", "", "",
                    annotazioni, annotazioni});
      }
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Prestazioni");
    return false;
  }
}

}  // namespace cnv
