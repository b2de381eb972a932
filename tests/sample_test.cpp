// The sample archive: every table and column the plug-in reads, the same
// content for the same seed, no overwriting without force, the awkward
// patients, data that trips no converter but where it means to, and codes
// that the shipped catalogues resolve.
#include "tools/ambulor-sample/sample.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <set>

#include "host/failure.h"
#include "source/connection.h"
#include "source/recordset.h"
#include "support/fixture.h"
#include "support/process.h"
#include "tools/ambulor-inspect/inspection.h"

namespace {

namespace fs = std::filesystem;
using host::Value;
using Rows = std::vector<std::map<std::string, Value>>;

// The rows of a query on one of the archive's files, with the named fields.
Rows Query(const fs::path& dir, const std::string& file, const std::string& sql,
           const std::vector<std::string>& fields) {
  source::Connection connection;
  connection.Open("Driver={Firebird/InterBase(r) driver};Uid=SYSDBA;Pwd=gravelpin; DbName=" + (dir / file).string());
  source::Recordset recordset;
  Rows rows;
  for (recordset.Open(sql, connection); !recordset.Eof(); recordset.MoveNext()) {
    rows.emplace_back();
    for (const std::string& field : fields) rows.back()[field] = recordset.Field(field);
  }
  recordset.Close();
  connection.Close();
  return rows;
}

Rows User(const fs::path& dir, const std::string& sql, const std::vector<std::string>& fields) {
  return Query(dir, "GX_USER.FDB", sql, fields);
}

Rows Media(const fs::path& dir, const std::string& sql, const std::vector<std::string>& fields) {
  return Query(dir, "GX_MEDIA.FDB", sql, fields);
}

bool IsGzip(const Value& v) {
  const auto& b = v.bytes();
  return b.size() >= 3 && b[0] == 0x1F && b[1] == 0x8B && b[2] == 0x08;
}

// The content of a gzip stream, or nothing when the stream is cut or broken.
std::optional<std::string> Gunzip(const std::vector<uint8_t>& compressed) {
  z_stream stream{};
  EXPECT_EQ(inflateInit2(&stream, 15 + 16), Z_OK);
  stream.next_in = const_cast<Bytef*>(compressed.data());
  stream.avail_in = static_cast<uInt>(compressed.size());
  std::string plain;
  std::vector<char> piece(256 * 1024);
  int result = Z_OK;
  while (result == Z_OK) {
    stream.next_out = reinterpret_cast<Bytef*>(piece.data());
    stream.avail_out = static_cast<uInt>(piece.size());
    result = inflate(&stream, Z_NO_FLUSH);
    plain.append(piece.data(), piece.size() - stream.avail_out);
  }
  inflateEnd(&stream);
  return result == Z_STREAM_END ? std::optional(plain) : std::nullopt;
}

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

sample::SampleOptions Options(int patients, uint64_t seed = 1) {
  sample::SampleOptions options;
  options.patients = patients;
  options.seed = seed;
  return options;
}

// A sample shared by the tests that only read it.
class Sample : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new fixture::TempDir();
    summary_ = sample::GenerateSample((*folder_ / "sample"), Options(150, 7));
  }
  static void TearDownTestSuite() { delete folder_; }
  static fs::path dir() { return folder_->path() / "sample"; }

  static inline fixture::TempDir* folder_ = nullptr;
  static inline sample::SampleSummary summary_;
};

// What the plug-in reads is taken from the inspection's list of it, which
// is kept apart from the generator, so that a column the generator loses is
// caught.
TEST_F(Sample, HasAllThatThePlugInReadsAndIsTheSameForTheSameSeed) {
  const fixture::json report = inspect::ToJson(inspect::Inspect((dir() / "GX_USER.FDB").string()));
  EXPECT_TRUE(report["can_run_all"]);
  EXPECT_TRUE(report["doctors_table_usable"]);
  for (const fixture::json& category : report["categories"])
    for (const fixture::json& table : category["tables"])
      for (const fixture::json& column : table["columns"])
        EXPECT_TRUE(column["present"]) << table["table"] << "." << column["name"];
  EXPECT_EQ(report["tables"].size(), 18u);
  for (const fixture::json& table : report["tables"]) EXPECT_GT(table["rows"], 0) << table["table"];
  EXPECT_FALSE(Query(dir(), "GX_DATA.FDB", "SELECT * FROM COMUNI", {"CODICE"}).empty());
  EXPECT_EQ(report["patients"], 150);

  fixture::TempDir again;
  const sample::SampleSummary same = sample::GenerateSample(again / "same", Options(150, 7));
  sample::GenerateSample(again / "other", Options(150, 8));
  EXPECT_EQ(same.rows, summary_.rows);
  EXPECT_EQ(same.files, summary_.files);
  const auto content = support::DumpSource(dir());
  EXPECT_TRUE(support::DumpSource(again.path() / "same") == content);
  EXPECT_FALSE(support::DumpSource(again.path() / "other") == content);
}

