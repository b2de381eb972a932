// The reference host when its archive can't grow and when it is killed
// outright: the archive opens afterwards with every patient committed
// before the fault, whole, and a second run with --overwrite succeeds.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

#include "host/process_mark.h"

#include "support/fixture.h"
#include "support/process.h"

namespace {

namespace fs = std::filesystem;

using fixture::ArchiveRows;

int Count(const std::string& file, const std::string& table) {
  auto rows = ArchiveRows(file, "SELECT count(*) FROM " + table);
  return rows.empty() ? -1 : std::stoi(rows.front().front());
}

// Each patient's master record and records, by patient id.
std::map<std::string, std::vector<std::string>> ByPatient(const std::string& archive) {
  std::map<std::string, std::vector<std::string>> patients;
  for (const auto& row : ArchiveRows(archive, "SELECT id, members FROM patients ORDER BY id")) patients[row[0]].push_back(row[1]);
  for (const auto& row : ArchiveRows(archive, "SELECT patient_id, store || args FROM records ORDER BY id"))
    patients[row[0]].push_back(row[1]);
  for (const auto& row : ArchiveRows(archive, "SELECT patient_id, sha256 FROM files ORDER BY id")) patients[row[0]].push_back(row[1]);
  return patients;
}

class HostFaults : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new fixture::TempDir;
    sample::SampleOptions options;
    options.patients = 120;
    sample::GenerateSample((folder_->path() / "src").string(), options);
    full_ = (folder_->path() / "full.sqlite").string();
    ASSERT_EQ(support::Run(Convert(full_, {}), folder_->path() / "full").status, 5);  // the sample's planted failures
  }
  static void TearDownTestSuite() { delete folder_; }

  // The categories that file no documents, whose temporary files a limit on
  // the size of files would stop too.
  static std::vector<std::string> Convert(const std::string& archive, const std::vector<std::string>& more) {
    std::vector<std::string> args{KAIRON_CONVERT_PATH, "convert", (folder_->path() / "src/GX_USER.FDB").string(),
                                  "--archive", archive, "--plugin", KAIRON_PLUGIN_PATH, "--options",
                                  "allergie;appunti;bmi;diagnosi;esenzioni;eventi;prescrizioni esami laboratorio;"
                                  "prescrizioni farmaceutiche;prescrizioni libere;pressione arteriosa;prestazioni;"
                                  "vaccinazioni;visite ambulatoriali"};
    args.insert(args.end(), more.begin(), more.end());
    return args;
  }

  // The archive opens, is whole, holds at least one patient and each of its
  // patients exactly as the full run filed them.
  static void ExpectCommittedPatientsWhole(const std::string& archive) {
    EXPECT_EQ(ArchiveRows(archive, "PRAGMA integrity_check"), (std::vector<std::vector<std::string>>{{"ok"}}));
    const auto partial = ByPatient(archive), full = ByPatient(full_);
    EXPECT_GT(partial.size(), 0u);
    EXPECT_LT(partial.size(), full.size());
    for (const auto& [id, filed] : partial) EXPECT_EQ(filed, full.at(id)) << "patient " << id;
  }

  // A second run over what the fault left gives the full archive.
  static void ExpectOverwriteSucceeds(const std::string& archive) {
    support::Outcome again = support::Run(Convert(archive, {"--overwrite"}), fs::path(archive).parent_path() / "again");
    EXPECT_EQ(again.status, 5) << again.err;
    EXPECT_EQ(ByPatient(archive), ByPatient(full_));
  }

  static inline fixture::TempDir* folder_ = nullptr;
  static inline std::string full_;
  fixture::TempDir dir_;
};

