// The ten clinical categories end to end: one fixture patient per case,
// argument lists checked position by position with their types.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "plugin/modConversione.h"
#include "support/fixture.h"

namespace {

using fixture::Bool;
using fixture::F64;
using fixture::I16;
using fixture::I32;
using fixture::json;
using fixture::Text;
using host::Date;
using host::Value;

const char* const kAllTen =
    "Allergie;Appunti;BMI;Diagnosi;Esenzioni;Eventi;Pressione Arteriosa;Prestazioni;Vaccinazioni;Visite "
    "Ambulatoriali";

// Dates as the three kinds of column a source can hold them in: BIOMETRIC
// and ESENZIONI as DATE, VACCINI and VISNOTE as TIMESTAMP, VISITE and
// MESSAGES as text.
std::vector<sample::Table> MixedSchema() {
  std::vector<sample::Table> schema = sample::DefaultSchema();
  for (const char* column : {"PADIST", "PASIST", "Peso", "Statura", "BMI"})
    sample::SetColumnType(schema, "BIOMETRIC", column, "VARCHAR(12)");
  sample::SetColumnType(schema, "BIOMETRIC", "Data", "DATE");
  sample::SetColumnType(schema, "ESENZIONI", "Emissione", "DATE");
  sample::SetColumnType(schema, "VACCINI", "Data", "TIMESTAMP");
  sample::SetColumnType(schema, "VACCINI", "DATARICH", "TIMESTAMP");
  sample::SetColumnType(schema, "VISNOTE", "Data", "TIMESTAMP");
  sample::SetColumnType(schema, "VISITE", "Inizio", "VARCHAR(30)");
  sample::SetColumnType(schema, "VISITE", "termine", "VARCHAR(30)");
  sample::SetColumnType(schema, "MESSAGES", "Data_Iniz", "VARCHAR(30)");
  sample::SetColumnType(schema, "REAZIONI", "Data", "VARCHAR(30)");
  return schema;
}

void WriteCatalogues(const fixture::TempDir& dir, refhost::ConvertOptions& options) {
  options.icd9_csv = dir / "icd9.csv";
  options.farmaci_csv = dir / "farmaci.csv";
  options.esenzioni_csv = dir / "esenzioni.csv";
  std::ofstream(options.icd9_csv) << "code,ID,Descrizione\n"
                                     "401.9,ICD-401.9,Ipertensione essenziale\n"
                                     "250.00,ICD-250.00,\"Diabete mellito, tipo II\"\n"
                                     ",ICD-VUOTO,Codice vuoto\n";
  std::ofstream(options.farmaci_csv) << "code,Descrizione,Tipo\n012345678,TACHIPIRINA*20CPR 500MG,A\n";
  std::ofstream(options.esenzioni_csv) << "code,ID,Descrizione,CodiceFarmaci,CodiceEsami\n"
                                          "013.250,E-013.250,Diabete mellito,\"F1,F2\",E1\n"
                                          "048,E-048,Invalidità,,\n"
                                          ".X,E-X,Chiave senza codice,,\n";
}

class ClinicalTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    cnv::SetTodayForTesting(Date{2026, 11, 23});
    dir_ = new fixture::TempDir;
    auto archive = sample::Archive::Create(dir_->path().string(), MixedSchema());
    for (const char* name : {"Allerg", "Appun", "Bmi", "Diag", "DiagFail", "Esen", "Pres", "Prest", "Vacc", "Visn"})
      archive->Insert("PAZIENTI", fixture::Patient(name, name));

    archive->Insert("REAZIONI", {{"CodCart", "Allerg"}, {"Data", "12/05/2018"}, {"Testo", "Penicillina"},
                                 {"CodTer", " 012345678 "}});
    archive->Insert("REAZIONI", {{"CodCart", "Allerg"}, {"Data", "n.d."}, {"Testo", "Pollini"}, {"CodTer", "999"}});
    archive->Insert("REAZIONI", {{"CodCart", "Allerg"}, {"Testo", "Lattice"}, {"CodTer", ""}});
    archive->Insert("REAZIONI", {{"CodCart", "Allerg"}});

