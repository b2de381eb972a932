#include <cstdio>
#include <optional>

#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {
namespace {

std::string YearMonthDay(const host::Date& d) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%04d%02d%02d", d.year, d.month, d.day);
  return buf;
}

}  // namespace

// Vaccinations of VACCINI into Vaccinazioni. The recall flag is 1 while the
// recall date is today or later, by the day of the run.
bool clsAmbulor::ConvertiVaccinazioni(const std::string& cod_cart, host::Value& paziente) {
  try {
    source::Recordset rs;
    rs.Open("SELECT * from VACCINI where CodCart = (?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      std::string data = DateText(rs.Field("Data"), "01/01/2012");
      host::Value richiamo = host::Value::I32(0);
      if (std::optional<host::Date> data_richiamo = host::DateOf(rs.Field("DATARICH"))) {
        if (YearMonthDay(Today()) <= YearMonthDay(*data_richiamo)) richiamo = host::Value::I32(1);
      }
      const host::Value note = host::TextValueOf(rs.Field("Note"));  // two arguments, one text
      host::Call(host::Get(paziente, "Vaccinazioni"), "Salva",
                 {"", "", "", data, TextOf(rs.Field("Testo")), "", note, note,
                  "", DateText(rs.Field("DATARICH")), DateText(rs.Field("DATARICH")), host::Arg::Ref(richiamo)});
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Vaccinazioni");
    return false;
  }
}

}  // namespace cnv
