// ambulor-inspect against small sources written row by row, where every
// figure is known: what is missing and what it does, rows that match no
// patient, bytes of binary columns, doctors, and the exit status.
#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fixture.h"
#include "tools/ambulor-inspect/inspection.h"

namespace {

using fixture::json;

host::Value Bytes(const std::string& content) {
  return host::Value::Bytes(std::vector<uint8_t>(content.begin(), content.end()));
}

const json& Category(const json& report, const std::string& keyword) {
  for (const json& category : report["categories"])
    if (category["keyword"] == keyword) return category;
  throw std::runtime_error("no category " + keyword);
}

const json& Table(const json& report, const std::string& name) {
  for (const json& table : report["tables"])
    if (table["table"] == name) return table;
  throw std::runtime_error("no table " + name);
}

int ExitStatusOf(const std::string& arguments) {
  int status = std::system((std::string(KAIRON_INSPECT_PATH) + " " + arguments + " >/dev/null 2>&1").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Inspect, FiguresOfASourceWrittenRowByRow) {
  fixture::TempDir dir;
  auto archive = sample::Archive::Create(dir.path().string());
  archive->Insert("STUDIO", {{"cognome", "Bianchi"}, {"nome", "Lucia"}});
  archive->Insert("PAZIENTI", fixture::Patient("K1", "ROSSI"));
  archive->Insert("PAZIENTI", fixture::Patient("K2 ", "VERDI"));  // stored with a trailing blank
  archive->Insert("PAZIENTI", fixture::Patient("", "SENZA"));
  for (const char* card : {"K1", "K1", "K2", "GONE"}) archive->Insert("BIOMETRIC", {{"CodCart", card}});
  archive->Insert("IMAGES", {{"CodCart", "K1"}, {"bindata", Bytes("12345")}});
  archive->Insert("IMAGES", {{"CodCart", "K2"}, {"bindata", Bytes("123")}});
  archive->Insert("IMAGES", {{"CodCart", "LOST"}, {"bindata", host::Value::Null()}});
  archive->Close();

  json report = inspect::ToJson(inspect::Inspect(archive->user_path()));
  EXPECT_EQ(report["databases"][0]["ods"], "12.0");
  EXPECT_EQ(report["patients"], 3);
  EXPECT_EQ(report["patients_without_key"], 1);
  EXPECT_EQ(report["doctors"], json::array({"Bianchi Lucia"}));
  EXPECT_EQ(Table(report, "BIOMETRIC"), json::parse(R"({"table": "BIOMETRIC", "file": "GX_USER.FDB", "present": true,
                                                        "rows": 4, "orphan_rows": 1, "blob_bytes": null})"));
  EXPECT_EQ(Table(report, "IMAGES"), json::parse(R"({"table": "IMAGES", "file": "GX_MEDIA.FDB", "present": true,
                                                     "rows": 3, "orphan_rows": 1, "blob_bytes": 8})"));
  EXPECT_EQ(Table(report, "VACCINI")["rows"], 0);
  EXPECT_TRUE(Table(report, "PAZIENTI")["orphan_rows"].is_null());
  EXPECT_TRUE(report["can_run_all"]);
  EXPECT_EQ(ExitStatusOf(archive->user_path()), 0);
}

// Keys are compared as the database compares them, as the conversion's
// queries do: trailing blanks don't count, and a number column reads a key's
// text as a number, on the user database and on the media database alike.
TEST(Inspect, KeysAsTheDatabaseComparesThem) {
  fixture::TempDir dir;
  std::vector<sample::Table> schema = sample::DefaultSchema();
  sample::SetColumnType(schema, "BIOMETRIC", "CodCart", "INTEGER");
  sample::SetColumnType(schema, "IMAGES", "CodCart", "INTEGER");
  auto archive = sample::Archive::Create(dir.path().string(), schema);
  archive->Insert("PAZIENTI", fixture::Patient("A1", "ROSSI"));
  archive->Insert("PAZIENTI", fixture::Patient("A1 ", "BIANCHI"));
  archive->Insert("PAZIENTI", fixture::Patient("B2", "VERDI"));
  archive->Insert("PAZIENTI", fixture::Patient("B2", "NERI"));
  archive->Insert("PAZIENTI", fixture::Patient("0012", "GIALLI"));
  archive->Insert("PAZIENTI", fixture::Patient("'Q", "APICE"));
  archive->Insert("PAZIENTI", fixture::Patient("'Q", "VIRGOLETTA"));
  for (const char* card : {"12", "12", "13"}) archive->Insert("BIOMETRIC", {{"CodCart", card}});
  for (const char* card : {"12", "7"}) archive->Insert("IMAGES", {{"CodCart", card}});
  archive->Close();

  inspect::Inspection inspection = inspect::Inspect(archive->user_path());
  json report = inspect::ToJson(inspection);
  EXPECT_EQ(Table(report, "BIOMETRIC")["orphan_rows"], 1);
  EXPECT_EQ(Table(report, "IMAGES")["orphan_rows"], 1);
  // A key with a quote fails its patients' queries: they share nothing.
  EXPECT_EQ(report["shared_keys"], json::parse(R"([{"key": "A1 ", "patients": ["BIANCHI MARIO", "ROSSI MARIO"]},
                                                    {"key": "B2", "patients": ["NERI MARIO", "VERDI MARIO"]}])"));
  EXPECT_THAT(inspect::ToText(inspection), ::testing::HasSubstr("  'A1 ': BIANCHI MARIO, ROSSI MARIO\n"));
}

TEST(Inspect, MissingTablesAndColumnsNameTheirCategoriesAndEffects) {
  fixture::TempDir dir;
  std::vector<sample::Table> schema = sample::DefaultSchema();
  sample::DropTable(schema, "VACCINI");
  sample::DropColumn(schema, "BIOMETRIC", "PASIST");
  sample::DropColumn(schema, "IMAGES", "Settings");
  sample::DropColumn(schema, "PAZIENTI", "nome");
  auto archive = sample::Archive::Create(dir.path().string(), schema);
  archive->Insert("PAZIENTI", fixture::Patient("K1", "ROSSI"));
  archive->Close();

  inspect::Inspection inspection = inspect::Inspect(archive->user_path());
  json report = inspect::ToJson(inspection);
  EXPECT_FALSE(report["can_run_all"]);
  EXPECT_FALSE(Category(report, "vaccinazioni")["tables"][0]["present"]);
  // One column of IMAGES, three categories, three effects.
  for (auto [keyword, can_run] : {std::pair{"vaccinazioni", false}, {"pressione arteriosa", false}, {"bmi", true},
                                  {"scansioni", false}, {"registrazioni private", false}, {"referti", false}})
    EXPECT_EQ(Category(report, keyword)["can_run"], can_run) << keyword;

  using ::testing::HasSubstr;
  const std::string text = inspect::ToText(inspection);
  EXPECT_THAT(text, HasSubstr("missing table VACCINI (GX_USER.FDB): every patient ends in ERR for this category"));
  EXPECT_THAT(text, HasSubstr("missing column BIOMETRIC.PASIST: every patient with rows in the table ends in ERR"));
  EXPECT_THAT(text, HasSubstr("missing column IMAGES.Settings: the rows are passed over"));
  EXPECT_THAT(text, HasSubstr("missing column PAZIENTI.nome: the run ends with false"));
  EXPECT_TRUE(report["doctors"].empty());
  EXPECT_EQ(ExitStatusOf(archive->user_path()), 4);
}

// Titles that can't be the name of their file, counted as the conversion
// meets them: a plain document ends its patient's "Certificati" in ERR (52),
// a gzip stream is only left unfiled; documents too short to be written and
// rows of no patient don't count. The conversion of the same source agrees
// (a name too long for the folder may meet the host's refusal first, 75).
TEST(Inspect, CountsTheDocumentsWhoseTitleCantBeAFileName) {
  fixture::TempDir dir;
  std::vector<sample::Table> schema = sample::DefaultSchema();
  sample::SetColumnType(schema, "MODULI", "Titolo", "VARCHAR(300)");
  auto archive = sample::Archive::Create(dir.path().string(), schema);
  for (const char* card : {"K1", "K2", "K3", "K4"}) archive->Insert("PAZIENTI", fixture::Patient(card, card));
  const std::string rtf = "{\\rtf1 x}";
  const auto document = [&](const char* card, const host::Value& content, const std::string& title) {
    archive->Insert("MODULI", {{"CodCart", card}, {"bindata", content}, {"Titolo", title}});
  };
  document("K1", Bytes(rtf), "Diario clinico del 12/03/2019");
  document("K1", Bytes(rtf), "Esonero 2024/2025");
  document("K2", host::Value::Bytes(fixture::Gzip(rtf)), "Referto 3/4");
  document("K2", Bytes(rtf), std::string(251, 'a'));  // 255 bytes with ".rtf": the longest name
  document("K3", Bytes(rtf), std::string(252, 'b'));
  document("K4", Bytes("{\\"), "Due/byte");
  document("K4", Bytes(rtf), "Diario clinico del 12-03-2019");
  document("GONE", Bytes(rtf), "Senza/paziente");
  archive->Close();

  const inspect::Inspection inspection = inspect::Inspect(archive->user_path());
  const json titles = inspect::ToJson(inspection)["unfileable_titles"];
  EXPECT_EQ(titles["plain_rows"], 3);
  EXPECT_EQ(titles["patients"], 2);
  EXPECT_EQ(titles["gzip_rows"], 1);
  EXPECT_EQ(titles["first"][2]["why"], "is longer than 255 bytes");
  EXPECT_EQ(titles["categories_not_run"].front(), "Certificati INPS");
  EXPECT_EQ(titles["categories_not_run"].back(), "Visite Ambulatoriali");
  EXPECT_EQ(titles["categories_not_run"].size(), 15u);

  const std::string text = inspect::ToText(inspection);
  EXPECT_THAT(text, ::testing::HasSubstr("3 plain documents of 2 patients: their \"Certificati\" will end in \"ERR\" (52"));
  EXPECT_THAT(text, ::testing::HasSubstr("Remedy that loses nothing else: put \"Certificati\" last in the options"));
  EXPECT_THAT(text, ::testing::HasSubstr("K1  \"Esonero 2024/2025\": its file name holds \"/\""));
  EXPECT_THAT(text, ::testing::HasSubstr("1 gzip stream under such a title: not filed, without ERR."));

  refhost::ConvertOptions options;
  options.options = "certificati";
  int ended = 0;
  for (const std::string& message : fixture::Convert(archive->user_path(), options).Messages())
    ended += message.find(" - Certificati Errore 52 ") != std::string::npos ||
             message.find(" - Certificati Errore 75 ") != std::string::npos;
  EXPECT_EQ(ended, titles["patients"]);
}

TEST(Inspect, ASourceThatCantBeOpenedExitsWithTwo) {
  fixture::TempDir dir;
  auto archive = sample::Archive::Create(dir.path().string());
  archive->Close();
  std::filesystem::remove(dir.path() / "GX_MEDIA.FDB");
  try {
    inspect::Inspect(archive->user_path());
    ADD_FAILURE() << "a source without GX_MEDIA.FDB was inspected";
  } catch (const inspect::Unopenable& e) {
    EXPECT_THAT(std::string(e.what()), ::testing::HasSubstr("GX_MEDIA.FDB"));
  }
  EXPECT_EQ(ExitStatusOf(archive->user_path()), 2);
  EXPECT_EQ(ExitStatusOf(dir / "nothing-here.FDB"), 2);
}

}  // namespace