    archive->Insert("MESSAGES", {{"CodCart", "Appun"}, {"Data_Iniz", "2019-02-03"}, {"MESG", " da richiamare  "}});
    archive->Insert("MESSAGES", {{"CodCart", "Appun"}, {"Data_Iniz", "ieri"}});

    auto biometric = [&](const Value& peso, const Value& statura, const Value& bmi, const Value& note) {
      archive->Insert("BIOMETRIC", {{"CodCart", "Bmi"}, {"Peso", peso}, {"Statura", statura}, {"BMI", bmi},
                                    {"Note", note}, {"Data", Date{2020, 1, 2}}});
    };
    biometric("70", "175", "22.86", "tredici carat");
    biometric("70", "175", Value::Null(), Value::Null());
    biometric("70", "175", "0,5", Value::Null());
    biometric("-70", "1.75", "22", "dodici carat");
    biometric("abc", "175", "22", Value::Null());
    archive->Insert("BIOMETRIC", {{"CodCart", "Bmi"}, {"Peso", "80"}, {"Statura", "180"}, {"BMI", "24.7"}});

    auto visita = [&](const char* cod, const Value& inizio, const Value& termine, const Value& titolo,
                      const Value& testo) {
      archive->Insert("VISITE",
                      {{"CodCart", cod}, {"Inizio", inizio}, {"termine", termine}, {"Titolo", titolo}, {"Testo", testo}});
    };
    visita("Diag", "05/06/2015", Value::Null(), "Ipertensione essenziale - (401.9)", " cronica ");
    visita("Diag", "n.d.", "", "Diabete- (250.00)", Value::Null());
    visita("Diag", Value::Null(), "10/10/2016", "Frattura - (999.9)", "x");
    visita("Diag", "2016-10-10 08:00", Value::Null(), "Altro -  (401.9)", "y");
    visita("Diag", "1/2/2017", Value::Null(), "Visita - (401.9) di controllo", "z");
    visita("Diag", "1/2/2017", Value::Null(), Value::Null(), Value::Null());
    visita("Diag", "1/2/2017", Value::Null(), "Vuoto - ()", "w");
    visita("DiagFail", "1/2/2017", Value::Null(), "Prima", "a");
    visita("DiagFail", "1/2/2017", Value::Null(), "Tronco - (", "b");
    visita("DiagFail", "1/2/2017", Value::Null(), "Mai letta", "c");
    archive->Insert("VACCINI", {{"CodCart", "DiagFail"}, {"Testo", "mai convertita"}});

    auto esenzione = [&](const Value& codice, const Value& icd, const Value& emissione, const Value& scadenza) {
      archive->Insert("ESENZIONI",
                      {{"CodCart", "Esen"}, {"Codice", codice}, {"COD_ICD1", icd}, {"Emissione", emissione},
                       {"Scadenza", scadenza}});
    };
    esenzione("013", "250", Date{2015, 3, 1}, Date{2025, 3, 1});
    esenzione("048", Value::Null(), Value::Null(), Value::Null());
    esenzione("048", "   ", Date{2015, 3, 1}, Value::Null());
    esenzione(Value::Null(), "X", Date{2015, 3, 1}, Value::Null());
    esenzione("777", "", Date{2015, 3, 1}, Value::Null());

    auto pressione = [&](const Value& dist, const Value& sist, const Value& data, const Value& note) {
      archive->Insert("BIOMETRIC",
                      {{"CodCart", "Pres"}, {"PADIST", dist}, {"PASIST", sist}, {"Data", data}, {"Note", note}});
    };
    pressione("80", "120", Date{2020, 5, 4}, "dodici carat");
    pressione("85,5", "abc", Value::Null(), "tredici carat");
    pressione(Value::Null(), "120", Date{2020, 5, 4}, Value::Null());
    pressione("80", Value::Null(), Date{2020, 5, 4}, Value::Null());
    pressione("0", "0", Date{2021, 1, 1}, Value::Null());

