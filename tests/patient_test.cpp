// The master record of a patient and the relationship with the doctor, as
// the host receives them: one fixture patient per case, surnames in order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "support/fixture.h"

namespace {

using fixture::I16;
using fixture::json;
using fixture::Text;
using host::Date;
using host::Value;

class PatientTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new fixture::TempDir;
    std::vector<sample::Table> schema = sample::DefaultSchema();
    sample::SetColumnType(schema, "PAZIENTI", "DataRevoca", "VARCHAR(20)");
    auto archive = sample::Archive::Create(dir_->path().string(), schema);
    auto add = [&](const std::string& cognome, const sample::Row& extra) {
      archive->Insert("PAZIENTI", fixture::Patient("K-" + cognome, cognome, extra));
    };
    add("Caso01", {{"Email", "a@x.it"}, {"Email2", "b@x.it"}});
    add("Caso02", {{"Email2", "b@x.it"}});
    add("Caso03", {{"Email", "a@x.it"}, {"Email2", ""}});
    add("Caso04", {{"DataDec", Date{2021, 6, 1}}, {"dataScadenza_T", Date{2022, 1, 1}}, {"DataRevoca", "02/02/2022"},
                   {"DataScelta", Date{2001, 9, 10}}});
    add("Caso05", {{"dataScadenza_T", Date{2022, 1, 1, 10, 30, 0}}, {"DataRevoca", "02/02/2022"}});
    add("Caso06", {{"DataRevoca", "3/4/2019"}, {"DataScelta", Date{2001, 9, 10}}});
    add("Caso07", {});
    add("Caso08", {{"DataRevoca", "n.d."}});
    add("Caso09", {{"nome", " nicol\xF2 "},
                   {"LuogoNat", " San Giovanni in Persiceto di Sopra"},
                   {"Citta", "reggio nell'emilia e dintorni vicini"},
                   {"CodiceSSN", "  80380800000000000001234567890XYZ  "},
                   {"CodFisc", " rssmra50c07h501x "},
                   {"Sex", "m"},
                   {"Indirizzo", "  via roma  "},
                   {"NumCivico", "12/b"},
                   {"CAP", "00100"},
                   {"Nazione", "Italia"},
                   {"Telefono", " 06 1234 "},
                   {"Recapito", " 333 1234567 "},
                   {"Prov", "rm"},
                   {"PrvNat", "bo"},
                   {"ASL", "201"}});
    add("Caso10", {{"DataNat", Value::Null()}});
    archive->Close();
    run_ = new fixture::Run(fixture::Convert((*dir_) / "GX_USER.FDB", [] {
      refhost::ConvertOptions options;
      options.options.emplace("");
      return options;
    }()));
  }
  static void TearDownTestSuite() {
    delete run_;
    delete dir_;
  }

  // The members set on the n-th patient object, in order of setting.
  static std::vector<std::pair<std::string, json>> Sets(int n) {
    std::vector<std::pair<std::string, json>> sets;
    for (const json& line : run_->trace)
      if (line["obj"] == "Paziente#" + std::to_string(n) && line["op"] == "set")
        sets.emplace_back(line["member"], line["value"]);
    return sets;
  }
  static json Member(int n, const std::string& member) {
    json last;
    for (const auto& [name, value] : Sets(n))
      if (name == member) last = value;
    return last;
  }
  static json Rapporto(int n) {
    for (const json& call : run_->Calls("Paziente#" + std::to_string(n) + ".Rapporti", "Salva")) return call["args"];
    return nullptr;
  }

  static inline fixture::TempDir* dir_ = nullptr;
  static inline fixture::Run* run_ = nullptr;
};

TEST_F(PatientTest, EveryPatientIsImported) {
  EXPECT_TRUE(run_->outcome.result);
  EXPECT_EQ(run_->outcome.patients_ok, 10);
  EXPECT_EQ(run_->Calls("Interface", "ImportaAnagrafica").size(), 10u);
}