TEST_F(Sample, HoldsTheAwkwardPatients) {
  std::map<std::string, std::map<std::string, Value>> patients;
  int without_card = 0;
  for (auto& row :
       User(dir(), "SELECT * FROM PAZIENTI",
            {"Cod_Cart", "cognome", "nome", "CodFisc", "DataNat", "CodiceSSN", "LuogoNat", "Citta", "DataRevoca"})) {
    if (row["Cod_Cart"].is_null()) {
      ++without_card;
    } else {
      patients[row["Cod_Cart"].text()] = row;
    }
  }
  EXPECT_EQ(without_card, 1);
  EXPECT_TRUE(patients.count(""));
  EXPECT_TRUE(patients.count("00'006"));
  EXPECT_EQ(host::TextOf(patients["000001"]["cognome"]), "D'Angelo");
  EXPECT_EQ(host::TextOf(patients["000001"]["nome"]), "Nicolò");  // stored in Windows-1252
  EXPECT_EQ(host::TextOf(patients["000002"]["nome"]), "François");
  // Only 000003 has neither tax code nor birth date nor SSN code.
  for (auto& [card, row] : patients)
    EXPECT_EQ(row["CodFisc"].is_null() && row["DataNat"].is_null() && row["CodiceSSN"].is_null(), card == "000003") << card;
  // Each planted failure has its patient and its cause.
  for (const sample::PlantedFailure& failure : sample::PlantedFailures()) {
    EXPECT_TRUE(patients.count(failure.card)) << failure.card;
    EXPECT_FALSE(failure.cause.empty()) << failure.card;
  }
  const std::string birthplace = host::TextOf(patients["000002"]["LuogoNat"]);
  EXPECT_GT(birthplace.size(), 30u);
  EXPECT_EQ(birthplace[0], ' ');
  EXPECT_GT(host::TextOf(patients["000002"]["Citta"]).size(), 30u);
  EXPECT_EQ(patients["000008"]["DataNat"].date(), (host::Date{1900, 1, 1}));
  EXPECT_EQ(patients["000008"]["DataRevoca"].date(), (host::Date{2099, 12, 31}));

  bool accented_doctor = false;
  for (auto& row : User(dir(), "SELECT * FROM STUDIO", {"cognome", "nome"}))
    accented_doctor |= host::TextOf(row["cognome"]) + " " + host::TextOf(row["nome"]) == "Lucchetti Nicolò";
  EXPECT_TRUE(accented_doctor);

  std::set<size_t> note_lengths;
  for (auto& row : User(dir(), "SELECT * FROM BIOMETRIC WHERE CodCart = '000001'", {"Note"}))
    note_lengths.insert(host::TextOf(row["Note"]).size());
  EXPECT_TRUE(note_lengths.count(12) && note_lengths.count(13));
}