    visita("Prest", "1/1/2010", Value::Null(), "Lombalgia", "");
    visita("Prest", "1/1/2010", Value::Null(), "Ipertensione - (401.9)", "");
    visita("Prest", "1/1/2010", Value::Null(), "Lombalgia", "");
    auto prestazione = [&](const Value& testo, const Value& diagnosi, const Value& data) {
      archive->Insert("PRESTAZIONI", {{"CodCart", "Prest"}, {"Prestazione", testo}, {"Diagnosi", diagnosi},
                                      {"Data", data}, {"Annotazioni", "nota"}});
    };
    prestazione("URGENTE VISITA DOMICILIARE NOTTURNA", "Lombalgia", Date{2020, 2, 2});
    prestazione("VISITA IN ASSISTENZA DOMICILIARE INTEGRATA", "Ipertensione essenziale", Date{2020, 2, 3});
    prestazione("VISITA IN ASSISTENZA DOMICILIARE PROGRAMMATA", "lombalgia", Date{2020, 2, 4});
    prestazione("visita domiciliare", "Lombalgia", Date{2020, 2, 5});
    prestazione(Value::Null(), Value::Null(), Value::Null());

    auto vaccino = [&](const Value& data, const Value& richiamo) {
      archive->Insert("VACCINI", {{"CodCart", "Vacc"}, {"Data", data}, {"Testo", "Antitetanica"},
                                  {"Note", "ok"}, {"DATARICH", richiamo}});
    };
    vaccino(Date{2019, 4, 1, 9, 30, 0}, Date{2020, 1, 1});
    vaccino(Date{2019, 4, 1}, Date{2026, 11, 23, 23, 0, 0});
    vaccino(Value::Null(), Date{2030, 1, 1});
    vaccino(Date{2019, 4, 1}, Value::Null());

    archive->Insert("VISNOTE", {{"CodCart", "Visn"}, {"Data", Date{2018, 7, 8, 17, 45, 0}}, {"Testo", " controllo "}});
    archive->Insert("VISNOTE", {{"CodCart", "Visn"}});
    archive->Close();

    refhost::ConvertOptions options;
    options.options.emplace(kAllTen);
    WriteCatalogues(*dir_, options);
    run_ = new fixture::Run(fixture::Convert((*dir_) / "GX_USER.FDB", options));
  }
  static void TearDownTestSuite() {
    cnv::SetTodayForTesting(Date{});
    delete run_;
    delete dir_;
  }

  static std::vector<json> Saved(const std::string& patient, const std::string& store) {
    return run_->ArgsOf(patient + "." + store, "Salva");
  }
  // The number of the patient object that DaiPaziente gave for a surname.
  static std::string PatientObject(const std::string& cognome) {
    auto dai = run_->ArgsOf("Interface", "DaiPaziente");
    for (size_t i = 0; i < dai.size(); ++i)
      if (dai[i][0]["value"] == cognome) return "Paziente#" + std::to_string(i + 1);
    return "?";
  }
  static std::vector<json> SavedBy(const std::string& cognome, const std::string& store) {
    return Saved(PatientObject(cognome), store);
  }

  static fixture::TempDir* dir_;
  static fixture::Run* run_;
};
fixture::TempDir* ClinicalTest::dir_;
fixture::Run* ClinicalTest::run_;

TEST_F(ClinicalTest, BloodPressure) {
  auto saved = SavedBy("Pres", "Pressione");
  ASSERT_EQ(saved.size(), 3u);
  EXPECT_EQ(saved[0], json::array({Text(""), Text("04/05/2020"), F64(80), F64(120), Text(""), Text(""), Text(""),
                                   Text("")}));
  // A decimal comma ends the number, a non-number reads 0; no date, no fallback.
  EXPECT_EQ(saved[1], json::array({Text(""), Text(""), F64(85), F64(0), Text("tredici carat"), Text(""), Text(""),
                                   Text("")}));
  EXPECT_EQ(saved[2], json::array({Text(""), Text("01/01/2021"), F64(0), F64(0), Text(""), Text(""), Text(""),
                                   Text("")}));
}

TEST_F(ClinicalTest, Bmi) {
  auto saved = SavedBy("Bmi", "BMI");
  ASSERT_EQ(saved.size(), 3u);
  EXPECT_EQ(saved[0], json::array({Text(""), Text("02/01/2020"), F64(70), F64(175), F64(22.86), I16(0),
                                   Text("tredici carat"), Text(""), Text(""), Text("")}));
  EXPECT_EQ(saved[1], json::array({Text(""), Text("02/01/2020"), F64(-70), F64(1.75), F64(22), I16(0), Text(""),
                                   Text(""), Text(""), Text("")}));
  EXPECT_EQ(saved[2][1], Text(""));
}