// Every member in its order: texts cut to 30 characters without trimming
// (the leading blank counts), or trimmed before the cut.
TEST_F(PatientTest, MembersInOrderWithTheirTransforms) {
  const std::vector<std::pair<std::string, json>> expected = {
      {"cognome", Text("CASO09")}, {"nome", Text("NICOLÒ")}, {"CodiceFiscale", Text("RSSMRA50C07H501X")},
      {"Sesso", Text("M")}, {"DataNascita", json({{"type", "date"}, {"value", "1950-03-07"}})},
      {"LuogoNascita", Text(" SAN GIOVANNI IN PERSICETO DI ")}, {"ProvinciaNascita", Text("BO")},
      {"Tessera", Text("80380800000000000001234567890X")}, {"Indirizzo", Text("VIA ROMA")},
      {"IndirizzoResidenza", Text("VIA ROMA")}, {"NumeroCivico", Text("12/B")},
      {"NumeroCivicoResidenza", Text("12/B")}, {"Citta", Text("REGGIO NELL'EMILIA E DINTORNI ")},
      {"CittaResidenza", Text("REGGIO NELL'EMILIA E DINTORNI ")}, {"CAP", Text("00100")},
      {"CAPResidenza", Text("00100")}, {"Nazionalità", Text("Italia")}, {"Telefono", Text("06 1234")},
      {"Cellulare", Text("333 1234567")}, {"Provincia", Text("RM")}, {"ProvinciaResidenza", Text("RM")},
      {"Email", Text("")}, {"ASLResidenza", Text("120201")}};
  EXPECT_EQ(Sets(9), expected);
  auto regione = run_->ArgsOf("Interface", "DaiCodiceRegioneASL")[8];
  EXPECT_EQ(regione, json::array({Text("201"), Text("rm"), fixture::Bool(true)}));
}

TEST_F(PatientTest, DateOfBirthAndEmail) {
  EXPECT_TRUE(Member(10, "DataNascita").is_null());
  EXPECT_EQ(Member(1, "DataNascita"), json({{"type", "date"}, {"value", "1950-03-07"}}));
  const std::pair<int, const char*> emails[] = {{1, "a@x.it - b@x.it"}, {2, "b@x.it"}, {3, "a@x.it"}, {7, ""}};
  for (const auto& [n, email] : emails) EXPECT_EQ(Member(n, "Email"), Text(email)) << n;
}

TEST_F(PatientTest, RelationshipCases) {
  // Death wins over the other two columns.
  EXPECT_EQ(Rapporto(4), json::array({Text(""), Text("10/09/2001"), Text("01/06/2021"), Text(""), I16(0),
                                      Text("DECESSO")}));
  // The expiry goes before the revocation.
  EXPECT_EQ(Rapporto(5), json::array({Text(""), Text(""), Text("01/01/2022"), Text(""), I16(0), Text("REVOCATO")}));
  EXPECT_EQ(Rapporto(6),
            json::array({Text(""), Text("10/09/2001"), Text("03/04/2019"), Text(""), I16(0), Text("REVOCATO")}));
  // An open relationship.
  EXPECT_EQ(Rapporto(7), json::array({Text(""), Text(""), Text(""), Text(""), I16(0), Text("")}));
  // An end that reads as no date goes out unchanged, without state.
  EXPECT_EQ(Rapporto(8), json::array({Text(""), Text(""), Text("n.d."), Text(""), I16(0), Text("")}));
  // The relationship is stored before the master record.
  size_t rapporto = 0, importa = 0;
  for (size_t i = 0; i < run_->trace.size(); ++i) {
    const json& line = run_->trace[i];
    if (line["obj"] == "Paziente#4.Rapporti") rapporto = i;
    if (line["member"] == "ImportaAnagrafica" && line["args"][0]["value"] == "Paziente#4") importa = i;
  }
  EXPECT_LT(rapporto, importa);
}

TEST(PatientImport, RefusedMasterRecordGivesErrWithoutText) {
  fixture::TempDir dir;
  {
    auto archive = sample::Archive::Create(dir.path().string());
    archive->Insert("PAZIENTI", fixture::Patient("B1", "   "));
    archive->Insert("PAZIENTI", fixture::Patient("B2", "Bruni"));
    archive->Insert("BIOMETRIC", {{"CodCart", "B1"}, {"PADIST", "80"}, {"PASIST", "120"}});
    archive->Close();
  }
  refhost::ConvertOptions options;
  options.options.emplace("pressione arteriosa");
  fixture::Run run = fixture::Convert(dir / "GX_USER.FDB", options);
  EXPECT_TRUE(run.outcome.result);
  // ImportaAnagrafica gives false for a blank surname: no category runs, and
  // the detail line holds what LastError held, here nothing.
  EXPECT_TRUE(run.Calls("Pressione", "Salva").empty());
  EXPECT_THAT(run.Messages(), ::testing::ElementsAre(
                                  "AddMsg: Apertura database di origine", "ChangeMsg: OK",
                                  "AddMsg: Inizio conversione pazienti", "ChangeMsg: OK",
                                  "AddMsg: Inizializzazione archivio...", "ChangeMsg: OK", "AddMsg:     MARIO...",
                                  "ChangeMsg: ERR", "AddInfo: ", "AddMsg: BRUNI MARIO...", "ChangeMsg: OK"));
}

}  // namespace
