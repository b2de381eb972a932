#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

using host::text::Left;
using host::text::Trim;
using host::text::Upper;

bool clsAmbulor::ConvertiAnagrafica(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("Select * from PAZIENTI Where (Cod_Cart= ?)", {cod_cart}, conn_user_);
    if (!rs.Eof()) {
      host::Set(paziente, "cognome", Trim(Upper(TextOf(rs.Field("cognome")))));
      host::Set(paziente, "nome", Trim(Upper(TextOf(rs.Field("nome")))));
      host::Set(paziente, "CodiceFiscale", Trim(Upper(TextOf(rs.Field("CodFisc")))));
      host::Set(paziente, "Sesso", Upper(TextOf(rs.Field("Sex"))));
      // The date of birth goes as the column holds it, and only when it is one.
      host::Value data_nascita = rs.Field("DataNat");
      if (host::DateOf(data_nascita)) host::Set(paziente, "DataNascita", data_nascita);
      host::Set(paziente, "LuogoNascita", Upper(Left(TextOf(rs.Field("LuogoNat")), 30)));
      host::Set(paziente, "ProvinciaNascita", Upper(TextOf(rs.Field("PrvNat"))));
      host::Set(paziente, "Tessera", Left(Trim(Upper(TextOf(rs.Field("CodiceSSN")))), 30));
      host::Set(paziente, "Indirizzo", Upper(Trim(TextOf(rs.Field("Indirizzo")))));
      host::Set(paziente, "IndirizzoResidenza", Upper(Trim(TextOf(rs.Field("Indirizzo")))));
      host::Set(paziente, "NumeroCivico", Upper(TextOf(rs.Field("NumCivico"))));
      host::Set(paziente, "NumeroCivicoResidenza", Upper(TextOf(rs.Field("NumCivico"))));
      host::Set(paziente, "Citta", Upper(Left(TextOf(rs.Field("Citta")), 30)));
      host::Set(paziente, "CittaResidenza", Upper(Left(TextOf(rs.Field("Citta")), 30)));
      host::Set(paziente, "CAP", TextOf(rs.Field("CAP")));
      host::Set(paziente, "CAPResidenza", TextOf(rs.Field("CAP")));
      host::Set(paziente, "Nazionalità", TextOf(rs.Field("Nazione")));
      host::Set(paziente, "Telefono", Trim(TextOf(rs.Field("Telefono"))));
      host::Set(paziente, "Cellulare", Trim(TextOf(rs.Field("Recapito"))));
      host::Set(paziente, "Provincia", Upper(TextOf(rs.Field("Prov"))));
      host::Set(paziente, "ProvinciaResidenza", Upper(TextOf(rs.Field("Prov"))));
      host::Set(paziente, "Email", TextOf(rs.Field("Email")));

      // A second address joins the first with " - ", or stands alone.
      if (!TextOf(rs.Field("Email2")).empty()) {
        if (!TextOf(rs.Field("Email")).empty())
          host::Set(paziente, "Email", TextOf(host::Get(paziente, "Email")) + " - ");
        host::Set(paziente, "Email", TextOf(host::Get(paziente, "Email")) + TextOf(rs.Field("Email2")));
      }

      host::Set(paziente, "ASLResidenza",
                host::Call(InterfaceCorrente(), "DaiCodiceRegioneASL",
                           {TextOf(rs.Field("ASL")), TextOf(rs.Field("Prov")), host::Value::Bool(true)}));

      // The relationship with the doctor ends at death, or at the expiry
      // (before the revocation) of the choice; an end that isn't a date
      // leaves the relationship without state.
      std::string fine;
      std::string stato;
      if (!rs.Field("DataDec").is_null()) {
        fine = DateText(rs.Field("DataDec"));
        stato = "DECESSO";
      } else {
        fine = !rs.Field("dataScadenza_T").is_null() ? DateText(rs.Field("dataScadenza_T"))
                                                      : DateText(rs.Field("DataRevoca"));
        if (host::DateOf(host::Value(fine))) stato = "REVOCATO";
      }
      host::Call(host::Get(paziente, "Rapporti"), "Salva",
                 {"", DateText(rs.Field("DataScelta")), fine, "", host::Value::I16(0), stato});
    }
    rs.Close();

    host::Value importato = host::Call(InterfaceCorrente(), "ImportaAnagrafica", {host::Arg::Ref(paziente)});
    return IsTrue(importato);
  } catch (...) {
    FailureTail(paziente, " - Anagrafica");
    return false;
  }
}

}  // namespace cnv
