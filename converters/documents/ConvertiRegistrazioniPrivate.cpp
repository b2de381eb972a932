#include "converters/documents/filing.h"
#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// The images of IMAGES that no report took, each filed and saved as a note
// marked private (argument 3 true). A Null bindata, and an image that the
// scans took already (its key in ImmaginiUsate), end the converter in its
// trap; a stream that the decoder refuses stores nothing and leaves the
// image free.
bool clsAmbulor::ConvertiRegistrazioniPrivate(const std::string& cod_cart, host::Value& paziente) {
  try {
    ImpostaCartellaTemporanea();
    filing::TempFolder cartella(path_ambulor_);
    source::Recordset rs;
    rs.Open("SELECT * from IMAGES where CodCart = (?)", {cod_cart}, conn_media_);
    for (; !rs.Eof(); rs.MoveNext()) {
      if (!CercaMediaUsato(TextOf(rs.Field("MediaCode"))).empty()) continue;
      const std::string data = DateText(rs.Field("Data"), "01/01/2012");
      host::Value id = "";
      const host::Value contenuto = filing::RequiredBytes(rs.Bytes("bindata"));
      const std::vector<uint8_t>& bytes = contenuto.bytes();
      if (bytes.size() >= 4) {
        std::string nome = TextOf(rs.Field("Titolo"));
        if (host::text::Trim(nome).empty()) nome = "Immagine";
        nome = filing::CleanName(nome);
        const std::string file = nome + "." + TextOf(rs.Field("Settings"));
        filing::File(cartella, paziente, id, nome, file, bytes);
        filing::Killfile(cartella, file);
      }
      if (!TextOf(id).empty()) {
        host::Call(host::Get(paziente, "Appunti"), "Salva",
                   {"", data, host::Value::Bool(true), host::Value::Bool(false), TextOf(rs.Field("Titolo")),
                    TextOf(rs.Field("Titolo")), TextOf(id)});
        immagini_usate_->Add("I" + rs.QueryText("Record"));
      }
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Registrazioni Private");
    return false;
  }
}

}  // namespace cnv
