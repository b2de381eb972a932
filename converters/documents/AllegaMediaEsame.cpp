#include "converters/documents/filing.h"
#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {

// The images of one exam, filed one by one; their references go to lista_id
// joined by ",". Each image that reached SalvaFile is marked in both
// per-patient lists, whatever reference the store gave, so an image taken
// twice (two reports of one exam) fails on its key. The path is removed at
// the end of every row, a row without a file of its own giving the path of
// the row before. No trap of its own: failures pass to ConvertiReferti.
void clsAmbulor::AllegaMediaEsame(host::Value& paziente, const std::string& cod_esame, host::Value& lista_id) {
  lista_id = "";
  ImpostaCartellaTemporanea();
  filing::TempFolder cartella(path_ambulor_);
  source::Recordset rs;
  rs.Open("SELECT * from IMAGES where (CodEsame = ?)", {cod_esame}, conn_media_);
  std::string file;  // of the last row that made one; empty before
  for (; !rs.Eof(); rs.MoveNext()) {
    host::Value id = "";
    const host::Value contenuto = filing::RequiredBytes(rs.Bytes("bindata"));
    const std::vector<uint8_t>& bytes = contenuto.bytes();
    if (bytes.size() >= 4) {
      std::string nome = TextOf(rs.Field("Titolo"));
      if (host::text::Trim(nome).empty()) {
        const std::string originale = TextOf(rs.Field("ORGName"));
        const size_t lunghezza = host::text::Length(originale);
        if (lunghezza < 4) host::failures::Raise(host::failures::kInvalidArgument);
        nome = host::text::Left(originale, lunghezza - 4);
      }
      nome = filing::CleanName(nome);
      file = nome + "." + TextOf(rs.Field("Settings"));
      if (filing::File(cartella, paziente, id, nome, file, bytes)) {
        immagini_usate_->Add("I" + rs.QueryText("Record"));
        SegnaMediaUsato(TextOf(rs.Field("MediaCode")));
      }
    }
    if (!TextOf(id).empty()) {
      if (!TextOf(lista_id).empty()) lista_id = TextOf(lista_id) + ",";
      lista_id = TextOf(lista_id) + TextOf(id);
    }
    filing::Killfile(cartella, file);
  }
  rs.Close();
}

}  // namespace cnv