// A real image of the kind that its extension names: a JPEG whose segments
// chain from the start of image to the scan and whose data ends with the end
// of image; a PNG whose chunks' CRCs hold and whose pixels inflate to the
// size of its header; a TIFF whose one strip fills the file to its end; an
// RTF document whole from its first brace to its last.
std::string BadImage(const std::string& extension, const std::string& file) {
  const auto u8 = [&](size_t at) { return static_cast<uint32_t>(static_cast<unsigned char>(file.at(at))); };
  const auto be16 = [&](size_t at) { return u8(at) << 8 | u8(at + 1); };
  const auto be32 = [&](size_t at) { return be16(at) << 16 | be16(at + 2); };
  const auto le32 = [&](size_t at) { return u8(at) | u8(at + 1) << 8 | u8(at + 2) << 16 | u8(at + 3) << 24; };
  if (extension == "jpg") {
    if (be16(0) != 0xFFD8 || be16(file.size() - 2) != 0xFFD9) return "no start or end of image";
    size_t at = 2;
    bool frame = false;
    while (be16(at) != 0xFFDA) {
      if (u8(at) != 0xFF) return "a segment doesn't start with a marker at " + std::to_string(at);
      frame |= u8(at + 1) == 0xC0;
      at += 2 + be16(at + 2);
    }
    if (!frame) return "no baseline frame";
    for (size_t i = at + 2 + be16(at + 2); i + 2 < file.size(); ++i) {
      if (u8(i) == 0xFF && u8(i + 1) != 0x00) return "an unstuffed 0xFF in the data at " + std::to_string(i);
    }
    return "";
  }
  if (extension == "png") {
    if (file.compare(0, 8, "\x89PNG\r\n\x1A\n") != 0) return "no signature";
    std::string pixels;
    uint32_t width = 0, height = 0;
    for (size_t at = 8; at < file.size();) {
      const uint32_t length = be32(at);
      const auto* chunk = reinterpret_cast<const Bytef*>(file.data() + at + 4);
      if (crc32(0, chunk, length + 4) != be32(at + 8 + length)) return "a bad CRC at " + std::to_string(at);
      const std::string type = file.substr(at + 4, 4), data = file.substr(at + 8, length);
      if (type == "IHDR") width = be32(at + 8), height = be32(at + 12);
      if (type == "IDAT") pixels += data;
      at += 12 + length;
    }
    uLongf size = (width + 1) * height + 1;
    std::string plain(size, '\0');
    const int result = uncompress(reinterpret_cast<Bytef*>(plain.data()), &size,
                                  reinterpret_cast<const Bytef*>(pixels.data()), static_cast<uLong>(pixels.size()));
    return result == Z_OK && size == (width + 1) * height ? "" : "pixels that don't fill the image";
  }
  if (extension == "tif") {
    if (file.compare(0, 4, std::string("II*\0", 4)) != 0) return "no header";
    const uint32_t directory = le32(4);
    uint32_t offset = 0, count = 0;
    for (uint32_t entry = 0; entry < (u8(directory) | u8(directory + 1) << 8); ++entry) {
      const size_t at = directory + 2 + 12 * entry;
      const uint32_t tag = u8(at) | u8(at + 1) << 8;
      if (tag == 273) offset = le32(at + 8);
      if (tag == 279) count = le32(at + 8);
    }
    return offset + count == file.size() ? "" : "a strip that doesn't end with the file";
  }
  if (extension == "rtf") return file.rfind("{\\rtf1", 0) == 0 && file.back() == '}' ? "" : "not an RTF document";
  return "";
}

