#include "tools/run-report/category_rules.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <set>
#include <tuple>

#include "converters/documents/file_name.h"
#include "converters/documents/gzip_decoder.h"
#include "host/failure.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "tools/ambulor-inspect/catalogue.h"

namespace runreport::rules {
namespace {

using cnv::DateText;
using cnv::NumberOf;
using host::TextOf;
using host::text::Length;
using host::text::Trim;

// Thrown by a rule where the converter ends in its trap.
struct Ends {
  std::string cause;
};

// A table as every category reads it: the columns that any of them reads.
const SourceTable& Table(Context& ctx, const std::string& name) {
  std::set<std::string> columns;
  inspect::SourceFile file = inspect::SourceFile::User;
  for (const inspect::Category& category : inspect::Categories())
    for (const inspect::TableUse& use : category.tables)
      if (use.table == name) {
        file = use.file;
        for (const inspect::ColumnUse& column : use.columns) columns.insert(column.name);
      }
  if (name == "IMAGES") columns.insert("CodCart");
  return ctx.tables.Table(name, file, columns);
}

// The rows that a converter's query selects by a key. A query on a missing
// table or column, or with a key that holds a quote, fails before any row.
// At the start of a converter (at_start), a key with a quote ends it there,
// and its rows are still told, as what never comes.
const std::vector<const SourceRow*>& Rows(Context& ctx, const std::string& table, const std::string& column,
                                          const std::string& key, Verdict* at_start = nullptr) {
  const SourceTable& source = Table(ctx, table);
  if (!source.present) throw Ends{"table " + table + " missing"};
  std::string lower = column;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  if (source.missing_columns.count(lower)) throw Ends{"column " + table + "." + column + " missing"};
  if (key.find('\'') != std::string::npos) {
    if (!at_start) throw Ends{"a quote in the key fails the query"};
    at_start->End("a quote in the key fails the query");
  }
  try {
    return ctx.tables.Where(source, column, key);
  } catch (const host::Failure& failure) {
    throw Ends{std::to_string(failure.number()) + " " + failure.description()};
  }
}

// Each row through the converter's body; a rule that ends the converter is
// noted and the rows after it still told, as records that never come.
template <typename Body>
void EachRow(const std::vector<const SourceRow*>& rows, Verdict& v, Body body) {
  for (const SourceRow* row : rows) {
    ++v.rows;
    try {
      body(*row);
    } catch (const Ends& end) {
      v.End(end.cause);
    } catch (const ColumnMissing& missing) {
      v.End("column " + missing.column + " missing");
    } catch (const host::Failure& failure) {
      v.End(std::to_string(failure.number()) + " " + failure.description());
    }
  }
}

// The query itself: its failure ends the converter before the first row.
template <typename Query>
std::vector<const SourceRow*> Select(Verdict& v, Query query) {
  try {
    return query();
  } catch (const Ends& end) {
    v.End(end.cause);
  }
  return {};
}

using cnv::filing::IsFileName;

std::string DecoderWhy(int32_t answer) {
  switch (answer) {
    case cnv::filing::kGzipTooLarge: return "gzip content larger than 256 MiB";
    case cnv::filing::kGzipCantWrite: return "gzip stream whose file can't be written";
    default: return "gzip stream cut short or damaged";
  }
}

// Why a document's file name can't be written, naming the name.
std::string UnwritableName(const std::string& file_name) {
  return "its file name \"" + file_name + "\" " + std::string(cnv::filing::WhyNotFileName(file_name));
}

// Filing of a file of at least 3 bytes under file_name: a gzip stream
// through the decoder, anything else written as it is. Gives whether it
// reached the file store; a plain file whose name can't be written ends
// the converter at that document.
bool File(const StoredFile& file, const std::string& title, const std::string& file_name, Verdict& v) {
  if (file.gzip) {
    if (!IsFileName(file_name)) {
      v.LeaveOut("gzip stream whose file name can't be written");
      v.Undecoded(title, UnwritableName(file_name) + ": the stream is not filed");
      return false;
    }
    if (file.decoder_answer != cnv::filing::kGzipDone) {
      v.LeaveOut(DecoderWhy(file.decoder_answer));
      v.Undecoded(title, DecoderWhy(file.decoder_answer));
      return false;
    }
  } else if (!IsFileName(file_name)) {
    v.EndAt(title, UnwritableName(file_name) + ", which can't be written (52)");
    throw Ends{"a file name that can't be written (52)"};
  }
  v.Make("Files");
  return true;
}

// The key of an image in ImmaginiUsate: all the digits of Record, as the
// converters take it.
std::string ImageKey(const SourceRow& row) { return "I" + row.QueryText("Record"); }

// Orders as "order by Data" does: Null first, then dates, or texts as texts.
bool EarlierData(const SourceRow* a, const SourceRow* b) {
  const host::Value& x = a->Field("Data");
  const host::Value& y = b->Field("Data");
  if (x.is_null() || y.is_null()) return x.is_null() && !y.is_null();
  if (x.type() == host::Type::Date && y.type() == host::Type::Date) {
    const host::Date& p = x.date();
    const host::Date& q = y.date();
    return std::tie(p.year, p.month, p.day, p.hour, p.minute, p.second) <
           std::tie(q.year, q.month, q.day, q.hour, q.minute, q.second);
  }
  return TextOf(x) < TextOf(y);
}

std::vector<const SourceRow*> ByData(std::vector<const SourceRow*> rows) {
  try {
    std::stable_sort(rows.begin(), rows.end(), EarlierData);
  } catch (const ColumnMissing&) {
    throw Ends{"column Data missing"};
  }
  return rows;
}

// The master record: the relationship with the doctor, then the host's
// ImportaAnagrafica, which refuses a patient without surname.
void Anagrafica(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "PAZIENTI", "Cod_Cart", patient.key, &v); });
  v.rows = 1;
  try {
    if (!rows.empty()) {
      const SourceRow& row = *rows.front();
      for (const char* column : {"cognome", "nome", "CodFisc", "Sex", "DataNat", "LuogoNat", "PrvNat", "CodiceSSN",
                                 "Indirizzo", "NumCivico", "Citta", "CAP", "Nazione", "Telefono", "Recapito", "Prov",
                                 "Email", "Email2", "ASL", "DataDec", "DataScelta", "dataScadenza_T", "DataRevoca"})
        row.Field(column);
      v.Make("Rapporti");
    }
    if (Trim(host::text::Upper(TextOf(patient.cognome))).empty()) {
      v.LeaveOut("no surname: the host refuses the master record");
      return v.End("no surname: the host refuses the master record");
    }
    v.Make("patients");
  } catch (const Ends& end) {
    v.End(end.cause);
  } catch (const ColumnMissing& missing) {
    v.End("column " + missing.column + " missing");
  }
}