TEST_F(ClinicalTest, Diagnoses) {
  auto saved = SavedBy("Diag", "Problemi");
  ASSERT_EQ(saved.size(), 7u);
  EXPECT_EQ(saved[0], json::array({Text(""), Text("05/06/2015"), Text("ICD-401.9"), Text("Ipertensione essenziale"),
                                   Text(" cronica "), Text(" cronica "), I32(2), I16(0), Text(""), Text("")}));
  // The marker needs no blank before it; a termine of empty text closes the problem.
  EXPECT_EQ(saved[1], json::array({Text(""), Text("01/01/2014"), Text("ICD-250.00"), Text("Diabete mellito, tipo II"),
                                   Text(""), Text(""), I32(4), I16(0), Text(""), Text("")}));
  // A code the archive doesn't know leaves the title whole.
  EXPECT_EQ(saved[2][1], Text("01/01/2014"));
  EXPECT_EQ(saved[2][2], Text(""));
  EXPECT_EQ(saved[2][3], Text("Frattura - (999.9)"));
  EXPECT_EQ(saved[2][6], I32(4));
  EXPECT_EQ(saved[3][1], Text("10/10/2016"));
  EXPECT_EQ(saved[3][3], Text("Altro -  (401.9)"));
  EXPECT_EQ(saved[4][3], Text("Visita - (401.9) di controllo"));
  EXPECT_EQ(saved[5][3], Text(""));
  // An empty code is looked up as it is.
  EXPECT_EQ(saved[6][2], Text("ICD-VUOTO"));
  std::vector<std::string> codes;
  for (const json& call : run_->Calls("ICD9", "Carica")) codes.push_back(call["args"][0]["value"]);
  EXPECT_THAT(codes, ::testing::IsSupersetOf({"401.9", "250.00", "999.9", "401.9) di controll", ""}));
}

TEST_F(ClinicalTest, ABrokenTitleGivesUpThePatientNotTheRun) {
  // The first row is saved, the broken one and all after it are not, and
  // the categories after diagnoses don't run for that patient.
  EXPECT_TRUE(run_->outcome.result);
  EXPECT_EQ(run_->outcome.patients_err, 1);
  EXPECT_THAT(run_->Messages(),
              ::testing::Contains("AddInfo: DIAGFAIL MARIO - Diagnosi Errore 5 Chiamata di routine o argomento non validi"));
  auto saved = SavedBy("DiagFail", "Problemi");
  ASSERT_EQ(saved.size(), 1u);
  EXPECT_EQ(saved[0][3], Text("Prima"));
  EXPECT_TRUE(SavedBy("DiagFail", "Eventi").empty());
  EXPECT_TRUE(SavedBy("DiagFail", "Vaccinazioni").empty());
  EXPECT_FALSE(SavedBy("Esen", "Esenzioni").empty());
}

TEST_F(ClinicalTest, Allergies) {
  auto saved = SavedBy("Allerg", "Allergie");
  ASSERT_EQ(saved.size(), 5u);
  EXPECT_EQ(saved[0], json::array({Text(""), Text("12/05/2018"), Text("Penicillina"), Text(""), Text(""), I16(0),
                                   Text("")}));
  EXPECT_EQ(saved[1], json::array({Text(""), Text("12/05/2018"), Text("TACHIPIRINA*20CPR 500MG"), Text(""), Text(""),
                                   I16(0), Text("")}));
  EXPECT_EQ(saved[2][1], Text("01/01/2012"));
  EXPECT_EQ(saved[2][2], Text("Pollini"));
  EXPECT_EQ(saved[3][2], Text("Lattice"));
  EXPECT_EQ(saved[4][1], Text("01/01/2012"));
  EXPECT_EQ(saved[4][2], Text(""));
  std::vector<std::string> codes;
  for (const json& call : run_->Calls("Farmaci", "Carica")) codes.push_back(call["args"][0]["value"]);
  EXPECT_THAT(codes, ::testing::ElementsAre("012345678", "999", ""));
}

