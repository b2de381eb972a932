#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include "host/failure.h"
#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {
namespace {

// A quantity as a whole number, halves to the even neighbour; overflow (6)
// outside the 32-bit range.
int32_t WholeQuantity(double quantity) {
  double whole = std::nearbyint(quantity);
  if (whole < std::numeric_limits<int32_t>::min() || whole > std::numeric_limits<int32_t>::max())
    host::failures::Raise(host::failures::kOverflow);
  return static_cast<int32_t>(whole);
}

}  // namespace

// Free prescriptions of RICETTE: each row one prescription (Tipo 4), saved
// whether or not a line is in use, and each of its eight lines that holds a
// text one item. Line 1 of "." is no line; a quantity of 0 means 1, and a
// Null quantity on a line in use ends the patient's free prescriptions.
bool clsAmbulor::ConvertiPrescrizioniLibere(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("SELECT * from RICETTE where CodCart = (?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      host::Date data{2012, 1, 1};
      if (std::optional<host::Date> emissione = host::DateOf(rs.Field("DATAEMI")))
        data = host::Date{emissione->year, emissione->month, emissione->day};
      host::Value ricetta = host::Call(host::Get(InterfaceCorrente(), "framework"), "NewRicetta");
      SalvaRicettaLibera(paziente, ricetta, data, rs);
      for (int riga = 1; riga <= 8; ++riga) {
        const std::string n = std::to_string(riga);
        std::string testo = host::text::Trim(TextOf(rs.Field("Row_" + n)));
        if (testo.empty() || (riga == 1 && testo == ".")) continue;
        host::Value quantita = rs.Field("Qta_" + n);
        if (quantita.is_null()) host::failures::Raise(host::failures::kInvalidUseOfNull);
        double numero = NumberOf(quantita);
        int32_t qt = numero == 0 ? 1 : WholeQuantity(numero);
        SalvaVoceRicettaLibera(paziente, ricetta, qt, TextOf(rs.Field("Row_" + n)), TextOf(rs.Field("CodEsenz")));
      }
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Prescrizioni Libere");
    return false;
  }
}

}  // namespace cnv
