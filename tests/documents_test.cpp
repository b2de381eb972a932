// The six document categories end to end: files stored through the host's
// file store with their exact content, the records that point to them, the
// three categories that share IMAGES in either order, and the temporary
// folder, which nothing written by the plug-in outlives and nothing escapes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "converters/documents/filing.h"
#include "converters/documents/gzip_decoder.h"
#include "host/failure.h"
#include "support/fixture.h"
#include "tools/kairon-convert/file_content.h"

namespace {

using fixture::Bool;
using fixture::I16;
using fixture::json;
using fixture::Text;
using fixture::Gzip;
using host::Date;
using host::Value;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Bytes = std::vector<uint8_t>;
namespace fs = std::filesystem;

Bytes Of(const std::string& s) { return Bytes(s.begin(), s.end()); }

std::string ContentOf(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

Bytes Join(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// What the trace shows of a file that SalvaFile found.
json FileOf(const Bytes& content) {
  return {{"size", content.size()}, {"sha256", refhost::Sha256Hex(content)}};
}

// The reference that SalvaFile put in its id.
json IdOf(const json& salva_file) { return salva_file["out"]["0"]; }

// An RTF document with bytes of no character set, a NUL among them.
Bytes Rtf() {
  static const char kRtf[] = "{\\rtf1\\ansi Certificato \xE0 \xFF\x00 fine}";
  return Bytes(kRtf, kRtf + sizeof kRtf - 1);
}

json Null() { return {{"type", "null"}, {"value", nullptr}}; }

// One archive, converted once with one option list; the trace read patient
// by patient.
class Conversion {
 public:
  Conversion(const std::string& opzioni, const std::function<void(sample::Archive&)>& fill,
             const std::vector<sample::Table>& schema = sample::DefaultSchema()) {
    auto archive = sample::Archive::Create((dir_.path() / "fonte").string(), schema);
    fill(*archive);
    archive->Close();
    tempdir_ = dir_.path() / "cartella" / "tmp";
    refhost::ConvertOptions options;
    options.options = opzioni;
    options.tempdir = tempdir_.string();
    run_ = fixture::Convert(dir_ / "fonte/GX_USER.FDB", options);
  }

  const fixture::Run& run() const { return run_; }
  const fs::path& tempdir() const { return tempdir_; }

  // The trace lines from the DaiPaziente of this surname to the next one.
  fixture::Run Of(const std::string& cognome) const {
    fixture::Run part;
    bool inside = false;
    for (const json& line : run_.trace) {
      if (line["obj"] == "Interface" && line["member"] == "DaiPaziente") inside = line["args"][0]["value"] == cognome;
      if (inside) part.trace.push_back(line);
    }
    return part;
  }
  std::vector<json> Calls(const std::string& cognome, const std::string& suffix, const std::string& member) const {
    return Of(cognome).Calls(suffix, member);
  }
  // What the file store received for one patient, in order.
  std::vector<json> Stored(const std::string& cognome) const {
    std::vector<json> files;
    for (const json& call : Calls(cognome, ".Files", "SalvaFile")) files.push_back(call["file"]);
    return files;
  }
  std::vector<json> Saved(const std::string& cognome, const std::string& store) const {
    return Of(cognome).ArgsOf("." + store, "Salva");
  }
  // The file steps and the records of one patient's categories, in order
  // (the relationship with the doctor left out).
  std::vector<std::string> Steps(const std::string& cognome) const {
    std::vector<std::string> steps;
    for (const json& line : Of(cognome).trace) {
      const std::string obj = line["obj"], member = line["member"];
      if (member == "Killfile" || member == "SalvaFile") steps.push_back(member);
      if (member == "Salva" && !obj.ends_with(".Rapporti")) steps.push_back(obj.substr(obj.find('.') + 1));
    }
    return steps;
  }
  std::string Path(const std::string& file) const { return (tempdir_ / file).string(); }

  // The outcome line of a patient: "OK" or the AddInfo that followed "ERR".
  std::string Outcome(const std::string& cognome) const {
    std::string outcome;
    for (const json& line : Of(cognome).trace) {
      if (line["op"] != "call" || line["obj"] != "Interface") continue;
      if (line["member"] == "ChangeMsg") outcome = line["args"][0]["value"];
      if (line["member"] == "AddInfo" && outcome == "ERR") outcome = line["args"][0]["value"];
    }
    return outcome;
  }

  // Every file under the test's folder but the archive's own.
  std::vector<std::string> StrayFiles() const {
    std::vector<std::string> stray;
    for (const auto& entry : fs::recursive_directory_iterator(dir_.path())) {
      if (entry.is_directory()) continue;
      const std::string name = entry.path().filename().string();
      if (name.ends_with(".FDB") || name.starts_with("kairon.sqlite") || name == "trace.jsonl") continue;
      stray.push_back(entry.path().string());
    }
    return stray;
  }

 private:
  fixture::TempDir dir_;
  fs::path tempdir_;
  fixture::Run run_;
};

sample::Row Image(int record, const std::string& cod_cart, const Value& bindata, const Value& titolo,
                  const Value& settings = "jpg", const sample::Row& extra = {}) {
  sample::Row row = {{"Record", Value::I32(record)}, {"CodCart", cod_cart},      {"bindata", bindata},
                     {"Titolo", titolo},             {"Settings", settings},     {"MediaCode", "MC" + std::to_string(record)},
                     {"Data", Date{2021, 4, 5, 9, 30, 0}}};
  for (const auto& [column, value] : extra) fixture::SetColumn(row, column, value);
  return row;
}

// Scans alone: names, content, least length, gzip streams good and bad.
class ScansTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    cnv::filing::SetGzipLimitForTesting(1000);
    c_ = new Conversion("Scansioni", [](sample::Archive& a) {
      for (const char* p : {"Nomi", "Corti", "Gzip", "Rotti"}) a.Insert("PAZIENTI", fixture::Patient(p, p));
      a.Insert("IMAGES", Image(1, "Nomi", Value::Bytes(Of("JPEG1")), "Eco addome/pelvi"));
      a.Insert("IMAGES", Image(2, "Nomi", Value::Bytes(Of("JPEG2")), "   ", Value::Null(), {{"Data", Value::Null()}}));

      a.Insert("IMAGES", Image(3, "Corti", Value::Bytes(Of("abc")), "tre"));
      a.Insert("IMAGES", Image(4, "Corti", Value::Null(), "nullo"));
      a.Insert("IMAGES", Image(5, "Corti", Value::Bytes({}), "vuoto"));
      a.Insert("IMAGES", Image(6, "Corti", Value::Bytes(Of("abcd")), "quattro"));
      a.Insert("IMAGES", Image(7, "Corti", Value::Bytes({0x1F, 0x8B, 0x00, 'x'}), "falso gzip"));

      a.Insert("IMAGES", Image(8, "Gzip", Value::Bytes(Gzip(Of("contenuto della scansione"))), "uno"));
      a.Insert("IMAGES", Image(9, "Gzip", Value::Bytes(Join(Gzip(Of("prima ")), Gzip(Of("seconda")))), "due"));
      a.Insert("IMAGES", Image(14, "Gzip", Value::Bytes(Join(Gzip(Of("imbottito")), Bytes(4096, 0))), "zeri"));
      a.Insert("IMAGES", Image(15, "Gzip", Value::Bytes(Join(Gzip(Of("con coda")), Of("\x1F coda"))), "coda"));

      const Bytes good = Gzip(Of(std::string(200, 'z')));
      a.Insert("IMAGES", Image(10, "Rotti", Value::Bytes(Bytes(good.begin(), good.end() - 5)), "troncato"));
      Bytes corrupt = good;
      corrupt[corrupt.size() - 6] ^= 0xFF;  // the CRC
      a.Insert("IMAGES", Image(11, "Rotti", Value::Bytes(corrupt), "corrotto"));
      const Bytes second = Gzip(Of("seconda"));
      a.Insert("IMAGES", Image(12, "Rotti", Value::Bytes(Join(good, Bytes(second.begin(), second.end() - 1))), "mezzo"));
      a.Insert("IMAGES", Image(16, "Rotti", Value::Bytes(Join(good, Bytes{0x1F, 0x8B, 0x00, 0, 0})), "metodo"));
      a.Insert("IMAGES", Image(13, "Rotti", Value::Bytes(Gzip(Bytes(5000, 0))), "bomba"));

    });
    cnv::filing::SetGzipLimitForTesting(0);
  }
  static void TearDownTestSuite() { delete c_; }
  static inline Conversion* c_ = nullptr;
};

TEST_F(ScansTest, TitleBecomesFileNameAndEventKeepsIt) {
  auto files = c_->Calls("Nomi", ".Files", "SalvaFile");
  ASSERT_THAT(files, SizeIs(2));
  EXPECT_EQ(files[0]["args"], json({Text(""), Text("Eco_addome di pelvi"), Text(c_->Path("Eco_addome di pelvi.jpg"))}));
  EXPECT_EQ(files[0]["file"], FileOf(Of("JPEG1")));
  EXPECT_EQ(files[1]["args"][1], Text("Immagine"));
  EXPECT_EQ(files[1]["args"][2], Text(c_->Path("Immagine.")));

  auto events = c_->Saved("Nomi", "Eventi");
  ASSERT_THAT(events, SizeIs(2));
  EXPECT_EQ(events[0], json({Text(""), Text("05/04/2021"), Text(""), Text(""), Text("Eco addome/pelvi"), Text(""),
                             Text(""), IdOf(files[0])}));
  EXPECT_EQ(events[1][1], Text("01/01/2012"));
  EXPECT_EQ(events[1][4], Text("   "));
  EXPECT_THAT(c_->Steps("Nomi"),
              ElementsAre("Killfile", "SalvaFile", "Killfile", "Eventi", "Killfile", "SalvaFile", "Killfile", "Eventi"));
}

TEST_F(ScansTest, OnlyFourBytesOrMoreAreFiledAndOnlyOneGzipHeaderCounts) {
  // The false gzip header is stored as it is.
  EXPECT_EQ(c_->Stored("Corti"), (std::vector<json>{FileOf(Of("abcd")), FileOf({0x1F, 0x8B, 0x00, 'x'})}));
  EXPECT_THAT(c_->Saved("Corti", "Eventi"), SizeIs(2));
  EXPECT_EQ(c_->Outcome("Corti"), "OK");
}

TEST_F(ScansTest, GzipStreamsReachTheStoreDecompressedMemberAfterMember) {
  // Zeros of padding, or any tail that starts no member, are passed over.
  EXPECT_EQ(c_->Stored("Gzip"), (std::vector<json>{FileOf(Of("contenuto della scansione")), FileOf(Of("prima seconda")),
                                                   FileOf(Of("imbottito")), FileOf(Of("con coda"))}));
  // The decoder writes the file: no Killfile before it, one after.
  EXPECT_THAT(c_->Steps("Gzip"), ElementsAre("SalvaFile", "Killfile", "Eventi", "SalvaFile", "Killfile", "Eventi",
                                             "SalvaFile", "Killfile", "Eventi", "SalvaFile", "Killfile", "Eventi"));
}

TEST_F(ScansTest, RefusedStreamsStoreNothingAndLeaveNoFile) {
  // Truncated, a wrong CRC, a content over the cap, and a whole member
  // followed by a second one that starts but is truncated or not deflate.
  EXPECT_THAT(c_->Stored("Rotti"), IsEmpty());
  EXPECT_THAT(c_->Saved("Rotti", "Eventi"), IsEmpty());
  EXPECT_THAT(c_->Steps("Rotti"), ElementsAre("Killfile", "Killfile", "Killfile", "Killfile", "Killfile"));
  EXPECT_EQ(c_->Outcome("Rotti"), "OK");
  EXPECT_THAT(c_->StrayFiles(), IsEmpty());
}

// The three categories of IMAGES in the order of the option list, and in the
// order that makes the recordings meet images the scans took.
const auto kImagesAndReports = [](sample::Archive& a) {
  a.Insert("PAZIENTI", fixture::Patient("Ordine", "Ordine"));
  a.Insert("ESAMI", {{"RECORD", Value::I32(70)}, {"CodCart", "Ordine"}, {"tipo", Value::I32(1)},
                     {"Data", Date{2020, 2, 3}}, {"Testo", "Rx torace"}, {"CODESAME", "EX1"}});
  a.Insert("REFERTI", {{"Record", Value::I32(71)}, {"CodCart", "Ordine"}, {"CODESAME", "EX1"}, {"Testo", "negativo"}});
  // The exam's image, and a second row of the same medium without exam.
  a.Insert("IMAGES", Image(20, "Ordine", Value::Bytes(Of("lastra")), "Rx", "jpg", {{"CodEsame", "EX1"}}));
  a.Insert("IMAGES", Image(21, "Ordine", Value::Bytes(Of("stessa lastra")), "Rx copia", "jpg", {{"MediaCode", "MC20"}}));
  a.Insert("IMAGES", Image(22, "Ordine", Value::Bytes(Of("audio")), "Dettato", "wav"));
  a.Insert("IMAGES", Image(23, "Ordine", Value::Bytes(Of("xy")), "Corto", "jpg"));
};

TEST(ImagesOrderTest, ReportsThenRecordingsThenScansShareTheImagesOut) {
  Conversion c("referti;registrazioni private;scansioni", kImagesAndReports);
  EXPECT_EQ(c.Outcome("Ordine"), "OK");
  ASSERT_THAT(c.Saved("Ordine", "RefertiEsami"), SizeIs(1));
  // Row 20 went with the report, row 21 shares its medium, so only the
  // dictation is a recording; the scans find nothing left.
  auto notes = c.Saved("Ordine", "Appunti");
  ASSERT_THAT(notes, SizeIs(1));
  EXPECT_EQ(notes[0], json({Text(""), Text("05/04/2021"), Bool(true), Bool(false), Text("Dettato"), Text("Dettato"),
                            Text("F2")}));
  // Row 21 was only passed over by the recordings, so the scans take it.
  auto events = c.Saved("Ordine", "Eventi");
  ASSERT_THAT(events, SizeIs(1));
  EXPECT_EQ(events[0][4], Text("Rx copia"));
  EXPECT_THAT(c.StrayFiles(), IsEmpty());
}

TEST(ImagesOrderTest, ScansBeforeRecordingsEndTheRecordingsOnTheFirstKey) {
  Conversion c("scansioni;registrazioni private;referti", kImagesAndReports);
  EXPECT_THAT(c.Saved("Ordine", "Eventi"), SizeIs(3));
  EXPECT_THAT(c.Saved("Ordine", "Appunti"), SizeIs(1));  // saved, then its key fails
  EXPECT_THAT(c.Saved("Ordine", "RefertiEsami"), IsEmpty());  // later categories are given up
  EXPECT_EQ(c.Outcome("Ordine"),
            "ORDINE MARIO - Registrazioni Private Errore 457 Questa chiave è già associata ad un elemento dell'insieme");
  EXPECT_THAT(c.StrayFiles(), IsEmpty());
}

// Row numbers of more than 15 digits are keys of their own: two images
// whose BIGINT Records differ in the last digit are both taken, by the scans
// and by the recordings alike.
TEST(ImagesOrderTest, LongRecordsAreKeysOfTheirOwn) {
  std::vector<sample::Table> schema = sample::DefaultSchema();
  sample::SetColumnType(schema, "IMAGES", "Record", "BIGINT");
  auto fill = [](sample::Archive& a) {
    a.Insert("PAZIENTI", fixture::Patient("Lunghi", "Lunghi"));
    a.Insert("IMAGES", Image(0, "Lunghi", Value::Bytes(Of("prima")), "prima", "jpg", {{"Record", "20240101123456789"}}));
    a.Insert("IMAGES",
             Image(0, "Lunghi", Value::Bytes(Of("seconda")), "seconda", "jpg", {{"Record", "20240101123456790"}}));
  };
  Conversion scans("scansioni", fill, schema);
  EXPECT_EQ(scans.Outcome("Lunghi"), "OK");
  auto events = scans.Saved("Lunghi", "Eventi");
  ASSERT_THAT(events, SizeIs(2));
  EXPECT_EQ(events[0][4], Text("prima"));
  EXPECT_EQ(events[1][4], Text("seconda"));

  Conversion recordings("registrazioni private", fill, schema);
  EXPECT_EQ(recordings.Outcome("Lunghi"), "OK");
  EXPECT_THAT(recordings.Saved("Lunghi", "Appunti"), SizeIs(2));
}

// A title and an extension that together lead out of the temporary folder
// ("." and "/../x.txt" make "../../x.txt") reach no host call, in any
// category: the file that lies where they point is neither stored nor
// removed. The row goes as for a file that can't be written, without its
// calls: a scan stores nothing, a stream is passed over, and a plain file
// ends the other categories with 52.
class EscapingNames {
 public:
  static constexpr const char* kOutside = "segreto";