void Allergie(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "REAZIONI", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    DateText(row.Field("Data"), "01/01/2012");
    row.Field("Testo");
    v.Make("Allergie");
    if (row.Field("CodTer").is_null()) return;
    // The drug's name makes a second record when the host's drug archive knows the code.
    if (ctx.archives.farmaci && ctx.archives.farmaci->Find(Trim(TextOf(row.Field("CodTer"))))) v.Make("Allergie");
  });
}

void Appunti(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "MESSAGES", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    row.Field("Data_Iniz");
    row.Field("MESG");
    v.Make("Appunti");
  });
}

void BMI(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "BIOMETRIC", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    if (row.Field("Peso").is_null() || row.Field("Statura").is_null() || row.Field("BMI").is_null())
      return v.LeaveOut("weight, height or index missing");
    if (NumberOf(row.Field("Peso")) == 0 || NumberOf(row.Field("Statura")) == 0 || NumberOf(row.Field("BMI")) == 0)
      return v.LeaveOut("weight, height or index of 0");
    row.Field("Note");
    row.Field("Data");
    v.Make("BMI");
  });
}

// A gzip document is a certificate, any other a marked note; both filed.
void Certificati(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "MODULI", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    const StoredFile& file = row.File();
    if (file.size < 2) {
      v.LeaveOut(file.null ? "no document (Null)" : "a document of 1 byte");
      if (!file.null) v.Undecoded(TextOf(row.Field("Titolo")), "fewer than 2 bytes");
      return;
    }
    const std::string titolo = TextOf(row.Field("Titolo"));
    if (file.size == 2) throw Ends{"a document of 2 bytes (9)"};
    if (!File(file, titolo, titolo + ".rtf", v)) return;
    row.Field("Data");
    v.Make(file.gzip ? "Certificati" : "Appunti");
  });
}

