#include "converters/documents/filing.h"
#include "converters/documents/gzip_decoder.h"
#include "host/object.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// The RTF documents of MODULI: a gzip stream is decoded and saved as a
// certificate, any other content filed as it is and saved as a marked note.
// The title is the file name as it stands (no default, nothing replaced), so
// a title that isn't one file name fails when a plain file is written, and
// a stream under it is refused by the decoder; no path made of such a title
// reaches the host. The record is saved whatever
// reference the store gave. A Null or 1-byte document is passed over; one of
// 2 bytes has no third byte to look at and fails.
bool clsAmbulor::ConvertiCertificati(const std::string& cod_cart, host::Value& paziente) {
  try {
    ImpostaCartellaTemporanea();
    filing::TempFolder cartella(path_ambulor_);
    source::Recordset rs;
    rs.Open("SELECT * from MODULI where CodCart = (?)", {cod_cart}, conn_media_);
    for (; !rs.Eof(); rs.MoveNext()) {
      host::Value id = "";
      const host::Value contenuto = BytesOf(rs.Bytes("bindata"));
      const std::vector<uint8_t>& bytes = contenuto.bytes();
      if (bytes.size() < 2) continue;
      const std::string titolo = TextOf(rs.Field("Titolo"));
      const std::string file = titolo + ".rtf";
      filing::Killfile(cartella, file);
      if (filing::IsGzip(bytes)) {
        if (filing::DecodeGzip(bytes, cartella, file) == filing::kGzipDone) {
          filing::SalvaFile(paziente, id, titolo, cartella, file);
          host::Call(host::Get(paziente, "Certificati"), "Salva", {"", DateText(rs.Field("Data")), titolo, TextOf(id)});
        }
      } else {
        cartella.Write(file, bytes);
        filing::SalvaFile(paziente, id, titolo, cartella, file);
        host::Call(host::Get(paziente, "Appunti"), "Salva",
                   {"", DateText(rs.Field("Data")), host::Value::Bool(true), host::Value::Bool(false), titolo, titolo,
                    TextOf(id)});
      }
      filing::Killfile(cartella, file);
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Certificati");
    return false;
  }
}

}  // namespace cnv
