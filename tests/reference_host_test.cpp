// The reference host's objects, archive and trace, driven by a small fake
// Conversione whose Converti runs a script of calls on the Interface.

#include "tools/kairon-convert/reference_host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "host/failure.h"
#include "support/fixture.h"
#include "support/process.h"
#include "tools/kairon-convert/archive.h"
#include "tools/kairon-convert/catalogues.h"
#include "tools/kairon-convert/file_content.h"
#include "tools/kairon-convert/typed_value.h"

namespace {

using fixture::FailureOf;

namespace fs = std::filesystem;
using nlohmann::json;
using Script = std::function<bool(const host::Value& iface)>;
using Table = std::vector<std::vector<std::string>>;

json Typed(const char* type, json value) { return {{"type", type}, {"value", std::move(value)}}; }
bool Nothing(const host::Value&) { return true; }
bool Refuse(const host::Value&) { return false; }

class FakeConversione : public host::Object {
 public:
  Script script;
  std::optional<host::Failure> test_raises;
  std::string medico, options;

  host::Value Get(std::string_view member) override {
    if (host::SameName(member, "ListaOpzioni")) return "Allergie; Appunti; BMI";
    if (host::SameName(member, "LastError")) return "ultimo errore";
    host::failures::Raise(host::failures::kMemberNotSupported);
  }
  void Set(std::string_view, const host::Value&) override {
    host::failures::Raise(host::failures::kMemberNotSupported);
  }
  host::Value Call(std::string_view member, host::Args& args) override {
    if (host::SameName(member, "Test")) {
      if (test_raises) throw *test_raises;
      args[1].value() = "ROSSI MARIO;VERDI ANNA";
      return host::Value::Bool(true);
    }
    medico = host::TextOf(args[0].value());
    options = host::TextOf(args[1].value());
    return host::Value::Bool(script(args[2].value()));
  }
};

class ReferenceHostTest : public ::testing::Test {
 protected:
  ReferenceHostTest() {
    options_.conn = dir_ / "src/GX_USER.FDB";
    options_.archive = dir_ / "kairon.sqlite";
    options_.trace = dir_ / "trace.jsonl";
    options_.data_dir = KAIRON_DATA_DIR;
    options_.tempdir = dir_ / "tmp";
    fs::create_directory(options_.tempdir);
    options_.icd9_csv = WriteFile("icd9.csv", "code,ID,Descrizione\n401.9,I1,IPERTENSIONE\n");
    options_.farmaci_csv = WriteFile("farmaci.csv", "code,Descrizione,Tipo\n");
    options_.esenzioni_csv = WriteFile("esenzioni.csv", "code,ID,Descrizione,CodiceFarmaci,CodiceEsami\n");
  }

  std::string WriteFile(const std::string& name, const std::string& content) {
    std::ofstream(dir_ / name, std::ios::binary) << content;
    return dir_ / name;
  }

  refhost::ConvertOutcome Run(Script script) {
    conversione_->script = std::move(script);
    return refhost::Convert(conversione_, options_);
  }

  std::vector<json> Trace() {
    std::vector<json> lines;
    std::ifstream in(options_.trace);
    for (std::string line; std::getline(in, line);) lines.push_back(json::parse(line));
    return lines;
  }

  Table Rows(const std::string& sql) { return fixture::ArchiveRows(options_.archive, sql); }

  json JsonOf(const std::string& sql) {
    auto rows = Rows(sql);
    return rows.empty() ? json() : json::parse(rows.front().front());
  }

  // The trace lines of calls of member, in order.
  std::vector<json> Calls(const std::string& member) {
    std::vector<json> calls;
    for (const json& line : Trace())
      if (line["op"] == "call" && line["member"] == member) calls.push_back(line);
    return calls;
  }

  // A path of the folder, as the tests name it.
  std::string Short(const std::string& path) { return path.substr(dir_.path().string().size() + 1); }

