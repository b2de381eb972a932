// The conversion run end to end: real Firebird files, the reference host's
// objects, the plug-in's Conversione in this process; checked on the trace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/failure.h"
#include "plugin/Conversione.h"
#include "support/fixture.h"

namespace {

using fixture::Bool;
using fixture::I32;
using fixture::Text;
using host::Value;
using ::testing::ElementsAre;

// Six rows of PAZIENTI in surname order; Bassi has no key and Conti an empty
// one, so they count towards the total without being converted.
class DriverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto archive = sample::Archive::Create(dir_.path().string());
    archive->Insert("STUDIO", {{"cognome", "Verdi"}, {"nome", "Anna"}});
    archive->Insert("PAZIENTI", fixture::Patient("P1", "Abate"));
    archive->Insert("PAZIENTI", fixture::Patient("", "Conti"));
    archive->Insert("PAZIENTI", fixture::Patient("P4", "D'Angelo"));
    archive->Insert("PAZIENTI", fixture::Patient("P5", "Rossi"));
    archive->Insert("PAZIENTI", fixture::Patient("P6", "Zanetti"));
    sample::Row bassi = fixture::Patient("", "Bassi");
    bassi[0].second = Value::Null();
    archive->Insert("PAZIENTI", bassi);
    archive->Insert("BIOMETRIC", {{"CodCart", "P5"}, {"PADIST", "80"}, {"PASIST", "120"}, {"Data", host::Date{2020, 5, 4}}});
    archive->Close();
  }

  fixture::Run Convert(refhost::ConvertOptions options = {}) { return fixture::Convert(dir_ / "GX_USER.FDB", options); }

  static std::vector<int> Progress(const fixture::Run& run) {
    std::vector<int> percents;
    for (const auto& args : run.ArgsOf("Interface", "UpdateProgress")) percents.push_back(args[0]["value"]);
    return percents;
  }

  fixture::TempDir dir_;
};

TEST_F(DriverTest, WholeRunReportsEveryPhaseAndPatient) {
  refhost::ConvertOptions options;
  options.options.emplace("");
  fixture::Run run = Convert(options);
  EXPECT_TRUE(run.outcome.result);
  EXPECT_THAT(run.Messages(),
              ElementsAre("AddMsg: Apertura database di origine", "ChangeMsg: OK", "AddMsg: Inizio conversione pazienti",
                          "ChangeMsg: OK", "AddMsg: Inizializzazione archivio...", "ChangeMsg: OK",
                          "AddMsg: ABATE MARIO...", "ChangeMsg: OK", "AddMsg: D'ANGELO MARIO...", "ChangeMsg: OK",
                          "AddMsg: ROSSI MARIO...", "ChangeMsg: OK", "AddMsg: ZANETTI MARIO...", "ChangeMsg: OK"));
  // Rows without a key count, but get no progress of their own.
  EXPECT_THAT(Progress(run), ElementsAre(16, 66, 83, 100));
  auto dai = run.ArgsOf("Interface", "DaiPaziente");
  ASSERT_EQ(dai.size(), 4u);
  EXPECT_EQ(dai[1], fixture::json::array({Text("D'Angelo"), Text("Mario"), Text("RSSMRA50C07H501X"),
                                          Text("07/03/1950"), Text("80380800000000000001")}));
  // One patient's calls on the Interface, in their order.
  std::vector<std::string> first_patient;
  for (const auto& line : run.trace) {
    if (line["obj"] != "Interface" || line["op"] != "call") continue;
    if (line["member"] == "UpdateProgress" && !first_patient.empty()) break;
    if (line["member"] == "UpdateProgress" || !first_patient.empty()) first_patient.push_back(line["member"]);
  }
  EXPECT_THAT(first_patient, ElementsAre("UpdateProgress", "AddMsg", "DaiPaziente", "DaiCodiceRegioneASL",
                                         "ImportaAnagrafica", "ChangeMsg"));
  // Every UpdateProgress hands Stop by reference, still false.
  EXPECT_EQ(run.Calls("Interface", "UpdateProgress")[0]["args"][1], Bool(false));
}

