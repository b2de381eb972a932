// Sources that don't open: each way tells its cause in words with a remedy,
// while Test and Converti answer as before. Files of another Firebird are
// made from a real file by changing the version in its header page.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/object.h"
#include "plugin/Conversione.h"
#include "source/clsAmbulor.h"
#include "source/opening.h"
#include "support/fixture.h"
#include "support/process.h"

namespace {

namespace fs = std::filesystem;

support::SampleCleanup cleanup;

struct Tested {
  bool result = false;
  std::string lista_medici, last_error, cause;
};

Tested TestSource(cnv::Conversione& conversione, const std::string& path) {
  host::Value lista = "";
  host::Args args{host::Arg(path), host::Arg::Ref(lista)};
  Tested tested;
  tested.result = conversione.Call("Test", args).integer() != 0;
  tested.lista_medici = host::TextOf(lista);
  tested.last_error = host::TextOf(conversione.Get("LastError"));
  tested.cause = host::TextOf(conversione.Get("CausaApertura"));
  return tested;
}

Tested TestSource(const std::string& path) {
  cnv::Conversione conversione;
  return TestSource(conversione, path);
}

// Writes a 16-bit value into a file at offset, little-endian, as the header
// page holds it.
void Patch16(const fs::path& file, long offset, unsigned value) {
  std::fstream f(file, std::ios::in | std::ios::out | std::ios::binary);
  f.seekp(offset);
  const char bytes[2] = {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8)};
  f.write(bytes, 2);
}

// Gives the file the ODS major.minor in its header page, minor where that
// version keeps it.
void SetOds(const fs::path& file, unsigned major, unsigned minor, bool firebird = true) {
  Patch16(file, 0x12, major | (firebird ? 0x8000 : 0));
  Patch16(file, major >= 12 ? 0x40 : 0x3E, minor);
}

class OpeningCauses : public ::testing::Test {
 protected:
  fixture::TempDir dir_;
  fs::path src_ = support::CopyOfSample(dir_.path());
  std::string user_ = (src_ / "GX_USER.FDB").string();
};

TEST_F(OpeningCauses, TheHeaderPageOfARealFileReadsAsThisEnginesOds) {
  const std::string first = support::ReadFile(user_).substr(0, 4096);
  auto ods = source::opening::ReadHeaderPage(first);
  ASSERT_TRUE(ods);
  EXPECT_TRUE(ods->firebird);
  EXPECT_EQ(ods->major, 12u);
  EXPECT_EQ(ods->minor, 0u);
  EXPECT_EQ(fs::file_size(user_) % ods->page_size, 0u);
  EXPECT_FALSE(source::opening::ReadHeaderPage(first.substr(0, 0x20)));
  EXPECT_FALSE(source::opening::ReadHeaderPage(std::string(first).replace(0, 1, "\x05")));
}

TEST_F(OpeningCauses, AMissingUserFileFailsTestWithoutLastErrorButWithItsCause) {
  Tested tested = TestSource((src_ / "GX_USERX.FDB").string());
  EXPECT_FALSE(tested.result);
  EXPECT_EQ(tested.last_error, "");
  EXPECT_NE(tested.cause.find("non esiste"), std::string::npos) << tested.cause;
}

