#include <optional>

#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {
namespace {

// The column's day when its text reads as a date, else 01/01/2012; a time
// of day falls away.
host::Date DataCertificato(const host::Value& column) {
  std::optional<host::Date> data = host::DateOf(column);
  if (!data) return host::Date{2012, 1, 1};
  return host::Date{data->year, data->month, data->day};
}

// One item of the certificate text: the code, the value at once, a tab.
void Voce(std::string& testo, const char* codice, const std::string& valore) {
  testo += codice;
  testo += valore;
  testo += '\t';
}

std::string Flag(const host::Value& column) { return TextOf(column) == "X" ? "1" : "0"; }

}  // namespace

// The INPS certificates of CERTINPS: each row with a diagnosis becomes one
// record of CertificatiINPS, whose certificate text carries 24 coded items
// from the row, the doctor (utente) and the patient, in a fixed order that
// the codes don't follow.
bool clsAmbulor::ConvertiCertificatiINPS(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("SELECT * from CERTINPS where CodCart = (?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      const host::Date inizio = DataCertificato(rs.Field("DATAINI"));
      const host::Date termine = DataCertificato(rs.Field("DATATER"));
      const host::Date emissione = DataCertificato(rs.Field("DATAEMI"));
      if (TextOf(rs.Field("Diag")).empty()) continue;

      const host::Value utente = host::Get(InterfaceCorrente(), "utente");
      std::string testo;
      Voce(testo, "T038", host::text::Upper(RaddoppiaApici(TextOf(rs.Field("Diag")))));
      Voce(testo, "T037", "");
      Voce(testo, "D000", host::FormatDate(inizio));
      Voce(testo, "D001", host::FormatDate(termine));
      Voce(testo, "T019", host::FormatDate(emissione));
      Voce(testo, "C009", Flag(rs.Field("Inizio")));
      Voce(testo, "C010", Flag(rs.Field("Continua")));
      Voce(testo, "C011", Flag(rs.Field("Ricaduta")));
      Voce(testo, "T020", TextOf(host::Get(utente, "Citta")));
      Voce(testo, "T021", TextOf(host::Get(utente, "nomecompleto")));
      Voce(testo, "T000", TextOf(host::Get(utente, "CodiceFiscale")));
      Voce(testo, "T035", TextOf(host::Get(utente, "CodiceRegione")));
      Voce(testo, "T036", TextOf(host::Get(utente, "CodiceASL")));
      Voce(testo, "T039", TextOf(host::Get(paziente, "cognome")));
      Voce(testo, "T040", TextOf(host::Get(paziente, "nome")));
      Voce(testo, "T041", TextOf(host::Get(paziente, "CodiceFiscale")));
      Voce(testo, "T042", TextOf(host::Get(paziente, "DataNascita")));
      Voce(testo, "T043", TextOf(host::Get(paziente, "LuogoNascita")));
      Voce(testo, "T044", TextOf(host::Get(paziente, "ProvinciaNascita")));
      Voce(testo, "T045", TextOf(host::Get(paziente, "Indirizzo")));
      Voce(testo, "T046", TextOf(host::Get(paziente, "NumeroCivico")));
      Voce(testo, "T049", TextOf(host::Get(paziente, "Citta")));
      Voce(testo, "T048", TextOf(host::Get(paziente, "CAP")));
      Voce(testo, "T047", TextOf(host::Get(paziente, "Provincia")));

      host::Value data_termine = termine;
      host::Value certificato = testo;
      host::Call(host::Get(paziente, "CertificatiINPS"), "Salva",
                 {"", host::FormatDate(emissione), host::Value::I16(0), rs.Field("Diag"), "",
                  TextOf(rs.Field("SEND_ID")), "", "", "", host::Arg::Ref(data_termine),
                  host::Arg::Ref(certificato)});
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Certificati INPS");
    return false;
  }
}

}  // namespace cnv
