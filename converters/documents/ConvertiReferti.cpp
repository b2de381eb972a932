#include <cmath>

#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {
namespace {

// Blanks cut from both ends, then the first 255 characters.
std::string Breve(const std::string& testo) { return host::text::Left(host::text::Trim(testo), 255); }

// The kind of exam; a Null is no kind (-1).
double TipoEsame(const host::Value& tipo) { return tipo.is_null() ? -1 : NumberOf(tipo); }

// The report's Record as a 32-bit integer, rounded as a conversion to Long
// rounds; Null can't be one.
int32_t RecordReferto(const host::Value& record) {
  if (record.is_null()) host::failures::Raise(host::failures::kInvalidUseOfNull);
  if (record.type() == host::Type::I16 || record.type() == host::Type::I32) return record.integer();
  const double numero = std::nearbyint(NumberOf(record));
  if (numero < -2147483648.0 || numero > 2147483647.0) host::failures::Raise(host::failures::kOverflow);
  return static_cast<int32_t>(numero);
}

}  // namespace

// The reports of REFERTI, each with the first exam of its code: Tipo 1 and 4
// go to RefertiEsami, 5 to Ricoveri (with the references of the exam's
// images), any other kind or none to RefertiVisite, Tipo 2 and 3 after a
// visit prescription. The exam's images are filed in every case. A report
// whose code finds no exam gives nothing.
bool clsAmbulor::ConvertiReferti(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("SELECT * from REFERTI where CodCart = (?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      std::string cod_esame;
      host::Value lista_id = "";
      const host::Value referto = rs.Field("Testo");
      const std::string testo_referto = TextOf(referto);

      source::Recordset esami;
      esami.Open("SELECT * from ESAMI where CODESAME = ?", {rs.QueryText("CODESAME")}, conn_user_);
      if (!esami.Eof()) {
        const std::string data = esami.Field("Data").is_null() ? "01/01/2012" : DateText(esami.Field("Data"));
        cod_esame = esami.QueryText("CODESAME");
        const host::Value testo_esame = esami.Field("Testo");
        const double tipo = TipoEsame(esami.Field("Tipo"));

        if (tipo == 1 || tipo == 4) {
          AllegaMediaEsame(paziente, cod_esame, lista_id);
          host::Call(host::Get(paziente, "RefertiEsami"), "Salva",
                     {"", "", data, data, "", Breve(TextOf(testo_esame)), host::Value::I16(0),
                      referto.is_null() ? host::Value::Null() : host::Value(Breve(testo_referto)), "", "", "", "",
                      host::Value::Bool(false), host::Value::Bool(false), "", "", "", "", "", "", "", "", "",
                      Breve(TextOf(testo_esame)), "Conversione", ""});
        } else if (tipo == 5) {
          AllegaMediaEsame(paziente, cod_esame, lista_id);
          host::Call(host::Get(paziente, "Ricoveri"), "Salva",
                     {"", "", data, data, testo_referto, testo_referto, "", TextOf(esami.Field("Indicaz")), "", "",
                      "", "", host::Arg::Ref(lista_id), host::Value::Bool(false), ""});
        } else {
          if (tipo == 2 || tipo == 3) ConvertiRicettaVisita(paziente, RecordReferto(rs.Field("Record")));
          AllegaMediaEsame(paziente, cod_esame, lista_id);
          host::Call(host::Get(paziente, "RefertiVisite"), "Salva",
                     {"", "", "",
                      testo_esame.is_null() ? host::Value::Null() : host::Value(host::text::Trim(TextOf(testo_esame))),
                      data, data, host::Value::I16(1), Breve(testo_referto), Breve(testo_referto), "", "", "", "",
                      Breve(TextOf(testo_esame)), "Conversione"});
        }
      }
      esami.Close();
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Referti");
    return false;
  }
}

}  // namespace cnv