TEST_F(OpeningCauses, EachFileThatCantBeOpenedHasItsOwnCause) {
  struct Case {
    const char* what;
    std::function<void()> spoil;
    const char* file;
    int32_t number;
    std::vector<std::string> words;
  };
  fs::path media, data;  // of the case's own copy of the sample
  const std::vector<Case> cases = {
      {"missing", [&] { fs::remove(media); }, "GX_MEDIA.FDB", 335544344, {"non esiste", "stessa cartella"}},
      {"a folder", [&] { fs::remove(data); fs::create_directory(data); }, "GX_DATA.FDB", 335544344,
       {"c'è una cartella"}},
      {"ODS 11.2", [&] { SetOds(media, 11, 2); }, "GX_MEDIA.FDB", 335544379,
       {"più vecchia", "ODS 11.2", "Firebird 2.5", "host:percorso", "gbak -b", "gbak -c"}},
      {"ODS 11.0", [&] { SetOds(media, 11, 0); }, "GX_MEDIA.FDB", 335544379, {"ODS 11.0", "Firebird 2.0"}},
      {"ODS 10.1", [&] { SetOds(data, 10, 1); }, "GX_DATA.FDB", 335544379, {"ODS 10.1", "Firebird 1.5"}},
      {"ODS 13.0", [&] { SetOds(media, 13, 0); }, "GX_MEDIA.FDB", 335544379,
       {"più recente", "ODS 13.0", "Firebird 4.0", "host:percorso"}},
      {"ODS 13.1", [&] { SetOds(media, 13, 1); }, "GX_MEDIA.FDB", 335544379, {"Firebird 5.0"}},
      {"no Firebird flag", [&] { SetOds(media, 10, 0, false); }, "GX_MEDIA.FDB", 335544379,
       {"senza il contrassegno di Firebird"}},
      {"cut mid-page", [&] { fs::resize_file(media, fs::file_size(media) - 1000); }, "GX_MEDIA.FDB", 335544335,
       {"troncato o danneggiato", "copiarlo di nuovo"}},
      {"empty", [&] { fs::resize_file(data, 0); }, "GX_DATA.FDB", 335544335, {"vuoto"}},
      {"not a database", [&] { std::ofstream(media, std::ios::binary) << "PK\x03\x04 an archive, not a database"; },
       "GX_MEDIA.FDB", 335544323, {"non è un database Firebird"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const fs::path src = support::CopyOfSample(dir_.path(), c.what);
    const std::string user = (src / "GX_USER.FDB").string();
    media = src / "GX_MEDIA.FDB";
    data = src / "GX_DATA.FDB";
    c.spoil();
    cnv::Conversione conversione;
    Tested tested = TestSource(conversione, user);
    // Test answers as it always has: true, no doctors, the failure kept in
    // the worker.
    EXPECT_TRUE(tested.result);
    EXPECT_EQ(tested.lista_medici, "");
    EXPECT_EQ(tested.last_error, "");
    EXPECT_NE(tested.cause.find(c.file), std::string::npos) << tested.cause;
    for (const std::string& words : c.words) EXPECT_NE(tested.cause.find(words), std::string::npos) << tested.cause;
    // The worker's LastError is "number - description", with the number
    // the engine gives for the same trouble.
    cnv::clsAmbulor worker;
    ASSERT_TRUE(worker.Init(user));
    EXPECT_EQ(worker.ListaMedici(), "");
    EXPECT_EQ(worker.LastError().rfind(std::to_string(c.number) + " - ", 0), 0u) << worker.LastError();
    EXPECT_EQ(worker.CausaApertura(), tested.cause);
    // Converti fails, as before, on the connection that isn't open.
    host::Value interface;
    host::Args args{host::Arg(""), host::Arg(""), host::Arg::Ref(interface)};
    EXPECT_EQ(conversione.Call("Converti", args).integer(), 0);
    EXPECT_NE(host::TextOf(conversione.Get("LastError")), "");
  }
}

// Cut at a page boundary, the file looks whole from its header: the engine
// finds the pages missing, and its failure is still named.
TEST_F(OpeningCauses, AFileCutAtAPageBoundaryIsCaughtByTheEngineAndStillNamed) {
  const fs::path media = src_ / "GX_MEDIA.FDB";
  const auto page = source::opening::ReadHeaderPage(support::ReadFile(media).substr(0, 1024))->page_size;
  fs::resize_file(media, 8 * page);
  Tested tested = TestSource(user_);
  EXPECT_TRUE(tested.result);
  EXPECT_EQ(tested.lista_medici, "");
  EXPECT_NE(tested.cause.find("GX_MEDIA.FDB"), std::string::npos) << tested.cause;
  EXPECT_NE(tested.cause.find("troncato o danneggiato"), std::string::npos) << tested.cause;
}

// The reference host prints the cause in its output, and test fails on it:
// Test itself gives true for a source whose databases don't open.
TEST_F(OpeningCauses, TheReferenceHostPrintsTheCause) {
  SetOds(src_ / "GX_USER.FDB", 11, 2);
  const std::string kConvert = KAIRON_CONVERT_PATH, kPlugin = KAIRON_PLUGIN_PATH;
  support::Outcome test = support::Run({kConvert, "test", user_, "--plugin", kPlugin}, dir_.path() / "test");
  EXPECT_EQ(test.status, 1);
  EXPECT_NE(test.out.find("Test: true"), std::string::npos);
  EXPECT_NE(test.out.find("Not opened: Il file"), std::string::npos) << test.out;
  EXPECT_NE(test.out.find("Firebird 2.5"), std::string::npos) << test.out;

  support::Outcome json = support::Run({kConvert, "test", user_, "--json", "--plugin", kPlugin}, dir_.path() / "json");
  EXPECT_EQ(json.status, 1);
  auto parsed = nlohmann::json::parse(json.out);
  EXPECT_EQ(parsed["result"], true);
  EXPECT_NE(parsed["cause"].get<std::string>().find("Firebird 2.5"), std::string::npos) << json.out;

  support::Outcome convert = support::Run(
      {kConvert, "convert", user_, "--archive", dir_ / "a.sqlite", "--plugin", kPlugin}, dir_.path() / "convert");
  EXPECT_EQ(convert.status, 1);
  EXPECT_NE(convert.out.find("3709"), std::string::npos);
  EXPECT_NE(convert.err.find("ODS 11.2"), std::string::npos) << convert.err;
}

// Files copied from a Windows share come with names in lower case: the
// plug-in and the pre-flight find the media and data databases all the same.
TEST_F(OpeningCauses, DatabasesWithNamesInLowerCaseOpen) {
  for (const char* name : {"GX_USER.FDB", "GX_MEDIA.FDB", "GX_DATA.FDB"}) {
    std::string lower = name;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    fs::rename(src_ / name, src_ / lower);
  }
  const std::string user = (src_ / "gx_user.fdb").string();
  const Tested tested = TestSource(user);
  EXPECT_TRUE(tested.result);
  EXPECT_FALSE(tested.lista_medici.empty()) << tested.last_error << tested.cause;
  EXPECT_EQ(tested.cause, "");

  support::Outcome inspect = support::Run({KAIRON_INSPECT_PATH, user, "--json"}, dir_.path() / "inspect");
  EXPECT_NE(inspect.status, 2) << inspect.err;
  // The run's outcomes are those of the same source under its usual names.
  const char* const kOutcomes = "SELECT text FROM messages WHERE kind != 'AddMsg' ORDER BY seq";
  const fs::path usual = support::CopyOfSample(dir_.path(), "usual");
  EXPECT_EQ(fixture::ArchiveRows(fixture::Convert(user).archive, kOutcomes),
            fixture::ArchiveRows(fixture::Convert((usual / "GX_USER.FDB").string()).archive, kOutcomes));

  // A name in another case doesn't stand in for a file of the right name
  // that can't be opened, nor for a folder.
  fs::create_directory(src_ / "GX_MEDIA.FDB");
  EXPECT_NE(TestSource(user).cause.find("c'è una cartella"), std::string::npos);
}

// A connection text that names another file than the user database is
// refused before the plug-in sees it, saying what to give instead.
TEST_F(OpeningCauses, TheWrongFileIsRefusedWithTheRightOneNamed) {
  const std::string kConvert = KAIRON_CONVERT_PATH, kPlugin = KAIRON_PLUGIN_PATH;
  const std::string media = (src_ / "GX_MEDIA.FDB").string(), beside = (src_ / "GX_USER.FDB").string();
  struct Case {
    std::vector<std::string> args;
    std::string says;
  };
  const std::vector<Case> cases = {
      {{kConvert, "test", media, "--plugin", kPlugin}, "give the user database beside it, " + beside},
      {{kConvert, "convert", (src_ / "gx_data.fdb").string(), "--archive", dir_ / "a.sqlite", "--plugin", kPlugin},
       "is the data database"},
      {{kConvert, "test", src_.string(), "--plugin", kPlugin}, "is a folder: give the user database in it, " + beside},
      {{kConvert, "test", "C:\\Ambulor\\GX_USER.FDB", "--plugin", kPlugin}, "is a Windows path"},
      {{KAIRON_INSPECT_PATH, media}, "give the user database beside it"},
      {{KAIRON_INSPECT_PATH, "C:\\Ambulor\\GX_USER.FDB"}, "SERVER:C:\\Ambulor\\GX_USER.FDB"},
      {{KAIRON_INSPECT_PATH, (src_ / "notes.txt").string()}, "is not a user database"},
  };
  int run = 0;
  for (const Case& c : cases) {
    support::Outcome outcome = support::Run(c.args, dir_.path() / ("run" + std::to_string(++run)));
    EXPECT_EQ(outcome.status, 2) << c.args[1] << " " << c.args[2];
    EXPECT_NE(outcome.err.find(c.says), std::string::npos) << outcome.err;
  }
  EXPECT_FALSE(fs::exists(dir_ / "a.sqlite"));
  // The user database in lower case is taken.
  fs::rename(src_ / "GX_USER.FDB", src_ / "gx_user.FDB");
  const std::string lower = (src_ / "gx_user.FDB").string();
  EXPECT_EQ(support::Run({kConvert, "test", lower, "--plugin", kPlugin}, dir_.path() / "lower").status, 0);
}

// Another user than root: permissions and the engine's lock folder. Root
// reads everything, so these run the host as nobody.
class OtherUser : public OpeningCauses {
 protected:
  void SetUp() override {
    if (geteuid() != 0 || access("/usr/bin/setpriv", X_OK) != 0)
      GTEST_SKIP() << "needs root and setpriv to run the host as another user";
    chmod(dir_.path().c_str(), 0755);
    chmod(src_.c_str(), 0755);
    for (const auto& entry : fs::directory_iterator(src_)) chmod(entry.path().c_str(), 0644);
    fs::create_directory(dir_.path() / "lock");
    chmod((dir_.path() / "lock").c_str(), 0777);
    fs::create_directory(dir_.path() / "out");
    chmod((dir_.path() / "out").c_str(), 0777);
  }
  support::Outcome AsNobody(std::vector<std::string> args, const std::vector<std::string>& env) {
    args.insert(args.begin(), {"setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups"});
    return support::Run(args, dir_.path() / "out" / "nobody", env);
  }
};

TEST_F(OtherUser, NoPermissionAndALockFolderOfAnotherUserAreNamed) {
  const std::vector<std::string> test{KAIRON_CONVERT_PATH, "test", user_, "--plugin", KAIRON_PLUGIN_PATH};
  const std::string lock = (dir_.path() / "lock").string();

  support::Outcome fine = AsNobody(test, {"FIREBIRD_LOCK=" + lock, "TMPDIR=" + (dir_.path() / "out").string()});
  EXPECT_EQ(fine.status, 0) << fine.err;
  EXPECT_EQ(fine.err.find("can't be opened"), std::string::npos) << fine.err;

  chmod((src_ / "GX_MEDIA.FDB").c_str(), 0600);
  support::Outcome denied = AsNobody(test, {"FIREBIRD_LOCK=" + lock});
  EXPECT_TRUE(denied.Says("L'utente nobody non ha il permesso di leggere il file")) << denied.out;
  EXPECT_TRUE(denied.Says("GX_MEDIA.FDB")) << denied.out;
  EXPECT_EQ(denied.status, 1);
  chmod((src_ / "GX_MEDIA.FDB").c_str(), 0644);

  // A lock folder that root made first, as the engine makes it.
  const fs::path root_lock = dir_.path() / "rootlock";
  fs::create_directory(root_lock);
  chmod(root_lock.c_str(), 0770);
  support::Outcome locked = AsNobody(test, {"FIREBIRD_LOCK=" + root_lock.string()});
  EXPECT_TRUE(locked.Says("La cartella dei file di blocco del motore Firebird")) << locked.out;
  EXPECT_TRUE(locked.Says("FIREBIRD_LOCK")) << locked.out;
  EXPECT_TRUE(locked.Says("utente root")) << locked.out;
}

}  // namespace
