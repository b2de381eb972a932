// ambulor-sample: writes a sample Ambulor archive (GX_USER.FDB, GX_MEDIA.FDB,
// GX_DATA.FDB) for demonstrations, tests and benchmarks.
//
// Exit status: 0 written; 2 bad command line, files in the way or a folder
// that can't be used (nothing written); 1 the databases couldn't be written.
// SIGINT or SIGTERM ends the program by that signal, after removing the
// databases it was writing.
#include <CLI/CLI.hpp>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <mutex>
#include <string>

#include "host/failure.h"
#include "tools/ambulor-sample/sample.h"
#include "tools/common/character_type.h"
#include "tools/common/installation.h"
#include "tools/common/termination.h"

namespace {

constexpr int kWritten = 0;
constexpr int kNotWritten = 1;
constexpr int kBadCall = 2;

// Reports each tenth of a run of at least this many patients on stderr.
constexpr int kPatientsWorthProgress = 100;

// The signal that asked the run to end (0: none), and the folder of the
// databases under way, which a second signal removes before the end.
std::atomic<int> stop_signal{0};
std::mutex writing_mutex;
std::string writing_in;

void OnTerminationSignal(int signal, int count) {
  stop_signal = signal;
  if (count == 1) return;
  std::lock_guard<std::mutex> lock(writing_mutex);
  std::error_code ec;
  if (!writing_in.empty()) std::filesystem::remove_all(writing_in, ec);
  tools::DieOfSignal(signal);
}

// A seed: a whole number from 0 to 2^64 - 1, in decimal digits only.
std::string CheckSeed(const std::string& text) {
  uint64_t seed = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
  if (text.empty() || error != std::errc() || end != text.data() + text.size())
    return "not a whole number from 0 to 18446744073709551615: \"" + text + "\"";
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  tools::BlockTerminationSignals();
  tools::UseEnvironmentCharacterType();
  tools::RefuseEngineShutdownOnSignal(&fb_shutdown_callback);
  tools::TerminationWatch watch(OnTerminationSignal);

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
  std::string seed = std::to_string(options.seed);
  app.add_option("--seed", seed, "Seed of the random data (a whole number)")
      ->check(CheckSeed, "whole number")
      ->capture_default_str();
  app.add_option("--media-mb", options.media_mb,
                 "About how many MB of media (scans, plans' scans, RTF documents) the sample holds in all; 0 for "
                 "only the usual small files and a few multi-MB ones")
      ->check(CLI::Range(0, 1000000))
      ->capture_default_str();
  app.add_flag("--force", options.force, "Overwrite databases already in the folder");
  app.set_version_flag("--version", tools::VersionText("ambulor-sample"));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kWritten : kBadCall;
  }
  std::from_chars(seed.data(), seed.data() + seed.size(), options.seed);
  options.stop_requested = [] { return stop_signal.load() != 0; };
  options.writing_in = [](const std::string& folder) {
    std::lock_guard<std::mutex> lock(writing_mutex);
    writing_in = folder;
  };

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
        "(%.1f MB) (seed %llu)\n",
        out.c_str(), summary.patients, summary.rows, summary.files,
        static_cast<double>(summary.media_bytes) / (1024 * 1024), static_cast<unsigned long long>(options.seed));
    return kWritten;
  } catch (const sample::ExistingArchive& error) {
    std::fprintf(stderr, "ambulor-sample: %s; give --force to overwrite it\n", error.what());
    return kBadCall;
  } catch (const sample::UnusableFolder& error) {
    std::fprintf(stderr, "ambulor-sample: --out can't be used: %s\n", error.what());
    return kBadCall;
  } catch (const sample::Interrupted&) {
    std::fprintf(stderr, "ambulor-sample: stopped by a signal; nothing was written\n");
    tools::DieOfSignal(stop_signal.load());
  } catch (const host::Failure& error) {
    std::fprintf(stderr, "ambulor-sample: the database refused the archive: %d %s\n", error.number(),
                 error.description().c_str());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ambulor-sample: %s\n", error.what());
  }
  return kNotWritten;
}