  fixture::TempDir dir_;
  refhost::ConvertOptions options_;
  std::shared_ptr<FakeConversione> conversione_ = std::make_shared<FakeConversione>();
};

host::Value NewPatient(const host::Value& iface, const char* cognome) {
  host::Value p = host::Call(iface, "DaiPaziente", {cognome, "MARIO", "RSSMRA50C07H501X", "07/03/1950", ""});
  host::Set(p, "cognome", cognome);
  host::Set(p, "nome", "MARIO");
  return p;
}

TEST_F(ReferenceHostTest, PatientsAreGivenAndStoredAsTheRulesSay) {
  Run([](const host::Value& iface) {
    EXPECT_TRUE(host::Call(iface, "DaiPaziente", {"ROSSI", "MARIO", " ", "", "  "}).is_empty());

    host::Value p = host::Call(iface, "DaiPaziente", {"x", "y", "", "07/03/1950", ""});
    EXPECT_EQ(host::Get(p, "DataNascita"), host::Value(host::Date{1950, 3, 7}));
    EXPECT_TRUE(host::Get(p, "Email").is_empty());
    host::Set(p, "cognome", "ROSSI");
    host::Set(p, "nome", "MARIO");
    EXPECT_EQ(host::TextOf(host::Get(p, "NomeCompleto")), "ROSSI MARIO");
    EXPECT_THROW(host::Set(p, "nomecompleto", "X"), host::Failure);
    host::Call(host::Get(p, "rapporti"), "Salva", {"", "01/01/2000", "", "", host::Value::I16(0), ""});
    EXPECT_EQ(host::Call(iface, "ImportaAnagrafica", {p}), host::Value::Bool(true));
    host::Set(p, "Email", "mario@example.it");
    host::Set(p, "COGNOME", "ROSSI BIS");

    host::Value q = host::Call(iface, "DaiPaziente", {"", "", "", "not a date", ""});
    EXPECT_TRUE(host::Get(q, "DataNascita").is_empty());
    host::Set(q, "cognome", "  ");
    EXPECT_EQ(host::Call(iface, "ImportaAnagrafica", {q}), host::Value::Bool(false));
    EXPECT_EQ(FailureOf([&] { host::Call(iface, "ImportaAnagrafica", {"not a patient"}); }),
              host::failures::kObjectRequired);
    return true;
  });

  // Members set after the master record reach the row at the end of the patient.
  EXPECT_EQ(Rows("SELECT id FROM patients"), (Table{{"1"}}));
  EXPECT_EQ(Rows("SELECT members FROM patients").front().front(),
            R"({"DataNascita":{"type":"date","value":"1950-03-07"},"cognome":{"type":"text","value":"ROSSI BIS"},)"
            R"("nome":{"type":"text","value":"MARIO"},"Email":{"type":"text","value":"mario@example.it"}})");
  EXPECT_EQ(Rows("SELECT patient_id, store FROM records"), (Table{{"1", "Rapporti"}}));
  EXPECT_EQ(JsonOf("SELECT args FROM records")[4], Typed("i16", 0));

  std::vector<json> dai = Calls("DaiPaziente");
  ASSERT_EQ(dai.size(), 3u);
  EXPECT_FALSE(dai[0].contains("returns"));
  EXPECT_EQ(dai[1]["returns"], Typed("object", "Paziente#1"));
  EXPECT_EQ(dai[2]["returns"], Typed("object", "Paziente#2"));
}

TEST_F(ReferenceHostTest, RecordsAndTraceCarryTypedValues) {
  Run([](const host::Value& iface) {
    host::Value p = NewPatient(iface, "ROSSI");
    host::Call(host::Get(p, "Pressione"), "Salva",
               {"", host::Value(host::Date{2020, 5, 4}), host::Value(80.5), host::Value::Null(), host::Value(),
                host::Value::Bool(true), host::Value::I32(7), host::Value::Bytes({1, 2, 3}),
                host::Value(host::Date{2020, 5, 4, 8, 30, 0}), p});
    EXPECT_EQ(FailureOf([&] { host::Get(iface, "NonEsiste"); }), host::failures::kMemberNotSupported);
    return true;
  });

  json args = {Typed("text", ""),    Typed("date", "2020-05-04"), Typed("f64", 80.5),
               Typed("null", nullptr), Typed("empty", nullptr),   Typed("bool", true),
               Typed("i32", 7),      Typed("bytes", 3),           Typed("date", "2020-05-04T08:30:00"),
               Typed("object", "Paziente#1")};
  EXPECT_EQ(JsonOf("SELECT args FROM records WHERE store = 'Pressione'"), args);

  // Reads (Get of Pressione, of NonEsiste) leave no line.
  std::vector<json> trace = Trace();
  ASSERT_EQ(trace.size(), 4u);
  EXPECT_EQ(trace[1],
            json({{"obj", "Paziente#1"}, {"op", "set"}, {"member", "cognome"}, {"value", Typed("text", "ROSSI")}}));
  EXPECT_EQ(trace[3], json({{"obj", "Paziente#1.Pressione"}, {"op", "call"}, {"member", "Salva"}, {"args", args},
                            {"returns", Typed("bool", true)}}));
}

TEST_F(ReferenceHostTest, ProblemiListaGivesWhatWasSaved) {
  Run([](const host::Value& iface) {
    for (const char* name : {"ROSSI", "VERDI"}) {
      host::Value problemi = host::Get(NewPatient(iface, name), "Problemi");
      host::Call(problemi, "Salva", {"", "01/01/2014", "401.9", "IPERTENSIONE"});
      host::Call(problemi, "Salva", {"", "01/01/2014", ""});
      std::vector<host::Value> items = host::Items(host::Get(problemi, "Lista"));
      EXPECT_EQ(items.size(), 2u);
      EXPECT_EQ(host::TextOf(host::Get(items[0], "Descrizione")), "IPERTENSIONE");
      EXPECT_TRUE(host::Get(items[1], "Descrizione").is_empty());
      EXPECT_EQ(host::Get(items[1], "IDRIF1"), host::Value(""));
      EXPECT_THROW(host::Get(items[0], "Codice"), host::Failure);
      EXPECT_EQ(host::TextOf(host::Get(items[1], "ID")), std::string(name) == "VERDI" ? "P4" : "P2");
    }
    return true;
  });
  EXPECT_EQ(Rows("SELECT count(*) FROM records WHERE store = 'Problemi'").front().front(), "4");
}

TEST_F(ReferenceHostTest, PrescriptionsKeepTheMembersOfTheirSalva) {
  Run([](const host::Value& iface) {
    host::Value p = NewPatient(iface, "ROSSI");
    host::Value framework = host::Get(iface, "framework");
    host::Value ricetta = host::Call(framework, "NewRicetta");
    host::Set(ricetta, "Data", "04/05/2020");
    host::Set(ricetta, "Tipo", host::Value::I16(1));
    EXPECT_TRUE(host::Get(ricetta, "Diagnosi").is_empty());
    host::Call(host::Get(p, "Ricette"), "Salva", {ricetta});
    host::Set(ricetta, "Diagnosi", "set after Salva");
    host::Value item = host::Call(framework, "NewItemRicetta");
    host::Set(item, "Descrizione", "TACHIPIRINA");
    host::Call(host::Get(p, "PrescrizioneFarmaci"), "Salva", {item, ricetta});
    EXPECT_THROW(host::Call(host::Get(p, "PrescrizioneFarmaci"), "Salva", {ricetta, item}), host::Failure);
    return true;
  });

  EXPECT_EQ(Rows("SELECT id, patient_id FROM prescriptions"), (Table{{"1", "1"}}));
  EXPECT_EQ(JsonOf("SELECT members FROM prescriptions"),
            json({{"Data", Typed("text", "04/05/2020")}, {"Tipo", Typed("i16", 1)}}));
  EXPECT_EQ(Rows("SELECT prescription_id, store, members FROM prescription_items"),
            (Table{{"1", "PrescrizioneFarmaci", R"({"Descrizione":{"type":"text","value":"TACHIPIRINA"}})"}}));
  std::vector<json> salva = Calls("Salva");
  ASSERT_EQ(salva.size(), 3u);
  EXPECT_EQ(salva[0]["args"], json({Typed("object", "Ricetta#1")}));
  EXPECT_EQ(salva[1]["obj"], "Paziente#1.PrescrizioneFarmaci");
  EXPECT_EQ(salva[1]["args"], json({Typed("object", "ItemRicetta#1"), Typed("object", "Ricetta#1")}));
  EXPECT_EQ(salva[2]["failed"], true);
}

// SalvaFile stores only a file of the temporary folder, read once and
// digested as it is stored, with a trace or without: a path that leads out
// of the folder ("..", a link, a sibling folder) or names the folder itself
// fails its call with 75 and nothing of it is read; a link that stays in the
// folder is followed; a folder, a FIFO (never waited on) or a missing file
// takes no number; an empty file is stored.
TEST_F(ReferenceHostTest, SalvaFileStoresOnlyFilesOfTheTemporaryFolder) {
  const fs::path tmp = options_.tempdir;
  const std::string outside = WriteFile("fuori.txt", "segreto");
  fs::create_directory(dir_ / "tmp2");
  const std::string sibling = WriteFile("tmp2/f.txt", "segreto");
  std::string large;
  for (int i = 0; i < 200000; ++i) large += static_cast<char>(i * 7919 % 251);
  const std::vector<std::string> paths = {
      tmp.string() + "/../fuori.txt", sibling, tmp / "link.txt", tmp.string(), tmp / "Eco_addome di pelvi.jpg",
      tmp / "alias.jpg", tmp / "scansione.tif", tmp / "cartella", tmp / "coda", tmp / "vuoto.txt", tmp / "mancante.txt"};
  std::string hex;
  for (unsigned char c : large) hex += "0123456789ABCDEF"[c >> 4], hex += "0123456789ABCDEF"[c & 15];
  const std::string sha = "1c8636e10d28802bc4ca423a1a9d6bd883ef044acc4ee4da1059d6d4b51ba355";
  const std::string sha_large = refhost::Sha256Hex(std::vector<uint8_t>(large.begin(), large.end()));
  const std::string sha_empty = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

  for (bool traced : {true, false}) {
    SCOPED_TRACE(traced ? "with a trace" : "without a trace");
    if (!traced) options_.trace.clear(), options_.archive = dir_ / "untraced.sqlite";
    fs::remove_all(tmp);
    fs::create_directory(tmp);
    std::vector<std::string> outcomes;
    Run([&](const host::Value& iface) {
      // What lies in the temporary folder comes during the run, as the plug-in's would.
      fs::create_symlink(outside, tmp / "link.txt");
      WriteFile("tmp/Eco_addome di pelvi.jpg", std::string("\xFF\xD8\x00x", 4));
      fs::create_symlink(tmp / "Eco_addome di pelvi.jpg", tmp / "alias.jpg");
      WriteFile("tmp/scansione.tif", large);
      WriteFile("tmp/vuoto.txt", "");
      fs::create_directory(tmp / "cartella");
      EXPECT_EQ(mkfifo((tmp / "coda").c_str(), 0600), 0);
      host::Value files = host::Get(NewPatient(iface, "ROSSI"), "Files");
      for (const std::string& path : paths) {
        host::Value id = "", title = fs::path(path).stem().string(), where = path;
        const int32_t number =
            FailureOf([&] { host::Call(files, "SalvaFile", {host::Arg::Ref(id), title, host::Arg::Ref(where)}); });
        outcomes.push_back(Short(path) + " " + host::TextOf(id) + " " + std::to_string(number));
      }
      return true;
    });

    EXPECT_EQ(outcomes, (std::vector<std::string>{"tmp/../fuori.txt  75", "tmp2/f.txt  75", "tmp/link.txt  75",
                                                  "tmp  75", "tmp/Eco_addome di pelvi.jpg F1 0", "tmp/alias.jpg F2 0",
                                                  "tmp/scansione.tif F3 0", "tmp/cartella  0", "tmp/coda  0",
                                                  "tmp/vuoto.txt F4 0", "tmp/mancante.txt  0"}));
    EXPECT_EQ(Rows("SELECT id, patient_id, title, name, size, sha256, hex(content) FROM files ORDER BY rowid"),
              (Table{{"F1", "1", "Eco_addome di pelvi", "Eco_addome di pelvi.jpg", "4", sha, "FFD80078"},
                     {"F2", "1", "alias", "alias.jpg", "4", sha, "FFD80078"},
                     {"F3", "1", "scansione", "scansione.tif", "200000", sha_large, hex},
                     {"F4", "1", "vuoto", "vuoto.txt", "0", sha_empty, ""}}));
    if (!traced) continue;
    std::vector<json> calls = Calls("SalvaFile");
    ASSERT_EQ(calls.size(), paths.size());
    EXPECT_EQ(calls[4]["out"], json({{"0", Typed("text", "F1")}}));
    EXPECT_EQ(calls[4]["file"], json({{"size", 4}, {"sha256", sha}}));
    EXPECT_TRUE(calls.back().contains("file") && calls.back()["file"].is_null());
    EXPECT_FALSE(calls.back().contains("out") || calls.back().contains("returns"));
    for (const json& call : calls)
      EXPECT_TRUE(!call.contains("failed") || call["file"].is_null()) << call.dump();
  }
}

// Killfile removes only what lies in the temporary folder: a path that
// leads out of it, by "..", by a link (of a subfolder or of the file itself)
// or into a sibling whose name begins with the folder's, is refused with 75
// and its file stays; so is the folder itself. A link in the folder that
// stays in it is removed, not its target; a folder in it is left alone; a
// missing file or no name at all is forgiven.
TEST_F(ReferenceHostTest, KillfileRemovesOnlyWhatLiesInTheTemporaryFolder) {
  const fs::path tmp = options_.tempdir;
  const std::string outside = WriteFile("fuori.txt", "x");
  fs::create_directory(dir_ / "tmp2");
  const std::string sibling = WriteFile("tmp2/f.txt", "x");
  fs::create_directory(dir_ / "altrove");
  const std::string elsewhere = WriteFile("altrove/f.txt", "x");
  const std::string inside = dir_ / "tmp/vero.txt", plain = dir_ / "tmp/referto.rtf";

  std::vector<std::pair<std::string, int32_t>> outcomes;
  Run([&](const host::Value& iface) {
    // What lies in the temporary folder comes during the run.
    fs::create_directory_symlink(dir_ / "altrove", tmp / "sub");
    fs::create_symlink(outside, tmp / "link.txt");
    WriteFile("tmp/vero.txt", "x");
    fs::create_symlink(inside, tmp / "alias.txt");
    fs::create_symlink(dir_ / "nessuno.txt", tmp / "rotto.txt");
    fs::create_directory(tmp / "cartella");
    WriteFile("tmp/referto.rtf", "x");
    WriteFile("tmp/...rtf", "x");
    host::Value framework = host::Get(iface, "framework");
    const std::vector<std::string> paths = {
        tmp.string() + "/../fuori.txt", dir_ / "tmp2/f.txt", tmp / "sub/f.txt", tmp / "link.txt",
        tmp.string(), tmp.string() + "/.", tmp / "alias.txt", tmp / "rotto.txt", tmp / "cartella", plain,
        tmp.string() + "/./...rtf", tmp / "mancante.txt"};
    for (const std::string& path : paths) {
      host::Value where = path;
      outcomes.emplace_back(Short(path),
                            FailureOf([&] { host::Call(framework, "Killfile", {host::Arg::Ref(where)}); }));
    }
    EXPECT_EQ(FailureOf([&] { host::Call(framework, "Killfile", {""}); }), 0);
    return true;
  });

  EXPECT_EQ(outcomes, (std::vector<std::pair<std::string, int32_t>>{
                          {"tmp/../fuori.txt", 75}, {"tmp2/f.txt", 75}, {"tmp/sub/f.txt", 75}, {"tmp/link.txt", 75},
                          {"tmp", 75}, {"tmp/.", 75}, {"tmp/alias.txt", 0}, {"tmp/rotto.txt", 0},
                          {"tmp/cartella", 0}, {"tmp/referto.rtf", 0}, {"tmp/./...rtf", 0}, {"tmp/mancante.txt", 0}}));
  for (const std::string& stays : {outside, sibling, elsewhere, inside}) EXPECT_TRUE(fs::exists(stays)) << stays;
  EXPECT_TRUE(fs::is_symlink(tmp / "link.txt"));
  EXPECT_TRUE(fs::is_symlink(tmp / "sub"));
  EXPECT_TRUE(fs::is_directory(tmp / "cartella"));
  for (const char* gone : {"alias.txt", "rotto.txt", "referto.rtf", "...rtf"})
    EXPECT_FALSE(fs::exists(fs::symlink_status(tmp / gone))) << gone;
}

// A file larger than a row of the archive holds fails its call, before
// anything of it is written; the run goes on and files the next ones.
TEST_F(ReferenceHostTest, AFileTooLargeForTheArchiveFailsOnlyItsCall) {
  refhost::Archive::LimitRowLengthForTesting(100000);
  std::vector<int32_t> failures;
  refhost::ConvertOutcome outcome = Run([&](const host::Value& iface) {
    const std::string large = WriteFile("tmp/grande.tif", std::string(150000, 'g'));
    const std::string small = WriteFile("tmp/piccolo.tif", "piccolo");
    for (const char* cognome : {"ROSSI", "VERDI"}) {
      host::Value files = host::Get(NewPatient(iface, cognome), "Files");
      for (const std::string& path : {large, small}) {
        host::Value id = "", where = path;
        failures.push_back(
            FailureOf([&] { host::Call(files, "SalvaFile", {host::Arg::Ref(id), "titolo", host::Arg::Ref(where)}); }));
      }
    }
    return true;
  });
  refhost::Archive::LimitRowLengthForTesting(0);

  EXPECT_TRUE(outcome.write_failure.empty()) << outcome.write_failure;
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(failures, (std::vector<int32_t>{1002, 0, 1002, 0}));
  EXPECT_EQ(Rows("SELECT id, patient_id, size FROM files ORDER BY rowid"), (Table{{"F1", "1", "7"}, {"F2", "2", "7"}}));
}

TEST_F(ReferenceHostTest, FailPlanCountsCallsOverTheWholeRun) {
  options_.fail = {"Pressione.Salva@3", "ImportaAnagrafica@2", "salva@1"};
  std::vector<int32_t> failures;
  Run([&](const host::Value& iface) {
    for (const char* name : {"ROSSI", "VERDI"}) {
      host::Value p = NewPatient(iface, name);
      for (const char* store : {"Pressione", "Pressione", "BMI"})
        failures.push_back(FailureOf([&] { host::Call(host::Get(p, store), "Salva", {name}); }));
      failures.push_back(FailureOf([&] { host::Call(iface, "ImportaAnagrafica", {p}); }));
    }
    return true;
  });

  // Salva@1: ROSSI's first Pressione; Pressione.Salva@3: VERDI's first;
  // ImportaAnagrafica@2: VERDI's.
  EXPECT_EQ(failures, (std::vector<int32_t>{1001, 0, 0, 0, 1001, 0, 0, 1001}));
  EXPECT_EQ(Rows("SELECT patient_id, store FROM records"),
            (Table{{"1", "Pressione"}, {"1", "BMI"}, {"2", "Pressione"}, {"2", "BMI"}}));
  EXPECT_EQ(Rows("SELECT id FROM patients"), (Table{{"1"}}));
  std::vector<json> salva = Calls("Salva");
  ASSERT_EQ(salva.size(), 6u);
  EXPECT_EQ(salva[0]["failed"], true);
  EXPECT_FALSE(salva[0].contains("returns"));
  EXPECT_EQ(salva[3]["failed"], true);
  EXPECT_FALSE(salva[1].contains("failed"));

  options_.overwrite = true;
  for (const char* bad : {"Salva", "Salva@0", "Salva@x", "@2", ".Salva@1"}) {
    options_.fail = {bad};
    EXPECT_THROW(Run(Nothing), std::runtime_error) << bad;
  }
}

TEST_F(ReferenceHostTest, UpdateProgressHandsBackAStopOnlyOnceAsked) {
  Run([](const host::Value& iface) {
    host::Value percent = host::Value::I32(10), stop = host::Value::Bool(false);
    host::Call(iface, "UpdateProgress", {host::Arg::Ref(percent), host::Arg::Ref(stop)});
    EXPECT_EQ(stop, host::Value::Bool(false));
    refhost::RequestStop();
    host::Call(iface, "UpdateProgress", {host::Arg::Ref(percent), host::Arg::Ref(stop)});
    EXPECT_EQ(stop.integer(), -1);
    return true;
  });
  std::vector<json> calls = Calls("UpdateProgress");
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_FALSE(calls[0].contains("out"));
  EXPECT_EQ(calls[1]["args"], json({Typed("i32", 10), Typed("bool", false)}));
  EXPECT_EQ(calls[1]["out"], json({{"1", Typed("bool", true)}}));
}

TEST_F(ReferenceHostTest, CataloguesMatchCodesExactlyWithQuoting) {
  options_.icd9_csv = WriteFile("icd9.csv",
                                "code,ID,Descrizione\r\n"
                                "401.9,I1,IPERTENSIONE\r\n"
                                "\" 250\",I2,\"DIABETE, \"\"TIPO 2\"\"\"\r\n"
                                "V45,I3,\"RIGA\nDOPPIA\"\r\n");
  options_.esenzioni_csv =
      WriteFile("esenzioni.csv", "code,ID,Descrizione,CodiceFarmaci,CodiceEsami\n031.401,E1,IPERTENSIONE,F,E\n");
  Run([](const host::Value& iface) {
    host::Value archivio = host::Get(iface, "archivio");
    host::Value icd9 = host::Get(archivio, "ICD9");
    host::Value entry = host::Call(icd9, "Carica", {" 250"});
    EXPECT_EQ(host::TextOf(host::Get(entry, "Descrizione")), "DIABETE, \"TIPO 2\"");
    EXPECT_EQ(host::TextOf(host::Get(host::Call(icd9, "Carica", {"V45"}), "descrizione")), "RIGA\nDOPPIA");
    EXPECT_TRUE(host::Call(icd9, "Carica", {"250"}).is_empty());
    EXPECT_TRUE(host::Call(icd9, "Carica", {"v45"}).is_empty());
    EXPECT_THROW(host::Get(entry, "CodiceFarmaci"), host::Failure);
    host::Value esenzione = host::Call(host::Get(archivio, "Esenzioni"), "CaricaCodice", {"031.401"});
    EXPECT_EQ(host::TextOf(host::Get(esenzione, "CodiceEsami")), "E");
    EXPECT_THROW(host::Call(host::Get(archivio, "Esenzioni"), "Carica", {"031.401"}), host::Failure);
    return true;
  });
  std::vector<json> carica = Calls("Carica");
  EXPECT_EQ(carica[0]["obj"], "Interface.archivio.ICD9");
  EXPECT_EQ(carica[0]["returns"], Typed("object", "ICD9: 250"));
  EXPECT_FALSE(carica[2].contains("returns"));
  EXPECT_EQ(Calls("CaricaCodice")[0]["returns"], Typed("object", "Esenzioni:031.401"));
}

// A catalogue that can't be read stops the run before anything is written.
TEST_F(ReferenceHostTest, UnusableCataloguesWriteNothing) {
  for (const char* csv : {"code,ID,Descrizione\n\"401.9,I1,unterminated\n", "code,ID,Descrizione\n401.9,I1\n", ""}) {
    options_.icd9_csv = *csv ? WriteFile("broken.csv", csv) : dir_ / "absent.csv";
    EXPECT_THROW(Run(Nothing), std::runtime_error) << csv;
  }
  EXPECT_FALSE(fs::exists(options_.archive));
  EXPECT_FALSE(fs::exists(options_.trace));
}

TEST_F(ReferenceHostTest, RunIsRecordedWithMessagesAndOutcomes) {
  options_.utente = {{"citta", "MILANO"}};
  options_.tempdir.clear();
  std::string tempdir;
  refhost::ConvertOutcome outcome = Run([&](const host::Value& iface) {
    host::Value utente = host::Get(iface, "utente");
    EXPECT_EQ(host::TextOf(host::Get(utente, "Citta")), "MILANO");
    EXPECT_EQ(host::TextOf(host::Get(utente, "CodiceRegione")), "120");
    tempdir = host::TextOf(host::Get(utente, "tempdir"));
    EXPECT_TRUE(fs::is_directory(tempdir));
    EXPECT_EQ(host::Call(iface, "DaiCodiceRegioneASL", {"201", " rm ", host::Value::Bool(true)}),
              host::Value("120201"));
    EXPECT_EQ(host::Call(iface, "DaiCodiceRegioneASL", {"201", "XX", host::Value::Bool(true)}), host::Value(""));

    host::Call(iface, "AddMsg", {"Apertura database di origine"});
    host::Call(iface, "ChangeMsg", {"OK"});
    host::Call(iface, "AddMsg", {"ROSSI MARIO..."});
    NewPatient(iface, "ROSSI");
    host::Call(iface, "ChangeMsg", {"OK"});
    host::Call(iface, "AddMsg", {"NESSUNO..."});
    host::Call(iface, "DaiPaziente", {"NESSUNO", "", "", "", ""});
    host::Call(iface, "ChangeMsg", {"ERR"});
    host::Call(iface, "AddInfo", {"NESSUNO : dati non validi"});
    return false;
  });

  EXPECT_FALSE(fs::exists(tempdir));
  EXPECT_EQ(conversione_->medico, "ROSSI MARIO");
  EXPECT_EQ(conversione_->options, "Allergie;Appunti;BMI");
  EXPECT_TRUE(outcome.test_result);
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.last_error, "ultimo errore");
  EXPECT_EQ(outcome.patients_ok, 1);
  EXPECT_EQ(outcome.patients_err, 1);
  EXPECT_EQ(Rows("SELECT kind, text FROM messages ORDER BY seq").back(),
            (std::vector<std::string>{"AddInfo", "NESSUNO : dati non validi"}));
  EXPECT_EQ(Rows("SELECT conn, options, result, last_error, ended IS NOT NULL FROM runs"),
            (Table{{options_.conn, "Allergie;Appunti;BMI", "0", "ultimo errore", "1"}}));
}

