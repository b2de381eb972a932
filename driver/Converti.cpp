#include <vector>

#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"
#include "source/recordset.h"

namespace cnv {
namespace {

// The host's option list split at ";": empty text has no element, and no
// element is trimmed.
std::vector<std::string> ElementiDi(const std::string& opzioni) {
  std::vector<std::string> elementi;
  if (opzioni.empty()) return elementi;
  size_t start = 0;
  for (size_t sep; (sep = opzioni.find(';', start)) != std::string::npos; start = sep + 1)
    elementi.push_back(opzioni.substr(start, sep - start));
  elementi.push_back(opzioni.substr(start));
  return elementi;
}

// The second pass's query for the host's surname bounds, inclusive at both
// ends and compared as the database compares them. The bounds come in the
// bytes of the column Cognome (source::TextForColumn).
std::string QueryPazienti(const std::string& filtro_da, const std::string& filtro_a) {
  if (filtro_da.empty() && filtro_a.empty()) return "SELECT * FROM PAZIENTI ORDER BY COGNOME, NOME";
  std::string query = "SELECT * FROM PAZIENTI where ";
  if (!filtro_da.empty()) query += "(Cognome>='" + RaddoppiaApici(filtro_da) + "')";
  if (!filtro_da.empty() && !filtro_a.empty()) query += " and ";
  if (!filtro_a.empty()) query += "(Cognome<='" + RaddoppiaApici(filtro_a) + "')";
  return query + " order by Cognome, Nome";
}

}  // namespace

bool clsAmbulor::Converti(const std::string& /*medico: every patient is converted, whoever the doctor*/,
                          const std::string& opzioni) {
  try {
    AddMsg("Apertura database di origine");
    ChangeMsg("OK");
    AddMsg("Inizio conversione pazienti");

    int64_t totale = 0;
    source::Recordset conteggio_rs;
    conteggio_rs.Open("SELECT * FROM PAZIENTI", conn_user_);
    for (; !conteggio_rs.Eof(); conteggio_rs.MoveNext()) ++totale;
    conteggio_rs.Close();
    ChangeMsg("OK");

    AddMsg("Inizializzazione archivio...");
    ChangeMsg("OK");

    std::string filtro_da = TextOf(host::Get(InterfaceCorrente(), "FiltroDa"));
    std::string filtro_a = TextOf(host::Get(InterfaceCorrente(), "FiltroA"));
    filtro_da = source::TextForColumn(conn_user_, "PAZIENTI", "Cognome", filtro_da);
    filtro_a = source::TextForColumn(conn_user_, "PAZIENTI", "Cognome", filtro_a);
    // The converters that the option list names, in its order: an element is
    // turned to lower case (not trimmed) and matched with a keyword exactly;
    // one that matches nothing is passed over.
    std::vector<Converter> categorie_scelte;
    for (const std::string& elemento : ElementiDi(opzioni)) {
      std::string keyword = host::text::Lower(elemento);
      for (const Categoria& categoria : kCategorie)
        if (keyword == categoria.keyword && categoria.converter != nullptr) categorie_scelte.push_back(categoria.converter);
    }

    source::Recordset rs;
    rs.Open(QueryPazienti(filtro_da, filtro_a), conn_user_);
    int64_t conteggio = 0;
    while (!rs.Eof() && !host::TruthOf(stop_)) {
      ++conteggio;
      // The key goes into every query of the patient in the bytes it was read from.
      std::string cod_cart = rs.QueryText("Cod_Cart");
      if (!cod_cart.empty()) {
        UpdateProgress(Percentuale(conteggio, totale), stop_);
        AddMsg(host::text::Upper(TextOf(rs.Field("cognome"))) + " " + host::text::Upper(TextOf(rs.Field("nome"))) +
               "...");
        host::Value paziente =
            host::Call(InterfaceCorrente(), "DaiPaziente",
                       {TextOf(rs.Field("cognome")), TextOf(rs.Field("nome")), TextOf(rs.Field("CodFisc")),
                        TextOf(rs.Field("DataNat")), TextOf(rs.Field("CodiceSSN"))});
        if (!paziente.is_object()) {
          ChangeMsg("ERR");
          AddInfo(TextOf(rs.Field("cognome")) + " " + TextOf(rs.Field("nome")) +
                  ": CodFisc, TesseraSSN o Data Nascita non validi (Almeno uno di questi dati è necessario)");
        } else {
          media_usati_ = std::make_unique<KeyedList>();
          immagini_usate_ = std::make_unique<KeyedList>();
          // The patient's rows of every table come in one go, while the
          // database's pages are at hand; the converters then take them.
          source::ReadAhead(conn_user_, cod_cart);
          source::ReadAhead(conn_media_, cod_cart);
          bool esito = ConvertiAnagrafica(cod_cart, paziente);
          for (Converter converter : categorie_scelte) {
            if (!esito) break;
            esito = (this->*converter)(cod_cart, paziente);
          }
          if (esito) {
            ChangeMsg("OK");
          } else {
            ChangeMsg("ERR");
            AddInfo(last_error_);
          }
        }
      }
      immagini_usate_.reset();
      media_usati_.reset();
      rs.MoveNext();
    }
    rs.Close();
    ChiudiDatabase();
    return true;
  } catch (...) {
    host::Failure failure = host::CurrentFailure();
    ChangeMsg("Errore");
    last_error_ = std::to_string(failure.number()) + " " + failure.description();
    return false;
  }
}

}  // namespace cnv
