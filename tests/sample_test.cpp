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
#include <iterator>
#include <map>
#include <optional>
#include <set>

#include "host/failure.h"
#include "source/connection.h"
#include "source/recordset.h"
#include "support/fixture.h"

namespace {

namespace fs = std::filesystem;
using host::Value;

// What the plug-in reads, written out here rather than taken from the
// generator, so that a column the generator loses is caught.
struct ReadTable {
  std::string name;
  std::string file;
  std::vector<std::string> columns;
};

std::vector<ReadTable> TablesThePlugInReads() {
  std::vector<std::string> free_prescriptions = {"CodCart", "DATAEMI", "Indic1", "CodEsenz"};
  for (int line = 1; line <= 8; ++line) {
    free_prescriptions.push_back("Row_" + std::to_string(line));
    free_prescriptions.push_back("Qta_" + std::to_string(line));
  }
  return {
      {"PAZIENTI", "GX_USER.FDB", {"Cod_Cart", "cognome",  "nome",     "CodFisc",    "DataNat",        "CodiceSSN",
                                   "Sex",      "LuogoNat", "PrvNat",   "Indirizzo",  "NumCivico",      "Citta",
                                   "CAP",      "Nazione",  "Telefono", "Recapito",   "Prov",           "Email",
                                   "Email2",   "ASL",      "DataDec",  "DataScelta", "dataScadenza_T", "DataRevoca"}},
      {"STUDIO", "GX_USER.FDB", {"cognome", "nome"}},
      {"BIOMETRIC", "GX_USER.FDB", {"CodCart", "Data", "Note", "PADIST", "PASIST", "Peso", "Statura", "BMI"}},
      {"CERTINPS",
       "GX_USER.FDB",
       {"CodCart", "DATAINI", "DATATER", "DATAEMI", "Diag", "Inizio", "Continua", "Ricaduta", "SEND_ID"}},
      {"ESAMI",
       "GX_USER.FDB",
       {"CodCart", "tipo", "RECORD", "Data", "Testo", "Esenzione", "CodRif", "Indicaz", "CODESAME"}},
      {"ESENZIONI", "GX_USER.FDB", {"CodCart", "Emissione", "Scadenza", "Codice", "COD_ICD1"}},
      {"MESSAGES", "GX_USER.FDB", {"CodCart", "Data_Iniz", "MESG"}},
      {"PIANOTERAP",
       "GX_USER.FDB",
       {"CodCart", "Diagnosi", "COD_SCAN", "CODPIANO", "DataRedaz", "Scadenza", "COD_AIC", "Farmaco", "NOTA_AIFA",
        "Posolog", "Medico"}},
      {"PRESTAZIONI", "GX_USER.FDB", {"CodCart", "Data", "Prestazione", "Diagnosi", "Annotazioni"}},
      {"REAZIONI", "GX_USER.FDB", {"CodCart", "Data", "Testo", "CodTer"}},
      {"REFERTI", "GX_USER.FDB", {"CodCart", "CODESAME", "Testo", "Record"}},
      {"RICETTE", "GX_USER.FDB", free_prescriptions},
      {"TERAPIE",
       "GX_USER.FDB",
       {"CodCart", "Data", "Testo", "Esenzione", "Classe", "CodTer", "NumPezzi", "NOTA", "Indicaz", "CodATC",
        "Importo"}},
      {"VACCINI", "GX_USER.FDB", {"CodCart", "Data", "Testo", "Note", "DATARICH"}},
      {"VISITE", "GX_USER.FDB", {"CodCart", "Inizio", "termine", "Titolo", "Testo"}},
      {"VISNOTE", "GX_USER.FDB", {"CodCart", "Data", "Testo"}},
      {"IMAGES",
       "GX_MEDIA.FDB",
       {"CodCart", "CodEsame", "Record", "MediaCode", "Data", "bindata", "Titolo", "Settings", "ORGName"}},
      {"MODULI", "GX_MEDIA.FDB", {"CodCart", "bindata", "Titolo", "Data"}},
      {"SCANSIONI", "GX_MEDIA.FDB", {"CODESAME", "bindata", "Titolo", "Settings"}},
  };
}

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
  std::string plain;
  std::vector<char> piece(256 * 1024);
  stream.next_in = const_cast<Bytef*>(compressed.data());
  stream.avail_in = static_cast<uInt>(compressed.size());
  int result = Z_OK;
  while (result == Z_OK) {
    stream.next_out = reinterpret_cast<Bytef*>(piece.data());
    stream.avail_out = static_cast<uInt>(piece.size());
    result = inflate(&stream, Z_NO_FLUSH);
    plain.append(piece.data(), piece.size() - stream.avail_out);
    if (result == Z_BUF_ERROR && stream.avail_in == 0) break;
  }
  inflateEnd(&stream);
  if (result != Z_STREAM_END) return std::nullopt;
  return plain;
}

