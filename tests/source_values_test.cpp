// Values as a real Italian archive holds them, read from real Firebird files
// and written back into the source's queries: numeric keys, keys and surname
// bounds with accented letters in the column's own bytes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/text.h"
#include "support/fixture.h"

namespace {

using fixture::Text;
using host::Value;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// The surnames that DaiPaziente received, in order.
std::vector<std::string> SurnamesOf(const fixture::Run& run) {
  std::vector<std::string> surnames;
  for (const auto& args : run.ArgsOf("Interface", "DaiPaziente")) surnames.push_back(args[0]["value"]);
  return surnames;
}

// The value of the first assignment of member to the object named obj.
fixture::json SetValue(const fixture::Run& run, const std::string& obj, const std::string& member) {
  for (const auto& line : run.trace)
    if (line["op"] == "set" && line["obj"] == obj && line["member"] == member) return line["value"];
  return nullptr;
}

// The patient objects that held each blood pressure saved, in order.
std::vector<std::string> PressureHolders(const fixture::Run& run) {
  std::vector<std::string> holders;
  for (const auto& call : run.Calls("Pressione", "Salva")) holders.push_back(call["obj"]);
  return holders;
}

fixture::Run ConvertBloodPressure(const fixture::TempDir& dir) {
  refhost::ConvertOptions options;
  options.options.emplace("Pressione Arteriosa");
  return fixture::Convert(dir / "GX_USER.FDB", options);
}

TEST(SourceKeys, NumericCardCodesFindTheirRows) {
  fixture::TempDir dir;
  std::vector<sample::Table> schema = sample::DefaultSchema();
  sample::SetColumnType(schema, "PAZIENTI", "Cod_Cart", "NUMERIC(18,0)");
  auto archive = sample::Archive::Create(dir.path().string(), schema);
  // Round values, and one of sixteen digits, past what a double keeps exactly
  // in fifteen.
  const char* const keys[] = {"100000", "2000000", "1234567890123457"};
  const char* const surnames[] = {"Alfa", "Beta", "Gamma"};
  for (int i = 0; i < 3; ++i) {
    archive->Insert("PAZIENTI", fixture::Patient(keys[i], surnames[i]));
    for (int reading = 0; reading <= i; ++reading)
      archive->Insert("BIOMETRIC", {{"CodCart", keys[i]}, {"PADIST", "80"}, {"PASIST", "120"}});
  }
  archive->Close();

  fixture::Run run = ConvertBloodPressure(dir);
  ASSERT_TRUE(run.outcome.result);
  EXPECT_EQ(run.outcome.patients_ok, 3);
  EXPECT_THAT(PressureHolders(run), ElementsAre("Paziente#1.Pressione", "Paziente#2.Pressione", "Paziente#2.Pressione",
                                   "Paziente#3.Pressione", "Paziente#3.Pressione", "Paziente#3.Pressione"));
  EXPECT_EQ(SetValue(run, "Paziente#2", "cognome"), Text("BETA"));
}

// A key longer than any parameter holds reaches the database whole, as a
// literal that the database refuses: the patient ends in ERR instead of
// taking the shorter key of another, whose records stay his own.
TEST(SourceKeys, KeysLongerThanAParameterStayWhole) {
  fixture::TempDir dir;
  std::vector<sample::Table> schema = sample::DefaultSchema();
  sample::SetColumnType(schema, "PAZIENTI", "Cod_Cart", "BLOB SUB_TYPE 1");
  auto archive = sample::Archive::Create(dir.path().string(), schema);
  archive->Insert("PAZIENTI", fixture::Patient("A", "Rossi", {{"CodFisc", "RSSMRA50C07H501X"}}));
  archive->Insert("BIOMETRIC", {{"CodCart", "A"}, {"PADIST", "80"}, {"PASIST", "120"}});
  archive->Insert("PAZIENTI", fixture::Patient("A" + std::string(65536, 'B'), "Lungo"));
  archive->Close();

  fixture::Run run = ConvertBloodPressure(dir);
  ASSERT_TRUE(run.outcome.result);
  // The query fails as the key written into its text fails, before any
  // member is set.
  EXPECT_THAT(run.Messages(), ::testing::Contains(HasSubstr(
                                  "- Anagrafica Errore 335544569 Dynamic SQL Error; SQL error code = -104; String "
                                  "literal with 65537 bytes exceeds the maximum length of 65535 bytes")));
  EXPECT_EQ(SetValue(run, "Paziente#1", "cognome"), nullptr);
  EXPECT_EQ(run.outcome.patients_err, 1);
  EXPECT_THAT(PressureHolders(run), ElementsAre("Paziente#2.Pressione"));
}

TEST(SourceKeys, AccentedKeysInTheSourcesOwnBytes) {
  fixture::TempDir dir;
  auto archive = sample::Archive::Create(dir.path().string());
  // "Kà1" and "Àngelo3" as Windows-1252 bytes, "Kè2" as UTF-8 bytes, all in
  // columns without character set.
  const std::string keys[] = {"K\xE0" "1", "K\xC3\xA8" "2", "\xC0ngelo3"};
  const char* const surnames[] = {"Rossi", "Sala", "Tosi"};
  for (int i = 0; i < 3; ++i) {
    archive->Insert("PAZIENTI", fixture::Patient(keys[i], surnames[i], {{"Citta", "Forl\xEC"}}));
    archive->Insert("BIOMETRIC", {{"CodCart", keys[i]}, {"PADIST", "80"}, {"PASIST", "120"}});
  }
  archive->Close();

  fixture::Run run = ConvertBloodPressure(dir);
  ASSERT_TRUE(run.outcome.result);
  EXPECT_THAT(PressureHolders(run), ElementsAre("Paziente#1.Pressione", "Paziente#2.Pressione", "Paziente#3.Pressione"));
  // The master record was found, not a bare patient imported.
  for (const char* patient : {"Paziente#1", "Paziente#2", "Paziente#3"})
    EXPECT_EQ(SetValue(run, patient, "Citta"), Text("FORLÌ")) << patient;
}

// One PAZIENTI whose Cognome has the given type and holds each surname in
// the given encoding of "ò" and "è".
struct SurnameColumn {
  const char* type;
  bool windows_1252;
  const char* name;
};

void PrintTo(const SurnameColumn& column, std::ostream* out) { *out << column.name; }

class SurnameBounds : public ::testing::TestWithParam<SurnameColumn> {
 protected:
  void SetUp() override {
    std::vector<sample::Table> schema = sample::DefaultSchema();
    sample::SetColumnType(schema, "PAZIENTI", "cognome", GetParam().type);
    auto archive = sample::Archive::Create(dir_.path().string(), schema);
    int key = 0;
    for (std::string surname : {"Pirra", "Pirrà", "Pirrò", "Pirròni", "Pirrz", "Zoè"}) {
      if (GetParam().windows_1252) surname = *host::text::ToWindows1252(surname);
      archive->Insert("PAZIENTI", fixture::Patient("K" + std::to_string(++key), surname));
    }
    archive->Close();
  }