TEST_F(HostFaults, AnArchiveThatCantGrowKeepsThePatientsBefore) {
  // Under a limit below the embedded engine's 1 MiB shared memory files the
  // engine itself dies of SIGBUS, whatever the host does.
  const auto full_size = fs::file_size(full_);
  ASSERT_GT(full_size / 2, 1100000u) << "the sample is too small for a limit above the engine's own files";
  for (const auto& [name, limit] : {std::pair{"half", full_size / 2}, std::pair{"three quarters", full_size * 3 / 4}}) {
    SCOPED_TRACE(name);
    const std::string archive = dir_ / (std::string(name) + ".sqlite");
    // SIGXFSZ ignored, as a shell's trap leaves it: writes past the limit
    // fail with EFBIG, as on a full disk.
    std::vector<std::string> args{"sh", "-c", "trap '' XFSZ; exec prlimit --fsize=" + std::to_string(limit) + " -- \"$@\"",
                                  "sh"};
    for (const std::string& arg : Convert(archive, {})) args.push_back(arg);
    support::Outcome outcome = support::Run(args, dir_.path() / "limited");
    EXPECT_EQ(outcome.status, 1) << outcome.err;
    EXPECT_TRUE(outcome.Says("the run stopped there")) << outcome.err;
    ExpectCommittedPatientsWhole(archive);
    ExpectOverwriteSucceeds(archive);
  }
}