TEST_F(ReferenceHostTest, AFailureRaisedByThePluginIsReported) {
  conversione_->test_raises = host::Failure(5, "Chiamata di routine o argomento non validi");
  refhost::ConvertOutcome outcome = Run(Nothing);
  ASSERT_TRUE(outcome.raised);
  EXPECT_EQ(outcome.raised->number, 5);
  EXPECT_TRUE(outcome.removed_empty);

  conversione_->test_raises.reset();
  refhost::ConvertOutcome later = Run([](const host::Value& iface) -> bool {
    NewPatient(iface, "ROSSI");
    throw host::Failure(5, "Chiamata di routine o argomento non validi");
  });
  ASSERT_TRUE(later.raised);
  EXPECT_EQ(Rows("SELECT result, last_error FROM runs"),
            (Table{{"0", "5 Chiamata di routine o argomento non validi"}}));
}

// A stop counts only when it came before the source's last row: the stop
// answered at 100% left nothing undone. A run that never reached a patient
// (Test false, or Converti false at once) leaves no archive, and what an
// --overwrite run would have replaced stays.
TEST_F(ReferenceHostTest, StopsBeforeTheEndAndRunsWithoutPatientsAreTold) {
  auto progress = [](int percent) {
    return [percent](const host::Value& iface) {
      NewPatient(iface, "ROSSI");
      host::Value at = host::Value::I32(percent), stop = host::Value::Bool(false);
      host::Call(iface, "UpdateProgress", {host::Arg::Ref(at), host::Arg::Ref(stop)});
      return true;
    };
  };
  options_.stop_at_patient = 1;
  refhost::ConvertOutcome midway = Run(progress(50));
  EXPECT_TRUE(midway.stopped);
  EXPECT_EQ(midway.patients_taken, 1);
  options_.overwrite = true;
  EXPECT_FALSE(Run(progress(100)).stopped);

  const auto earlier = fs::file_size(options_.archive);
  const std::string earlier_runs = Rows("SELECT started FROM runs").front().front();
  refhost::ConvertOutcome failed = Run(Refuse);
  EXPECT_TRUE(failed.removed_empty);
  EXPECT_FALSE(failed.archived);
  EXPECT_EQ(fs::file_size(options_.archive), earlier);
  EXPECT_EQ(Rows("SELECT started FROM runs").front().front(), earlier_runs);

  fs::remove(options_.archive);
  fs::remove(options_.trace);
  options_.overwrite = false;
  EXPECT_TRUE(Run(Refuse).removed_empty);
  EXPECT_FALSE(fs::exists(options_.archive));
  EXPECT_FALSE(fs::exists(options_.trace));
  // A run that took patients keeps its archive, however it ended.
  refhost::ConvertOutcome refused = Run([](const host::Value& iface) {
    host::Call(iface, "AddMsg", {"NESSUNO..."});
    host::Call(iface, "DaiPaziente", {"NESSUNO", "", "", "", ""});
    host::Call(iface, "ChangeMsg", {"ERR"});
    return false;
  });
  EXPECT_FALSE(refused.removed_empty);
  EXPECT_EQ(refused.patients_refused, 1);
  EXPECT_EQ(refused.patients_err, 1);
  EXPECT_TRUE(fs::exists(options_.archive));
}