  // The file where "<tempdir>/../../x.txt" points, written with the source.
  static void Plant(sample::Archive& a) {
    std::ofstream(fs::path(a.user_path()).parent_path().parent_path() / "x.txt") << kOutside;
  }

  static void ExpectNothingOutsideTouched(const Conversion& c) {
    const fs::path planted = c.tempdir().parent_path().parent_path() / "x.txt";
    EXPECT_THAT(c.StrayFiles(), ElementsAre(planted.string()));
    EXPECT_EQ(ContentOf(planted), kOutside);
    for (const json& line : c.run().trace) {
      if (line["op"] != "call") continue;
      std::string path;
      if (line["member"] == "Killfile") path = line["args"][0]["value"];
      if (line["member"] == "SalvaFile") path = line["args"][2]["value"];
      if (path.empty()) continue;
      const std::string folder = c.tempdir().string() + "/";
      ASSERT_TRUE(path.starts_with(folder)) << path;
      EXPECT_TRUE(cnv::filing::IsFileName(path.substr(folder.size()))) << path;
    }
  }
};

TEST(EscapingNamesTest, ScansStoreNothingAndTheOtherRowsAreFiledAsEver) {
  Conversion c("scansioni", [](sample::Archive& a) {
    EscapingNames::Plant(a);
    a.Insert("PAZIENTI", fixture::Patient("Fuga", "Fuga"));
    a.Insert("IMAGES", Image(1, "Fuga", Value::Bytes(Of("piano")), ".", "/../x.txt"));
    a.Insert("IMAGES", Image(2, "Fuga", Value::Bytes(Gzip(Of("compresso"))), ".", "/../x.txt"));
    a.Insert("IMAGES", Image(3, "Fuga", Value::Bytes(Of("JPEG3")), "Eco", "jpg"));
  });
  EXPECT_EQ(c.Outcome("Fuga"), "OK");
  EXPECT_THAT(c.Steps("Fuga"), ElementsAre("Killfile", "SalvaFile", "Killfile", "Eventi"));
  EscapingNames::ExpectNothingOutsideTouched(c);
}

TEST(EscapingNamesTest, PlainFilesEndTheirCategoryBeforeAnyCallAndStreamsArePassedOver) {
  Conversion c("piani terapeutici;referti;registrazioni private", [](sample::Archive& a) {
    EscapingNames::Plant(a);
    for (const char* p : {"Piano", "Referto", "Privata"}) a.Insert("PAZIENTI", fixture::Patient(p, p));
    a.Insert("PIANOTERAP", {{"CodCart", "Piano"}, {"COD_SCAN", "S"}, {"CODPIANO", "P9"}, {"DataRedaz", Date{2022, 3, 4}}});
    a.Insert("SCANSIONI", {{"CODESAME", "P9"}, {"bindata", Value::Bytes(Of("pagina"))}, {"Titolo", "."},
                           {"Settings", "/../x.txt"}});
    // An exam's stream under the name, then a short image, which gives the
    // path of the row before to Killfile, then an image of its own.
    a.Insert("ESAMI", {{"RECORD", Value::I32(80)}, {"CodCart", "Referto"}, {"tipo", Value::I32(1)},
                       {"Data", Date{2020, 2, 3}}, {"Testo", "Rx torace"}, {"CODESAME", "EX8"}});
    a.Insert("REFERTI", {{"Record", Value::I32(81)}, {"CodCart", "Referto"}, {"CODESAME", "EX8"}, {"Testo", "ok"}});
    a.Insert("IMAGES", Image(30, "Referto", Value::Bytes(Gzip(Of("compresso"))), ".", "/../x.txt", {{"CodEsame", "EX8"}}));
    a.Insert("IMAGES", Image(31, "Referto", Value::Bytes(Of("xy")), "corto", "jpg", {{"CodEsame", "EX8"}}));
    a.Insert("IMAGES", Image(32, "Referto", Value::Bytes(Of("lastra")), "Rx", "jpg", {{"CodEsame", "EX8"}}));
    a.Insert("IMAGES", Image(33, "Privata", Value::Bytes(Of("audio")), ".", "/../x.txt"));
  });
  EXPECT_EQ(c.Outcome("Piano"), "PIANO MARIO - Piani Terapeutici Errore 52 Nome o numero di file non valido");
  EXPECT_THAT(c.Steps("Piano"), IsEmpty());
  EXPECT_EQ(c.Outcome("Referto"), "OK");
  EXPECT_THAT(c.Steps("Referto"), ElementsAre("Killfile", "SalvaFile", "Killfile", "RefertiEsami"));
  EXPECT_EQ(c.Outcome("Privata"), "PRIVATA MARIO - Registrazioni Private Errore 52 Nome o numero di file non valido");
  EXPECT_THAT(c.Steps("Privata"), IsEmpty());
  EscapingNames::ExpectNothingOutsideTouched(c);
}

// Reports by the kind of their exam.
class ReportsTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    c_ = new Conversion("referti", [](sample::Archive& a) {
      for (const char* p : {"Esami", "Ricoveri", "Visite", "Doppio", "Orgname"})
        a.Insert("PAZIENTI", fixture::Patient(p, p));
      auto exam = [&](const char* card, int record, const Value& tipo, const std::string& code, const Value& testo,
                      const Value& data = Date{2020, 2, 3}) {
        a.Insert("ESAMI", {{"RECORD", Value::I32(record)}, {"CodCart", card}, {"tipo", tipo}, {"Data", data},
                           {"Testo", testo}, {"Indicaz", "controllo"}, {"CODESAME", code}});
      };
      auto report = [&](const char* card, int record, const std::string& code, const Value& testo) {
        a.Insert("REFERTI", {{"Record", Value::I32(record)}, {"CodCart", card}, {"CODESAME", code}, {"Testo", testo}});
      };
      const std::string lungo = "  " + std::string(250, 'a') + "àèìòù" + std::string(45, 'b');
      exam("Esami", 1, Value::I32(4), "E1", " Esame  ", Value::Null());
      report("Esami", 101, "E1", Value::Null());
      report("Esami", 102, "NESSUNO", "senza esame");
      report("Esami", 108, "E1", lungo);

      exam("Ricoveri", 2, Value::I32(5), "R1", "Ricovero");
      report("Ricoveri", 103, "R1", lungo);
      a.Insert("IMAGES", Image(30, "Ricoveri", Value::Bytes(Of("uno")), "troppo corto", "jpg", {{"CodEsame", "R1"}}));
      a.Insert("IMAGES", Image(31, "Ricoveri", Value::Bytes(Of("prima")), "Lettera", "pdf", {{"CodEsame", "R1"}}));
      a.Insert("IMAGES", Image(32, "Ricoveri", Value::Bytes(Gzip(Of("seconda"))), "Esito", "pdf", {{"CodEsame", "R1"}}));

      exam("Visite", 3, Value::I32(2), "V1", Value::Null());
      report("Visite", 3, "V1", " visto ");
      a.Insert("IMAGES", Image(33, "Visite", Value::Bytes(Of("foto")), "Foto", "jpg", {{"CodEsame", "V1"}}));

      exam("Doppio", 4, Value::Null(), "D1", "Eco");
      report("Doppio", 105, "D1", "primo");
      report("Doppio", 106, "D1", "secondo");
      a.Insert("IMAGES", Image(34, "Doppio", Value::Bytes(Of("eco!")), "Eco", "jpg", {{"CodEsame", "D1"}}));

      exam("Orgname", 5, Value::I32(1), "O1", "Rx");
      report("Orgname", 107, "O1", "ok");
      a.Insert("IMAGES", Image(35, "Orgname", Value::Bytes(Of("rx..")), " ", "jpg",
                               {{"CodEsame", "O1"}, {"ORGName", "Rx torace.jpg"}}));
      a.Insert("IMAGES", Image(36, "Orgname", Value::Bytes(Of("rx2.")), Value::Null(), "jpg",
                               {{"CodEsame", "O1"}, {"ORGName", "abc"}}));
    });
  }
  static void TearDownTestSuite() { delete c_; }
  static inline Conversion* c_ = nullptr;
};