void CertificatiINPS(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "CERTINPS", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    for (const char* column : {"DATAINI", "DATATER", "DATAEMI"}) row.Field(column);
    if (TextOf(row.Field("Diag")).empty()) return v.LeaveOut("no diagnosis");
    for (const char* column : {"Inizio", "Continua", "Ricaduta", "SEND_ID"}) row.Field(column);
    v.Make("CertificatiINPS");
  });
}

void Diagnosi(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "VISITE", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    row.Field("Inizio");
    row.Field("termine");
    const std::string titolo = TextOf(row.Field("Titolo"));
    const size_t marker = titolo.find("- (");
    if (marker != std::string::npos && Length(titolo) <= Length(titolo.substr(0, marker)) + 3)
      throw Ends{"a title that ends at \"- (\" (5)"};
    row.Field("Testo");
    v.Make("Problemi");
  });
}

void Esenzioni(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "ESENZIONI", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    row.Field("Emissione");
    std::string chiave = TextOf(row.Field("Codice"));
    if (!TextOf(row.Field("COD_ICD1")).empty()) chiave += "." + TextOf(row.Field("COD_ICD1"));
    if (!ctx.archives.esenzioni || !ctx.archives.esenzioni->Find(chiave))
      return v.LeaveOut("exemption unknown to the host's archive");
    row.Field("Scadenza");
    v.Make("Esenzioni");
  });
}

void Eventi(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "VISITE", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    for (const char* column : {"Inizio", "Titolo", "Testo"}) row.Field(column);
    v.Make("Eventi");
  });
}

// Each plan files its scan, when it has one, and makes a record when it has
// a date of drafting.
void PianiTerapeutici(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "PIANOTERAP", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    row.Field("Diagnosi");
    if (!TextOf(row.Field("COD_SCAN")).empty()) {
      const auto& scans = Rows(ctx, "SCANSIONI", "CODESAME", row.QueryText("CODPIANO"));
      if (scans.empty()) {
        v.LeaveOut("plan scan not in SCANSIONI (no file)");
      } else {
        const SourceRow& scan = *scans.front();
        const StoredFile& file = scan.File();
        if (file.null) throw Ends{"a plan scan without content (94)"};
        if (file.size >= 4) {
          std::string nome = TextOf(scan.Field("Titolo"));
          if (Trim(nome).empty()) nome = "Piano Terapeutico";
          nome = cnv::filing::CleanName(nome);
          File(file, nome, nome + "." + TextOf(scan.Field("Settings")), v);
        } else {
          v.LeaveOut("plan scan of fewer than 4 bytes (no file)");
          v.Undecoded(TextOf(scan.Field("Titolo")), "fewer than 4 bytes");
        }
      }
    }
    if (row.Field("DataRedaz").is_null()) return v.LeaveOut("no date of drafting");
    for (const char* column : {"Scadenza", "COD_AIC", "Farmaco", "NOTA_AIFA", "Posolog", "Medico"}) row.Field(column);
    v.Make("TerapieCroniche");
  });
}

