// Sources that can't be written convert all the same, through a private
// copy that goes when the run ends, whatever way it ends; and no run ever
// changes a row of the source.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "plugin/Conversione.h"
#include "source/opening.h"
#include "support/fixture.h"
#include "support/process.h"

namespace {

namespace fs = std::filesystem;

support::SampleCleanup cleanup;

// The first column of a query's rows on an SQLite file.
std::vector<std::string> Column(const std::string& file, const std::string& sql) {
  std::vector<std::string> values;
  for (const auto& row : fixture::ArchiveRows(file, sql)) values.push_back(row.front());
  return values;
}

// What a conversion filed, without what depends on the run's own folders.
std::vector<std::string> Filed(const std::string& archive) {
  std::vector<std::string> filed;
  for (const char* sql : {"SELECT store || args FROM records ORDER BY id", "SELECT members FROM patients ORDER BY id",
                          "SELECT sha256 FROM files ORDER BY id", "SELECT kind || text FROM messages ORDER BY seq"})
    for (const std::string& value : Column(archive, sql)) filed.push_back(value);
  return filed;
}

std::map<std::string, std::string> Bytes(const fs::path& folder) {
  std::map<std::string, std::string> bytes;
  for (const char* file : {"GX_USER.FDB", "GX_MEDIA.FDB", "GX_DATA.FDB"}) bytes[file] = support::ReadFile(folder / file);
  return bytes;
}

// The private folders of copies left in folder.
std::vector<std::string> CopiesLeft(const fs::path& folder) {
  std::vector<std::string> left;
  for (const auto& entry : fs::directory_iterator(folder))
    if (entry.path().filename().string().rfind("kairon-ambulor-", 0) == 0) left.push_back(entry.path().string());
  return left;
}

class ReadOnlySource : public ::testing::Test {
 protected:
  // The private copies go to a system temporary folder of the test's own.
  void SetUp() override {
    fs::create_directory(temp_);
    if (const char* old = std::getenv("TMPDIR")) old_tmpdir_ = old;
    setenv("TMPDIR", temp_.c_str(), 1);
  }
  void TearDown() override {
    source::opening::ForceCopyForTesting(false);
    old_tmpdir_ ? setenv("TMPDIR", old_tmpdir_->c_str(), 1) : unsetenv("TMPDIR");
    for (const fs::path& folder : frozen_) std::system(("chattr -R -i " + folder.string() + " 2>/dev/null").c_str());
  }

  // Makes the files and folder immutable, which binds root too; false where
  // that can't be done.
  bool Freeze(const fs::path& folder) {
    if (std::system(("chattr -R +i " + folder.string() + " 2>/dev/null").c_str()) != 0) return false;
    frozen_.push_back(folder);
    return true;
  }

  fixture::Run Convert(const std::string& archive, refhost::ConvertOptions options = {}) {
    options.archive = (dir_.path() / archive).string();
    options.trace = (dir_.path() / (archive + ".jsonl")).string();
    options.tempdir = (dir_.path() / "hosttmp").string();
    return fixture::Convert(user_, options);
  }