TEST_F(ReportsTest, ExamReportCutsTextsAndKeepsANullReport) {
  auto saved = c_->Saved("Esami", "RefertiEsami");
  ASSERT_THAT(saved, SizeIs(2));  // the report without exam gives nothing
  const json& args = saved[0];
  ASSERT_THAT(args, SizeIs(26));
  EXPECT_EQ(args[2], Text("01/01/2012"));
  EXPECT_EQ(args[3], Text("01/01/2012"));
  EXPECT_EQ(args[5], Text("Esame"));
  EXPECT_EQ(args[6], I16(0));
  EXPECT_EQ(args[7], Null());
  EXPECT_EQ(args[23], Text("Esame"));
  EXPECT_EQ(saved[1][7], Text(std::string(250, 'a') + "àèìòù"));  // 255 characters, not bytes
}

TEST_F(ReportsTest, AdmissionGetsTheWholeTextAndTheListOfReferences) {
  auto calls = c_->Calls("Ricoveri", ".Ricoveri", "Salva");
  ASSERT_THAT(calls, SizeIs(1));
  const json& args = calls[0]["args"];
  ASSERT_THAT(args, SizeIs(15));
  EXPECT_EQ(args[2], Text("03/02/2020"));
  EXPECT_EQ(args[4].at("value").get<std::string>().size(), 2 + 250 + 10 + 45u);  // whole, blanks kept
  EXPECT_EQ(args[7], Text("controllo"));
  auto files = c_->Calls("Ricoveri", ".Files", "SalvaFile");
  ASSERT_THAT(files, SizeIs(2));  // the 3-byte image is passed over
  EXPECT_EQ(args[12], Text(IdOf(files[0])["value"].get<std::string>() + "," + IdOf(files[1])["value"].get<std::string>()));
  EXPECT_EQ(files[1]["file"], FileOf(Of("seconda")));
}

