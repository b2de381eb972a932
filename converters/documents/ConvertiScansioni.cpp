#include "converters/documents/filing.h"
#include "converters/documents/gzip_decoder.h"
#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {
namespace {

// A step of a row that may fail without stopping the row: the failure is
// passed over and the next step runs.
template <typename Step>
void PassaOltre(Step&& step) {
  try {
    step();
  } catch (...) {
  }
}

}  // namespace

// The images of IMAGES that no other category took, each filed and saved as
// an event. Within a row every step stands alone: one that fails is passed
// over, so a file that can't be written still reaches SalvaFile (which then
// stores nothing) and a failing Salva still marks the image as taken. A name
// that isn't one file name reaches no host call at all: the row stores
// nothing. Only a query that can't be opened or walked ends the converter in
// its trap.
bool clsAmbulor::ConvertiScansioni(const std::string& cod_cart, host::Value& paziente) {
  try {
    ImpostaCartellaTemporanea();
    filing::TempFolder cartella(path_ambulor_);
    source::Recordset rs;
    rs.Open("SELECT * from IMAGES where CodCart = (?)", {cod_cart}, conn_media_);
    for (; !rs.Eof(); rs.MoveNext()) {
      bool usata = false;
      PassaOltre([&] { usata = immagini_usate_->Contains("I" + rs.QueryText("Record")); });
      if (usata) continue;

      std::string data = "01/01/2012";
      PassaOltre([&] { data = DateText(rs.Field("Data"), "01/01/2012"); });
      host::Value id = "";
      host::Value contenuto = host::Value::Bytes({});
      PassaOltre([&] { contenuto = BytesOf(rs.Bytes("bindata")); });
      const std::vector<uint8_t>& bytes = contenuto.bytes();

      if (bytes.size() >= 4) {
        std::string nome = "Immagine";
        std::string estensione = ".";
        PassaOltre([&] {
          if (!host::text::Trim(TextOf(rs.Field("Titolo"))).empty()) nome = TextOf(rs.Field("Titolo"));
        });
        nome = filing::CleanName(nome);
        PassaOltre([&] { estensione = "." + TextOf(rs.Field("Settings")); });
        const std::string file = nome + estensione;

        if (filing::IsGzip(bytes)) {
          int32_t esito = 0;
          PassaOltre([&] { esito = filing::DecodeGzip(bytes, cartella, file); });
          if (esito == filing::kGzipDone) PassaOltre([&] { filing::SalvaFile(paziente, id, nome, cartella, file); });
        } else {
          PassaOltre([&] { filing::Killfile(cartella, file); });
          PassaOltre([&] { cartella.Write(file, bytes); });
          PassaOltre([&] { filing::SalvaFile(paziente, id, nome, cartella, file); });
        }
        PassaOltre([&] { filing::Killfile(cartella, file); });
      }

      if (!TextOf(id).empty()) {
        PassaOltre([&] {
          host::Call(host::Get(paziente, "Eventi"), "Salva",
                     {"", data, "", "", TextOf(rs.Field("Titolo")), "", "", TextOf(id)});
        });
        PassaOltre([&] { immagini_usate_->Add("I" + rs.QueryText("Record")); });
      }
    }
    rs.Close();
    return true;
  } catch (...) {
    FailureTail(paziente, " - Scansioni");
    return false;
  }
}

}  // namespace cnv
