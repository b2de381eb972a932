// A sample archive written in one go: the practice, the awkward patients
// first, then ordinary ones, into a folder of its own that is moved in once
// complete.
//
// Texts go in as Windows-1252 bytes, the way the practice program stores
// them in its columns without character set.
#include "tools/ambulor-sample/sample.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "tools/ambulor-sample/awkward_patients.h"
#include "tools/ambulor-sample/generator.h"

namespace sample {

namespace fs = std::filesystem;

namespace {

constexpr const char* kUserFile = "GX_USER.FDB";
constexpr const char* kMediaFile = "GX_MEDIA.FDB";
constexpr const char* kDataFile = "GX_DATA.FDB";

// Makes dir if missing; true if this call made it. Raises UnusableFolder.
bool PrepareFolder(const fs::path& dir) {
  std::error_code ec;
  const fs::file_status status = fs::status(dir, ec);
  if (fs::exists(status)) {
    if (!fs::is_directory(status)) throw UnusableFolder(dir.string() + " is not a folder");
    return false;
  }
  if (!fs::create_directories(dir, ec) || ec)
    throw UnusableFolder("cannot make the folder " + dir.string() + ": " + ec.message());
  return true;
}

// A new folder inside dir for the databases under way. Raises UnusableFolder.
fs::path StagingFolder(const fs::path& dir) {
  std::string path = (dir / ".ambulor-sample-XXXXXX").string();
  if (mkdtemp(path.data()) == nullptr)
    throw UnusableFolder("cannot write in " + dir.string() + ": " + std::generic_category().message(errno));
  return path;
}

void Generate(Archive& archive, const SampleOptions& options, SampleSummary& summary) {
  Generator generator(archive, options.seed);
  generator.Doctors();
  generator.Towns();
  int written = 0;
  const auto patient_done = [&] {
    ++written;
    if (options.progress) options.progress(written, options.patients);
    if (options.stop_requested && options.stop_requested()) throw Interrupted();
  };
  for (const AwkwardPatient awkward : AwkwardPatients()) {
    if (written >= options.patients) break;
    awkward(generator);
    patient_done();
  }
  // What --media-mb asks for is shared among the ordinary patients left,
  // after what the others were given.
  const int64_t media_wanted = static_cast<int64_t>(options.media_mb) * 1024 * 1024;
  for (int ordinal = 1; written < options.patients; ++ordinal) {
    const int64_t media_left = std::max<int64_t>(0, media_wanted - generator.summary().media_bytes);
    generator.OrdinaryPatient(std::to_string(100000 + ordinal), media_left / (options.patients - written));
    patient_done();
  }
  archive.Close();
  summary = generator.summary();
  summary.patients = written;
}

}  // namespace

SampleSummary GenerateSample(const std::string& dir, const SampleOptions& options) {
  const fs::path folder(dir);
  const bool made_folder = PrepareFolder(folder);
  std::error_code ec;
  try {
    for (const char* name : {kUserFile, kMediaFile, kDataFile})
      if (fs::exists(folder / name) && !options.force) throw ExistingArchive((folder / name).string());
  } catch (...) {
    if (made_folder) fs::remove(folder, ec);
    throw;
  }
  fs::path staging;
  try {
    staging = StagingFolder(folder);
    if (options.writing_in) options.writing_in(staging.string());
    SampleSummary summary;
    {
      const std::unique_ptr<Archive> archive = Archive::Create(staging.string(), DefaultSchema(), false);
      if (options.stop_requested && options.stop_requested()) throw Interrupted();
      Generate(*archive, options, summary);
    }
    for (const char* name : {kUserFile, kMediaFile, kDataFile}) fs::rename(staging / name, folder / name);
    fs::remove(staging, ec);
    return summary;
  } catch (...) {
    if (!staging.empty()) fs::remove_all(staging, ec);
    if (made_folder) fs::remove(folder, ec);
    throw;
  }
}

}  // namespace sample
