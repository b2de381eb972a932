// Measures a whole conversion: writes (once) a sample archive of the size
// asked, converts it through the loaded plug-in with the reference host, and
// prints one JSON line with the time, throughput and peak memory.
//
//   convert-bench [--patients N] [--options TEXT] [--work DIR]
//
// --options defaults to "" (master records only); "all" selects every
// category. The sample is kept in DIR (default /tmp/kairon-bench) and reused
// by later runs of the same size.
#include <sys/resource.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "tools/ambulor-sample/sample.h"
#include "tools/common/character_type.h"
#include "tools/kairon-convert/reference_host.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  tools::UseEnvironmentCharacterType();
  int patients = 2000;
  std::string options = "";
  std::string work = (fs::temp_directory_path() / "kairon-bench").string();
  CLI::App app{"Times a conversion of a sample archive"};
  app.add_option("--patients", patients, "patients of the sample")->check(CLI::PositiveNumber);
  app.add_option("--options", options, "categories, as Converti receives them; \"all\" for every one");
  app.add_option("--work", work, "folder for the sample and the archive");
  CLI11_PARSE(app, argc, argv);

  fs::path sample_dir = fs::path(work) / ("sample-" + std::to_string(patients));
  auto generate_start = std::chrono::steady_clock::now();
  if (!fs::exists(sample_dir / "GX_USER.FDB")) {
    sample::SampleOptions sample_options;
    sample_options.patients = patients;
    sample_options.force = true;
    sample::GenerateSample(sample_dir.string(), sample_options);
  }
  double generate_seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - generate_start).count();

  refhost::Plugin plugin(KAIRON_PLUGIN_PATH);
  refhost::ConvertOptions convert;
  convert.conn = (sample_dir / "GX_USER.FDB").string();
  convert.archive = (fs::path(work) / "bench.sqlite").string();
  convert.overwrite = true;
  convert.data_dir = KAIRON_DATA_DIR;
  if (options != "all") convert.options.emplace(options);

  refhost::ConvertOutcome outcome = refhost::Convert(plugin.CreateConversione(), convert);

  struct rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  int64_t records = 0;
  for (const auto& [store, count] : outcome.records_per_store) records += count;
  nlohmann::json line = {{"patients", patients},
                         {"options", options},
                         {"result", outcome.result},
                         {"patients_ok", outcome.patients_ok},
                         {"patients_err", outcome.patients_err},
                         {"records", records},
                         {"files", outcome.files},
                         {"convert_seconds", outcome.seconds},
                         {"patients_per_second", outcome.seconds > 0 ? outcome.patients_ok / outcome.seconds : 0},
                         {"generate_seconds", generate_seconds},
                         {"peak_rss_mib", usage.ru_maxrss / 1024.0}};
  std::cout << line.dump() << "\n";
  return outcome.result ? 0 : 1;
}