TEST_F(HostFaults, AKilledRunLeavesAnArchiveThatOpens) {
  const std::string archive = dir_ / "killed.sqlite";
  {
    // A temporary folder of the test's, as a killed program leaves its own.
    fs::create_directories(dir_.path() / "killed-tmp");
    support::Process run(Convert(archive, {"--tempdir", (dir_.path() / "killed-tmp").string()}), dir_.path() / "killed");
    for (int i = 0; i < 2000 && run.Running(); ++i) {
      if (fs::exists(archive) && Count(archive, "patients") >= 5) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ASSERT_TRUE(run.Running()) << "the run ended before it could be killed";
    run.Signal(SIGKILL);
    EXPECT_EQ(run.Wait().status, -SIGKILL);
  }
  ExpectCommittedPatientsWhole(archive);
  EXPECT_EQ(ArchiveRows(archive, "SELECT ended FROM runs"), (std::vector<std::vector<std::string>>{{"NULL"}}));
  // Without --overwrite the killed run's archive is left alone, nothing beside it.
  EXPECT_EQ(support::Run(Convert(archive, {}), dir_.path() / "refused").status, 2);
  EXPECT_FALSE(fs::exists(archive + "-wal"));
  EXPECT_FALSE(fs::exists(archive + "-shm"));
  ExpectOverwriteSucceeds(archive);
}

// The names in folders that carry the mark of process pid.
std::vector<std::string> MarkedBy(const std::vector<fs::path>& folders, pid_t pid) {
  const std::regex marked("kairon-(convert-|ambulor-)?" + std::to_string(pid) + "-.*");
  std::vector<std::string> names;
  for (const fs::path& folder : folders)
    for (const auto& entry : fs::directory_iterator(folder)) {
      const std::string name = entry.path().filename().string();
      if (std::regex_search(name, marked)) names.push_back(name);
    }
  std::sort(names.begin(), names.end());
  return names;
}

// A killed run over a read-only source that replaces an archive leaves its
// temporary folder, the source's private copy and the unfinished
// replacement with its -wal and -shm. clean removes them and says so, as
// the next run does for another killed run; what a run still under way
// keeps, and what only looks like ours, stays.
TEST_F(HostFaults, WhatAKilledRunLeftGoesWithCleanOrTheNextRun) {
  const fs::path system_temp = dir_.path() / "systemp", ro = dir_.path() / "ro";
  fs::create_directories(system_temp);
  fs::copy(folder_->path() / "src", ro);
  if (std::system(("chattr -R +i " + ro.string() + " 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "chattr +i doesn't work here: no read-only source to try";
  struct Unfreeze {
    fs::path folder;
    ~Unfreeze() { std::system(("chattr -R -i " + folder.string()).c_str()); }
  } unfreeze{ro};
  const std::vector<std::string> env{"TMPDIR=" + system_temp.string()};
  const std::vector<fs::path> folders{system_temp, dir_.path()};

  // What only looks like ours: no mark, a file where folders are made, a
  // replacement's name of another program, and a folder of this (live)
  // process. A folder whose pid is this process's but whose start time
  // isn't was made by a process that had the pid before.
  const std::vector<fs::path> not_leftovers{system_temp / "kairon-convert-notes", system_temp / "kairon-convert-1-1-AbCdEf",
                                            dir_.path() / ".over.sqlite.AbCdEf",
                                            system_temp / ("kairon-convert-" + host::process_mark::Own() + "-AbCdEf")};
  fs::create_directory(not_leftovers[0]);
  std::ofstream(not_leftovers[1]) << "notes";
  std::ofstream(not_leftovers[2]) << "another program's";
  fs::create_directory(not_leftovers[3]);
  const fs::path reused = system_temp / ("kairon-convert-" + std::to_string(getpid()) + "-1-AbCdEf");
  fs::create_directory(reused);

  // A run over the read-only source that replaces archive, once it has filed
  // a few patients.
  auto start = [&](const std::string& archive) {
    fs::copy_file(full_, dir_ / archive);
    std::vector<std::string> args = Convert(dir_ / archive, {"--overwrite"});
    args[2] = (ro / "GX_USER.FDB").string();
    auto run = std::make_unique<support::Process>(args, dir_.path() / archive, env);
    // ".ARCHIVE.kairon-PID-START-XXXXXX": the start time has as many
    // digits as the machine's uptime in clock ticks.
    const std::string replacement = "." + archive + ".kairon-";
    auto is_replacement = [&](const std::string& name) {
      size_t length = 0;
      if (!name.starts_with(replacement)) return false;
      const auto mark = host::process_mark::Read(std::string_view(name).substr(replacement.size()), &length);
      return mark && mark->pid == run->pid() && name.size() == replacement.size() + length + 7;
    };
    for (int i = 0; i < 2000 && run->Running(); ++i) {
      for (const auto& entry : fs::directory_iterator(dir_.path())) {
        const std::string name = entry.path().filename().string();
        if (is_replacement(name) && Count(entry.path().string(), "patients") >= 5) return run;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ADD_FAILURE() << "the run over " << archive << " ended before it was under way";
    return run;
  };
  // The run under way is held still meanwhile; the killed run, starting,
  // leaves its files alone.
  auto live = start("live.sqlite");
  live->Signal(SIGSTOP);
  const std::vector<std::string> kept = MarkedBy(folders, live->pid());
  ASSERT_GE(kept.size(), 4u) << ::testing::PrintToString(kept);
  auto killed = start("over.sqlite");
  killed->Signal(SIGKILL);
  ASSERT_EQ(killed->Wait().status, -SIGKILL);
  const std::vector<std::string> left = MarkedBy(folders, killed->pid());
  ASSERT_EQ(left.size(), 5u) << ::testing::PrintToString(left);  // the folder, the copy, the replacement, -wal, -shm

  support::Outcome clean = support::Run({KAIRON_CONVERT_PATH, "clean", dir_.path().string()}, dir_.path() / "clean", env);
  EXPECT_EQ(clean.status, 0) << clean.err;
  EXPECT_EQ(MarkedBy(folders, killed->pid()), std::vector<std::string>{});
  for (const char* what : {"the temporary folder of a conversion", "the private copy of a read-only source",
                           "the unfinished replacement of over.sqlite, with its -wal and -shm"})
    EXPECT_TRUE(clean.Says(what)) << what << "\n" << clean.out;
  EXPECT_EQ(MarkedBy(folders, live->pid()), kept);
  for (const fs::path& path : not_leftovers) EXPECT_TRUE(fs::exists(path)) << path;
  EXPECT_FALSE(fs::exists(reused));
  EXPECT_TRUE(fs::exists(dir_ / "over.sqlite"));

  // Killed in its turn, the second run's leftovers go with the next run.
  live->Signal(SIGKILL);
  live->Wait();
  support::Outcome next = support::Run(Convert(dir_ / "next.sqlite", {}), dir_.path() / "next", env);
  EXPECT_EQ(next.status, 5) << next.err;
  EXPECT_EQ(MarkedBy(folders, live->pid()), std::vector<std::string>{});
  EXPECT_TRUE(next.Says("left by process " + std::to_string(live->pid()))) << next.err;
  for (const fs::path& path : not_leftovers) EXPECT_TRUE(fs::exists(path)) << path;
}

}  // namespace