// Laboratory requests (tipo 1 or 4) by date: one prescription a day, one
// item a row. The day starts as today, so rows of today before any other
// day find no prescription open.
void PrescrizioniEsami(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] {
    const auto& all = Rows(ctx, "ESAMI", "CodCart", patient.key, &v);
    if (Table(ctx, "ESAMI").missing_columns.count("tipo")) throw Ends{"column ESAMI.tipo missing"};
    std::vector<const SourceRow*> requests;
    for (const SourceRow* row : all) {
      const host::Value& tipo = row->Field("tipo");
      if (!tipo.is_null() && (NumberOf(tipo) == 1 || NumberOf(tipo) == 4)) requests.push_back(row);
    }
    return ByData(requests);
  });
  std::string ultimo_giorno = ctx.today;
  bool aperta = false;
  EachRow(rows, v, [&](const SourceRow& row) {
    if (row.Field("Data").is_null()) return v.LeaveOut("no date");
    const std::string data = DateText(row.Field("Data"));
    if (data != ultimo_giorno) {
      std::optional<host::Date> giorno = host::DateOf(data);
      if (!giorno) throw Ends{"a date that reads as no date (13)"};
      ultimo_giorno = DateText(host::Date{giorno->year, giorno->month, giorno->day});
      aperta = true;
      row.Field("Esenzione");
      v.Make("Ricette");
    }
    if (!aperta) return v.LeaveOut("dated today before any other day: no prescription open");
    for (const char* column : {"Testo", "Esenzione", "CodRif"}) row.Field(column);
    v.Make("PrescrizioneEsami");
  });
}

// Drug rows by date, as the laboratory requests; a row without a drug text
// is passed over, one with a text but no date ends the converter.
void PrescrizioniFarmaceutiche(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return ByData(Rows(ctx, "TERAPIE", "CodCart", patient.key, &v)); });
  std::string ultimo_giorno = ctx.today;
  bool aperta = false;
  EachRow(rows, v, [&](const SourceRow& row) {
    if (Trim(TextOf(row.Field("Testo"))).empty()) return v.LeaveOut("no drug text");
    const std::string data = DateText(row.Field("Data"));
    if (data != ultimo_giorno) {
      std::optional<host::Date> giorno = host::DateOf(data);
      if (!giorno) throw Ends{"a drug without a date (13)"};
      ultimo_giorno = DateText(host::Date{giorno->year, giorno->month, giorno->day});
      aperta = true;
      row.Field("Esenzione");
      row.Field("Classe");
      v.Make("Ricette");
    }
    if (!aperta) return v.LeaveOut("dated today before any other day: no prescription open");
    for (const char* column : {"CodTer", "NumPezzi", "NOTA", "Indicaz", "Esenzione", "CodATC", "Importo"})
      row.Field(column);
    NumberOf(row.Field("NumPezzi"));
    v.Make("PrescrizioneFarmaci");
  });
}

// Each row one prescription, each of its eight lines with a text one item.
void PrescrizioniLibere(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "RICETTE", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    for (const char* column : {"DATAEMI", "Indic1", "CodEsenz"}) row.Field(column);
    v.Make("Ricette");
    for (int riga = 1; riga <= 8; ++riga) {
      const std::string n = std::to_string(riga);
      const std::string testo = Trim(TextOf(row.Field("Row_" + n)));
      if (testo.empty() || (riga == 1 && testo == ".")) continue;
      const host::Value& quantita = row.Field("Qta_" + n);
      if (quantita.is_null()) throw Ends{"a line without quantity (94)"};
      const double numero = NumberOf(quantita);
      const double whole = std::nearbyint(numero);
      if (numero != 0 && (whole < std::numeric_limits<int32_t>::min() || whole > std::numeric_limits<int32_t>::max()))
        throw Ends{"a quantity beyond a whole number's range (6)"};
      v.Make("PrescrizioneLibera");
    }
  });
}

void PressioneArteriosa(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "BIOMETRIC", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    if (row.Field("PADIST").is_null() || row.Field("PASIST").is_null()) return v.LeaveOut("a pressure missing");
    row.Field("Note");
    row.Field("Data");
    NumberOf(row.Field("PADIST"));
    NumberOf(row.Field("PASIST"));
    v.Make("Pressione");
  });
}

// The wording of the service picks its store.
void Prestazioni(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "PRESTAZIONI", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    row.Field("Diagnosi");
    const std::string prestazione = TextOf(row.Field("Prestazione"));
    row.Field("Data");
    row.Field("Annotazioni");
    if (prestazione.find("VISITA DOMICILIARE") != std::string::npos)
      v.Make("VisiteAmbDom");
    else if (prestazione.find("VISITA IN ASSISTENZA DOMICILIARE INTEGRATA") != std::string::npos)
      v.Make("ADI");
    else if (prestazione.find("VISITA IN ASSISTENZA DOMICILIARE PROGRAMMATA") != std::string::npos)
      v.Make("ADP");
    else
      v.Make("PPIP");
  });
}