// The documents exercise what a conversion meets in them: real images and
// RTF documents, plain and compressed; gzip streams that decompress but for
// the few meant to be broken; contents of 0 to 4 bytes and starts like a
// gzip stream with another third byte in every table of files; files of
// several MB in each; titles that lead out of a folder, hold a "/" or are
// blank; exams of every kind with a report; media that a report and a
// recording share.
TEST_F(Sample, HasDocumentsOfEveryForm) {
  std::set<std::string> broken_streams, short_contents, false_gzip, large, bad_files, forms, titles;
  std::map<std::string, int> checked;
  const auto look = [&](const std::string& table, Rows rows) {
    for (auto& row : rows) {
      if (row["bindata"].is_null()) continue;
      const auto& bytes = row["bindata"].bytes();
      const std::string where = table + " " + host::TextOf(row["CodCart"]) + " " + host::TextOf(row["Titolo"]);
      titles.insert(host::TextOf(row["Titolo"]));
      if (bytes.size() <= 4) short_contents.insert(table + " " + std::to_string(bytes.size()));
      if (bytes.size() >= 4 && bytes[0] == 0x1F && bytes[1] == 0x8B && bytes[2] != 0x08) false_gzip.insert(table);
      forms.insert(table + (IsGzip(row["bindata"]) ? " gzip" : " plain"));
      std::string content(bytes.begin(), bytes.end());
      if (IsGzip(row["bindata"])) {
        const std::optional<std::string> plain = Gunzip(bytes);
        if (!plain) {
          broken_streams.insert(where);
          continue;
        }
        content = *plain;
      }
      if (content.size() >= 3 * 1024 * 1024) large.insert(table);
      const std::string extension = table == "MODULI" ? "rtf" : host::TextOf(row["Settings"]);
      if (content.size() < 16 || (content[0] == '\x1F' && content[1] == '\x8B')) continue;
      if (const std::string fault = BadImage(extension, content); !fault.empty())
        bad_files.insert(where + ": " + fault);
      ++checked[extension];
    }
  };
  look("IMAGES", Media(dir(), "SELECT * FROM IMAGES", {"CodCart", "bindata", "Titolo", "Settings"}));
  look("SCANSIONI", Media(dir(), "SELECT * FROM SCANSIONI", {"CodCart", "bindata", "Titolo", "Settings"}));
  look("MODULI", Media(dir(), "SELECT * FROM MODULI", {"CodCart", "bindata", "Titolo"}));

  EXPECT_EQ(bad_files, std::set<std::string>{});
  EXPECT_GT(checked["jpg"] + checked["png"] + checked["tif"], 30);
  EXPECT_GT(checked["rtf"], 10);
  EXPECT_EQ(broken_streams,
            (std::set<std::string>{
                "IMAGES 000002 Archivio danneggiato", "IMAGES 000014 Rx troncata", "IMAGES 000015 Foto troncata",
                "IMAGES 000015 Inizio gzip", "MODULI 000015 Certificato troncato", "MODULI 000015 Tre byte gzip",
                "SCANSIONI 000002 Corto", "SCANSIONI 000015 Piano troncato", "IMAGES 000002 Tre byte"}));
  EXPECT_EQ(short_contents, (std::set<std::string>{"IMAGES 0", "IMAGES 1", "IMAGES 2", "IMAGES 3", "IMAGES 4",
                                                   "MODULI 1", "MODULI 2", "MODULI 3", "MODULI 4", "SCANSIONI 3", "SCANSIONI 4"}));
  EXPECT_EQ(false_gzip, (std::set<std::string>{"IMAGES", "MODULI", "SCANSIONI"}));
  EXPECT_EQ(large, (std::set<std::string>{"IMAGES", "MODULI", "SCANSIONI"}));
  EXPECT_EQ(forms, (std::set<std::string>{"IMAGES gzip", "IMAGES plain", "MODULI gzip", "MODULI plain",
                                          "SCANSIONI gzip", "SCANSIONI plain"}));
  for (const char* title : {"../referto", "Eco addome 12/03/2019", "   "}) EXPECT_TRUE(titles.count(title)) << title;

  // Every kind of exam has a report, and so has an exam without a date.
  std::map<std::string, std::string> kind_of_exam;
  for (auto& row : User(dir(), "SELECT * FROM ESAMI", {"CODESAME", "tipo", "Data"})) {
    kind_of_exam[host::TextOf(row["CODESAME"])] =
        row["tipo"].is_null() ? "Null" : host::TextOf(row["tipo"]) + (row["Data"].is_null() ? " undated" : "");
  }
  std::set<std::string> reported;
  for (auto& row : User(dir(), "SELECT * FROM REFERTI", {"CODESAME"})) {
    const std::string kind = kind_of_exam[host::TextOf(row["CODESAME"])];
    reported.insert(kind.substr(0, kind.find(' ')));
    if (kind.find("undated") != std::string::npos) reported.insert("undated");
  }
  for (const char* kind : {"0", "1", "2", "3", "4", "5", "6", "Null", "undated"}) EXPECT_TRUE(reported.count(kind)) << kind;

  // One patient's exam image and another of his images share a MediaCode;
  // another image of his has none.
  std::set<std::string> exam_media, other_media;
  for (auto& row : Media(dir(), "SELECT * FROM IMAGES WHERE CodCart = '000014'", {"CodEsame", "MediaCode"}))
    (row["CodEsame"].is_null() ? other_media : exam_media).insert(row["MediaCode"].is_null() ? "Null" : row["MediaCode"].text());
  EXPECT_TRUE(exam_media.count("MC-COMUNE-14") && other_media.count("MC-COMUNE-14"));
  EXPECT_TRUE(other_media.count("Null"));
}