// --categories takes the list as ListaOpzioni prints it, or as people type
// it, and refuses a name it doesn't know with the nearest one (the whole
// message is held by the command's tests).
TEST(ReferenceHostHelpers, CategoriesAreTakenAsPeopleWriteThem) {
  const std::string lista = "Allergie; Certificati; Certificati INPS; Prescrizioni Libere; Prestazioni; Referti";
  EXPECT_EQ(refhost::CategoryOptions(lista, lista),
            "Allergie;Certificati;Certificati INPS;Prescrizioni Libere;Prestazioni;Referti");
  EXPECT_EQ(refhost::CategoryOptions("  prestazioni ,REFERTI;; allergie,", lista), "Prestazioni;Referti;Allergie");
  EXPECT_EQ(refhost::CategoryOptions("certificati inps", lista), "Certificati INPS");
  try {
    refhost::CategoryOptions("certificato", lista);
    ADD_FAILURE() << "an unknown name was taken";
  } catch (const std::runtime_error& e) {
    EXPECT_THAT(e.what(), ::testing::HasSubstr("\"Certificati\""));
  }
  EXPECT_THROW(refhost::CategoryOptions(" ; ", lista), std::runtime_error);
}

TEST(ReferenceHostHelpers, ClassIdentitiesAndUtente) {
  EXPECT_THROW(refhost::ParseClassId("6B1F3C52-8E0A-4D7B-9C21-5A4E7D0B3F18"), std::invalid_argument);
  EXPECT_THROW(refhost::ParseClassId("{6B1F3C52-8E0A-4D7B-9C21-5A4E7D0B3FXX}"), std::invalid_argument);
  EXPECT_THROW(refhost::ParseUtente("[1]"), std::runtime_error);
  EXPECT_EQ(refhost::ParseUtente(R"({"CodiceASL": 201})").at("CodiceASL"), "201");
}

