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

  static inline fixture::TempDir* dir_ = nullptr;
  static inline fixture::Run* run_ = nullptr;
};

using Records = std::vector<json>;

TEST_F(ClinicalTest, BloodPressureAndBmi) {
  // A decimal comma ends the number, a non-number reads 0; a missing
  // pressure gives no record; no date, no fallback.
  auto pressure = [](const char* data, double dist, double sist, const char* note) {
    return json::array({Text(""), Text(data), F64(dist), F64(sist), Text(note), Text(""), Text(""), Text("")});
  };
  EXPECT_EQ(SavedBy("Pres", "Pressione"), (Records{pressure("04/05/2020", 80, 120, ""),
                                                   pressure("", 85, 0, "tredici carat"),
                                                   pressure("01/01/2021", 0, 0, "")}));
  auto bmi = [](const char* data, double peso, double statura, double indice, const char* note) {
    return json::array({Text(""), Text(data), F64(peso), F64(statura), F64(indice), I16(0), Text(note), Text(""),
                        Text(""), Text("")});
  };
  EXPECT_EQ(SavedBy("Bmi", "BMI"), (Records{bmi("02/01/2020", 70, 175, 22.86, "tredici carat"),
                                           bmi("02/01/2020", -70, 1.75, 22, ""), bmi("", 80, 180, 24.7, "")}));
}

