#include "converters/documents/filing.h"
#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// The therapeutic plans of PIANOTERAP as TerapieCroniche, linked to the
// problem of the same description (so "diagnosi" must have run before) and
// to the plan's scan in SCANSIONI, filed first. A plan without a date of
// drafting gives no record, though its scan stays filed. A Null scan or a
// name that can't be written ends the converter in its trap.
bool clsAmbulor::ConvertiPianiTerapeutici(const std::string& cod_cart, host::Value& paziente) {
  bool risultato = false;
  try {
    ImpostaCartellaTemporanea();
    filing::TempFolder cartella(path_ambulor_);
    source::Recordset rs;
    rs.Open("SELECT * from PIANOTERAP where CodCart = (?)", {cod_cart}, conn_user_);
    for (; !rs.Eof(); rs.MoveNext()) {
      host::Value id = "";
      host::Value id_problema;
      host::Value id_rif1;
      CercaProblema(paziente, rs.Field("Diagnosi"), id_problema, id_rif1);

      if (!TextOf(rs.Field("COD_SCAN")).empty()) {
        source::Recordset scansione;
        scansione.Open("SELECT * from SCANSIONI where CODESAME = (?)", {rs.QueryText("CODPIANO")}, conn_media_);
        if (!scansione.Eof()) {
          const host::Value contenuto = filing::RequiredBytes(scansione.Bytes("bindata"));
          const std::vector<uint8_t>& bytes = contenuto.bytes();
          if (bytes.size() >= 4) {
            std::string nome = TextOf(scansione.Field("Titolo"));
            if (host::text::Trim(nome).empty()) nome = "Piano Terapeutico";
            nome = filing::CleanName(nome);
            const std::string file = nome + "." + TextOf(scansione.Field("Settings"));
            filing::File(cartella, paziente, id, nome, file, bytes);
            filing::Killfile(cartella, file);
          }
        }
        scansione.Close();
      }

      if (!rs.Field("DataRedaz").is_null()) {
        const std::string scadenza = DateText(rs.Field("Scadenza"));
        host::Call(host::Get(paziente, "TerapieCroniche"), "Salva",
                   {"",
                    DateText(rs.Field("DataRedaz")),
                    TextOf(rs.Field("COD_AIC")),
                    TextOf(rs.Field("Farmaco")),
                    host::Value::Null(),
                    TextOf(id_problema),
                    TextOf(rs.Field("Diagnosi")),
                    host::Value::Bool(false),
                    host::Value::I16(2),
                    "",
                    TextOf(rs.Field("NOTA_AIFA")),
                    TextOf(rs.Field("Posolog")),
                    "",
                    TextOf(rs.Field("Medico")),
                    "",
                    host::Value::I16(0),
                    host::Value::I16(0),
                    host::Value::I16(0),
                    scadenza,
                    scadenza,
                    host::Value::I16(0),
                    TextOf(id),
                    host::Value::I16(0)});
      }
    }
    rs.Close();
    risultato = true;
  } catch (...) {
    FailureTail(paziente, " - Piani Terapeutici");
  }
  return risultato;
}

}  // namespace cnv
