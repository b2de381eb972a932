#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// Complete measurements of BIOMETRIC (weight, height and the stored index,
// none of them Null or 0) into BMI, unchanged; no date fallback.
bool clsAmbulor::ConvertiBMI(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("SELECT * from BIOMETRIC where CodCart = (?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      if (rs.Field("Peso").is_null() || rs.Field("Statura").is_null() || rs.Field("BMI").is_null()) continue;
      if (NumberOf(rs.Field("Peso")) == 0 || NumberOf(rs.Field("Statura")) == 0 || NumberOf(rs.Field("BMI")) == 0)
        continue;
      std::string nota = TextOf(rs.Field("Note"));
      host::Call(host::Get(paziente, "BMI"), "Salva",
                 {"", DateText(rs.Field("Data")), NumberOf(rs.Field("Peso")), NumberOf(rs.Field("Statura")),
                  NumberOf(rs.Field("BMI")), host::Value::I16(0), host::text::Length(nota) > 12 ? nota : "", "", "",
                  ""});
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - BMI");
    return false;
  }
}

}  // namespace cnv