TEST_F(ReportsTest, VisitReportComesAfterItsPrescriptionAndImages) {
  auto steps = c_->Steps("Visite");
  EXPECT_THAT(steps, ElementsAre("Ricette", "PrescrizioneVisite", "Killfile", "SalvaFile", "Killfile", "RefertiVisite"));
  auto args = c_->Saved("Visite", "RefertiVisite").at(0);
  ASSERT_THAT(args, SizeIs(15));
  EXPECT_EQ(args[3], Null());
  EXPECT_EQ(args[6], I16(1));
  EXPECT_EQ(args[7], Text("visto"));
}

TEST_F(ReportsTest, TwoReportsOfOneExamFailOnTheImageKey) {
  EXPECT_THAT(c_->Saved("Doppio", "RefertiVisite"), SizeIs(1));
  EXPECT_THAT(c_->Calls("Doppio", ".Files", "SalvaFile"), SizeIs(2));
  EXPECT_EQ(c_->Outcome("Doppio"),
            "DOPPIO MARIO - Referti Errore 457 Questa chiave è già associata ad un elemento dell'insieme");
}

TEST_F(ReportsTest, UntitledImageTakesItsOriginalNameWithoutEnding) {
  auto files = c_->Calls("Orgname", ".Files", "SalvaFile");
  ASSERT_THAT(files, SizeIs(1));
  EXPECT_EQ(files[0]["args"][1], Text("Rx_torace"));
  EXPECT_EQ(c_->Outcome("Orgname"),
            "ORGNAME MARIO - Referti Errore 5 Chiamata di routine o argomento non validi");
  EXPECT_THAT(c_->StrayFiles(), IsEmpty());
}