// Titles end in " - (code)" or "- (code)": the code is looked up, also when
// empty, and a code the archive doesn't know leaves the title whole; a
// termine of empty text closes the problem (state 4).
TEST_F(ClinicalTest, DiagnosesAndTheirEvents) {
  auto problem = [](const char* data, const char* id, const char* title, const char* note, int state) {
    return json::array({Text(""), Text(data), Text(id), Text(title), Text(note), Text(note), I32(state), I16(0),
                        Text(""), Text("")});
  };
  EXPECT_EQ(SavedBy("Diag", "Problemi"),
            (Records{problem("05/06/2015", "ICD-401.9", "Ipertensione essenziale", " cronica ", 2),
                     problem("01/01/2014", "ICD-250.00", "Diabete mellito, tipo II", "", 4),
                     problem("01/01/2014", "", "Frattura - (999.9)", "x", 4),
                     problem("10/10/2016", "", "Altro -  (401.9)", "y", 2),
                     problem("01/02/2017", "", "Visita - (401.9) di controllo", "z", 2),
                     problem("01/02/2017", "", "", "", 2),
                     problem("01/02/2017", "ICD-VUOTO", "Codice vuoto", "w", 2)}));
  std::vector<std::string> codes;
  for (const json& call : run_->Calls("ICD9", "Carica")) codes.push_back(call["args"][0]["value"]);
  EXPECT_THAT(codes, ::testing::IsSupersetOf({"401.9", "250.00", "999.9", "401.9) di controll", ""}));

  auto event = [](const char* data, const char* title, const char* note) {
    return json::array({Text(""), Text(data), Text(""), Text(""), Text(title), Text(note), Text(note), Text("")});
  };
  EXPECT_EQ(SavedBy("Diag", "Eventi"),
            (Records{event("05/06/2015", "Ipertensione essenziale - (401.9)", "cronica"),
                     event("01/01/2012", "Diabete- (250.00)", ""), event("01/01/2012", "Frattura - (999.9)", "x"),
                     event("10/10/2016", "Altro -  (401.9)", "y"),
                     event("01/02/2017", "Visita - (401.9) di controllo", "z"), event("01/02/2017", "", ""),
                     event("01/02/2017", "Vuoto - ()", "w")}));
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

// Drug codes are looked up trimmed; one the archive knows names the allergy.
TEST_F(ClinicalTest, Allergies) {
  auto allergy = [](const char* data, const char* text) {
    return json::array({Text(""), Text(data), Text(text), Text(""), Text(""), I16(0), Text("")});
  };
  EXPECT_EQ(SavedBy("Allerg", "Allergie"),
            (Records{allergy("12/05/2018", "Penicillina"), allergy("12/05/2018", "TACHIPIRINA*20CPR 500MG"),
                     allergy("01/01/2012", "Pollini"), allergy("01/01/2012", "Lattice"), allergy("01/01/2012", "")}));
  std::vector<std::string> codes;
  for (const json& call : run_->Calls("Farmaci", "Carica")) codes.push_back(call["args"][0]["value"]);
  EXPECT_THAT(codes, ::testing::ElementsAre("012345678", "999", ""));
}

// A recall on the day of the run is still to come.
TEST_F(ClinicalTest, VaccinationsAndTheRecallFlag) {
  auto vaccination = [](const char* data, const char* recall, int to_come) {
    return json::array({Text(""), Text(""), Text(""), Text(data), Text("Antitetanica"), Text(""), Text("ok"),
                        Text("ok"), Text(""), Text(recall), Text(recall), I32(to_come)});
  };
  EXPECT_EQ(SavedBy("Vacc", "Vaccinazioni"),
            (Records{vaccination("01/04/2019", "01/01/2020", 0), vaccination("01/04/2019", "23/11/2026", 1),
                     vaccination("01/01/2012", "01/01/2030", 1), vaccination("01/04/2019", "", 0)}));
}

TEST_F(ClinicalTest, NotesAndVisits) {
  auto note = [](const char* data, const char* text) {
    return json::array({Text(""), Text(data), Bool(false), Bool(false), Text(text), Text(text), Text("")});
  };
  EXPECT_EQ(SavedBy("Appun", "Appunti"), (Records{note("03/02/2019", " da richiamare  "), note("01/01/2012", "")}));
  auto visit = [](const char* data, const char* text) {
    return json::array({Text(""), Text(data), Text(""), Text(""), Text(text), Text(text), Text(""), I16(0)});
  };
  EXPECT_EQ(SavedBy("Visn", "VisiteAmbDom"), (Records{visit("08/07/2018", " controllo "), visit("01/01/2012", "")}));
}

// Each service goes to the store its text names, with the ID of the first
// problem of its diagnosis (case counts).
TEST_F(ClinicalTest, ServicesFindTheirProblemAndStore) {
  const std::string patient = PatientObject("Prest");
  std::vector<json> problems = run_->Calls("Problemi", "Salva");
  auto id_of = [&](size_t nth_of_patient) {
    for (size_t i = 0, seen = 0; i < problems.size(); ++i)
      if (problems[i]["obj"] == patient + ".Problemi" && seen++ == nth_of_patient) return "P" + std::to_string(i + 1);
    return std::string("?");
  };
  EXPECT_EQ(Saved(patient, "VisiteAmbDom"), (Records{json::array({Text(""), Text("02/02/2020"), Text(id_of(0)),
                                                                   Text("Lombalgia"), Text("nota"), Text("nota"),
                                                                   Text(""), I16(1)})}));
  auto home = [](const char* id, const char* diagnosis, const char* data) {
    return json::array({Text(""), Text(""), Text(""), Text(""), I16(0), Text(id), Text(diagnosis), Text(data),
                        Text("nota"), Text("nota")});
  };
  EXPECT_EQ(Saved(patient, "ADI"), (Records{home(id_of(1).c_str(), "Ipertensione essenziale", "03/02/2020")}));
  EXPECT_EQ(Saved(patient, "ADP"), (Records{home("", "lombalgia", "04/02/2020")}));
  auto ppip = [](const char* data, const std::string& id, const char* diagnosis, const char* text) {
    return json::array({Text(""), Text(data), Text(id), Text(diagnosis), Text(text), Text(""), Text(""), I16(1),
                        Text(""), Text(""), Text(""), Text("nota"), Text("nota")});
  };
  EXPECT_EQ(Saved(patient, "PPIP"),
            (Records{ppip("05/02/2020", id_of(0), "Lombalgia", "visita domiciliare"), ppip("", "", "", "")}));
}

// The key is the code, and the ICD code after a period when there is one.
TEST_F(ClinicalTest, Exemptions) {
  auto exemption = [](const char* id, const char* data, const char* text, const char* drugs, const char* exams,
                      const char* expiry) {
    return json::array({Text(""), Text(id), Text(data), Text(text), Bool(false), Text(drugs), Text(exams),
                        Bool(false), Bool(false), Bool(false), Bool(false), Text(""), Text(expiry), Text(""), I16(1),
                        Text("")});
  };
  EXPECT_EQ(SavedBy("Esen", "Esenzioni"),
            (Records{exemption("E-013.250", "01/03/2015", "Diabete mellito", "F1,F2", "E1", "01/03/2025"),
                     exemption("E-048", "01/01/2012", "Invalidità", "", "", ""),
                     exemption("E-X", "01/03/2015", "Chiave senza codice", "", "", "")}));
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