  fixture::TempDir dir_;
  fs::path src_ = support::CopyOfSample(dir_.path());
  std::string user_ = (src_ / "GX_USER.FDB").string();
  fs::path temp_ = dir_.path() / "systemp";
  std::optional<std::string> old_tmpdir_;
  std::vector<fs::path> frozen_;
};

TEST_F(ReadOnlySource, TheCopyLivesFromTestToTheEndOfTheWorker) {
  source::opening::ForceCopyForTesting(true);
  std::string folder;
  {
    cnv::Conversione conversione;
    host::Value lista = "";
    host::Args args{host::Arg(user_), host::Arg::Ref(lista)};
    EXPECT_TRUE(conversione.Call("Test", args).integer() != 0);
    EXPECT_NE(host::TextOf(lista), "");
    folder = host::TextOf(conversione.Get("CopiaPrivata"));
    ASSERT_EQ(fs::path(folder).parent_path(), temp_);
    EXPECT_EQ(fs::status(folder).permissions() & fs::perms::all, fs::perms::owner_all);
    for (const char* file : {"GX_USER.FDB", "GX_MEDIA.FDB", "GX_DATA.FDB"}) EXPECT_TRUE(fs::exists(fs::path(folder) / file));
    // A second Test replaces the worker, and its copies with it.
    EXPECT_TRUE(conversione.Call("Test", args).integer() != 0);
    EXPECT_FALSE(fs::exists(folder));
    folder = host::TextOf(conversione.Get("CopiaPrivata"));
    EXPECT_TRUE(fs::exists(folder));
  }
  EXPECT_FALSE(fs::exists(folder));
}

// Runs that end well, fail and are stopped, with and without the copy: the
// same records, no copy left, and the source's rows as they were.
TEST_F(ReadOnlySource, RunsThatSucceedFailOrStopLeaveTheSourceAsItWas) {
  const auto rows = support::DumpSource(src_);
  ASSERT_GT(rows.at("GX_USER.FDB/PAZIENTI").size(), 0u);
  const fixture::Run direct = Convert("direct.sqlite");
  ASSERT_TRUE(direct.outcome.result) << direct.outcome.last_error;

  source::opening::ForceCopyForTesting(true);
  const fixture::Run copied = Convert("copied.sqlite");
  EXPECT_TRUE(copied.outcome.result) << copied.outcome.last_error;
  EXPECT_EQ(Filed(copied.archive), Filed(direct.archive));
  EXPECT_EQ(copied.trace.size(), direct.trace.size());
  EXPECT_EQ(CopiesLeft(temp_), std::vector<std::string>{});

  for (bool copy : {true, false}) {
    SCOPED_TRACE(copy ? "through a copy" : "direct");
    source::opening::ForceCopyForTesting(copy);
    refhost::ConvertOptions failing;
    failing.fail = {"ChangeMsg@2"};
    const fixture::Run failed = Convert("failed.sqlite", failing);
    EXPECT_FALSE(failed.outcome.result);
    EXPECT_NE(failed.outcome.last_error.find("1001"), std::string::npos) << failed.outcome.last_error;
    EXPECT_EQ(CopiesLeft(temp_), std::vector<std::string>{});

    refhost::ConvertOptions stopping;
    stopping.stop_at_patient = 2;
    const fixture::Run stopped = Convert("stopped.sqlite", stopping);
    EXPECT_TRUE(stopped.outcome.result);
    EXPECT_EQ(stopped.outcome.patients_ok + stopped.outcome.patients_err, 2);
    EXPECT_EQ(CopiesLeft(temp_), std::vector<std::string>{});
  }
  source::opening::ForceCopyForTesting(false);
  EXPECT_TRUE(support::DumpSource(src_) == rows);
}

// A source that truly can't be written: the host converts it as it converts
// a writable one, the files keep every byte, and no copy is left.
TEST_F(ReadOnlySource, ImmutableFilesAndFolderConvertThroughTheHost) {
  const fixture::Run direct = Convert("direct.sqlite");
  ASSERT_TRUE(direct.outcome.result);
  const auto bytes = Bytes(src_);
  if (!Freeze(src_)) GTEST_SKIP() << "chattr +i doesn't work here: no read-only source to try";

  const std::string archive = (dir_.path() / "ro.sqlite").string();
  support::Outcome outcome =
      support::Run({KAIRON_CONVERT_PATH, "convert", user_, "--archive", archive, "--plugin", KAIRON_PLUGIN_PATH},
                   dir_.path() / "ro", {"TMPDIR=" + temp_.string()});
  EXPECT_EQ(outcome.status, 5) << outcome.err << outcome.out;  // the sample's planted failures
  EXPECT_EQ(Filed(archive), Filed(direct.archive));
  EXPECT_EQ(CopiesLeft(temp_), std::vector<std::string>{});
  EXPECT_TRUE(Bytes(src_) == bytes);
}

// Ended at once by two signals mid-run, the host removes the copy itself.
TEST_F(ReadOnlySource, TheHostRemovesTheCopyWhenEndedAtOnce) {
  fs::path big = dir_.path() / "big";
  sample::SampleOptions options;
  options.patients = 150;
  sample::GenerateSample(big.string(), options);
  if (!Freeze(big)) GTEST_SKIP() << "chattr +i doesn't work here: no read-only source to try";

  // A run that stops cleanly before the second signal comes (leaving no copy
  // either) is tried again.
  bool ended_at_once = false;
  for (int attempt = 0; attempt < 5 && !ended_at_once; ++attempt) {
    const std::string archive = (dir_.path() / ("signal" + std::to_string(attempt) + ".sqlite")).string();
    support::Process run({KAIRON_CONVERT_PATH, "convert", (big / "GX_USER.FDB").string(), "--archive", archive,
                          "--plugin", KAIRON_PLUGIN_PATH},
                         dir_.path() / ("signal" + std::to_string(attempt)), {"TMPDIR=" + temp_.string()});
    for (int i = 0; i < 600 && run.Running(); ++i) {
      const auto patients = Column(archive, "SELECT count(*) FROM patients");
      if (!CopiesLeft(temp_).empty() && !patients.empty() && patients.front() != "0") break;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ASSERT_EQ(CopiesLeft(temp_).size(), 1u);
    run.Signal(SIGTERM);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    run.Signal(SIGTERM);
    support::Outcome outcome = run.Wait();
    ended_at_once = outcome.status < 0;
    EXPECT_EQ(CopiesLeft(temp_), std::vector<std::string>{}) << "attempt " << attempt;
  }
  EXPECT_TRUE(ended_at_once);
}

}  // namespace