// Every row of every table the plug-in reads, as text, sorted: the content
// of an archive apart from the physical layout of its files.
std::vector<std::string> Content(const fs::path& dir) {
  std::vector<std::string> lines;
  for (const ReadTable& table : TablesThePlugInReads()) {
    for (const auto& row : Query(dir, table.file, "SELECT * FROM " + table.name, table.columns)) {
      std::string line = table.name;
      for (const auto& [column, value] : row) {
        line += "|" + column + "=";
        if (value.type() == host::Type::Bytes) {
          line += "bytes:" + std::to_string(value.bytes().size()) + ":" +
                  std::to_string(crc32(0, value.bytes().data(), static_cast<uInt>(value.bytes().size())));
        } else {
          line += std::to_string(static_cast<int>(value.type())) + ":" + host::TextOf(value);
        }
      }
      lines.push_back(line);
    }
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

sample::SampleOptions Options(int patients, uint64_t seed = 1, bool force = false) {
  sample::SampleOptions options;
  options.patients = patients;
  options.seed = seed;
  options.force = force;
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

  static fixture::TempDir* folder_;
  static sample::SampleSummary summary_;
};

fixture::TempDir* Sample::folder_ = nullptr;
sample::SampleSummary Sample::summary_;

TEST_F(Sample, HasEveryTableAndColumnThatThePlugInReadsOnItsDatabase) {
  for (const ReadTable& table : TablesThePlugInReads()) {
    SCOPED_TRACE(table.name);
    const Rows rows = Query(dir(), table.file, "SELECT * FROM " + table.name, table.columns);
    EXPECT_FALSE(rows.empty());
  }
  EXPECT_FALSE(Query(dir(), "GX_DATA.FDB", "SELECT * FROM COMUNI", {"CODICE"}).empty());
  EXPECT_EQ(summary_.patients, 150);
  EXPECT_EQ(User(dir(), "SELECT * FROM PAZIENTI", {"cognome"}).size(), 150u);
}

TEST_F(Sample, IsTheSameForTheSameSeedAndDiffersForAnother) {
  fixture::TempDir again;
  const sample::SampleSummary same = sample::GenerateSample(again / "same", Options(150, 7));
  sample::GenerateSample(again / "other", Options(150, 8));

  EXPECT_EQ(same.rows, summary_.rows);
  EXPECT_EQ(same.files, summary_.files);
  const std::vector<std::string> content = Content(dir());
  EXPECT_EQ(Content(again.path() / "same"), content);
  EXPECT_NE(Content(again.path() / "other"), content);
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
  for (const char* column : {"CodFisc", "DataNat", "CodiceSSN"}) EXPECT_TRUE(patients["000003"][column].is_null());
  const std::string birthplace = host::TextOf(patients["000002"]["LuogoNat"]);
  EXPECT_GT(birthplace.size(), 30u);
  EXPECT_EQ(birthplace[0], ' ');
  EXPECT_GT(host::TextOf(patients["000002"]["Citta"]).size(), 30u);
  EXPECT_EQ(patients["000008"]["DataNat"].date(), (host::Date{1900, 1, 1}));
  EXPECT_EQ(patients["000008"]["DataRevoca"].date(), (host::Date{2099, 12, 31}));

  bool accented_doctor = false;
  for (auto& row : User(dir(), "SELECT * FROM STUDIO", {"cognome", "nome"})) {
    accented_doctor |= host::TextOf(row["cognome"]) + " " + host::TextOf(row["nome"]) == "Lucchetti Nicolò";
  }
  EXPECT_TRUE(accented_doctor);

  std::set<size_t> note_lengths;
  for (auto& row : User(dir(), "SELECT * FROM BIOMETRIC WHERE CodCart = '000001'", {"Note"})) {
    note_lengths.insert(host::TextOf(row["Note"]).size());
  }
  EXPECT_TRUE(note_lengths.count(12) && note_lengths.count(13));
}

TEST_F(Sample, StoresFilesPlainGzippedAndTooShort) {
  std::set<size_t> short_sizes;
  std::set<std::string> titles;
  int gzipped = 0, plain = 0;
  for (auto& row : Media(dir(), "SELECT * FROM IMAGES WHERE CodCart = '000002'", {"bindata", "Titolo"})) {
    const auto& bytes = row["bindata"].bytes();
    if (bytes.size() < 4) short_sizes.insert(bytes.size());
    (IsGzip(row["bindata"]) ? gzipped : plain) += 1;
    titles.insert(host::TextOf(row["Titolo"]));
  }
  EXPECT_EQ(short_sizes, (std::set<size_t>{0, 1, 2, 3}));
  EXPECT_GT(gzipped, 1);
  EXPECT_GT(plain, 1);
  EXPECT_TRUE(titles.count("../referto") && titles.count("Eco addome 12/03/2019") && titles.count("   "));

  int documents = 0;
  for (auto& row : Media(dir(), "SELECT * FROM MODULI", {"bindata"})) {
    if (row["bindata"].is_null() || row["bindata"].bytes().size() < 2) continue;
    const auto& bytes = row["bindata"].bytes();
    const bool gzip_start = bytes[0] == 0x1F && bytes[1] == 0x8B;
    if (gzip_start && (!IsGzip(row["bindata"]) || !Gunzip(bytes))) continue;  // see DocumentsOfEveryForm
    const std::string rtf = IsGzip(row["bindata"]) ? *Gunzip(bytes) : std::string(bytes.begin(), bytes.end());
    if (rtf.size() < 6) continue;
    EXPECT_EQ(rtf.rfind("{\\rtf1", 0), 0u) << rtf.substr(0, 40);
    EXPECT_EQ(rtf.back(), '}');
    ++documents;
  }
  EXPECT_GT(documents, 10);
}

// The sample is meant to convert cleanly but for its planted failures: the
// rows that would make a converter fail are found here from the rows alone,
// and must belong to the planted patients and to them only, each trap under
// the category that the list names.
TEST_F(Sample, TripsNoConverterButWhereItMeansTo) {
  std::map<std::string, std::set<std::string>> traps;  // card -> categories that its rows trip
  const auto trap = [&](const Value& card, const std::string& category) { traps[host::TextOf(card)].insert(category); };

  for (auto& row : User(dir(), "SELECT * FROM VISITE", {"CodCart", "Titolo"})) {
    const std::string title = host::TextOf(row["Titolo"]);
    if (title.size() >= 3 && title.compare(title.size() - 3, 3, "- (") == 0) trap(row["CodCart"], "Diagnosi");
  }
  for (auto& row : User(dir(), "SELECT * FROM TERAPIE", {"CodCart", "Testo", "Data"})) {
    if (!Trimmed(host::TextOf(row["Testo"])).empty() && row["Data"].is_null()) {
      trap(row["CodCart"], "Prescrizioni Farmaceutiche");
    }
  }
  std::vector<std::string> lines = {"CodCart"};
  for (int line = 1; line <= 8; ++line) {
    lines.push_back("Row_" + std::to_string(line));
    lines.push_back("Qta_" + std::to_string(line));
  }
  for (auto& row : User(dir(), "SELECT * FROM RICETTE", lines)) {
    for (int line = 1; line <= 8; ++line) {
      const std::string text = Trimmed(host::TextOf(row["Row_" + std::to_string(line)]));
      const bool in_use = !text.empty() && !(line == 1 && text == ".");
      if (in_use && row["Qta_" + std::to_string(line)].is_null()) trap(row["CodCart"], "Prescrizioni Libere");
    }
  }

  // Reports: an exam that two reports name and that has images; an image of
  // a reported exam without content, or with a blank title and an ORGName
  // too short to cut.
  std::map<std::string, int> reports_of_exam;
  for (auto& row : User(dir(), "SELECT * FROM REFERTI", {"CODESAME"})) ++reports_of_exam[host::TextOf(row["CODESAME"])];
  for (auto& row : Media(dir(), "SELECT * FROM IMAGES", {"CodCart", "bindata", "CodEsame", "Titolo", "ORGName"})) {
    const int reports = row["CodEsame"].is_null() ? 0 : reports_of_exam[row["CodEsame"].text()];
    if (reports == 0) {
      if (row["bindata"].is_null()) trap(row["CodCart"], "Registrazioni Private");
      continue;
    }
    if (reports > 1) trap(row["CodCart"], "Referti");
    const bool blank_title = Trimmed(host::TextOf(row["Titolo"])).empty();
    if (row["bindata"].is_null() || (blank_title && host::TextOf(row["ORGName"]).size() < 4)) {
      trap(row["CodCart"], "Referti");
    }
  }
  for (auto& row : Media(dir(), "SELECT * FROM SCANSIONI WHERE bindata IS NULL", {"CodCart"})) {
    trap(row["CodCart"], "Piani Terapeutici");
  }
  for (auto& row : Media(dir(), "SELECT * FROM MODULI WHERE bindata IS NOT NULL", {"CodCart", "bindata", "Titolo"})) {
    if (row["bindata"].bytes().size() == 2) trap(row["CodCart"], "Certificati");
    if (!IsGzip(row["bindata"]) && host::TextOf(row["Titolo"]).find('/') != std::string::npos) {
      trap(row["CodCart"], "Certificati");
    }
  }

  // The planted list: the rows' traps, one category to a patient, plus the
  // two patients that fail before any category.
  std::map<std::string, std::set<std::string>> planted;
  for (const sample::PlantedFailure& failure : sample::PlantedFailures()) {
    EXPECT_FALSE(failure.cause.empty()) << failure.card;
    if (failure.category.empty() || failure.category == "Anagrafica") continue;
    planted[failure.card].insert(failure.category);
  }
  EXPECT_EQ(traps, planted);
  EXPECT_EQ(planted.size(), 10u);

  std::set<std::string> cards;
  for (auto& row : User(dir(), "SELECT * FROM PAZIENTI", {"Cod_Cart", "CodFisc", "DataNat", "CodiceSSN"})) {
    if (row["Cod_Cart"].is_null()) continue;
    cards.insert(row["Cod_Cart"].text());
    const bool unidentified = row["CodFisc"].is_null() && row["DataNat"].is_null() && row["CodiceSSN"].is_null();
    EXPECT_EQ(unidentified, row["Cod_Cart"].text() == "000003");
  }
  for (const sample::PlantedFailure& failure : sample::PlantedFailures()) EXPECT_TRUE(cards.count(failure.card));
}

// A real image of the kind that its extension names: a JPEG whose segments
// chain from the start of image to the scan and whose data ends with the end
// of image; a PNG whose chunks' CRCs hold and whose pixels inflate to the
// size of its header; a TIFF whose one strip fills the file to its end.
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
  return "";
}

// The documents exercise what a conversion meets in them: real images and
// RTF documents, plain and compressed; gzip streams that decompress but for
// the few meant to be broken; contents of 3 and 4 bytes and starts like a
// gzip stream with another third byte in every table of files; files of
// several MB in each; exams of every kind with a report; media that a
// report and a recording share.
TEST_F(Sample, HasDocumentsOfEveryForm) {
  std::set<std::string> broken_streams, short_contents, false_gzip, large, bad_images;
  int images_checked = 0;
  const auto look = [&](const std::string& table, Rows rows) {
    for (auto& row : rows) {
      if (row["bindata"].is_null()) continue;
      const auto& bytes = row["bindata"].bytes();
      const std::string where = table + " " + host::TextOf(row["CodCart"]) + " " + host::TextOf(row["Titolo"]);
      if (bytes.size() == 3 || bytes.size() == 4) short_contents.insert(table + " " + std::to_string(bytes.size()));
      if (bytes.size() >= 4 && bytes[0] == 0x1F && bytes[1] == 0x8B && bytes[2] != 0x08) false_gzip.insert(table);
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
      const std::string extension = table == "MODULI" ? "" : host::TextOf(row["Settings"]);
      if (content.size() < 16 || (content[0] == '\x1F' && content[1] == '\x8B')) continue;
      if (const std::string fault = BadImage(extension, content); !fault.empty())
        bad_images.insert(where + ": " + fault);
      images_checked += extension == "jpg" || extension == "png" || extension == "tif";
    }
  };
  look("IMAGES", Media(dir(), "SELECT * FROM IMAGES", {"CodCart", "bindata", "Titolo", "Settings"}));
  look("SCANSIONI", Media(dir(), "SELECT * FROM SCANSIONI", {"CodCart", "bindata", "Titolo", "Settings"}));
  look("MODULI", Media(dir(), "SELECT * FROM MODULI", {"CodCart", "bindata", "Titolo"}));

  EXPECT_EQ(bad_images, std::set<std::string>{});
  EXPECT_GT(images_checked, 30);
  EXPECT_EQ(broken_streams,
            (std::set<std::string>{
                "IMAGES 000002 Archivio danneggiato", "IMAGES 000014 Rx troncata", "IMAGES 000015 Foto troncata",
                "IMAGES 000015 Inizio gzip", "MODULI 000015 Certificato troncato", "MODULI 000015 Tre byte gzip",
                "SCANSIONI 000002 Corto", "SCANSIONI 000015 Piano troncato", "IMAGES 000002 Tre byte"}));
  EXPECT_EQ(short_contents,
            (std::set<std::string>{"IMAGES 3", "IMAGES 4", "MODULI 3", "MODULI 4", "SCANSIONI 3", "SCANSIONI 4"}));
  EXPECT_EQ(false_gzip, (std::set<std::string>{"IMAGES", "MODULI", "SCANSIONI"}));
  EXPECT_EQ(large, (std::set<std::string>{"IMAGES", "MODULI", "SCANSIONI"}));

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
  for (const char* kind : {"0", "1", "2", "3", "4", "5", "6", "Null", "undated"})
    EXPECT_TRUE(reported.count(kind)) << kind;

  // One patient's exam image and another of his images share a MediaCode;
  // another image of his has none.
  std::map<std::string, std::set<std::string>> exam_media, other_media;
  for (auto& row : Media(dir(), "SELECT * FROM IMAGES WHERE CodCart = '000014'", {"CodEsame", "MediaCode"})) {
    (row["CodEsame"].is_null() ? other_media : exam_media)["000014"].insert(
        row["MediaCode"].is_null() ? "Null" : row["MediaCode"].text());
  }
  EXPECT_TRUE(exam_media["000014"].count("MC-COMUNE-14") && other_media["000014"].count("MC-COMUNE-14"));
  EXPECT_TRUE(other_media["000014"].count("Null"));
}

// --media-mb spreads about that many MB over the ordinary patients' scans,
// plans' scans and documents, and leaves every other row as it was.
TEST(SampleMedia, AddsTheMegabytesAskedForAndNothingElse) {
  fixture::TempDir folder;
  sample::SampleOptions options = Options(40, 3);
  const sample::SampleSummary plain = sample::GenerateSample(folder / "plain", options);
  options.media_mb = 80;
  const sample::SampleSummary media = sample::GenerateSample(folder / "media", options);

  EXPECT_GT(media.media_bytes, 76 * 1024 * 1024);
  EXPECT_LT(media.media_bytes, 84 * 1024 * 1024);
  EXPECT_EQ(media.patients, plain.patients);

  std::set<std::string> bulk_patients;
  for (auto& row : Media(folder.path() / "media", "SELECT * FROM IMAGES WHERE MediaCode STARTING WITH 'MB'",
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

  // Without the rows of the media, told by their codes and titles: the same
  // sample.
  const auto without_bulk = [](std::vector<std::string> lines) {
    std::erase_if(lines, [](const std::string& line) {
      for (const char* mark : {"=2:MB", "=2:PB", "Titolo=2:Diario clinico del "}) {
        if (line.find(mark) != std::string::npos) return true;
      }
      return false;
    });
    return lines;
  };
  EXPECT_EQ(without_bulk(Content(folder.path() / "media")), Content(folder.path() / "plain"));
}

// The codes of a catalogue: the first field of each line after the header,
// which must be the one given.
std::set<std::string> CatalogueCodes(const std::string& name, const std::string& header) {
  std::ifstream file(fs::path(KAIRON_DATA_DIR) / name);
  std::string line;
  std::getline(file, line);
  EXPECT_EQ(line, header);
  std::set<std::string> codes;
  while (std::getline(file, line)) codes.insert(line.substr(0, line.find(',')));
  return codes;
}

// Most codes of the sample find their entry, and some don't, as in a real
// archive whose catalogues have moved on.
TEST_F(Sample, CodesMostlyResolveInTheShippedCatalogues) {
  const auto share = [](int hits, int misses) { return static_cast<double>(hits) / (hits + misses); };

  const std::set<std::string> icd9 = CatalogueCodes("icd9.csv", "code,ID,Descrizione");
  int hits = 0, misses = 0;
  for (auto& row : User(dir(), "SELECT * FROM VISITE", {"Titolo"})) {
    const std::string title = host::TextOf(row["Titolo"]);
    const size_t marker = title.find("- (");
    if (marker == std::string::npos || title.size() < marker + 4) continue;
    (icd9.count(title.substr(marker + 3, title.size() - marker - 4)) ? hits : misses) += 1;
  }
  EXPECT_GT(misses, 0);
  EXPECT_GT(share(hits, misses), 0.8);

  const std::set<std::string> drugs = CatalogueCodes("farmaci.csv", "code,Descrizione,Tipo");
  hits = misses = 0;
  for (const char* table : {"TERAPIE", "REAZIONI"}) {
    for (auto& row : User(dir(), std::string("SELECT * FROM ") + table + " WHERE CodTer <> ''", {"CodTer"})) {
      (drugs.count(Trimmed(row["CodTer"].text())) ? hits : misses) += 1;
    }
  }
  EXPECT_GT(misses, 0);
  EXPECT_GT(share(hits, misses), 0.9);

  const std::set<std::string> exemptions =
      CatalogueCodes("esenzioni.csv", "code,ID,Descrizione,CodiceFarmaci,CodiceEsami");
  hits = misses = 0;
  for (auto& row : User(dir(), "SELECT * FROM ESENZIONI", {"Codice", "COD_ICD1"})) {
    std::string key = host::TextOf(row["Codice"]);
    if (!host::TextOf(row["COD_ICD1"]).empty()) key += "." + host::TextOf(row["COD_ICD1"]);
    (exemptions.count(key) ? hits : misses) += 1;
  }
  EXPECT_GT(misses, 0);
  EXPECT_GT(share(hits, misses), 0.7);
}

TEST(SampleFolder, RefusesExistingDatabasesUnlessForced) {
  fixture::TempDir folder;
  sample::GenerateSample(folder.path().string(), Options(2));
  const auto written = fs::last_write_time(folder.path() / "GX_USER.FDB");

  EXPECT_THROW(sample::GenerateSample(folder.path().string(), Options(3)), sample::ExistingArchive);
  EXPECT_EQ(fs::last_write_time(folder.path() / "GX_USER.FDB"), written);
  EXPECT_EQ(sample::GenerateSample(folder.path().string(), Options(3, 1, true)).patients, 3);

  // One file in the way is enough, and nothing else is made.
  fixture::TempDir partial;
  std::ofstream(partial / "GX_MEDIA.FDB") << "not a database";
  EXPECT_THROW(sample::Archive::Create(partial.path().string()), sample::ExistingArchive);
  EXPECT_FALSE(fs::exists(partial.path() / "GX_USER.FDB"));
}

TEST(SampleCommandLine, WritesRefusesAndSaysWhy) {
  fixture::TempDir folder;
  const auto run = [&](const std::string& arguments) {
    const std::string command =
        std::string(KAIRON_SAMPLE_PATH) + " " + arguments + " >" + (folder / "out") + " 2>" + (folder / "err");
    const int status = std::system(command.c_str());
    std::string text;
    for (const char* stream : {"out", "err"}) {
      std::ifstream file(folder / stream);
      text.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return std::pair(WEXITSTATUS(status), text);
  };
  const std::string archive = folder / "archive";

  auto [status, text] = run("--out " + archive + " --patients 3 --seed 5");
  EXPECT_EQ(status, 0) << text;
  EXPECT_NE(text.find("3 patients"), std::string::npos) << text;

  std::tie(status, text) = run("--out " + archive + " --patients 3");
  EXPECT_EQ(status, 2);
  EXPECT_NE(text.find("--force"), std::string::npos) << text;

  std::tie(status, text) = run("--out " + archive + " --patients 3 --force");
  EXPECT_EQ(status, 0) << text;

  std::tie(status, text) = run("--patients 3");
  EXPECT_EQ(status, 2) << text;
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
// nowhere else, also with media, whose long documents (plain and gzip) are
// titled with a date.
TEST(SampleConversion, EveryCategoryFailsOnlyWherePlanted) {
  std::multiset<std::string> planted;
  for (const sample::PlantedFailure& failure : sample::PlantedFailures()) planted.insert(failure.category);
  for (int media_mb : {0, 24}) {
    SCOPED_TRACE("--media-mb " + std::to_string(media_mb));
    fixture::TempDir dir;
    sample::SampleOptions options;
    options.patients = 60;
    options.media_mb = media_mb;
    sample::GenerateSample(dir.path().string(), options);
    if (media_mb > 0) {
      int plain_diaries = 0;
      for (auto& row : Media(dir.path(), "SELECT * FROM MODULI WHERE Titolo STARTING WITH 'Diario clinico del '",
                             {"bindata"}))
        plain_diaries += !IsGzip(row["bindata"]);
      ASSERT_GT(plain_diaries, 1);
    }
    fixture::Run run = fixture::Convert(dir / "GX_USER.FDB");
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