TEST_F(ClinicalTest, VaccinationsAndTheRecallFlag) {
  auto saved = SavedBy("Vacc", "Vaccinazioni");
  ASSERT_EQ(saved.size(), 4u);
  EXPECT_EQ(saved[0], json::array({Text(""), Text(""), Text(""), Text("01/04/2019"), Text("Antitetanica"), Text(""),
                                   Text("ok"), Text("ok"), Text(""), Text("01/01/2020"), Text("01/01/2020"), I32(0)}));
  // A recall on the day of the run is still to come.
  EXPECT_EQ(saved[1][9], Text("23/11/2026"));
  EXPECT_EQ(saved[1][11], I32(1));
  EXPECT_EQ(saved[2][3], Text("01/01/2012"));
  EXPECT_EQ(saved[2][11], I32(1));
  EXPECT_EQ(saved[3][9], Text(""));
  EXPECT_EQ(saved[3][10], Text(""));
  EXPECT_EQ(saved[3][11], I32(0));
}

TEST_F(ClinicalTest, NotesEventsAndVisits) {
  auto appunti = SavedBy("Appun", "Appunti");
  ASSERT_EQ(appunti.size(), 2u);
  EXPECT_EQ(appunti[0], json::array({Text(""), Text("03/02/2019"), Bool(false), Bool(false), Text(" da richiamare  "),
                                     Text(" da richiamare  "), Text("")}));
  EXPECT_EQ(appunti[1], json::array({Text(""), Text("01/01/2012"), Bool(false), Bool(false), Text(""), Text(""),
                                     Text("")}));

  auto eventi = SavedBy("Diag", "Eventi");
  ASSERT_EQ(eventi.size(), 7u);
  EXPECT_EQ(eventi[0], json::array({Text(""), Text("05/06/2015"), Text(""), Text(""),
                                    Text("Ipertensione essenziale - (401.9)"), Text("cronica"), Text("cronica"),
                                    Text("")}));
  EXPECT_EQ(eventi[1][1], Text("01/01/2012"));
  EXPECT_EQ(eventi[5][4], Text(""));

  auto visite = SavedBy("Visn", "VisiteAmbDom");
  ASSERT_EQ(visite.size(), 2u);
  EXPECT_EQ(visite[0], json::array({Text(""), Text("08/07/2018"), Text(""), Text(""), Text(" controllo "),
                                    Text(" controllo "), Text(""), I16(0)}));
  EXPECT_EQ(visite[1][1], Text("01/01/2012"));
}

TEST_F(ClinicalTest, ServicesFindTheirProblemAndStore) {
  std::string patient = PatientObject("Prest");
  // The first problem of that description gives the ID.
  std::vector<json> problems = run_->Calls("Problemi", "Salva");
  auto id_of = [&](const std::string& obj, size_t nth_of_patient) {
    size_t seen = 0;
    for (size_t i = 0; i < problems.size(); ++i) {
      if (problems[i]["obj"] != obj + ".Problemi") continue;
      if (seen++ == nth_of_patient) return "P" + std::to_string(i + 1);
    }
    return std::string("?");
  };
  auto home = Saved(patient, "VisiteAmbDom");
  ASSERT_EQ(home.size(), 1u);
  EXPECT_EQ(home[0], json::array({Text(""), Text("02/02/2020"), Text(id_of(patient, 0)), Text("Lombalgia"),
                                  Text("nota"), Text("nota"), Text(""), I16(1)}));
  auto adi = Saved(patient, "ADI");
  ASSERT_EQ(adi.size(), 1u);
  EXPECT_EQ(adi[0], json::array({Text(""), Text(""), Text(""), Text(""), I16(0), Text(id_of(patient, 1)),
                                 Text("Ipertensione essenziale"), Text("03/02/2020"), Text("nota"), Text("nota")}));
  auto adp = Saved(patient, "ADP");
  ASSERT_EQ(adp.size(), 1u);
  EXPECT_EQ(adp[0][5], Text(""));
  auto ppip = Saved(patient, "PPIP");
  ASSERT_EQ(ppip.size(), 2u);
  EXPECT_EQ(ppip[0], json::array({Text(""), Text("05/02/2020"), Text(id_of(patient, 0)), Text("Lombalgia"),
                                  Text("visita domiciliare"), Text(""), Text(""), I16(1), Text(""), Text(""), Text(""),
                                  Text("nota"), Text("nota")}));
  EXPECT_EQ(ppip[1][1], Text(""));
  EXPECT_EQ(ppip[1][2], Text(""));
  EXPECT_EQ(ppip[1][4], Text(""));
}