TEST(ReferenceHostHelpers, ProvinceTableGivesEveryProvinceItsRegion) {
  const std::string path = std::string(KAIRON_DATA_DIR) + "/province.csv";
  refhost::Provinces provinces = refhost::Provinces::Load(path);
  for (auto [province, region] : {std::pair{"MI", "030"}, {"na", "150"}, {"BZ", "041"}, {"SS", "200"}})
    EXPECT_EQ(provinces.RegionOf(province), region) << province;
  EXPECT_EQ(provinces.RegionOf("EE"), std::nullopt);
  std::vector<std::vector<std::string>> rows = refhost::ReadCsv(path);
  EXPECT_GE(rows.size(), 108u);
  std::set<std::string> regions;
  for (size_t i = 1; i < rows.size(); ++i) regions.insert(rows[i][1]);
  EXPECT_EQ(regions.size(), 21u);  // 19 regions and the two autonomous provinces
  for (const std::string& region : regions) EXPECT_EQ(region.size(), 3u) << region;
}

// kairon-convert with args.
support::Outcome RunCommand(const std::vector<std::string>& args) {
  static int runs = 0;
  static const fixture::TempDir outputs;
  std::vector<std::string> command = {KAIRON_CONVERT_PATH};
  command.insert(command.end(), args.begin(), args.end());
  return support::Run(command, outputs.path() / ("run" + std::to_string(++runs)));
}