// Most codes of the sample find their entry in the shipped catalogues, and
// some don't, as in a real archive whose catalogues have moved on.
TEST_F(Sample, CodesMostlyResolveInTheShippedCatalogues) {
  const auto expect_share = [](const std::string& name, const std::string& header,
                               const std::vector<std::string>& keys, double least) {
    std::ifstream file(fs::path(KAIRON_DATA_DIR) / name);
    std::string line;
    std::getline(file, line);
    EXPECT_EQ(line, header);
    std::set<std::string> codes;
    while (std::getline(file, line)) codes.insert(line.substr(0, line.find(',')));
    const auto hits = std::count_if(keys.begin(), keys.end(), [&](const std::string& key) { return codes.count(key); });
    EXPECT_LT(hits, static_cast<long>(keys.size())) << name;
    EXPECT_GT(hits, least * keys.size()) << name;
  };
  std::vector<std::string> diagnoses, drugs, exemptions;
  for (auto& row : User(dir(), "SELECT * FROM VISITE", {"Titolo"})) {
    const std::string title = host::TextOf(row["Titolo"]);
    const size_t marker = title.find("- (");
    if (marker != std::string::npos && title.size() >= marker + 4)
      diagnoses.push_back(title.substr(marker + 3, title.size() - marker - 4));
  }
  for (const char* table : {"TERAPIE", "REAZIONI"})
    for (auto& row : User(dir(), std::string("SELECT * FROM ") + table + " WHERE CodTer <> ''", {"CodTer"}))
      drugs.push_back(Trimmed(row["CodTer"].text()));
  for (auto& row : User(dir(), "SELECT * FROM ESENZIONI", {"Codice", "COD_ICD1"})) {
    const std::string icd = host::TextOf(row["COD_ICD1"]);
    exemptions.push_back(host::TextOf(row["Codice"]) + (icd.empty() ? "" : "." + icd));
  }
  expect_share("icd9.csv", "code,ID,Descrizione", diagnoses, 0.8);
  expect_share("farmaci.csv", "code,Descrizione,Tipo", drugs, 0.9);
  expect_share("esenzioni.csv", "code,ID,Descrizione,CodiceFarmaci,CodiceEsami", exemptions, 0.7);
}

// The command writes a sample, and refuses to write over one without
// --force, leaving it as it was and saying why; one file in the way is
// enough, and nothing else is made.
TEST(SampleFolder, RefusesExistingDatabasesUnlessForced) {
  fixture::TempDir folder;
  const auto run = [&](const std::string& arguments) {
    const int status =
        std::system((std::string(KAIRON_SAMPLE_PATH) + " " + arguments + " >" + (folder / "out") + " 2>&1").c_str());
    return std::pair(WEXITSTATUS(status), support::ReadFile(folder / "out"));
  };
  const std::string archive = folder / "archive";
  auto [status, text] = run("--out " + archive + " --patients 3 --seed 5");
  EXPECT_EQ(status, 0) << text;
  EXPECT_NE(text.find("3 patients"), std::string::npos) << text;
  const auto written = fs::last_write_time(fs::path(archive) / "GX_USER.FDB");

  std::tie(status, text) = run("--out " + archive + " --patients 4");
  EXPECT_EQ(status, 2);
  EXPECT_NE(text.find("--force"), std::string::npos) << text;
  EXPECT_EQ(fs::last_write_time(fs::path(archive) / "GX_USER.FDB"), written);
  std::tie(status, text) = run("--out " + archive + " --patients 4 --force");
  EXPECT_EQ(status, 0) << text;
  EXPECT_EQ(User(archive, "SELECT * FROM PAZIENTI", {"cognome"}).size(), 4u);
  EXPECT_EQ(run("--patients 3").first, 2);

  fixture::TempDir partial;
  std::ofstream(partial / "GX_MEDIA.FDB") << "not a database";
  EXPECT_THROW(sample::Archive::Create(partial.path().string()), sample::ExistingArchive);
  EXPECT_FALSE(fs::exists(partial.path() / "GX_USER.FDB"));
}

TEST(SampleSchema, ChangedAndDroppedColumnsShapeWhatATestWrites) {
  std::vector<sample::Table> schema = sample::DefaultSchema();
  EXPECT_THROW(sample::SetColumnType(schema, "BIOMETRIC", "Altezza", "INTEGER"), std::invalid_argument);
  EXPECT_THROW(sample::DropTable(schema, "NOTE"), std::invalid_argument);
  sample::SetColumnType(schema, "biometric", "data", "VARCHAR(20)");
  sample::DropColumn(schema, "BIOMETRIC", "PADIST");
  sample::DropTable(schema, "VACCINI");

  fixture::TempDir folder;
  auto archive = sample::Archive::Create(folder.path().string(), schema);
  archive->Insert("BIOMETRIC", {{"CodCart", "1"}, {"Data", "31/02/2020"}, {"PADIST", "80"}, {"PASIST", "120"}});
  archive->Insert("VACCINI", {{"CodCart", "1"}, {"Testo", "Antitetanica"}});
  EXPECT_THROW(archive->Insert("BIOMETRIC", {{"Altezza", 180.0}}), std::invalid_argument);
  EXPECT_THROW(archive->Insert("NOTE", {{"CodCart", "1"}}), std::invalid_argument);
  archive->Close();
  archive->Close();
  EXPECT_EQ(archive->user_path(), (folder.path() / "GX_USER.FDB").string());

  const Rows rows = User(folder.path(), "SELECT * FROM BIOMETRIC", {"Data", "PASIST", "BMI"});
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].at("Data"), Value("31/02/2020"));
  EXPECT_EQ(rows[0].at("PASIST"), Value("120"));
  EXPECT_TRUE(rows[0].at("BMI").is_null());
  EXPECT_THROW(User(folder.path(), "SELECT * FROM BIOMETRIC", {"PADIST"}), host::Failure);
}

