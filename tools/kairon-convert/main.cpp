// kairon-convert: the reference host's command line (info, test, convert,
// report). Exit status: 0 success, 1 the plug-in reported failure, 2 bad
// command line or unusable file, 3 Test gave false, 4 the run's report
// couldn't be written.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "host/failure.h"
#include "tools/common/character_type.h"
#include "tools/common/termination.h"
#include "tools/kairon-convert/output_files.h"
#include "tools/kairon-convert/reference_host.h"
#include "tools/run-report/accounting.h"
#include "tools/run-report/report.h"
#include "tools/run-report/report_file.h"

namespace {

constexpr int kSuccess = 0;
constexpr int kPluginFailed = 1;
constexpr int kUnusable = 2;
constexpr int kTestFalse = 3;
constexpr int kReportFailed = 4;

// libcnvKairon.so in ../lib/ beside the folder of this program.
std::string DefaultPluginPath() {
  std::error_code ec;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return "libcnvKairon.so";
  return (self.parent_path() / ".." / "lib" / "libcnvKairon.so").lexically_normal().string();
}

int ReportRaised(const refhost::PluginFailure& failure) {
  std::cerr << "kairon-convert: the plug-in raised " << failure.number << ": " << failure.description << "\n";
  return kPluginFailed;
}

// The plug-in and its Conversione, which goes first (members are released
// last to first).
struct LoadedPlugin {
  std::unique_ptr<refhost::Plugin> plugin;
  host::ObjectRef conversione;
};

// Loads the plug-in. If it brought the database client in, the client is
// told to refuse the engine's shutdown on a signal: this program handles
// SIGINT and SIGTERM itself, while the plug-in still reads.
LoadedPlugin Load(const std::string& path) {
  LoadedPlugin loaded;
  loaded.plugin = std::make_unique<refhost::Plugin>(path);
  if (void* registrar = loaded.plugin->FindSymbol("fb_shutdown_callback"))
    tools::RefuseEngineShutdownOnSignal(reinterpret_cast<tools::ShutdownCallbackRegistrar>(registrar));
  loaded.conversione = loaded.plugin->CreateConversione();
  return loaded;
}

int ReportUnusable(const std::exception& e) {
  std::cerr << "kairon-convert: " << e.what() << "\n";
  return kUnusable;
}

// Runs a command on a loaded plug-in. What is thrown is reported while the
// library is still loaded, since an exception that the plug-in raised has
// its code there.
template <typename Command>
int WithPlugin(const std::string& path, Command command) {
  LoadedPlugin loaded = Load(path);
  try {
    return command(loaded.conversione);
  } catch (const host::Failure& failure) {
    return ReportRaised({failure.number(), failure.description()});
  } catch (const std::exception& e) {
    return ReportUnusable(e);
  }
}

int InfoCommand(const host::ObjectRef& conversione, bool json) {
  auto info = refhost::ReadInfo(conversione);
  if (json) {
    std::cout << refhost::InfoJson(info) << "\n";
    return kSuccess;
  }
  for (const auto& [property, value] : info) std::cout << property << ": " << host::TextOf(value) << "\n";
  return kSuccess;
}

int TestCommand(const host::ObjectRef& conversione, const std::string& conn, bool json) {
  refhost::TestOutcome outcome = refhost::RunTest(conversione, conn);
  if (json) {
    std::cout << refhost::TestJson(outcome) << "\n";
  } else {
    std::cout << "Test: " << (outcome.result ? "true" : "false") << "\n";
    for (const std::string& doctor : refhost::SplitDoctors(outcome.lista_medici)) std::cout << doctor << "\n";
    std::cout << "LastError: " << outcome.last_error << "\n";
  }
  // Test answers only whether the user database's file exists; a source
  // whose databases don't open gives true without doctors. A plug-in that
  // tells why is heard.
  if (!outcome.opening_cause.empty())
    std::cerr << "kairon-convert: the source can't be opened: " << outcome.opening_cause << "\n";
  else if (!json && outcome.result && outcome.lista_medici.empty())
    std::cerr << "kairon-convert: no doctors listed: STUDIO is empty, or one of GX_USER.FDB, GX_MEDIA.FDB,"
                 " GX_DATA.FDB is missing or can't be opened\n";
  return outcome.result ? kSuccess : kTestFalse;
}

// Set while a conversion can stop after its patient; before that, and for
// the other commands, a signal ends the program at once.
std::atomic<bool> stop_after_patient{false};

// SIGINT and SIGTERM, on the watching thread. The first during a conversion
// asks for the stop after the patient under way; the second ends the run at
// once, with the archive closed, and the program.
void OnTerminationSignal(int signal, int count) {
  if (count == 1 && stop_after_patient.load()) {
    refhost::RequestStop();
    std::fprintf(stderr, "\nkairon-convert: stopping after the patient under way (a second %s ends at once)\n",
                 signal == SIGINT ? "Ctrl-C" : "signal");
    return;
  }
  refhost::EndRunNow();
  if (stop_after_patient.load())
    std::fprintf(stderr,
                 "\nkairon-convert: ended at once; the archive keeps every patient filed before the one under way, "
                 "and its runs row has no end\n");
  tools::DieOfSignal(signal);
}

void PrintSummary(const refhost::ConvertOutcome& outcome) {
  std::printf("\n%-28s %10s\n", "Store", "Records");
  int64_t total = 0;
  for (const auto& [store, count] : outcome.records_per_store) {
    std::printf("%-28s %10lld\n", store.c_str(), static_cast<long long>(count));
    total += count;
  }
  std::printf("%-28s %10lld\n", "(all stores)", static_cast<long long>(total));
  std::printf("%-28s %4d / %d\n", "Patients OK / ERR", outcome.patients_ok, outcome.patients_err);
  std::printf("%-28s %lld (%lld bytes)\n", "Files stored", static_cast<long long>(outcome.files),
              static_cast<long long>(outcome.file_bytes));
  std::printf("%-28s %.1f s\n", "Elapsed", outcome.seconds);
  std::printf("%-28s %s\n", "Test", outcome.test_result ? "true" : "false");
  std::printf("%-28s %s\n", "Result", outcome.result ? "true" : "false");
  std::printf("%-28s %s\n", "LastError", outcome.last_error.c_str());
  if (!outcome.write_failure.empty()) std::printf("%-28s %s\n", "Stopped because", outcome.write_failure.c_str());
  if (!outcome.opening_cause.empty()) {
    std::fflush(stdout);
    std::cerr << "kairon-convert: the source can't be opened: " << outcome.opening_cause << "\n";
  }
}

// The report's targets from --report (convert) or --html and --json
// (report); raises std::runtime_error for a path of the wrong kind.
std::vector<runreport::ReportTarget> Targets(const std::vector<std::string>& paths) {
  std::vector<runreport::ReportTarget> targets;
  for (const std::string& path : paths) targets.push_back(runreport::TargetOf(path));
  return targets;
}

// What the conversion that writes the report saw of its run.
runreport::LiveRun LiveOf(const refhost::ConvertOutcome& outcome, const runreport::RunRecord& run) {
  runreport::Timeline timeline;
  for (const auto& [opened, last] : outcome.line_seconds) timeline.lines.push_back({opened, last});
  timeline.ended = outcome.seconds;
  runreport::LiveRun live;
  live.phases = runreport::PhasesOf(timeline, run);
  live.seconds = outcome.seconds;
  live.stopped = outcome.stopped;
  live.write_failure = outcome.write_failure;
  if (outcome.raised) live.raised = std::to_string(outcome.raised->number) + " " + outcome.raised->description;
  if (outcome.archived) live.test_result = outcome.test_result;
  live.warnings = outcome.warnings;
  return live;
}

// Writes the report of the run in archive to each target. Every target is
// tried; the status is kReportFailed if one couldn't be written.
int WriteReports(const std::vector<runreport::ReportTarget>& targets, const std::string& archive,
                 const runreport::RunRecord& run, const std::optional<runreport::LiveRun>& live, bool overwrite) {
  runreport::Reconciliation accounts;
  try {
    accounts = runreport::Reconcile(run);
  } catch (const std::exception& e) {
    accounts = {};
    accounts.why_not = e.what();
  }
  const runreport::Figures figures = runreport::MakeFigures(archive, run, accounts, live);
  std::cout << "Accounts: " << figures.AccountsSummary() << "\n";
  int status = kSuccess;
  for (const runreport::ReportTarget& target : targets) {
    try {
      const std::string content =
          target.format == runreport::Format::Html
              ? runreport::RenderHtml(figures)
              : runreport::RenderJson(figures).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
      runreport::WriteReport(target, content, overwrite);
      std::cout << "Report: " << target.path << "\n";
    } catch (const std::exception& e) {
      std::cout.flush();
      std::cerr << "kairon-convert: " << e.what() << "; the archive is as the run left it\n";
      status = kReportFailed;
    }
  }
  return status;
}

int ConvertCommand(const host::ObjectRef& conversione, const refhost::ConvertOptions& options,
                   const std::vector<runreport::ReportTarget>& reports) {
  refhost::ConvertOutcome outcome = refhost::Convert(conversione, options);
  int status = kSuccess;
  if (outcome.raised) {
    status = ReportRaised(*outcome.raised);
  } else {
    PrintSummary(outcome);
    if (!outcome.write_failure.empty()) {
      std::fflush(stdout);
      std::cerr << "kairon-convert: " << outcome.write_failure
                << "; the run stopped there, and the archive keeps the patients filed before\n";
      status = kPluginFailed;
    } else if (!outcome.test_result) {
      status = kTestFalse;
    } else if (!outcome.result) {
      status = kPluginFailed;
    }
  }
  if (reports.empty()) return status;
  std::fflush(stdout);
  if (!outcome.archived) {
    std::cerr << "kairon-convert: no report written: the run ended before its archive was made\n";
    return status != kSuccess ? status : kReportFailed;
  }
  int report_status = kSuccess;
  try {
    runreport::RunRecord run = runreport::ReadRun(options.archive);
    report_status = WriteReports(reports, options.archive, run, LiveOf(outcome, run), options.overwrite);
  } catch (const std::exception& e) {
    std::cerr << "kairon-convert: no report written: " << e.what() << "\n";
    report_status = kReportFailed;
  }
  // The conversion's own failure says more than its report's.
  return status != kSuccess ? status : report_status;
}

int ReportCommand(const std::string& archive, const std::vector<runreport::ReportTarget>& targets, bool overwrite) {
  runreport::RunRecord run;
  try {
    runreport::CheckTargets(targets, {archive}, overwrite);
    run = runreport::ReadRun(archive);
  } catch (const std::exception& e) {
    return ReportUnusable(e);
  }
  return WriteReports(targets, archive, run, std::nullopt, overwrite);
}

}  // namespace

