// ambulor-sample: writes a sample Ambulor archive (GX_USER.FDB, GX_MEDIA.FDB,
// GX_DATA.FDB) for demonstrations, tests and benchmarks.
//
// Exit status: 0 written; 2 bad command line or files in the way (nothing
// written); 1 the databases couldn't be written.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>

#include "host/failure.h"
#include "tools/ambulor-sample/sample.h"

namespace {

constexpr int kWritten = 0;
constexpr int kNotWritten = 1;
constexpr int kBadCall = 2;

// Reports each tenth of a run of at least this many patients on stderr.
constexpr int kPatientsWorthProgress = 100;

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Writes GX_USER.FDB, GX_MEDIA.FDB and GX_DATA.FDB with realistic practice data: the same seed "
      "gives the same archive.",
      "ambulor-sample"};
  std::string out;
  sample::SampleOptions options;
  app.add_option("--out", out, "Folder of the archive (made if missing)")->required();
  app.add_option("--patients", options.patients, "Number of patients")
      ->check(CLI::Range(0, 1000000))
      ->capture_default_str();
  app.add_option("--seed", options.seed, "Seed of the random data")->capture_default_str();
  app.add_flag("--force", options.force, "Overwrite databases already in the folder");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kWritten : kBadCall;
  }

  int reported_tenth = 0;
  if (options.patients >= kPatientsWorthProgress) {
    options.progress = [&](int written, int total) {
      const int tenth = written * 10 / total;
      if (tenth == reported_tenth) return;
      reported_tenth = tenth;
      std::fprintf(stderr, "ambulor-sample: %d%% (%d of %d patients)\n", tenth * 10, written, total);
    };
  }

  try {
    const sample::SampleSummary summary = sample::GenerateSample(out, options);
    std::printf(
        "ambulor-sample: wrote GX_USER.FDB, GX_MEDIA.FDB and GX_DATA.FDB in %s: %d patients, %d rows, %d files "
        "(seed %llu)\n",
        out.c_str(), summary.patients, summary.rows, summary.files, static_cast<unsigned long long>(options.seed));
    return kWritten;
  } catch (const sample::ExistingArchive& error) {
    std::fprintf(stderr, "ambulor-sample: %s; give --force to overwrite it\n", error.what());
    return kBadCall;
  } catch (const host::Failure& error) {
    std::fprintf(stderr, "ambulor-sample: the database refused the archive: %d %s\n", error.number(),
                 error.description().c_str());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ambulor-sample: %s\n", error.what());
  }
  return kNotWritten;
}