// Converted with every category, the sample fails where it is planted to and
// nowhere else, also with --media-mb, which spreads about that many MB over
// the ordinary patients' scans, plans' scans and documents (long documents,
// plain and gzip, titled with a date) and leaves every other row as it was.
TEST(SampleConversion, MediaAddOnlyThemselvesAndEveryCategoryFailsOnlyWherePlanted) {
  std::multiset<std::string> planted;
  for (const sample::PlantedFailure& failure : sample::PlantedFailures()) planted.insert(failure.category);
  // The rows of a sample but those of the media, told by their codes and
  // titles, and without the identity numbers of the tables that have them,
  // since rows of the media come between the others.
  const auto without_media = [](std::map<std::string, std::vector<std::string>> tables) {
    for (auto& [table, rows] : tables) {
      std::erase_if(rows, [](const std::string& row) {
        for (const char* mark : {"2:MB", "2:PB", "2:Diario clinico del "})
          if (row.find(mark) != std::string::npos) return true;
        return false;
      });
      const std::string name = table.substr(table.find('/') + 1);
      if (name != "ESAMI" && name != "REFERTI" && name != "IMAGES" && name != "COMUNI")
        for (std::string& row : rows) row.erase(0, row.find('\x1f') + 1);
      std::sort(rows.begin(), rows.end());
    }
    return tables;
  };
  fixture::TempDir folder;
  for (int media_mb : {0, 24}) {
    SCOPED_TRACE("--media-mb " + std::to_string(media_mb));
    const fs::path dir = folder.path() / std::to_string(media_mb);
    sample::SampleOptions options = Options(60);
    options.media_mb = media_mb;
    const sample::SampleSummary summary = sample::GenerateSample(dir.string(), options);
    if (media_mb > 0) {
      EXPECT_GT(summary.media_bytes, 0.95 * media_mb * 1024 * 1024);
      EXPECT_LT(summary.media_bytes, 1.05 * media_mb * 1024 * 1024);
      std::set<std::string> bulk_patients;
      for (auto& row : Media(dir, "SELECT * FROM IMAGES WHERE MediaCode STARTING WITH 'MB'",
                             {"CodCart", "bindata", "Record"})) {
        EXPECT_GE(row["Record"].integer(), 1000000000);
        const auto& bytes = row["bindata"].bytes();
        const std::string page =
            IsGzip(row["bindata"]) ? Gunzip(bytes).value_or("") : std::string(bytes.begin(), bytes.end());
        EXPECT_EQ(BadImage("tif", page), "") << host::TextOf(row["CodCart"]);
        bulk_patients.insert(host::TextOf(row["CodCart"]));
      }
      EXPECT_GT(bulk_patients.size(), 15u);
      EXPECT_EQ(bulk_patients.count("000023"), 0u);
      int plain_diaries = 0;
      for (auto& row : Media(dir, "SELECT * FROM MODULI WHERE Titolo STARTING WITH 'Diario clinico del '", {"bindata"}))
        plain_diaries += !IsGzip(row["bindata"]);
      EXPECT_GT(plain_diaries, 1);
      EXPECT_TRUE(without_media(support::DumpSource(dir)) == without_media(support::DumpSource(folder.path() / "0")));
    }
    fixture::Run run = fixture::Convert((dir / "GX_USER.FDB").string());
    EXPECT_TRUE(run.outcome.result);
    std::multiset<std::string> failed;
    for (const std::string& message : run.Messages()) {
      if (message.rfind("AddInfo: ", 0) != 0) continue;
      size_t dash = message.find(" - "), errore = message.find(" Errore ");
      failed.insert(dash == std::string::npos || errore == std::string::npos
                        ? ""
                        : message.substr(dash + 3, errore - dash - 3));
    }
    EXPECT_EQ(failed, planted);
    EXPECT_EQ(run.outcome.patients_err, static_cast<int>(planted.size()));
    EXPECT_GT(run.outcome.files, 20);
  }
}

}  // namespace
