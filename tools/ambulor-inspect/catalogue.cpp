#include "tools/ambulor-inspect/catalogue.h"

namespace inspect {
namespace {

constexpr Effect kQuery = Effect::EveryPatientErr;
constexpr Effect kRow = Effect::PatientsWithRows;

// A per-patient table of GX_USER.FDB whose rows are selected by CodCart and
// whose other columns are read row by row.
TableUse UserRows(const char* table, std::vector<const char*> columns) {
  TableUse use{table, SourceFile::User, {{"CodCart", kQuery}}, true};
  for (const char* column : columns) use.columns.push_back({column, kRow});
  return use;
}

std::vector<Category> MakeCategories() {
  TableUse master{"PAZIENTI", SourceFile::User, {}, false};
  for (const char* column : {"Cod_Cart", "cognome", "nome", "CodFisc", "DataNat", "CodiceSSN"})
    master.columns.push_back({column, Effect::RunEnds});
  for (const char* column : {"Sex", "LuogoNat", "PrvNat", "Indirizzo", "NumCivico", "Citta", "CAP", "Nazione",
                             "Telefono", "Recapito", "Prov", "Email", "Email2", "ASL", "DataDec", "DataScelta",
                             "dataScadenza_T", "DataRevoca"})
    master.columns.push_back({column, kRow});

  TableUse free_prescriptions = UserRows("RICETTE", {"DATAEMI", "Indic1", "CodEsenz"});
  for (int line = 1; line <= 8; ++line) {
    free_prescriptions.columns.push_back({"Row_" + std::to_string(line), kRow});
    free_prescriptions.columns.push_back({"Qta_" + std::to_string(line), kRow});
  }

  TableUse laboratory = UserRows("ESAMI", {"Data", "Testo", "Esenzione", "CodRif"});
  laboratory.columns.push_back({"tipo", kQuery});
  TableUse reports = UserRows("REFERTI", {"CODESAME", "Testo", "Record"});
  TableUse exams{"ESAMI", SourceFile::User,
                 {{"CODESAME", kRow}, {"Data", kRow}, {"Tipo", kRow}, {"Testo", kRow}, {"Indicaz", kRow},
                  {"RECORD", kRow}, {"Esenzione", kRow}},
                 false};
  TableUse exam_images{"IMAGES", SourceFile::Media,
                       {{"CodEsame", kRow}, {"bindata", kRow}, {"Titolo", kRow}, {"ORGName", kRow},
                        {"Settings", kRow}, {"Record", kRow}, {"MediaCode", kRow}},
                       false};

  TableUse images{"IMAGES", SourceFile::Media, {{"CodCart", kQuery}}, true};
  TableUse scans = images;
  for (const char* column : {"Record", "Data", "bindata", "Titolo", "Settings"})
    scans.columns.push_back({column, Effect::PassedOver});
  TableUse recordings = images;
  for (const char* column : {"MediaCode", "Record", "Data", "bindata", "Titolo", "Settings"})
    recordings.columns.push_back({column, kRow});

  TableUse forms{"MODULI", SourceFile::Media, {{"CodCart", kQuery}}, true};
  for (const char* column : {"bindata", "Titolo", "Data"}) forms.columns.push_back({column, kRow});
  TableUse plan_scans{"SCANSIONI",
                      SourceFile::Media,
                      {{"CODESAME", kRow}, {"bindata", kRow}, {"Titolo", kRow}, {"Settings", kRow}},
                      false};

  return {
      {"anagrafica", " - Anagrafica", {master}},
      {"allergie", " - Allergie", {UserRows("REAZIONI", {"Data", "Testo", "CodTer"})}},
      {"appunti", " - Appunti", {UserRows("MESSAGES", {"Data_Iniz", "MESG"})}},
      {"bmi", " - BMI", {UserRows("BIOMETRIC", {"Data", "Note", "Peso", "Statura", "BMI"})}},
      {"certificati", " - Certificati", {forms}},
      {"certificati inps",
       " - Certificati INPS",
       {UserRows("CERTINPS",
                 {"DATAINI", "DATATER", "DATAEMI", "Diag", "Inizio", "Continua", "Ricaduta", "SEND_ID"})}},
      {"diagnosi", " - Diagnosi", {UserRows("VISITE", {"Inizio", "termine", "Titolo", "Testo"})}},
      {"esenzioni", " - Esenzioni", {UserRows("ESENZIONI", {"Emissione", "Scadenza", "Codice", "COD_ICD1"})}},
      {"eventi", " - Eventi", {UserRows("VISITE", {"Inizio", "Titolo", "Testo"})}},
      {"piani terapeutici",
       " - Piani Terapeutici",
       {UserRows("PIANOTERAP", {"Diagnosi", "COD_SCAN", "CODPIANO", "DataRedaz", "Scadenza", "COD_AIC", "Farmaco",
                                "NOTA_AIFA", "Posolog", "Medico"}),
        plan_scans}},
      {"prescrizioni esami laboratorio", " - Prescrizioni Esami Laboratorio", {laboratory}},
      {"prescrizioni farmaceutiche",
       " - Prescrizioni Farmaceutiche",
       {UserRows("TERAPIE", {"Data", "Testo", "Esenzione", "Classe", "CodTer", "NumPezzi", "NOTA", "Indicaz",
                             "CodATC", "Importo"})}},
      {"prescrizioni libere", " - Prescrizioni Libere", {free_prescriptions}},
      {"pressione arteriosa", " - Pressione Arteriosa", {UserRows("BIOMETRIC", {"Data", "Note", "PADIST", "PASIST"})}},
      {"prestazioni",
       " - Prestazioni",
       {UserRows("PRESTAZIONI", {"Data", "Prestazione", "Diagnosi", "Annotazioni"})}},
      {"referti", " - Referti", {reports, exams, exam_images}},
      {"registrazioni private", " - Registrazioni Private", {recordings}},
      {"scansioni", " - Scansioni", {scans}},
      {"vaccinazioni", " - Vaccinazioni", {UserRows("VACCINI", {"Data", "Testo", "Note", "DATARICH"})}},
      {"visite ambulatoriali", " - Visite Ambulatoriali", {UserRows("VISNOTE", {"Data", "Testo"})}},
  };
}

}  // namespace

const std::vector<Category>& Categories() {
  static const std::vector<Category> categories = MakeCategories();
  return categories;
}

const char* FileName(SourceFile file) {
  switch (file) {
    case SourceFile::User: return "GX_USER.FDB";
    case SourceFile::Media: return "GX_MEDIA.FDB";
    case SourceFile::Data: return "GX_DATA.FDB";
  }
  return "";
}

const char* Describe(Effect effect) {
  switch (effect) {
    case Effect::RunEnds: return "the run ends with false at its first patient";
    case Effect::EveryPatientErr: return "every patient ends in ERR for this category";
    case Effect::PatientsWithRows: return "every patient with rows in the table ends in ERR for this category";
    case Effect::PassedOver: return "the rows are passed over: nothing of them is filed";
  }
  return "";
}

}  // namespace inspect