// Certificates of MODULI, INPS certificates, therapeutic plans. The
// documents lie in a text BLOB without character set, whose bytes must reach
// the file store undecoded.
class CertificatesTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::vector<sample::Table> schema = sample::DefaultSchema();
    sample::SetColumnType(schema, "MODULI", "bindata", "BLOB SUB_TYPE 1");
    c_ = new Conversion("certificati;certificati inps;piani terapeutici", [](sample::Archive& a) {
      for (const char* p : {"Moduli", "Due", "Sale", "Barra", "Punti", "Inps", "Piani"})
        a.Insert("PAZIENTI", fixture::Patient(p, p));
      auto modulo = [&](const char* card, const Value& bindata, const Value& titolo, const Value& data) {
        a.Insert("MODULI", {{"CodCart", card}, {"bindata", bindata}, {"Titolo", titolo}, {"Data", data}});
      };
      const Bytes rtf = Rtf();
      modulo("Moduli", Value::Bytes(Gzip(rtf)), "Idoneità sport", Date{2019, 6, 1});
      modulo("Moduli", Value::Bytes(rtf), "Idoneità sport", Value::Null());
      modulo("Moduli", Value::Null(), "nullo", Value::Null());
      modulo("Moduli", Value::Bytes(Of("x")), "corto", Value::Null());
      modulo("Due", Value::Bytes(Of("xy")), "due", Value::Null());
      modulo("Sale", Value::Bytes(Of("{\\rtf1}")), "../../x", Value::Null());
      modulo("Barra", Value::Bytes(Gzip(rtf)), "a/b", Value::Null());
      modulo("Barra", Value::Bytes(rtf), "a/b", Value::Null());
      modulo("Punti", Value::Bytes(rtf), "..", Value::Null());

      a.Insert("CERTINPS", {{"CodCart", "Inps"}, {"DATAINI", Date{2024, 1, 8}}, {"DATAEMI", Date{2024, 1, 8}},
                            {"Diag", "sindrome l'influenzale"}, {"Inizio", "X"}, {"Continua", "x"}, {"SEND_ID", "77"}});
      a.Insert("CERTINPS", {{"CodCart", "Inps"}, {"Diag", Value::Null()}});

      a.Insert("PIANOTERAP", {{"CodCart", "Piani"}, {"Diagnosi", "Diabete"}, {"COD_SCAN", "S"}, {"CODPIANO", "P1"},
                              {"DataRedaz", Date{2022, 3, 4}}, {"Scadenza", Value::Null()}, {"Farmaco", "Metformina"}});
      a.Insert("PIANOTERAP", {{"CodCart", "Piani"}, {"COD_SCAN", "S"}, {"CODPIANO", "P2"}});
      a.Insert("SCANSIONI", {{"CODESAME", "P1"}, {"bindata", Value::Bytes(Gzip(Of("piano")))}, {"Titolo", " "},
                             {"Settings", "pdf"}});
      a.Insert("SCANSIONI", {{"CODESAME", "P2"}, {"bindata", Value::Bytes(Of("pag2"))}, {"Titolo", "AIFA/2"},
                             {"Settings", "pdf"}});
    }, schema);
  }
  static void TearDownTestSuite() { delete c_; }
  static inline Conversion* c_ = nullptr;
};