  fixture::Run Convert(const std::string& from, const std::string& to) {
    refhost::ConvertOptions options;
    options.options.emplace("");
    options.from = from;
    options.to = to;
    return fixture::Convert(dir_ / "GX_USER.FDB", options);
  }

  fixture::TempDir dir_;
};

TEST_P(SurnameBounds, SelectWhatTheStoredTextsCompareTo) {
  EXPECT_THAT(SurnamesOf(Convert("Pirrò", "Pirrò")), ElementsAre("Pirrò"));
  EXPECT_THAT(SurnamesOf(Convert("Pirrò", "")), ElementsAre("Pirrò", "Pirròni", "Zoè"));
  // Stored bytes order "à" and "ò" after every ASCII letter, as the order of
  // the rows shows; a bound in other bytes than the column's ("ò" as UTF-8
  // against Windows-1252) would take "Pirrà" in.
  EXPECT_THAT(SurnamesOf(Convert("", "Pirrò")), ElementsAre("Pirra", "Pirrz", "Pirrà", "Pirrò"));
  EXPECT_THAT(SurnamesOf(Convert("Pirrz", "Zoè")), ElementsAre("Pirrz", "Pirrà", "Pirrò", "Pirròni", "Zoè"));
}

INSTANTIATE_TEST_SUITE_P(Columns, SurnameBounds,
                         ::testing::Values(SurnameColumn{"VARCHAR(50)", true, "NoneWin1252"},
                                           SurnameColumn{"VARCHAR(50)", false, "NoneUtf8"},
                                           SurnameColumn{"VARCHAR(50) CHARACTER SET UTF8", false, "Utf8"},
                                           SurnameColumn{"VARCHAR(50) CHARACTER SET WIN1252", true, "Win1252"},
                                           SurnameColumn{"VARCHAR(50) CHARACTER SET ISO8859_1", true, "Latin1"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(SurnameBoundsEdges, ABoundTheColumnCantHoldEndsTheRunWithItsCause) {
  fixture::TempDir dir;
  auto archive = sample::Archive::Create(dir.path().string());
  archive->Insert("PAZIENTI", fixture::Patient("K1", "Pirr\xF2"));
  archive->Close();
  refhost::ConvertOptions options;
  options.from = "Łukasz";
  fixture::Run run = fixture::Convert(dir / "GX_USER.FDB", options);
  EXPECT_FALSE(run.outcome.result);
  EXPECT_THAT(run.outcome.last_error, HasSubstr("Łukasz"));
  EXPECT_THAT(run.outcome.last_error, HasSubstr("WIN1252"));
}

}  // namespace