int main(int argc, char** argv) {
  tools::BlockTerminationSignals();
  tools::UseEnvironmentCharacterType();
  tools::TerminationWatch watch(OnTerminationSignal);

  CLI::App app{"kairon-convert: the reference conversion host for the cnvKairon plug-in"};
  app.require_subcommand(1);
  std::string plugin = DefaultPluginPath();
  bool json = false;

  CLI::App* info = app.add_subcommand("info", "Print the plug-in's fixed properties");
  info->add_flag("--json", json, "One JSON object, property to value");
  info->add_option("--plugin", plugin, "The plug-in library")->capture_default_str();

  std::string conn;
  CLI::App* test = app.add_subcommand("test", "Call Test with a connection text");
  test->add_option("CONN", conn, "The connection text, as Test gets it")->required();
  test->add_flag("--json", json, "One JSON object: result, ListaMedici, LastError");
  test->add_option("--plugin", plugin, "The plug-in library")->capture_default_str();

  refhost::ConvertOptions options;
  options.data_dir = KAIRON_DATA_DIR;
  std::optional<std::string> utente;
  CLI::App* convert = app.add_subcommand("convert", "Run a conversion into a new archive");
  convert->add_option("CONN", options.conn, "The connection text, as Test gets it")->required();
  convert->add_option("--archive", options.archive, "The SQLite archive to write")->required();
  convert->add_option("--options", options.options, "The option list for Converti (default: every category)");
  convert->add_option("--medico", options.medico, "The doctor (default: the first of the list)");
  convert->add_option("--from", options.from, "What FiltroDa gives");
  convert->add_option("--to", options.to, "What FiltroA gives");
  convert->add_option("--trace", options.trace, "Write the trace of the plug-in's calls here");
  convert->add_option("--icd9", options.icd9_csv, "The ICD9 catalogue (CSV)");
  convert->add_option("--farmaci", options.farmaci_csv, "The drug catalogue (CSV)");
  convert->add_option("--esenzioni", options.esenzioni_csv, "The exemption catalogue (CSV)");
  convert->add_option("--utente", utente, "The members of utente, as a JSON object");
  convert->add_option("--tempdir", options.tempdir, "The folder for temporary files");
  convert->add_option("--fail", options.fail, "Make the N-th call of MEMBER fail (MEMBER@N, Obj.MEMBER@N)");
  std::vector<std::string> convert_reports;
  convert->add_option("--report", convert_reports,
                      "Write the run's report when it ends: FILE.html for a person, FILE.json for a program "
                      "(repeatable)")
      ->allow_extra_args(false);
  convert->add_flag("--overwrite", options.overwrite, "Replace the archive, trace and report of an earlier run");
  convert->add_option("--plugin", plugin, "The plug-in library")->capture_default_str();

  std::string report_archive, report_html, report_json;
  bool report_overwrite = false;
  CLI::App* report = app.add_subcommand("report", "Write the report of the run that an archive holds");
  report->add_option("ARCHIVE", report_archive, "An archive of kairon-convert convert")->required();
  report->add_option("--html", report_html, "Write the report for a person here (FILE.html)");
  report->add_option("--json", report_json, "Write the report's figures for a program here (FILE.json)");
  report->add_flag("--overwrite", report_overwrite, "Replace a report made earlier");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    int status = app.exit(e);
    return status == 0 ? kSuccess : kUnusable;
  }

  try {
    if (info->parsed()) return WithPlugin(plugin, [&](const host::ObjectRef& c) { return InfoCommand(c, json); });
    if (test->parsed()) return WithPlugin(plugin, [&](const host::ObjectRef& c) { return TestCommand(c, conn, json); });
    if (report->parsed()) {
      if (report_html.empty() && report_json.empty()) throw std::runtime_error("report: give --html FILE or --json FILE");
      std::vector<runreport::ReportTarget> targets;
      if (!report_html.empty()) targets.push_back(runreport::TargetOf(report_html));
      if (!report_json.empty()) targets.push_back(runreport::TargetOf(report_json));
      if (!report_html.empty() && targets.front().format != runreport::Format::Html)
        throw std::runtime_error("--html " + report_html + ": the file must end in .html");
      if (!report_json.empty() && targets.back().format != runreport::Format::Json)
        throw std::runtime_error("--json " + report_json + ": the file must end in .json");
      return ReportCommand(report_archive, targets, report_overwrite);
    }
    const std::vector<runreport::ReportTarget> reports = Targets(convert_reports);
    std::vector<std::string> others = refhost::SourceFiles(options.conn);
    others.push_back(options.archive);
    others.push_back(options.trace);
    runreport::CheckTargets(reports, others, options.overwrite);
    options.reports = convert_reports;
    if (utente) options.utente = refhost::ParseUtente(*utente);
    options.progress = isatty(STDERR_FILENO) == 1;
    options.warn = [](const std::string& warning) { std::cerr << "kairon-convert: warning: " << warning << "\n"; };
    stop_after_patient = true;
    return WithPlugin(plugin, [&](const host::ObjectRef& c) { return ConvertCommand(c, options, reports); });
  } catch (const std::exception& e) {
    return ReportUnusable(e);
  }
}
