// The reference host and the generator run as a person runs them: refusals
// that leave every file as it was, causes of failures, warnings, accented
// paths, and real SIGINT and SIGTERM at random moments of a conversion.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/fixture.h"
#include "support/process.h"

namespace {

namespace fs = std::filesystem;
using support::ReadFile;

// How a program ended and what it wrote; it says things on standard error.
struct Outcome : support::Outcome {
  bool Says(const std::string& text) const { return err.find(text) != std::string::npos; }
};

// A program run as a real process, its output going to files of this test
// program's own. With signals_pending, SIGINT and SIGTERM start blocked (a
// child starts with the mask it is spawned under), as the programs block
// them first thing: a signal sent at once waits for the program's own
// handling instead of ending it before main.
class Child {
 public:
  Child(const std::vector<std::string>& args, const std::vector<std::string>& env = {}, bool signals_pending = false) {
    static fixture::TempDir outputs;
    static int count = 0;
    output_ = outputs.path() / std::to_string(++count);
    sigset_t pending, old;
    sigemptyset(&pending);
    if (signals_pending) {
      sigaddset(&pending, SIGINT);
      sigaddset(&pending, SIGTERM);
    }
    pthread_sigmask(SIG_BLOCK, &pending, &old);
    process_ = std::make_unique<support::Process>(args, output_, env);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
  }
  void Signal(int signal) const { process_->Signal(signal); }
  std::string ErrorSoFar() const { return ReadFile(output_.string() + ".err"); }
  Outcome Wait() { return Outcome{process_->Wait()}; }

 private:
  fs::path output_;
  std::unique_ptr<support::Process> process_;
};

Outcome RunToEnd(const std::vector<std::string>& args, const std::vector<std::string>& env = {}) {
  return Child(args, env).Wait();
}

// What a folder holds: every entry with its content (files) or kind.
using Contents = std::map<std::string, std::string>;
Contents Snapshot(const fs::path& folder) {
  Contents entries;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const fs::file_status status = entry.symlink_status();
    entries[entry.path().string()] = fs::is_regular_file(status) ? ReadFile(entry.path())
                                     : fs::is_directory(status)  ? "<folder>"
                                                                 : "<other>";
  }
  return entries;
}

// The first column of a query's first row on an SQLite file; "" when none.
std::string One(const std::string& file, const std::string& sql) {
  auto rows = fixture::ArchiveRows(file, sql);
  return rows.empty() ? "" : rows.front().front();
}

const std::string kConvert = KAIRON_CONVERT_PATH;
// The exit status of a whole run of a sample: its planted failures end in ERR.
constexpr int kPlantedFailures = 5;
const std::string kSample = KAIRON_SAMPLE_PATH;
const std::string kPlugin = KAIRON_PLUGIN_PATH;

