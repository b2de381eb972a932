// The reference host when its archive can't grow (a file size limit, as a
// full disk or quota gives) and when it is killed outright: the archive
// opens afterwards with every patient committed before the fault, whole,
// and a second run with --overwrite succeeds.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

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
    support::Outcome outcome = support::Run(Convert(full_, {}), folder_->path() / "full");
    ASSERT_EQ(outcome.status, 5) << outcome.err;  // the sample's planted failures
  }
  static void TearDownTestSuite() { delete folder_; }

  // The categories that file no documents: a limit on the size of the
  // process's files would also stop the plug-in's temporary files, which
  // is not the fault under test.
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
  // The embedded engine's shared memory files (in its lock folder) are 1 MiB
  // long: under a smaller limit the engine itself can't map them and the
  // process dies of SIGBUS, whatever the host does.
  const auto full_size = fs::file_size(full_);
  ASSERT_GT(full_size / 2, 1100000u) << "the sample is too small for a limit above the engine's own files";
  for (const auto& [name, limit] : {std::pair{"half", full_size / 2}, std::pair{"three quarters", full_size * 3 / 4}}) {
    SCOPED_TRACE(name);
    const std::string archive = dir_ / (std::string(name) + ".sqlite");
    // SIGXFSZ ignored, as a shell's trap leaves it for the program: writes
    // past the limit fail with EFBIG, as on a full disk.
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
    // A killed program can't remove its temporary folder: it is given one
    // here, so that none is left in the system's.
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
  // Without --overwrite the archive of the killed run is left alone, with
  // nothing beside it.
  EXPECT_EQ(support::Run(Convert(archive, {}), dir_.path() / "refused").status, 2);
  EXPECT_FALSE(fs::exists(archive + "-wal"));
  EXPECT_FALSE(fs::exists(archive + "-shm"));
  ExpectOverwriteSucceeds(archive);
}

}  // namespace