TEST_F(ClinicalTest, Exemptions) {
  auto saved = SavedBy("Esen", "Esenzioni");
  ASSERT_EQ(saved.size(), 3u);
  EXPECT_EQ(saved[0], json::array({Text(""), Text("E-013.250"), Text("01/03/2015"), Text("Diabete mellito"),
                                   Bool(false), Text("F1,F2"), Text("E1"), Bool(false), Bool(false), Bool(false),
                                   Bool(false), Text(""), Text("01/03/2025"), Text(""), I16(1), Text("")}));
  EXPECT_EQ(saved[1][2], Text("01/01/2012"));
  EXPECT_EQ(saved[1][12], Text(""));
  EXPECT_EQ(saved[2][1], Text("E-X"));
  std::vector<std::string> keys;
  for (const json& call : run_->Calls("Esenzioni", "CaricaCodice")) keys.push_back(call["args"][0]["value"]);
  EXPECT_THAT(keys, ::testing::ElementsAre("013.250", "048", "048.   ", ".X", "777"));
}

// Services find the problems of diagnoses only when diagnoses come first.
TEST(ClinicalOrder, ServicesBeforeDiagnosesFindNoProblem) {
  fixture::TempDir dir;
  {
    auto archive = sample::Archive::Create(dir.path().string());
    archive->Insert("PAZIENTI", fixture::Patient("O1", "Ordine"));
    archive->Insert("VISITE", {{"CodCart", "O1"}, {"Titolo", "Lombalgia"}});
    archive->Insert("PRESTAZIONI", {{"CodCart", "O1"}, {"Prestazione", "ECG"}, {"Diagnosi", "Lombalgia"}});
    archive->Close();
  }
  refhost::ConvertOptions after;
  after.options.emplace("diagnosi;prestazioni");
  EXPECT_EQ(fixture::Convert(dir / "GX_USER.FDB", after).ArgsOf("PPIP", "Salva")[0][2], Text("P1"));
  refhost::ConvertOptions before;
  before.options.emplace("prestazioni;diagnosi");
  EXPECT_EQ(fixture::Convert(dir / "GX_USER.FDB", before).ArgsOf("PPIP", "Salva")[0][2], Text(""));
}

// A column that the table lacks fails at the first row that reads it; a
// table the source lacks fails its category for every patient, with the
// database's own message. The run goes on to its end.
TEST(ClinicalFailures, MissingColumnAndTable) {
  fixture::TempDir dir;
  {
    std::vector<sample::Table> schema = sample::DefaultSchema();
    sample::DropColumn(schema, "BIOMETRIC", "Note");
    sample::DropTable(schema, "VACCINI");
    auto archive = sample::Archive::Create(dir.path().string(), schema);
    archive->Insert("PAZIENTI", fixture::Patient("M1", "Manca"));
    archive->Insert("BIOMETRIC", {{"CodCart", "M1"}, {"PADIST", 80.0}, {"PASIST", 120.0}});
    archive->Insert("PAZIENTI", fixture::Patient("T2", "Tavola"));
    archive->Insert("MESSAGES", {{"CodCart", "T2"}, {"MESG", "x"}});
    archive->Close();
  }
  refhost::ConvertOptions options;
  options.options.emplace("pressione arteriosa;vaccinazioni;appunti");
  fixture::Run run = fixture::Convert(dir / "GX_USER.FDB", options);
  EXPECT_TRUE(run.outcome.result);
  EXPECT_EQ(run.outcome.patients_err, 2);
  EXPECT_THAT(run.Messages(), ::testing::Contains(::testing::StartsWith(
                                  "AddInfo: MANCA MARIO - Pressione Arteriosa Errore 3265 ")));
  EXPECT_THAT(run.Messages(), ::testing::Contains(::testing::StartsWith(
                                  "AddInfo: TAVOLA MARIO - Vaccinazioni Errore 335544569 Dynamic SQL Error")));
  EXPECT_TRUE(run.Calls("Pressione", "Salva").empty());
  EXPECT_TRUE(run.Calls("Appunti", "Salva").empty());
}

}  // namespace