std::vector<std::string> Convert(const std::string& user, const std::vector<std::string>& more) {
  std::vector<std::string> args{kConvert, "convert", user, "--plugin", kPlugin};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

// A small sample, an archive and a trace of an earlier run beside it.
class Refusals : public ::testing::Test {
 protected:
  void SetUp() override {
    sample::SampleOptions options;
    options.patients = 5;
    sample::GenerateSample(dir_ / "src", options);
    ASSERT_EQ(RunToEnd(Convert(user_, {"--archive", archive_, "--trace", trace_})).status, kPlantedFailures);
    fs::create_directory(dir_ / "tmp");
  }

  // The command is refused with exit 2, says the cause, and leaves every
  // file as it was.
  void ExpectRefused(const std::vector<std::string>& more, const std::string& cause,
                     const std::vector<std::string>& env = {}) {
    Contents before = Snapshot(dir_.path());
    Outcome outcome = RunToEnd(Convert(user_, more), env);
    EXPECT_EQ(outcome.status, 2) << outcome.err;
    EXPECT_TRUE(outcome.Says(cause)) << "wanted \"" << cause << "\", got: " << outcome.err;
    ExpectSame(before, Snapshot(dir_.path()));
  }

  static void ExpectSame(const Contents& before, const Contents& after) {
    for (const auto& [path, content] : before) {
      auto now = after.find(path);
      EXPECT_TRUE(now != after.end() && now->second == content) << path << " changed or went";
    }
    for (const auto& entry : after) EXPECT_TRUE(before.count(entry.first)) << entry.first << " came";
  }

  fixture::TempDir dir_;
  std::string user_ = dir_ / "src/GX_USER.FDB";
  std::string archive_ = dir_ / "earlier.sqlite";
  std::string trace_ = dir_ / "earlier.jsonl";
};

TEST_F(Refusals, NothingThatIsntAnArchiveOfOursIsReplaced) {
  std::ofstream(dir_ / "notes.txt") << "an earlier conversion";
  {
    sqlite3* other = nullptr;
    sqlite3_open((dir_ / "other.sqlite").c_str(), &other);
    sqlite3_exec(other, "CREATE TABLE patients(id INTEGER PRIMARY KEY, members TEXT)", nullptr, nullptr, nullptr);
    sqlite3_close(other);
  }
  fs::create_directory(dir_ / "folder");
  mkfifo((dir_ / "fifo").c_str(), 0644);
  fs::create_symlink(archive_, dir_ / "link.sqlite");

  ExpectRefused({"--archive", dir_ / "src/GX_MEDIA.FDB", "--overwrite"}, "is GX_MEDIA.FDB of the source");
  ExpectRefused({"--archive", user_, "--overwrite"}, "is GX_USER.FDB of the source");
  ExpectRefused({"--archive", dir_ / "notes.txt", "--overwrite"}, "not an SQLite file");
  ExpectRefused({"--archive", dir_ / "other.sqlite", "--overwrite"}, "has no table records");
  ExpectRefused({"--archive", dir_ / "folder", "--overwrite"}, "is a folder");
  ExpectRefused({"--archive", dir_ / "fifo", "--overwrite"}, "is a FIFO");
  ExpectRefused({"--archive", "/dev/null", "--overwrite"}, "is a device");
  ExpectRefused({"--archive", dir_ / "link.sqlite", "--overwrite"}, "symbolic link");
  ExpectRefused({"--archive", archive_}, "exists already");
  ExpectRefused({"--archive", dir_ / "missing/new.sqlite"}, "doesn't exist");
  ExpectRefused({"--archive", trace_, "--overwrite"}, "not an SQLite file");
}

TEST_F(Refusals, TheTraceFollowsTheArchivesRules) {
  std::ofstream(dir_ / "notes.txt") << "{\"not\": \"a trace\"}\n";
  ExpectRefused({"--archive", dir_ / "new.sqlite", "--trace", dir_ / "src/GX_DATA.FDB"}, "of the source");
  ExpectRefused({"--archive", dir_ / "new.sqlite", "--trace", trace_}, "exists already");
  ExpectRefused({"--archive", dir_ / "new.sqlite", "--trace", dir_ / "notes.txt", "--overwrite"}, "not a trace");
  ExpectRefused({"--archive", dir_ / "new.sqlite", "--trace", archive_, "--overwrite"}, "not a trace");
  ExpectRefused({"--archive", dir_ / "new.sqlite", "--trace", dir_ / "new.sqlite"}, "one file");
  ExpectRefused({"--archive", dir_ / "new.sqlite", "--trace", dir_ / "new.sqlite-wal"}, "journal");
  // An archive that can't be created leaves an existing trace alone.
  ExpectRefused({"--archive", dir_ / "missing/new.sqlite", "--trace", trace_, "--overwrite"}, "doesn't exist");
}

TEST_F(Refusals, AnArchiveInUseOrUnfinishedIsLeftAlone) {
  int held = open(archive_.c_str(), O_RDONLY);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  ExpectRefused({"--archive", archive_, "--overwrite"}, "being written by another run");
  close(held);

  // SQLite's lock is taken after the snapshot, since closing any file
  // descriptor of the archive in this process would release it.
  Contents before = Snapshot(dir_.path());
  sqlite3* reader = nullptr;
  sqlite3_open(archive_.c_str(), &reader);
  ASSERT_EQ(sqlite3_exec(reader, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  Outcome locked = RunToEnd(Convert(user_, {"--archive", archive_, "--overwrite"}));
  sqlite3_exec(reader, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close(reader);
  EXPECT_EQ(locked.status, 2);
  EXPECT_TRUE(locked.Says("locked by another program")) << locked.err;
  ExpectSame(before, Snapshot(dir_.path()));

  std::ofstream(archive_ + "-wal") << "frames of a run that was killed";
  ExpectRefused({"--archive", archive_, "--overwrite"}, "-wal lies beside it");
}

// The plug-in's Killfile calls name files of the temporary folder by titles
// of the source: a folder that can't be made or used, that holds anything,
// that is the source's folder or lies in it (by any path), or that holds
// what the run writes, is refused before the run. A new folder, and an empty
// one apart from all these, are taken.
TEST_F(Refusals, TemporaryFoldersThatCantBeUsedOrOverlapTheSourceOrTheOutputs) {
  fs::create_directory(dir_ / "out");
  fs::create_directory_symlink(dir_ / "src", dir_ / "alias");
  std::ofstream(dir_ / "tmp/resto.rtf") << "left by another program";
  const std::string fresh = dir_ / "new.sqlite";
  ExpectRefused({"--archive", fresh, "--tempdir", dir_ / "absent/new"}, "--tempdir can't be used");
  ExpectRefused({"--archive", fresh, "--tempdir", archive_}, "is not a folder");
  ExpectRefused({"--archive", fresh, "--utente", R"({"tempdir": "/nonexistent/new"})"}, "tempdir of --utente");
  ExpectRefused({"--archive", fresh}, "TMPDIR names /nonexistent", {"TMPDIR=/nonexistent"});
  ExpectRefused({"--archive", fresh, "--tempdir", dir_ / "src"}, "is the source's folder");
  ExpectRefused({"--archive", fresh, "--tempdir", dir_ / "src/tmp"}, "is the source's folder");
  ExpectRefused({"--archive", fresh, "--tempdir", dir_ / "alias"}, "is the source's folder");
  ExpectRefused({"--archive", fresh, "--tempdir", dir_ / "out/../src/"}, "is the source's folder");
  ExpectRefused({"--archive", fresh, "--utente", "{\"tempdir\": \"" + (dir_ / "src") + "\"}"},
                "tempdir of --utente can't be used");
  ExpectRefused({"--archive", dir_ / "out/a.sqlite", "--tempdir", dir_ / "out"}, "holds the archive");
  ExpectRefused({"--archive", fresh, "--trace", dir_ / "out/t.jsonl", "--tempdir", dir_ / "out"}, "holds the trace");
  ExpectRefused({"--archive", fresh, "--report", dir_ / "out/r.json", "--tempdir", dir_ / "out"}, "holds the report");
  ExpectRefused({"--archive", fresh, "--tempdir", dir_ / "tmp"}, "is not empty");

  for (const char* folder : {"out", "nuova"}) {
    Outcome taken = RunToEnd(Convert(user_, {"--archive", dir_ / (std::string(folder) + ".sqlite"), "--options",
                                             "scansioni", "--tempdir", dir_ / folder}));
    EXPECT_EQ(taken.status, kPlantedFailures) << folder << taken.err;
  }
}

TEST_F(Refusals, OverwriteReplacesAnEarlierRunWhole) {
  Outcome outcome = RunToEnd(Convert(user_, {"--archive", archive_, "--trace", trace_, "--overwrite", "--options", ""}));
  EXPECT_EQ(outcome.status, kPlantedFailures) << outcome.err;
  EXPECT_EQ(One(archive_, "SELECT count(*) FROM runs"), "1");
  EXPECT_EQ(One(archive_, "SELECT options FROM runs"), "");
  std::vector<std::string> left;
  for (const auto& entry : fs::directory_iterator(dir_.path())) left.push_back(entry.path().filename());
  std::sort(left.begin(), left.end());
  EXPECT_EQ(left, (std::vector<std::string>{"earlier.jsonl", "earlier.sqlite", "src", "tmp"}));
}

TEST_F(Refusals, TwoRunsOnOneNewArchiveGiveOneArchive) {
  const std::string archive = dir_ / "shared.sqlite";
  Child first(Convert(user_, {"--archive", archive})), second(Convert(user_, {"--archive", archive}));
  Outcome a = first.Wait(), b = second.Wait();
  EXPECT_EQ(std::min(a.status, b.status), 2) << a.err << b.err;
  EXPECT_EQ(std::max(a.status, b.status), kPlantedFailures) << a.err << b.err;
  EXPECT_EQ(One(archive, "PRAGMA integrity_check"), "ok");
  EXPECT_EQ(One(archive, "SELECT count(*) FROM runs WHERE ended IS NOT NULL"), "1");
}

TEST_F(Refusals, WarningsNameWhatWouldDoNothing) {
  std::ofstream(dir_ / "icd9.csv") << "code,ID\n401.9,I1\n";
  Outcome outcome = RunToEnd(Convert(user_, {"--archive", dir_ / "new.sqlite", "--options", "Allergie; Appunti;Vaccini",
                                        "--fail", "Pressione.Salvaa@2", "--fail", "ImportaAnagrafica@1", "--icd9",
                                        dir_ / "icd9.csv"}));
  EXPECT_EQ(outcome.status, kPlantedFailures) << outcome.err;
  EXPECT_TRUE(outcome.Says("\" Appunti\", \"Vaccini\" match no category")) << outcome.err;
  EXPECT_TRUE(outcome.Says("blanks count")) << outcome.err;
  EXPECT_TRUE(outcome.Says("the categories are: Allergie;Appunti;BMI;")) << outcome.err;
  EXPECT_TRUE(outcome.Says("--fail Pressione.Salvaa@2 never fired")) << outcome.err;
  EXPECT_FALSE(outcome.Says("--fail ImportaAnagrafica@1 never fired")) << outcome.err;
  EXPECT_TRUE(outcome.Says("--icd9: the header has no column Descrizione")) << outcome.err;
  EXPECT_NE(outcome.out.find("Result                       true"), std::string::npos);
}

// A full disk, from a file system of its own (needs the right to mount one).
TEST_F(Refusals, AFullDiskIsNamedWithTheSummary) {
  const fs::path small = dir_ / "small";
  fs::create_directory(small);
  sample::SampleOptions options;
  options.patients = 300;
  sample::GenerateSample(dir_ / "big", options);
  const std::string script = "mount -t tmpfs -o size=400k tmpfs '" + small.string() + "' || exit 77; exec '" +
                             kConvert + "' convert '" + (dir_ / "big/GX_USER.FDB") + "' --plugin '" + kPlugin +
                             "' --archive '" + (small / "a.sqlite").string() + "' --trace '" +
                             (small / "t.jsonl").string() + "'";
  Outcome outcome = RunToEnd({"/usr/bin/unshare", "-m", "/bin/sh", "-c", script});
  if (outcome.status == 77 || outcome.Says("unshare")) GTEST_SKIP() << "can't mount a small file system here";
  EXPECT_EQ(outcome.status, 1) << outcome.err;
  EXPECT_TRUE(outcome.Says("the disk is full")) << outcome.err;
  EXPECT_NE(outcome.out.find("Patients OK / ERR"), std::string::npos);
  EXPECT_NE(outcome.out.find("Stopped because"), std::string::npos);
}

// A temporary folder that fills up part way through a file (here a limit on
// the size of files) leaves nothing for SalvaFile: the scan stores nothing
// rather than a part of itself, and the run ends as usual.
TEST(FullTemporaryFolder, StoresNoScanCutShort) {
  fixture::TempDir dir;
  {
    auto source = sample::Archive::Create(dir / "src");
    source->Insert("PAZIENTI", fixture::Patient("Grande", "Grande"));
    source->Insert("IMAGES", {{"Record", host::Value::I32(1)}, {"CodCart", "Grande"},
                              {"bindata", host::Value::Bytes(std::vector<uint8_t>(3000005, 's'))},
                              {"Titolo", "Scansione"}, {"Settings", "tif"}});
    source->Close();
  }
  // SIGXFSZ ignored, as a shell's trap leaves it: writes past the limit fail
  // with EFBIG. The limit stays above the engine's own 1 MiB files.
  std::vector<std::string> args{"/bin/sh", "-c", "trap '' XFSZ; exec prlimit --fsize=2097152 -- \"$@\"", "sh"};
  for (const std::string& arg : Convert(dir / "src/GX_USER.FDB", {"--archive", dir / "a.sqlite", "--options",
                                                                  "scansioni", "--tempdir", dir / "tmp"}))
    args.push_back(arg);
  Outcome outcome = RunToEnd(args);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(One(dir / "a.sqlite", "SELECT count(*) FROM files"), "0");
  EXPECT_EQ(One(dir / "a.sqlite", "SELECT count(*) FROM records WHERE store = 'Eventi'"), "0");
  EXPECT_TRUE(fs::is_empty(dir.path() / "tmp"));
}

TEST(AccentedPaths, WorkForSourcesArchivesTracesAndFolders) {
  fixture::TempDir dir;
  const fs::path folder = dir.path() / "accénto";
  for (const char* locale : {"LC_ALL=C.UTF-8", "LC_ALL=C"}) {
    fs::remove_all(folder);
    Outcome made = RunToEnd({kSample, "--out", folder.string(), "--patients", "12"}, {locale});
    ASSERT_EQ(made.status, 0) << locale << made.err;
    fs::remove_all(dir.path() / "temporanei è");
    fs::create_directory(dir.path() / "temporanei è");
    Outcome converted = RunToEnd(Convert((folder / "GX_USER.FDB").string(),
                                    {"--archive", (folder / "archivio ò.sqlite").string(), "--trace",
                                     (folder / "traccia €.jsonl").string(), "--tempdir",
                                     (dir.path() / "temporanei è").string()}),
                            {locale});
    EXPECT_EQ(converted.status, kPlantedFailures) << locale << converted.err;
    EXPECT_GT(std::atoi(One((folder / "archivio ò.sqlite").string(), "SELECT count(*) FROM patients").c_str()), 5)
        << locale;
  }
}

TEST(SampleCommand, RefusesWhatItCantUseAndLeavesNothingWhenStopped) {
  fixture::TempDir dir;
  std::ofstream(dir / "file") << "x";
  EXPECT_EQ(RunToEnd({kSample, "--out", dir / "file"}).status, 2);
  EXPECT_EQ(RunToEnd({kSample, "--out", dir / "file/sub"}).status, 2);
  for (const char* seed : {"-1", "1.5", "18446744073709551616", "seven", ""}) {
    Outcome outcome = RunToEnd({kSample, "--out", dir / "seeded", "--seed", seed});
    EXPECT_EQ(outcome.status, 2) << seed;
    EXPECT_TRUE(outcome.Says("whole number")) << outcome.err;
  }
  EXPECT_FALSE(fs::exists(dir / "seeded"));
  EXPECT_EQ(RunToEnd({kSample, "--out", dir / "seeded", "--patients", "1", "--seed", "18446744073709551615"}).status, 0);

  // Stopped while writing over an earlier sample with --force.
  Contents before = Snapshot(dir / "seeded");
  Child child({kSample, "--out", dir / "seeded", "--patients", "100000", "--force"}, {}, true);
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  child.Signal(SIGINT);
  EXPECT_EQ(child.Wait().status, -SIGINT);
  EXPECT_TRUE(Snapshot(dir / "seeded") == before);
}

// The statuses and lines a script or a technician reads, on a clean sample
// of two patients and one of six with two planted failures.
class WhatARunTells : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new fixture::TempDir();
    for (auto [name, patients] : {std::pair{"clean", 2}, std::pair{"planted", 6}}) {
      sample::SampleOptions options;
      options.patients = patients;
      sample::GenerateSample(dir_->path() / name, options);
    }
  }
  static void TearDownTestSuite() { delete dir_; }
  static std::string User(const char* sample) { return *dir_ / (std::string(sample) + "/GX_USER.FDB"); }

  // The number after label on the summary's line that starts with it.
  static std::string SummaryField(const std::string& out, const std::string& label) {
    const size_t at = out.find("\n" + label);
    if (at == std::string::npos) return "";
    const size_t start = out.find_first_not_of(' ', at + 1 + label.size());
    return out.substr(start, out.find('\n', start) - start);
  }

  static inline fixture::TempDir* dir_ = nullptr;
  fixture::TempDir out_;
};

TEST_F(WhatARunTells, ExitStatusSummaryAndReportAgree) {
  Outcome clean = RunToEnd(Convert(User("clean"), {"--archive", out_ / "clean.sqlite"}));
  EXPECT_EQ(clean.status, 0) << clean.err;
  EXPECT_NE(clean.out.find("Complete: every patient taken (2) converted."), std::string::npos) << clean.out;
  // Not on a terminal, the progress is written as lines, against the
  // source's patients, ending on the count taken.
  EXPECT_NE(clean.err.find("progress 50%  1 of 2 patients"), std::string::npos) << clean.err;
  EXPECT_NE(clean.err.find("progress 100%  2 of 2 patients taken"), std::string::npos) << clean.err;

  const std::string html = out_ / "planted.html";
  Outcome planted = RunToEnd(Convert(User("planted"), {"--archive", out_ / "planted.sqlite", "--report", html}));
  EXPECT_EQ(planted.status, 5) << planted.err;
  EXPECT_NE(planted.out.find("Not complete: 2 of "), std::string::npos) << planted.out;
  EXPECT_NE(planted.out.find("patients ended in ERR (1 refused by the host"), std::string::npos) << planted.out;
  const std::string page = ReadFile(html);
  EXPECT_EQ(page.find("banner ok"), std::string::npos) << "a run with patients in ERR shows green";
  // The summary's records and files read as the report's.
  EXPECT_NE(page.find("<th>Records</th><td>" + SummaryField(planted.out, "(all stores)") + " in "), std::string::npos)
      << planted.out;
  const std::string files = SummaryField(planted.out, "Files stored");
  EXPECT_NE(page.find("<th>Files</th><td>" + files + "</td>"), std::string::npos) << files;
}

TEST_F(WhatARunTells, CategoriesAreRefusedByNameWithTheClosest) {
  Outcome typo = RunToEnd(Convert(User("clean"), {"--archive", out_ / "a.sqlite", "--categories", "Diagnosi, prestazoni"}));
  EXPECT_EQ(typo.status, 2);
  EXPECT_TRUE(typo.Says("\"prestazoni\" is no category; the closest is \"Prestazioni\"")) << typo.err;
  EXPECT_FALSE(fs::exists(out_ / "a.sqlite"));

  // The list that info prints, pasted whole, converts every category.
  const std::string lista = nlohmann::json::parse(RunToEnd({kConvert, "info", "--json", "--plugin", kPlugin}).out)
                                ["ListaOpzioni"];
  Outcome pasted = RunToEnd(Convert(User("clean"), {"--archive", out_ / "a.sqlite", "--categories", lista}));
  EXPECT_EQ(pasted.status, 0) << pasted.err;
  EXPECT_FALSE(pasted.Says("warning")) << pasted.err;
  std::string joined = lista;
  for (size_t at; (at = joined.find("; ")) != std::string::npos;) joined.erase(at + 1, 1);
  EXPECT_EQ(One(out_ / "a.sqlite", "SELECT options FROM runs"), joined);
}

// A conversion that can't reach a patient leaves nothing to bar the next
// one; an archive that holds a run is refused with the run that made it.
TEST_F(WhatARunTells, ARunThatTakesNoPatientLeavesNoArchive) {
  const std::vector<std::string> wrong_path = {"--archive", out_ / "s.sqlite", "--trace", out_ / "s.jsonl"};
  for (int attempt = 1; attempt <= 2; ++attempt) {
    Outcome missing = RunToEnd(Convert(out_ / "nowhere/GX_USER.FDB", wrong_path));
    EXPECT_EQ(missing.status, 3) << "attempt " << attempt << ": " << missing.err;
    EXPECT_TRUE(missing.Says("no patient was taken")) << missing.err;
    EXPECT_FALSE(fs::exists(out_ / "s.sqlite"));
    EXPECT_FALSE(fs::exists(out_ / "s.jsonl"));
  }

  ASSERT_EQ(RunToEnd(Convert(User("clean"), {"--archive", out_ / "s.sqlite"})).status, 0);
  Outcome again = RunToEnd(Convert(User("clean"), {"--archive", out_ / "s.sqlite"}));
  EXPECT_EQ(again.status, 2);
  EXPECT_TRUE(again.Says("exists already, made by the run of " + User("clean") + " started ")) << again.err;
  EXPECT_TRUE(again.Says(", with 2 patients")) << again.err;
}

TEST_F(WhatARunTells, HelpAndMistakesSpeakPlainly) {
  for (const char* command : {"info", "test", "convert", "report"}) {
    Outcome help = RunToEnd({kConvert, command, "--help"});
    EXPECT_EQ(help.status, 0) << command;
    EXPECT_NE(help.out.find("Exit status"), std::string::npos) << command << help.out;
    EXPECT_NE(help.out.find("Example"), std::string::npos) << command << help.out;
  }

  Outcome unknown = RunToEnd({kConvert, "convert", User("clean"), "--archive", out_ / "x.sqlite", "--categorie", "BMI"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.err.rfind("kairon-convert: ", 0), 0u) << unknown.err;
  Outcome both = RunToEnd(
      {kConvert, "convert", User("clean"), "--archive", out_ / "x.sqlite", "--categories", "BMI", "--options", "bmi"});
  EXPECT_EQ(both.status, 2);
}

// Real signals at random moments of a conversion of a large sample. The
// runs (KAIRON_SIGNAL_RUNS, default 10) and patients (KAIRON_SIGNAL_PATIENTS,
// default 1000, 300 in the sanitizers' build, which converts several times
// slower) can be raised; scripts/signal-loop.sh runs 100 over 3000 patients.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kSignalLoopPatients = 300;
#else
constexpr int kSignalLoopPatients = 1000;
#endif

class SignalLoop : public ::testing::Test {
 protected:
  static int Setting(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::atoi(value) : fallback;
  }

  static void SetUpTestSuite() {
    dir_ = new fixture::TempDir();
    sample::SampleOptions options;
    options.patients = Setting("KAIRON_SIGNAL_PATIENTS", kSignalLoopPatients);
    sample::GenerateSample(dir_->path() / "source", options);
    auto started = std::chrono::steady_clock::now();
    Outcome whole = RunToEnd(Convert(*dir_ / "source/GX_USER.FDB", {"--archive", *dir_ / "whole.sqlite"}));
    ASSERT_EQ(whole.status, kPlantedFailures) << whole.err;
    patients_ = std::stoi(One(*dir_ / "whole.sqlite", "SELECT count(*) FROM messages WHERE text LIKE '%...'"));
    duration_ = std::chrono::steady_clock::now() - started;
  }
  static void TearDownTestSuite() { delete dir_; }

  // A moment from the start to a little after the end of a whole conversion.
  std::chrono::microseconds RandomMoment() {
    auto whole = std::chrono::duration_cast<std::chrono::microseconds>(duration_ * 1.1);
    return std::chrono::microseconds(std::uniform_int_distribution<int64_t>(0, whole.count())(random_));
  }

  // No journal is left beside the archive (looked at before the archive is
  // opened, which would take a journal in), and the archive is whole.
  static void ExpectConsistent(const std::string& archive, int run) {
    for (const char* companion : {"-wal", "-shm", "-journal"})
      EXPECT_FALSE(fs::exists(archive + companion)) << "run " << run << companion;
    EXPECT_EQ(One(archive, "PRAGMA integrity_check"), "ok") << "run " << run;
  }

  static inline fixture::TempDir* dir_ = nullptr;
  static inline std::chrono::steady_clock::duration duration_{};
  static inline int patients_ = 0;  // the patient lines of a whole run
  std::mt19937_64 random_{std::random_device{}()};
};

TEST_F(SignalLoop, OneSigintStopsCleanlyAfterThePatientUnderWay) {
  const int runs = Setting("KAIRON_SIGNAL_RUNS", 10);
  for (int run = 1; run <= runs; ++run) {
    const std::string archive = *dir_ / ("int-" + std::to_string(run) + ".sqlite");
    Child child(Convert(*dir_ / "source/GX_USER.FDB", {"--archive", archive}), {}, true);
    std::this_thread::sleep_for(RandomMoment());
    child.Signal(SIGINT);
    Outcome outcome = child.Wait();
    if (outcome.status == -SIGINT) {  // came while the command line was read: ended at once, nothing written
      EXPECT_FALSE(fs::exists(archive)) << "run " << run;
      continue;
    }
    ExpectConsistent(archive, run);
    // Stopped before the last patient: 6, and said so; otherwise as a whole run.
    const bool short_of_whole =
        std::stoi(One(archive, "SELECT count(*) FROM messages WHERE text LIKE '%...'")) < patients_;
    ASSERT_EQ(outcome.status, short_of_whole ? 6 : kPlantedFailures) << "run " << run << ": " << outcome.err;
    if (short_of_whole) {
      EXPECT_NE(outcome.out.find("Not complete: the run was stopped after"), std::string::npos) << "run " << run;
    }
    EXPECT_NE(outcome.out.find("Result                       true"), std::string::npos) << "run " << run;
    EXPECT_EQ(One(archive, "SELECT count(*) FROM runs WHERE ended IS NOT NULL AND result = 1"), "1") << run;
    // The last patient's line is closed with its outcome.
    EXPECT_EQ(One(archive,
                  "WITH last AS (SELECT max(seq) AS seq FROM messages WHERE kind = 'AddMsg' AND text LIKE '%...') "
                  "SELECT (SELECT seq FROM last) IS NULL OR EXISTS (SELECT 1 FROM messages "
                  "WHERE kind = 'ChangeMsg' AND seq > (SELECT seq FROM last))"),
              "1")
        << "run " << run;
    fs::remove(archive);
  }
}

TEST_F(SignalLoop, TwoSigtermsEndAtOnceWithTheArchiveConsistent) {
  const int runs = Setting("KAIRON_SIGNAL_RUNS", 10);
  for (int run = 1; run <= runs; ++run) {
    const std::string archive = *dir_ / ("term-" + std::to_string(run) + ".sqlite");
    const std::string trace = *dir_ / ("term-" + std::to_string(run) + ".jsonl");
    const fs::path tmpdir = dir_->path() / ("term-tmp-" + std::to_string(run));
    fs::create_directories(tmpdir);
    Child child(Convert(*dir_ / "source/GX_USER.FDB", {"--archive", archive, "--trace", trace}),
                {"TMPDIR=" + tmpdir.string()}, true);
    std::this_thread::sleep_for(RandomMoment());
    child.Signal(SIGTERM);
    // Signals of one kind merge until taken: the second goes once the first was.
    for (int wait = 0; wait < 2000 && child.ErrorSoFar().find("stopping") == std::string::npos; ++wait)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    child.Signal(SIGTERM);
    Outcome outcome = child.Wait();
    ASSERT_TRUE(outcome.status == -SIGTERM || outcome.status == 6 || outcome.status == kPlantedFailures)
        << "run " << run << ": " << outcome.err;
    // Whenever the signals came, the program's temporary folder is gone.
    EXPECT_TRUE(fs::is_empty(tmpdir)) << "run " << run;
    if (!fs::exists(archive)) {  // ended before the run began: nothing written
      EXPECT_EQ(outcome.status, -SIGTERM) << "run " << run;
      EXPECT_FALSE(fs::exists(trace)) << "run " << run;
      continue;
    }
    ExpectConsistent(archive, run);
    // Ended by the second signal, the run's row stays without its end,
    // unless the run had ended, its row complete, before that signal came.
    const std::string open_runs = One(archive, "SELECT count(*) FROM runs WHERE ended IS NULL");
    if (outcome.status >= 0) {
      EXPECT_EQ(open_runs, "0") << "run " << run;
    } else if (open_runs != "1") {
      EXPECT_EQ(One(archive, "SELECT count(*) FROM runs WHERE ended IS NOT NULL AND result IS NOT NULL"), "1")
          << "run " << run;
    }
    std::ifstream lines(trace);
    for (std::string line; std::getline(lines, line);)
      ASSERT_FALSE(nlohmann::json::parse(line, nullptr, false).is_discarded()) << "run " << run << ": " << line;
    fs::remove(archive);
    fs::remove(trace);
  }
}

}  // namespace
