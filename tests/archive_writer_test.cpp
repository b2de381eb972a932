// The archive's writer, which writes on a thread of its own while the run
// goes on: what an end at once keeps, what a failed write takes back, and
// file content larger than what may wait for the writer.

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/fixture.h"
#include "tools/kairon-convert/archive.h"
#include "tools/kairon-convert/file_content.h"
#include "tools/kairon-convert/output_files.h"

namespace {

using fixture::ArchiveRows;
using Rows = std::vector<std::vector<std::string>>;

class ArchiveWriter : public ::testing::Test {
 protected:
  std::unique_ptr<refhost::Archive> NewArchive() {
    std::ofstream(path_).close();
    return refhost::Archive::Open(path_);
  }

  // A file of size bytes that no two chunks of the writer repeat.
  std::string FileOf(const std::string& name, size_t size) {
    const std::string path = (dir_.path() / name).string();
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>((i * 2654435761u) >> 13);
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(size));
    digest_ = refhost::Sha256Hex(bytes);
    return path;
  }

  fixture::TempDir dir_;
  std::string path_ = (dir_.path() / "archive.sqlite").string();
  std::string digest_;
};

TEST_F(ArchiveWriter, AnEndAtOnceKeepsThePatientsCommittedAndDropsTheOneUnderWay) {
  auto archive = NewArchive();
  const int64_t run = archive->BeginRun("2026-01-01T00:00:00", "conn", "opts");
  for (int64_t patient = 1; patient <= 3; ++patient) {
    archive->BeginTransaction();
    archive->SavePatient(patient, "{}");
    for (int i = 0; i < 50; ++i) archive->AddRecord(patient, "Appunti", "[" + std::to_string(i) + "]");
    const int64_t ricetta = archive->AddPrescription(patient, "{}");
    archive->AddPrescriptionItem(ricetta, "PrescrizioneFarmaco", "{}");
  }
  archive->Abandon();
  archive->Abandon();
  EXPECT_THROW(archive->AddRecord(4, "Appunti", "[]"), refhost::WriteError);
  archive.reset();

  EXPECT_FALSE(std::filesystem::exists(path_ + "-wal"));
  EXPECT_EQ(ArchiveRows(path_, "SELECT id FROM patients ORDER BY id"), (Rows{{"1"}, {"2"}}));
  EXPECT_EQ(ArchiveRows(path_, "SELECT patient_id, count(*) FROM records GROUP BY 1"), (Rows{{"1", "50"}, {"2", "50"}}));
  // Each item names its own prescription by the id that AddPrescription gave.
  EXPECT_EQ(ArchiveRows(path_, "SELECT p.patient_id FROM prescription_items i JOIN prescriptions p ON p.id = "
                               "i.prescription_id ORDER BY i.id"),
            (Rows{{"1"}, {"2"}}));
  EXPECT_EQ(ArchiveRows(path_, "SELECT id, ended FROM runs"), (Rows{{std::to_string(run), "NULL"}}));
}

TEST_F(ArchiveWriter, FileContentLargerThanWhatMayWaitArrivesWholeWithItsDigest) {
  auto archive = NewArchive();
  archive->BeginRun("2026-01-01T00:00:00", "conn", "opts");
  archive->BeginTransaction();
  for (const auto& [id, size] : {std::pair{"F1", size_t{20} << 20}, std::pair{"F2", size_t{0}}, std::pair{"F3", size_t{7}}}) {
    const std::string path = FileOf(id, size);
    const int fd = open(path.c_str(), O_RDONLY);
    refhost::StoredFile file{id, 1, "titolo", id, "", static_cast<int64_t>(size), path};
    EXPECT_TRUE(archive->AddFileDigesting(file, fd));
    close(fd);
    // The plug-in removes the file as soon as SalvaFile returns.
    std::filesystem::remove(path);
    SCOPED_TRACE(id);
    archive->Commit();
    EXPECT_EQ(ArchiveRows(path_, std::string("SELECT size, length(content), sha256 FROM files WHERE id = '") + id + "'"),
              (Rows{{std::to_string(size), std::to_string(size), digest_}}));
  }
  archive->Close();
}

TEST_F(ArchiveWriter, AFileThatEndsEarlyLeavesNoRowAndTheTransactionGoesOn) {
  auto archive = NewArchive();
  archive->BeginRun("2026-01-01T00:00:00", "conn", "opts");
  archive->BeginTransaction();
  archive->SavePatient(1, "{}");
  const std::string path = FileOf("short", 1000);
  const int fd = open(path.c_str(), O_RDONLY);
  EXPECT_THROW(archive->AddFileDigesting({"F1", 1, "t", "short", "", 5000, path}, fd), refhost::WriteError);
  close(fd);
  archive->AddRecord(1, "Appunti", "[]");
  archive->Close();
  EXPECT_EQ(ArchiveRows(path_, "SELECT count(*) FROM files"), (Rows{{"0"}}));
  EXPECT_EQ(ArchiveRows(path_, "SELECT count(*) FROM records"), (Rows{{"1"}}));
}

TEST_F(ArchiveWriter, AFailedWriteIsRaisedByTheNextOperationAndTakesItsPatientBack) {
  auto archive = NewArchive();
  archive->BeginRun("2026-01-01T00:00:00", "conn", "opts");
  archive->BeginTransaction();
  archive->SavePatient(1, "{}");
  archive->BeginTransaction();
  archive->SavePatient(2, "{}");
  archive->AddRecord(2, "Appunti", "[]");
  // Another connection drops the table that the next write needs.
  ASSERT_NO_THROW(archive->Commit());
  ArchiveRows(path_, "DROP TABLE messages");
  archive->BeginTransaction();
  archive->SavePatient(3, "{}");
  archive->AddMessage("AddMsg", "lost");
  archive->AddRecord(3, "Appunti", "[]");
  EXPECT_THROW(archive->Commit(), refhost::WriteError);
  // The failure is raised once; the next patient is written again.
  archive->BeginTransaction();
  archive->SavePatient(4, "{}");
  EXPECT_NO_THROW(archive->Close());
  EXPECT_EQ(ArchiveRows(path_, "SELECT id FROM patients ORDER BY id"), (Rows{{"1"}, {"2"}, {"4"}}));
  EXPECT_EQ(ArchiveRows(path_, "SELECT patient_id FROM records"), (Rows{{"2"}}));
}

}  // namespace
