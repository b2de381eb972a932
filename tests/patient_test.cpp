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

  static fixture::TempDir* dir_;
  static fixture::Run* run_;
};
fixture::TempDir* PatientTest::dir_;
fixture::Run* PatientTest::run_;

TEST_F(PatientTest, EveryPatientIsImported) {
  EXPECT_TRUE(run_->outcome.result);
  EXPECT_EQ(run_->outcome.patients_ok, 10);
  EXPECT_EQ(run_->Calls("Interface", "ImportaAnagrafica").size(), 10u);
}

TEST_F(PatientTest, MembersInOrderWithTheirTransforms) {
  std::vector<std::string> order;
  for (const auto& [name, value] : Sets(9)) order.push_back(name);
  EXPECT_THAT(order, ::testing::ElementsAre("cognome", "nome", "CodiceFiscale", "Sesso", "DataNascita", "LuogoNascita",
                                            "ProvinciaNascita", "Tessera", "Indirizzo", "IndirizzoResidenza",
                                            "NumeroCivico", "NumeroCivicoResidenza", "Citta", "CittaResidenza", "CAP",
                                            "CAPResidenza", "Nazionalità", "Telefono", "Cellulare", "Provincia",
                                            "ProvinciaResidenza", "Email", "ASLResidenza"));
  EXPECT_EQ(Member(9, "nome"), Text("NICOLÒ"));
  EXPECT_EQ(Member(9, "CodiceFiscale"), Text("RSSMRA50C07H501X"));
  EXPECT_EQ(Member(9, "Sesso"), Text("M"));
  EXPECT_EQ(Member(9, "DataNascita"), json({{"type", "date"}, {"value", "1950-03-07"}}));
  // Cut to 30 characters without trimming: the leading blank counts.
  EXPECT_EQ(Member(9, "LuogoNascita"), Text(" SAN GIOVANNI IN PERSICETO DI "));
  EXPECT_EQ(Member(9, "Citta"), Text("REGGIO NELL'EMILIA E DINTORNI "));
  // Trimmed before the cut.
  EXPECT_EQ(Member(9, "Tessera"), Text("80380800000000000001234567890X"));
  EXPECT_EQ(Member(9, "Indirizzo"), Text("VIA ROMA"));
  EXPECT_EQ(Member(9, "NumeroCivicoResidenza"), Text("12/B"));
  EXPECT_EQ(Member(9, "CAP"), Text("00100"));
  EXPECT_EQ(Member(9, "Nazionalità"), Text("Italia"));
  EXPECT_EQ(Member(9, "Telefono"), Text("06 1234"));
  EXPECT_EQ(Member(9, "Cellulare"), Text("333 1234567"));
  EXPECT_EQ(Member(9, "Provincia"), Text("RM"));
  EXPECT_EQ(Member(9, "ProvinciaNascita"), Text("BO"));
  EXPECT_EQ(Member(9, "ASLResidenza"), Text("120201"));
  auto regione = run_->ArgsOf("Interface", "DaiCodiceRegioneASL")[8];
  EXPECT_EQ(regione, json::array({Text("201"), Text("rm"), fixture::Bool(true)}));
}

TEST_F(PatientTest, DateOfBirthOnlyWhenItIsOne) {
  EXPECT_TRUE(Member(10, "DataNascita").is_null());
  EXPECT_EQ(Member(1, "DataNascita"), json({{"type", "date"}, {"value", "1950-03-07"}}));
}

TEST_F(PatientTest, EmailCases) {
  EXPECT_EQ(Member(1, "Email"), Text("a@x.it - b@x.it"));
  EXPECT_EQ(Member(2, "Email"), Text("b@x.it"));
  EXPECT_EQ(Member(3, "Email"), Text("a@x.it"));
  EXPECT_EQ(Member(7, "Email"), Text(""));
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