TEST_F(CertificatesTest, GzipGoesToCertificatesPlainToMarkedNotesByteForByte) {
  const Bytes rtf = Rtf();
  auto files = c_->Calls("Moduli", ".Files", "SalvaFile");
  ASSERT_THAT(files, SizeIs(2));
  for (const json& file : files) {
    EXPECT_EQ(file["args"][1], Text("Idoneità sport"));
    EXPECT_EQ(file["args"][2], Text(c_->Path("Idoneità sport.rtf")));
    EXPECT_EQ(file["file"], FileOf(rtf));
  }
  EXPECT_THAT(c_->Saved("Moduli", "Certificati"),
              ElementsAre(json({Text(""), Text("01/06/2019"), Text("Idoneità sport"), IdOf(files[0])})));
  EXPECT_THAT(c_->Saved("Moduli", "Appunti"), ElementsAre(json({Text(""), Text(""), Bool(true), Bool(false),
                                                                Text("Idoneità sport"), Text("Idoneità sport"),
                                                                IdOf(files[1])})));
  EXPECT_THAT(c_->Steps("Moduli"), ElementsAre("Killfile", "SalvaFile", "Certificati", "Killfile", "Killfile",
                                               "SalvaFile", "Appunti", "Killfile"));
  EXPECT_EQ(c_->Outcome("Moduli"), "OK");
}