// The images of an exam: each filed one is marked in both lists, and one
// that a list holds already ends the converter.
void ImmaginiEsame(Context& ctx, const std::string& cod_esame, PatientLists& lists, Verdict& v) {
  for (const SourceRow* image : Rows(ctx, "IMAGES", "CodEsame", cod_esame)) {
    const StoredFile& file = image->File();
    if (file.null) throw Ends{"an exam image without content (94)"};
    if (file.size < 4) {
      v.LeaveOut("exam image of fewer than 4 bytes");
      v.Undecoded(TextOf(image->Field("Titolo")), "fewer than 4 bytes");
      continue;
    }
    std::string nome = TextOf(image->Field("Titolo"));
    if (Trim(nome).empty()) {
      const std::string originale = TextOf(image->Field("ORGName"));
      if (Length(originale) < 4) throw Ends{"an exam image without title or ORGName (5)"};
      nome = host::text::Left(originale, Length(originale) - 4);
    }
    nome = cnv::filing::CleanName(nome);
    if (File(file, nome, nome + "." + TextOf(image->Field("Settings")), v)) {
      if (lists.immagini_usate.Contains(ImageKey(*image))) throw Ends{"an exam image already taken (457)"};
      lists.immagini_usate.Add(ImageKey(*image));
      const std::string media = "I" + TextOf(image->Field("MediaCode"));
      if (!lists.media_usati.Contains(media)) lists.media_usati.Add(media);
    }
  }
}

// Each report with the first exam of its code; the exam's kind picks the
// store, and kinds 2 and 3 first make a visit prescription.
void Referti(Context& ctx, const PatientRow& patient, PatientLists& lists, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "REFERTI", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    row.Field("Testo");
    const auto& esami = Rows(ctx, "ESAMI", "CODESAME", row.QueryText("CODESAME"));
    if (esami.empty()) return v.LeaveOut("no exam of its code");
    const SourceRow& esame = *esami.front();
    esame.Field("Data");
    esame.Field("Testo");
    const std::string cod_esame = esame.QueryText("CODESAME");
    const double tipo = esame.Field("Tipo").is_null() ? -1 : NumberOf(esame.Field("Tipo"));
    if (tipo == 1 || tipo == 4) {
      ImmaginiEsame(ctx, cod_esame, lists, v);
      v.Make("RefertiEsami");
    } else if (tipo == 5) {
      ImmaginiEsame(ctx, cod_esame, lists, v);
      esame.Field("Indicaz");
      v.Make("Ricoveri");
    } else {
      if (tipo == 2 || tipo == 3) {
        const host::Value& record = row.Field("Record");
        if (record.is_null()) throw Ends{"a visit report without Record (94)"};
        double numero = record.type() == host::Type::I16 || record.type() == host::Type::I32
                            ? record.integer()
                            : std::nearbyint(NumberOf(record));
        if (numero < -2147483648.0 || numero > 2147483647.0) throw Ends{"a Record beyond a whole number's range (6)"};
        const auto& visite = Rows(ctx, "ESAMI", "RECORD", std::to_string(static_cast<int32_t>(numero)));
        if (!visite.empty() && !visite.front()->Field("Data").is_null()) {
          v.Make("Ricette");
          v.Make("PrescrizioneVisite");
        }
      }
      ImmaginiEsame(ctx, cod_esame, lists, v);
      v.Make("RefertiVisite");
    }
  });
}