TEST_F(DriverTest, SurnameFilters) {
  refhost::ConvertOptions between;
  between.from = "D'Angelo";
  between.to = "Rossi";
  fixture::Run run = Convert(between);
  EXPECT_TRUE(run.outcome.result);
  ASSERT_EQ(run.ArgsOf("Interface", "DaiPaziente").size(), 2u);
  // The count of selected rows is set against all rows: the run ends short of 100.
  EXPECT_THAT(Progress(run), ElementsAre(16, 33));
  // A bound alone, and bounds the wrong way round, which select nothing.
  for (const auto& [from, to, patients] : std::vector<std::tuple<std::string, std::string, size_t>>{
           {"R", "", 2}, {"", "Abate", 1}, {"Z", "A", 0}}) {
    refhost::ConvertOptions options;
    options.from = from;
    options.to = to;
    fixture::Run bounded = Convert(options);
    EXPECT_TRUE(bounded.outcome.result);
    EXPECT_EQ(bounded.ArgsOf("Interface", "DaiPaziente").size(), patients) << from << "-" << to;
  }
}

TEST_F(DriverTest, OptionsAreMatchedByKeywordInTheirOrder) {
  refhost::ConvertOptions twice;
  twice.options.emplace("Pressione Arteriosa;PRESSIONE ARTERIOSA; Appunti;Sconosciuta;");
  fixture::Run run = Convert(twice);
  EXPECT_EQ(run.Calls("Pressione", "Salva").size(), 2u);
  EXPECT_TRUE(run.Calls("Appunti", "Salva").empty());

  // The form of ListaOpzioni, with blanks after the semicolons, runs its
  // first category only.
  refhost::ConvertOptions listed;
  listed.options.emplace("Pressione Arteriosa; Pressione Arteriosa");
  EXPECT_EQ(Convert(listed).Calls("Pressione", "Salva").size(), 1u);
}

// The patient for whom the stop came is still converted in full, and the
// run ends like a finished one.
TEST_F(DriverTest, StopEndsTheRunAfterThePatientInHand) {
  for (int stop_at : {1, 4}) {
    refhost::ConvertOptions options;
    options.stop_at_patient = stop_at;
    fixture::Run run = Convert(options);
    EXPECT_TRUE(run.outcome.result);
    EXPECT_EQ(run.Calls("Interface", "ImportaAnagrafica").size(), static_cast<size_t>(stop_at));
    EXPECT_EQ(run.Messages().back(), "ChangeMsg: OK");
  }
}

// A failing category gives up that patient's later categories only (every
// call site's failure is held by the fault sweep).
TEST_F(DriverTest, AFailingCategoryGivesUpThePatientsLaterCategories) {
  refhost::ConvertOptions options;
  options.options.emplace("pressione arteriosa;pressione arteriosa");
  options.fail = {"Pressione.Salva@1"};
  fixture::Run run = Convert(options);
  EXPECT_TRUE(run.outcome.result);
  // The second "pressione arteriosa" doesn't run after the first failed.
  EXPECT_EQ(std::count_if(run.trace.begin(), run.trace.end(),
                          [](const fixture::json& line) {
                            return line["member"] == "Salva" && line["obj"].get<std::string>().ends_with(".Pressione");
                          }),
            1);
  EXPECT_THAT(run.Messages(),
              ::testing::Contains("AddInfo: ROSSI MARIO - Pressione Arteriosa Errore 1001 Errore simulato dall'host"));
}