TEST(KaironConvertCommand, PrintsJsonAndExitsWithTheRightStatus) {
  support::Outcome info = RunCommand({"info", "--json"});  // the plug-in beside ../lib of the program
  ASSERT_EQ(info.status, 0) << info.err;
  json properties = json::parse(info.out);
  EXPECT_TRUE(properties["TipoOrigine"].is_number_integer());
  EXPECT_EQ(properties["DefaultPassword"], "");

  EXPECT_EQ(RunCommand({"test", "", "--plugin", KAIRON_PLUGIN_PATH}).status, 1);  // the plug-in raises
  support::Outcome test = RunCommand({"test", "/nonexistent/GX_USER.FDB", "--json", "--plugin", KAIRON_PLUGIN_PATH});
  EXPECT_EQ(test.status, 3);
  EXPECT_EQ(json::parse(test.out)["result"], false);

  fixture::TempDir dir;
  EXPECT_EQ(RunCommand({"info", "--plugin", dir / "missing.so"}).status, 2);
  EXPECT_EQ(RunCommand({"convert", "x", "--archive", dir / "a.sqlite", "--plugin", KAIRON_PLUGIN_PATH}).status, 2);
  EXPECT_EQ(RunCommand({"convert", "x", "--plugin", KAIRON_PLUGIN_PATH}).status, 2);
  EXPECT_FALSE(fs::exists(dir / "a.sqlite"));
}

}  // namespace