// The images that no report took (by their medium), each a private note;
// an image whose row a list holds already ends the converter.
void RegistrazioniPrivate(Context& ctx, const PatientRow& patient, PatientLists& lists, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "IMAGES", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    const std::string media_code = TextOf(row.Field("MediaCode"));
    if (!media_code.empty() && lists.media_usati.Contains("I" + media_code))
      return v.LeaveOut("medium already taken by a report");
    row.Field("Data");
    const StoredFile& file = row.File();
    if (file.null) throw Ends{"an image without content (94)"};
    if (file.size < 4) {
      v.LeaveOut("fewer than 4 bytes");
      v.Undecoded(TextOf(row.Field("Titolo")), "fewer than 4 bytes");
      return;
    }
    std::string nome = TextOf(row.Field("Titolo"));
    if (Trim(nome).empty()) nome = "Immagine";
    nome = cnv::filing::CleanName(nome);
    if (!File(file, nome, nome + "." + TextOf(row.Field("Settings")), v)) return;
    v.Make("Appunti");
    if (lists.immagini_usate.Contains(ImageKey(row))) throw Ends{"an image already taken by a report or the scans (457)"};
    lists.immagini_usate.Add(ImageKey(row));
  });
}

// The images that no other category took, each an event; every step of a
// row stands alone, so a step that fails only leaves the image out.
void Scansioni(Context& ctx, const PatientRow& patient, PatientLists& lists, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "IMAGES", "CodCart", patient.key, &v); });
  auto passa_oltre = [](auto step) {
    try {
      step();
    } catch (const ColumnMissing&) {
    }
  };
  EachRow(rows, v, [&](const SourceRow& row) {
    bool usata = false;
    passa_oltre([&] { usata = lists.immagini_usate.Contains(ImageKey(row)); });
    if (usata) return v.LeaveOut("image already taken by a report or a recording");
    StoredFile file;
    passa_oltre([&] { file = row.File(); });
    if (file.size < 4) {
      v.LeaveOut(file.null ? "no content (Null)" : "fewer than 4 bytes");
      if (!file.null) v.Undecoded(TextOf(row.Field("Titolo")), "fewer than 4 bytes");
      return;
    }
    std::string nome = "Immagine";
    passa_oltre([&] {
      if (!Trim(TextOf(row.Field("Titolo"))).empty()) nome = TextOf(row.Field("Titolo"));
    });
    nome = cnv::filing::CleanName(nome);
    std::string estensione = ".";
    passa_oltre([&] { estensione = "." + TextOf(row.Field("Settings")); });
    if (!file.gzip && !IsFileName(nome + estensione)) return v.LeaveOut("a file name that can't be written");
    if (!File(file, nome, nome + estensione, v)) return;
    v.Make("Eventi");
    passa_oltre([&] {
      if (!lists.immagini_usate.Contains(ImageKey(row))) lists.immagini_usate.Add(ImageKey(row));
    });
  });
}

void Vaccinazioni(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "VACCINI", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    for (const char* column : {"Data", "DATARICH", "Testo", "Note"}) row.Field(column);
    v.Make("Vaccinazioni");
  });
}

void VisiteAmbulatoriali(Context& ctx, const PatientRow& patient, PatientLists&, Verdict& v) {
  auto rows = Select(v, [&] { return Rows(ctx, "VISNOTE", "CodCart", patient.key, &v); });
  EachRow(rows, v, [&](const SourceRow& row) {
    row.Field("Data");
    row.Field("Testo");
    v.Make("VisiteAmbDom");
  });
}

}  // namespace

const std::vector<CategoryRules>& AllRules() {
  static const std::vector<CategoryRules> rules = {
      {"anagrafica", Anagrafica},
      {"allergie", Allergie},
      {"appunti", Appunti},
      {"bmi", BMI},
      {"certificati", Certificati},
      {"certificati inps", CertificatiINPS},
      {"diagnosi", Diagnosi},
      {"esenzioni", Esenzioni},
      {"eventi", Eventi},
      {"piani terapeutici", PianiTerapeutici},
      {"prescrizioni esami laboratorio", PrescrizioniEsami},
      {"prescrizioni farmaceutiche", PrescrizioniFarmaceutiche},
      {"prescrizioni libere", PrescrizioniLibere},
      {"pressione arteriosa", PressioneArteriosa},
      {"prestazioni", Prestazioni},
      {"referti", Referti},
      {"registrazioni private", RegistrazioniPrivate},
      {"scansioni", Scansioni},
      {"vaccinazioni", Vaccinazioni},
      {"visite ambulatoriali", VisiteAmbulatoriali},
  };
  return rules;
}

}  // namespace runreport::rules