TEST_F(CertificatesTest, TwoBytesHaveNoThirdToLookAt) {
  EXPECT_EQ(c_->Outcome("Due"), "DUE MARIO - Certificati Errore 9 Indice non compreso nell'intervallo");
}

TEST_F(CertificatesTest, TitlesThatAreNoFileNameFailAndNothingLeavesTheFolder) {
  // A plain file under a title that leads out of the folder fails before
  // its path reaches the host.
  EXPECT_EQ(c_->Outcome("Sale"), "SALE MARIO - Certificati Errore 52 Nome o numero di file non valido");
  EXPECT_THAT(c_->Steps("Sale"), IsEmpty());
  // The stream under "a/b" is refused by the decoder without failure; the
  // plain file under it fails. Neither path reaches the host.
  EXPECT_THAT(c_->Steps("Barra"), IsEmpty());
  EXPECT_EQ(c_->Outcome("Barra"), "BARRA MARIO - Certificati Errore 52 Nome o numero di file non valido");
  // ".." with its extension is the name "...rtf", inside the folder.
  auto files = c_->Calls("Punti", ".Files", "SalvaFile");
  ASSERT_THAT(files, SizeIs(1));
  EXPECT_EQ(files[0]["args"][2], Text(c_->Path("...rtf")));
  EXPECT_THAT(c_->StrayFiles(), IsEmpty());
  EXPECT_TRUE(fs::is_empty(c_->tempdir()));
}

class TempFolder : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directory(tmp_); }
  fixture::TempDir dir_;
  const fs::path tmp_ = dir_.path() / "tmp";
  cnv::filing::TempFolder folder_{tmp_.string()};
};

// A host that removes whatever a path names still gets nothing written
// outside the folder: the plug-in itself refuses a name that isn't one.
TEST_F(TempFolder, WritesOnlyNamesOfTheFolderItself) {
  for (const std::string& name : {std::string("../x.rtf"), std::string("a/b.rtf"), std::string(".."),
                                  std::string("x\0y.rtf", 7), std::string("")}) {
    try {
      folder_.Write(name, {'{', '}'});
      ADD_FAILURE() << name << " was written";
    } catch (const host::Failure& failure) {
      EXPECT_EQ(failure.number(), 52) << name;
    }
  }
  // A link at the name is replaced by the file, never followed.
  fs::create_symlink(dir_ / "outside.rtf", tmp_ / "link.rtf");
  folder_.Write("link.rtf", {'{', '}'});
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(tmp_ / "link.rtf")));
  EXPECT_FALSE(fs::exists(dir_ / "outside.rtf"));
}