// The archive's and the trace's JSON is written without the library's
// serializer, and must read byte for byte as the library writes it: escapes,
// control characters, bytes that aren't UTF-8 (lone, truncated, overlong,
// surrogates), numbers of every kind, nesting and the order of members.
TEST(JsonText, WritesWhatTheLibraryWrites) {
  const std::vector<std::string> texts = {
      "", "plain", "quote \" back \\ slash /", "\b\f\n\r\t\x01\x1f\x7f", "Forlì – €", "\xE0 lone", "trunc \xC3",
      "\xC3\x28", "over \xC0\xAF", "sur \xED\xA0\x80", "max \xF4\x8F\xBF\xBF past \xF4\x90\x80\x80",
      "\xF0\x9F\x98\x80 ok", "mid\xE2\x82 x\xE2\x82\xAC", std::string("nul\0in", 6)};
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const std::string& text : texts) {
    nlohmann::ordered_json line;
    line["obj"] = text;
    line[text.empty() ? "k" : text] = {{"type", "text"}, {"value", text}};
    line["n"] = {0.1, 120.0, -1e300, 1e-7, 5e-324, int64_t{-9007199254740993}, uint64_t{18446744073709551615u}};
    line["b"] = {true, false, nullptr, nlohmann::ordered_json::object(), nlohmann::ordered_json::array()};
    EXPECT_EQ(refhost::JsonText(line), line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)) << text;
    all.push_back(std::move(line));
  }
  EXPECT_EQ(refhost::JsonText(all), all.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));

  // Typed values written straight into text read as the JSON value does.
  const std::vector<host::Value> values = {
      host::Value(), host::Value::Null(), host::Value("a\"b\xE0"), host::Value::I16(-3), host::Value::I32(70000),
      host::Value(72.5), host::Value(0.1), host::Value(1e21), host::Value::Bool(true), host::Value::Bool(false),
      host::Value(host::Date{1950, 3, 7}), host::Value(host::Date{2020, 1, 2, 10, 30, 0}),
      host::Value::Bytes({1, 2, 3})};
  for (const host::Value& value : values) {
    std::string text;
    refhost::AppendTypedValue(text, value);
    EXPECT_EQ(text, refhost::JsonText(refhost::TypedValue(value)));
  }
}