TEST(DriverEdges, RefusedPatientsAndAwkwardKeys) {
  fixture::TempDir dir;
  {
    auto archive = sample::Archive::Create(dir.path().string());
    archive->Insert("PAZIENTI", {{"Cod_Cart", "N1"}, {"cognome", "Nessuno"}, {"nome", "Ugo"}, {"CodFisc", "  "}});
    archive->Insert("PAZIENTI", fixture::Patient("O'B1", "O'Brien"));
    archive->Insert("PAZIENTI", fixture::Patient("P9", "Pace", {{"nome", Value::Null()}}));
    archive->Close();
  }
  fixture::Run run = fixture::Convert(dir / "GX_USER.FDB");
  EXPECT_TRUE(run.outcome.result);
  std::vector<std::string> messages = run.Messages();
  EXPECT_THAT(messages, ::testing::Contains("AddInfo: Nessuno Ugo: CodFisc, TesseraSSN o Data Nascita non validi "
                                            "(Almeno uno di questi dati è necessario)"));
  // A key with an apostrophe breaks the master record's query before any
  // member is set, so the line names no patient; the run goes on.
  auto info = std::find_if(messages.begin(), messages.end(),
                           [](const std::string& m) { return m.rfind("AddInfo: - Anagrafica Errore ", 0) == 0; });
  EXPECT_NE(info, messages.end());
  EXPECT_EQ(messages.back(), "ChangeMsg: OK");
  EXPECT_THAT(messages, ::testing::Contains("AddMsg: PACE ..."));
  EXPECT_EQ(run.Calls("Interface", "ImportaAnagrafica").size(), 1u);
  EXPECT_EQ(run.outcome.patients_err, 2);
}

}  // namespace

namespace {

// A host Interface that answers the driver's calls and keeps its lines; it
// refuses every patient.
class RecordingInterface : public host::Object {
 public:
  host::Value Get(std::string_view member) override {
    if (host::SameName(member, "FiltroDa") || host::SameName(member, "FiltroA")) return "";
    host::failures::Raise(host::failures::kMemberNotSupported);
  }
  void Set(std::string_view, const host::Value&) override {
    host::failures::Raise(host::failures::kMemberNotSupported);
  }
  host::Value Call(std::string_view member, host::Args& args) override {
    if (!host::SameName(member, "UpdateProgress") && !host::SameName(member, "DaiPaziente"))
      lines.push_back(std::string(member) + ": " + host::TextOf(args[0].value()));
    return host::Value();
  }
  std::vector<std::string> lines;
};

TEST(DriverEdges, SecondConvertiNeedsANewTest) {
  fixture::TempDir dir;
  {
    auto archive = sample::Archive::Create(dir.path().string());
    archive->Insert("PAZIENTI", fixture::Patient("S1", "Solo"));
    archive->Close();
  }
  cnv::Conversione conversione;
  Value lista;
  host::Args test_args{dir / "GX_USER.FDB", host::Arg::Ref(lista)};
  ASSERT_TRUE(host::TruthOf(conversione.Call("Test", test_args)));

  auto recorder = std::make_shared<RecordingInterface>();
  Value interface = host::ObjectRef(recorder);
  host::Args first{"", "", host::Arg::Ref(interface)};
  EXPECT_TRUE(host::TruthOf(conversione.Call("Converti", first)));
  EXPECT_EQ(recorder->lines.back(), "AddInfo: Solo Mario: CodFisc, TesseraSSN o Data Nascita non validi (Almeno "
                                    "uno di questi dati è necessario)");

  // The first run closed the databases: the second fails on its first query.
  recorder->lines.clear();
  host::Args second{"", "", host::Arg::Ref(interface)};
  EXPECT_FALSE(host::TruthOf(conversione.Call("Converti", second)));
  EXPECT_THAT(recorder->lines, ElementsAre("AddMsg: Apertura database di origine", "ChangeMsg: OK",
                                           "AddMsg: Inizio conversione pazienti", "ChangeMsg: Errore"));
  EXPECT_THAT(host::TextOf(conversione.Get("LastError")), ::testing::StartsWith("3709 "));

  // A new Test makes the instance usable again; the last failure stays.
  ASSERT_TRUE(host::TruthOf(conversione.Call("Test", test_args)));
  host::Args third{"", "", host::Arg::Ref(interface)};
  EXPECT_TRUE(host::TruthOf(conversione.Call("Converti", third)));
  EXPECT_THAT(host::TextOf(conversione.Get("LastError")), ::testing::StartsWith("3709 "));
}

}  // namespace