// Filing makes its own new file whatever lies at the name: a FIFO planted
// there is removed, not opened (which would wait for a reader for ever),
// for the plain file and the decoder's output alike.
TEST_F(TempFolder, MakesItsOwnFileWhereAFifoLies) {
  const fs::path& tmp = tmp_;
  const std::vector<std::string> names = {"piano.rtf", "scansione.jpg"};
  for (const std::string& name : names) ASSERT_EQ(mkfifo((tmp / name).c_str(), 0600), 0);
  // A reader that comes after two seconds frees a writer that waits on the
  // FIFO, so that a fault fails the test instead of hanging it.
  std::atomic<bool> done = false;
  std::vector<int> readers;
  std::thread watchdog([&] {
    for (int i = 0; i < 200 && !done; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (done) return;
    for (const std::string& name : names) readers.push_back(open((tmp / name).c_str(), O_RDONLY | O_NONBLOCK));
  });
  folder_.Write(names[0], Of("{\\rtf1}"));
  EXPECT_EQ(cnv::filing::DecodeGzip(Gzip(Of("contenuto")), folder_, names[1]), cnv::filing::kGzipDone);
  for (const std::string& name : names) EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(tmp / name))) << name;
  if (fs::is_regular_file(fs::symlink_status(tmp / names[1]))) {
    EXPECT_EQ(ContentOf(tmp / names[1]), "contenuto");
  }
  done = true;
  watchdog.join();
  for (int reader : readers) close(reader);
}

// A write that fails part way (a full disk; here the limit on the size of
// a file, which fails the same way) leaves no part of the file behind, so
// SalvaFile finds nothing to store cut short.
TEST_F(TempFolder, AFailedWriteLeavesNothingBehind) {
  struct rlimit old {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  const struct rlimit small = {1 << 20, old.rlim_max};
  const auto old_handler = signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  int32_t number = 0;
  try {
    folder_.Write("scansione.tif", Bytes(3000005, 's'));
  } catch (const host::Failure& failure) {
    number = failure.number();
  }
  setrlimit(RLIMIT_FSIZE, &old);
  signal(SIGXFSZ, old_handler);
  EXPECT_EQ(number, 75);
  EXPECT_FALSE(fs::exists(tmp_ / "scansione.tif"));
}

TEST_F(CertificatesTest, InpsCertificateTextAndTypedArguments) {
  auto saved = c_->Calls("Inps", ".CertificatiINPS", "Salva");
  ASSERT_THAT(saved, SizeIs(1));  // the row without Diag gives nothing
  const json& args = saved[0]["args"];
  ASSERT_THAT(args, SizeIs(11));
  EXPECT_EQ(args[1], Text("08/01/2024"));
  EXPECT_EQ(args[2], I16(0));
  EXPECT_EQ(args[3], Text("sindrome l'influenzale"));
  EXPECT_EQ(args[5], Text("77"));
  EXPECT_EQ(args[9], json({{"type", "date"}, {"value", "2012-01-01"}}));
  const std::string testo = args[10]["value"];
  const std::string atteso = std::string("T038SINDROME L''INFLUENZALE\tT037\tD00008/01/2024\tD00101/01/2012\t") +
                             "T01908/01/2024\tC0091\tC0100\tC0110\t";
  EXPECT_EQ(testo.substr(0, atteso.size()), atteso);
  EXPECT_NE(testo.find("\tT039INPS\tT040MARIO\tT041RSSMRA50C07H501X\tT04207/03/1950\t"), std::string::npos);
  EXPECT_TRUE(testo.ends_with("\tT049\tT048\tT047\t"));
  EXPECT_EQ(std::count(testo.begin(), testo.end(), '\t'), 24);
}

TEST_F(CertificatesTest, PlansWithTheirScans) {
  auto plans = c_->Saved("Piani", "TerapieCroniche");
  ASSERT_THAT(plans, SizeIs(1));  // the plan without DataRedaz gives no record
  const json& args = plans[0];
  ASSERT_THAT(args, SizeIs(23));
  EXPECT_EQ(args[1], Text("04/03/2022"));
  EXPECT_EQ(args[4], Null());
  EXPECT_EQ(args[5], Text(""));
  EXPECT_EQ(args[8], I16(2));
  EXPECT_EQ(args[18], Text(""));
  auto files = c_->Calls("Piani", ".Files", "SalvaFile");
  ASSERT_THAT(files, SizeIs(2));
  EXPECT_EQ(args[21], IdOf(files[0]));
  EXPECT_EQ(files[0]["args"][1], Text("Piano_Terapeutico"));
  EXPECT_EQ(files[0]["file"], FileOf(Of("piano")));
  EXPECT_EQ(files[1]["args"][1], Text("AIFA di 2"));
}

}  // namespace
