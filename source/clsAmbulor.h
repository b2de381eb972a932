// The worker behind Conversione: the state of one conversion (the three
// source connections, the stop flag, the last failure text, the per-patient
// lists), the opening of the databases and the doctors' list. Its Converti,
// the main loop, lives in driver/; each category's converter in converters/,
// one routine to a file named after it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/failure.h"
#include "host/value.h"
#include "source/connection.h"
#include "source/keyed_list.h"
#include "source/opening.h"
#include "source/recordset.h"

namespace cnv {

class clsAmbulor {
 public:
  clsAmbulor();
  // Closes whatever connection is still open.
  ~clsAmbulor();
  clsAmbulor(const clsAmbulor&) = delete;
  clsAmbulor& operator=(const clsAmbulor&) = delete;

  // Keeps the path of the user database and gives true if a file lies there,
  // or if it is a server's "host:path"; a missing file gives false and
  // leaves LastError as it was.
  bool Init(const std::string& path_ambulor);

  // Opens the three databases and gives the doctors of STUDIO as "surname
  // name" entries joined by ";". On a failure: empty text, and LastError
  // holds "number - description".
  std::string ListaMedici();

  const std::string& LastError() const { return last_error_; }

  // Why the source didn't open, in words with a remedy (empty while nothing
  // failed), and the private folder of the copies of read-only files that
  // are open (empty if none).
  const std::string& CausaApertura() const { return apertura_.cause(); }
  const std::string& CopiaPrivata() const { return apertura_.private_folder(); }

  // The conversion run over all patients (driver/Converti.cpp). Gives true
  // when the run reached its end or was stopped by the host, false with
  // "number description" in LastError when a failure reached its trap.
  bool Converti(const std::string& medico, const std::string& opzioni);

  // Records a failure: LastError becomes msg, " Errore ", the number, a blank
  // and the description, with blanks trimmed off the whole.
  void ErroreMsg(const std::string& msg, const host::Failure& failure);

  // One record of ESAMI, found by its RECORD, as a visit prescription of a
  // single item; a record that is missing or has no date saves nothing.
  // Failures pass to the caller, whose trap reports them.
  void ConvertiRicettaVisita(host::Value& paziente, int32_t record);

 private:
  // A converter of one category: reads its rows by the patient's key, hands
  // them to the patient object, and gives false (with LastError written by
  // ErroreMsg) when a failure ended it. The key cod_cart is the source's own
  // bytes (Recordset::QueryText), set into queries unchanged.
  using Converter = bool (clsAmbulor::*)(const std::string& cod_cart, host::Value& paziente);
  struct Categoria {
    const char* keyword;  // lower case, as the host's option list is matched
    Converter converter;  // null while the category has no converter
  };
  // The 19 categories by keyword (driver/keywords.cpp).
  static const Categoria kCategorie[19];

  void ApriDatabase();
  void ChiudiDatabase();

  bool ConvertiAnagrafica(const std::string& cod_cart, host::Value& paziente);

  bool ConvertiAllergie(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiAppunti(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiBMI(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiDiagnosi(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiEsenzioni(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiEventi(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiPressioneArteriosa(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiPrescrizioniEsami(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiPrescrizioniFarmaceutiche(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiPrescrizioniLibere(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiPrestazioni(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiVaccinazioni(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiVisiteAmbulatoriali(const std::string& cod_cart, host::Value& paziente);

  // The documents (converters/documents/). Those that file take the folder
  // for temporary files from the host on entry and leave none of their files
  // in it when they end, however they end.
  bool ConvertiCertificati(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiCertificatiINPS(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiPianiTerapeutici(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiReferti(const std::string& cod_cart, host::Value& paziente);
  bool ConvertiRegistrazioniPrivate(const std::string& cod_cart, host::Value& paziente);
  // Passes over each failing step of a row; only a query that can't be
  // opened or walked ends it in its trap.
  bool ConvertiScansioni(const std::string& cod_cart, host::Value& paziente);

  // path_ambulor_ becomes utente's tempdir, and the folder is made (one
  // level) when nothing of that name exists. Raises 76 for a missing parent,
  // 75 for another refusal of the file system.
  void ImpostaCartellaTemporanea();
  // Files the images of IMAGES with CodEsame cod_esame, marks each that
  // reached SalvaFile in immagini_usate_ (raising 457 for one marked before)
  // and media_usati_, and gives their references in lista_id, joined by ",".
  // Failures pass to the caller.
  void AllegaMediaEsame(host::Value& paziente, const std::string& cod_esame, host::Value& lista_id);
  // Adds "I" and the code to media_usati_ unless it is there already.
  void SegnaMediaUsato(const std::string& media_code);
  // The code itself when a report marked it, else the empty text.
  std::string CercaMediaUsato(const std::string& media_code);

  // Finds the first of the patient's problems whose Descrizione equals
  // diagnosi exactly; sets id_problema and id_rif1 to its ID and idrif1, or
  // to empty text when there is none.
  void CercaProblema(host::Value& paziente, const host::Value& diagnosi, host::Value& id_problema,
                     host::Value& id_rif1);

  // The header of a free prescription from the current row of the RICETTE
  // recordset rs, dated data, saved through the patient's Ricette store.
  void SalvaRicettaLibera(host::Value& paziente, host::Value& ricetta, const host::Date& data,
                          const source::Recordset& rs);
  // One line of a free prescription as an item of ricetta: testo in upper
  // case and trimmed, the quantity qt, the row's exemption code cod_esenz.
  void SalvaVoceRicettaLibera(host::Value& paziente, host::Value& ricetta, int32_t qt, const std::string& testo,
                              const std::string& cod_esenz);
  // The members of a prescription header that all kinds fill alike, from
  // MedicoCAP to Priorita: the doctor's and the numbers left empty, the
  // patient's taken from the patient object.
  void ImpostaMedicoEPaziente(host::Value& ricetta, host::Value& paziente);
  // The Tipo of the drug that the host's drug archive holds under codice,
  // as text; empty for an empty code or one the archive doesn't know.
  std::string TipoFarmacoDaCodice(const std::string& codice);

  // The failure tail of a converter: LastError names the patient, the
  // category's suffix (" - Appunti") and the failure under way.
  void FailureTail(host::Value& paziente, const char* suffix);

  std::string last_error_;
  host::Value stop_ = host::Value::Bool(false);
  std::string path_ambulor_;
  source::opening::Opening apertura_;
  source::Connection conn_user_;
  source::Connection conn_media_;
  source::Connection conn_data_;
  std::unique_ptr<KeyedList> media_usati_;
  std::unique_ptr<KeyedList> immagini_usate_;
};

}  // namespace cnv
