// kairon-convert: the reference host's command line (info, test, convert,
// report, clean). Exit status, the first that applies: 2 bad command line or
// unusable file, 3 Test gave false, 1 the plug-in reported failure (for
// test: the databases didn't open), 4 the run's report couldn't be written,
// 6 the run was stopped before its end, 5 patients in "ERR" or refused by
// the host, 0 every patient taken converted.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>

#include "host/failure.h"
#include "source/recordset.h"
#include "tools/ambulor-inspect/source_databases.h"
#include "tools/common/character_type.h"
#include "tools/common/installation.h"
#include "tools/common/termination.h"
#include "tools/common/user_database.h"
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
constexpr int kNotAllConverted = 5;
constexpr int kStopped = 6;

constexpr const char* kProgram = "kairon-convert";

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
  // Test answers only whether the user database's file exists; a source
  // whose databases don't open gives true without doctors. A plug-in that
  // tells why is heard, and the check fails.
  if (json) {
    std::cout << refhost::TestJson(outcome) << "\n";
  } else {
    std::cout << "Test: " << (outcome.result ? "true" : "false") << "\n";
    for (const std::string& doctor : refhost::SplitDoctors(outcome.lista_medici)) std::cout << doctor << "\n";
    std::cout << "LastError: " << outcome.last_error << "\n";
    if (!outcome.opening_cause.empty()) std::cout << "Not opened: " << outcome.opening_cause << "\n";
  }
  if (outcome.opening_cause.empty() && !json && outcome.result && outcome.lista_medici.empty())
    std::cerr << "kairon-convert: no doctors listed: STUDIO is empty, or one of GX_USER.FDB, GX_MEDIA.FDB,"
                 " GX_DATA.FDB is missing or can't be opened\n";
  if (!outcome.result) return kTestFalse;
  return outcome.opening_cause.empty() ? kSuccess : kPluginFailed;
}

// The patients of the source that a run without surname bounds takes (the
// rows of PAZIENTI with a card), for the progress; nullopt when the source
// can't be read here (the run tells why).
std::optional<int64_t> SourcePatients(const std::string& conn) {
  try {
    inspect::SourceDatabases databases(conn.substr(0, conn.find(';')));
    source::Recordset patients;
    patients.Open("SELECT COUNT(*) AS N FROM PAZIENTI WHERE COALESCE(CAST(Cod_Cart AS VARCHAR(64)), '') <> ''",
                  databases.Of(inspect::SourceFile::User));
    const std::string count = host::TextOf(patients.Field("N"));
    patients.Close();
    return std::stoll(count);
  } catch (...) {
    return std::nullopt;
  }
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

// What a run that ended true left undone, in one plain line; empty when
// every patient taken converted.
std::string Shortfall(const refhost::ConvertOutcome& outcome) {
  std::string said;
  if (outcome.stopped)
    said = "the run was stopped after " + std::to_string(outcome.patients_taken) +
           " patients: the rest of the source was not converted";
  if (outcome.patients_err > 0) {
    said += said.empty() ? "" : "; ";
    said += std::to_string(outcome.patients_err) + " of " + std::to_string(outcome.patients_taken) +
            " patients ended in ERR";
    if (outcome.patients_refused > 0)
      said += " (" + std::to_string(outcome.patients_refused) +
              " refused by the host: no tax code, health card or birth date)";
    said += ": what each lacks from its failure on, and why, is in the report and the archive's messages";
  }
  return said;
}

void PrintSummary(const refhost::ConvertOutcome& outcome) {
  std::printf("\n%-28s %10s\n", "Store", "Records");
  int64_t total = 0;
  for (const auto& [store, count] : outcome.records_per_store) {
    std::printf("%-28s %10lld\n", store.c_str(), static_cast<long long>(count));
    total += count;
  }
  std::printf("%-28s %10lld\n", "(all stores)", static_cast<long long>(total));
  std::printf("%-28s %4d / %d", "Patients OK / ERR", outcome.patients_ok, outcome.patients_err);
  if (outcome.patients_refused > 0) std::printf(" (%d refused by the host)", outcome.patients_refused);
  std::printf("\n%-28s %lld (%s)\n", "Files stored", static_cast<long long>(outcome.files),
              runreport::SizeText(outcome.file_bytes).c_str());
  std::printf("%-28s %.1f s\n", "Elapsed", outcome.seconds);
  std::printf("%-28s %s\n", "Test", outcome.test_result ? "true" : "false");
  std::printf("%-28s %s\n", "Result", outcome.result ? "true" : "false");
  std::printf("%-28s %s\n", "LastError", outcome.last_error.c_str());
  if (!outcome.write_failure.empty()) std::printf("%-28s %s\n", "Stopped because", outcome.write_failure.c_str());
  if (outcome.test_result && outcome.result && outcome.write_failure.empty()) {
    const std::string shortfall = Shortfall(outcome);
    if (shortfall.empty())
      std::printf("\nComplete: every patient taken (%d) converted.\n", outcome.patients_taken);
    else
      std::printf("\nNot complete: %s.\n", shortfall.c_str());
  }
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

// Tells on standard error how far the accounts are: on a terminal one line
// redrawn, in a log one line a tenth.
std::function<void(size_t, size_t)> AccountsProgress() {
  const bool terminal = isatty(STDERR_FILENO) == 1;
  return [terminal, tenths = size_t{0}](size_t done, size_t total) mutable {
    if (terminal) {
      if (done % 50 == 0 || done == total)
        std::fprintf(stderr, "\rAccounts: %zu / %zu patients%s", done, total, done == total ? "\n" : "");
      return;
    }
    const size_t reached = done * 10 / total;
    if (reached > tenths) {
      tenths = reached;
      std::fprintf(stderr, "Accounts: %zu / %zu patients (%zu%%)\n", done, total, reached * 10);
    }
  };
}

// Writes the report of the run in archive to each target, its accounts made
// against source (empty: the run's own). Every target is tried; the status
// is kReportFailed if one couldn't be written.
int WriteReports(const std::vector<runreport::ReportTarget>& targets, const std::string& archive,
                 const runreport::RunRecord& run, const std::optional<runreport::LiveRun>& live, bool overwrite,
                 const std::string& source = "") {
  runreport::Reconciliation accounts;
  try {
    std::fflush(stdout);
    accounts = runreport::Reconcile(run, {source, "", "", AccountsProgress()});
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
              : runreport::RenderJson(figures);
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
  if (outcome.removed_empty) {
    std::fflush(stdout);
    std::cerr << "kairon-convert: no patient was taken, so " << options.archive
              << (options.trace.empty() ? " was" : " and " + options.trace + " were")
              << " not kept: the same command can run again once the cause is put right\n";
  }
  // What the run left undone counts once the conversion and its report
  // are known to have succeeded.
  const int shortfall_status = outcome.stopped ? kStopped : outcome.patients_err > 0 ? kNotAllConverted : kSuccess;
  if (reports.empty()) return status != kSuccess ? status : shortfall_status;
  std::fflush(stdout);
  if (!outcome.archived) {
    std::cerr << "kairon-convert: no report written: the run ended before its archive was made"
              << (outcome.removed_empty ? " or kept" : "") << "\n";
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
  if (status != kSuccess) return status;
  return report_status != kSuccess ? report_status : shortfall_status;
}

// A leftover of a killed run removed, or not, in one line.
std::string RemovalText(const refhost::Removal& removal) {
  const refhost::Leftover& leftover = removal.leftover;
  std::string text = (removal.failure.empty() ? "removed " : "couldn't remove ") + leftover.path + " (" + leftover.what;
  for (size_t i = 0; i < leftover.companions.size(); ++i)
    text += (i == 0 ? ", with its " : " and ") + leftover.companions[i].substr(leftover.path.size());
  text += ", " + runreport::SizeText(static_cast<int64_t>(leftover.bytes)) + "), left by process " +
          std::to_string(leftover.pid) + ", which ended without tidying up";
  return removal.failure.empty() ? text : text + ": " + removal.failure;
}

int CleanCommand(const std::vector<std::string>& given) {
  std::vector<std::string> folders = given.empty() ? std::vector<std::string>{"."} : given;
  for (const std::string& folder : folders)
    if (!std::filesystem::is_directory(folder))
      return ReportUnusable(std::runtime_error(folder + " is not a folder"));
  const std::vector<std::string> temporary = refhost::SystemTemporaryFolders();
  folders.insert(folders.begin(), temporary.begin(), temporary.end());
  const std::vector<refhost::Removal> removals = refhost::RemoveLeftovers(folders);
  bool failed = false;
  for (const refhost::Removal& removal : removals) {
    std::cout << RemovalText(removal) << "\n";
    failed = failed || !removal.failure.empty();
  }
  if (removals.empty())
    std::cout << "Nothing left by killed runs in " << temporary.front() << " or "
              << (given.empty() ? "this folder" : "the folders given") << ".\n";
  return failed ? kPluginFailed : kSuccess;
}

int ReportCommand(const std::string& archive, const std::vector<runreport::ReportTarget>& targets, bool overwrite,
                  const std::string& source) {
  runreport::RunRecord run;
  try {
    if (!std::filesystem::exists(archive)) throw std::runtime_error(archive + ": no such file");
    runreport::CheckTargets(targets, {archive}, overwrite);
    run = runreport::ReadRun(archive);
  } catch (const std::exception& e) {
    return ReportUnusable(e);
  }
  return WriteReports(targets, archive, run, std::nullopt, overwrite, source);
}

}  // namespace

int main(int argc, char** argv) {
  tools::BlockTerminationSignals();
  tools::UseEnvironmentCharacterType();
  tools::TerminationWatch watch(OnTerminationSignal);

  CLI::App app{
      "kairon-convert: converts an Ambulor practice (GX_USER.FDB and the two databases beside it) through the "
      "cnvKairon plug-in into an archive that anyone can open, as the Kairon conversion host would, and reports "
      "what arrived.",
      kProgram};
  app.require_subcommand(1);
  app.footer(
      "A practice is moved in four steps:\n"
      "  kairon-convert info                                   the categories the plug-in converts\n"
      "  kairon-convert test /srv/ambulor/GX_USER.FDB          do the databases open? the doctors\n"
      "  kairon-convert convert /srv/ambulor/GX_USER.FDB --archive studio.sqlite --report studio.html\n"
      "  (open studio.html: what arrived, what didn't and why)\n"
      "kairon-convert COMMAND --help tells what a command takes and its exit statuses.");
  app.set_version_flag("--version", tools::VersionText("kairon-convert"));
  std::string plugin = tools::InstalledPlugin();
  bool json = false;

  CLI::App* info = app.add_subcommand(
      "info", "Print what the plug-in says of itself: the source program, the file it reads, and the categories it "
              "converts (the names that convert --categories takes)");
  info->footer(
      "Example:\n  kairon-convert info\n\n"
      "Exit status: 0 printed; 1 the plug-in raised a failure; 2 bad command line or a plug-in that can't be loaded.");
  info->add_flag("--json", json, "One JSON object, property to value");
  info->add_option("--plugin", plugin, "The plug-in library")->capture_default_str();

  std::string conn;
  CLI::App* test = app.add_subcommand(
      "test", "Check a source before converting it: open its three databases as a conversion does and list the "
              "practice's doctors; when they don't open, say why");
  test->footer(
      "Example:\n  kairon-convert test /srv/ambulor/GX_USER.FDB\n\n"
      "Exit status: 0 the databases opened; 1 they didn't (the cause is printed) or the plug-in raised a failure; "
      "2 bad command line or a plug-in that can't be loaded; 3 Test gave false: no GX_USER.FDB at that path.");
  test->add_option("CONN", conn, "The path of GX_USER.FDB (the connection text, as Test gets it)")->required();
  test->add_flag("--json", json, "One JSON object: result, ListaMedici, LastError, and cause when they didn't open");
  test->add_option("--plugin", plugin, "The plug-in library")->capture_default_str();

  refhost::ConvertOptions options;
  options.data_dir = tools::InstalledCatalogues();
  std::optional<std::string> utente;
  CLI::App* convert = app.add_subcommand(
      "convert", "Convert a source into a new archive, patient by patient, and print what arrived; --report "
                 "writes the run's report, with what didn't arrive and why");
  convert->footer(
      "Examples:\n"
      "  kairon-convert convert /srv/ambulor/GX_USER.FDB --archive studio.sqlite --report studio.html\n"
      "  kairon-convert convert /srv/ambulor/GX_USER.FDB --archive diagnosi.sqlite \\\n"
      "      --categories \"Diagnosi; Prestazioni\"\n"
      "A practice in two runs that lose no one, the first ending where the second begins:\n"
      "  kairon-convert convert ... --archive a-m.sqlite --to M\n"
      "  kairon-convert convert ... --archive m-z.sqlite --from M\n\n"
      "Exit status, the first that applies: 2 bad command line or a file that can't be used (nothing written); "
      "3 Test gave false; 1 the plug-in reported failure (Converti gave false or raised), or the archive couldn't "
      "be written; 4 the report couldn't be written; 6 the run was stopped before its end (Ctrl-C); 5 the run "
      "ended with patients in ERR or refused by the host; 0 every patient taken converted.");
  convert->add_option("CONN", options.conn, "The path of GX_USER.FDB (the connection text, as Test gets it)")
      ->required();
  convert->add_option("--archive", options.archive, "The new archive (SQLite) to write")->required();
  CLI::Option* categories = convert->add_option(
      "--categories", options.categories,
      "The categories to convert, by their names as info lists them, separated by \";\" or \",\" (case and "
      "blanks around a name don't matter), in that order; an unknown name is refused. Default: every category");
  std::vector<std::string> convert_reports;
  convert->add_option("--report", convert_reports,
                      "Write the run's report when it ends: FILE.html for a person, FILE.json for a program "
                      "(repeatable)")
      ->allow_extra_args(false);
  convert->add_option("--from", options.from,
                      "Take only the patients whose surname is TEXT or after it. Surnames compare whole, letter "
                      "by letter: --from M takes \"MARINO\"");
  convert->add_option("--to", options.to,
                      "Take only the patients whose surname is TEXT or before it. Surnames compare whole, so "
                      "--to M ends before \"MARINO\" (\"M\" comes first); to split a practice, give the second "
                      "run's --from the first run's --to (--to M, then --from M)");
  convert->add_option("--medico", options.medico,
                      "The doctor named to the plug-in (default: the first that test lists). It plays no part in "
                      "what is converted: every patient of the source is taken, whoever the doctor");
  convert->add_option("--trace", options.trace, "Write every call that the plug-in makes on the host here (JSON lines)");
  convert->add_option("--icd9", options.icd9_csv, "The ICD9 catalogue (CSV)");
  convert->add_option("--farmaci", options.farmaci_csv, "The drug catalogue (CSV)");
  convert->add_option("--esenzioni", options.esenzioni_csv, "The exemption catalogue (CSV)");
  convert->add_option("--province", options.province_csv, "The provinces with their region codes (CSV)");
  convert->add_option("--utente", utente, "The members of utente, as a JSON object");
  convert->add_option("--tempdir", options.tempdir, "The folder for temporary files");
  convert->add_option("--options", options.options,
                      "The option list exactly as Converti receives it, unchecked (elements that match no "
                      "category are passed on with a warning)")
      ->excludes(categories)
      ->group("Testing the plug-in");
  convert->add_option("--fail", options.fail,
                      "Make the N-th call of MEMBER fail, to check the plug-in's failure handling (MEMBER@N, "
                      "Obj.MEMBER@N; repeatable)")
      ->group("Testing the plug-in");
  convert->add_flag("--overwrite", options.overwrite, "Replace the archive, trace and report of an earlier run");
  convert->add_option("--plugin", plugin, "The plug-in library")->capture_default_str();

  std::string report_archive, report_html, report_json;
  bool report_overwrite = false;
  CLI::App* report = app.add_subcommand(
      "report", "Write the report of the run that an archive holds: what arrived, what didn't and why");
  report->footer(
      "Example:\n  kairon-convert report studio.sqlite --html studio.html\n\n"
      "Exit status: 0 written; 2 bad command line, or an archive that is missing or isn't one of kairon-convert; "
      "4 the report couldn't be written.");
  report->add_option("ARCHIVE", report_archive, "An archive of kairon-convert convert")->required();
  report->add_option("--html", report_html, "Write the report for a person here (FILE.html)");
  report->add_option("--json", report_json, "Write the report's figures for a program here (FILE.json)");
  report->add_flag("--overwrite", report_overwrite, "Replace a report made earlier");
  std::string report_source;
  report->add_option("--source", report_source,
                     "Make the accounts against this GX_USER.FDB instead of the run's own (moved or copied source)");

  std::vector<std::string> clean_folders;
  CLI::App* clean = app.add_subcommand(
      "clean", "Remove what runs that were killed (kill -9, a crash, a machine switched off) left behind, and say "
               "what: temporary folders and private copies of read-only sources in the system's temporary folder, "
               "unfinished replacements of archives, traces and reports (with SQLite's -wal and -shm) in the "
               "folders given. What a run still under way keeps is never touched; convert does the same before "
               "it starts");
  clean->footer(
      "Example:\n  kairon-convert clean /srv/conversioni\n\n"
      "Exit status: 0 done (also when nothing was left); 1 something couldn't be removed (it is named); 2 bad "
      "command line or a FOLDER that isn't one.");
  clean->add_option("FOLDER", clean_folders, "Where the archives were written (default: the current folder)");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // --help ends here too, with status 0; a mistake is told in one line
    // that names the program.
    if (e.get_exit_code() == 0) return app.exit(e);
    std::string help = kProgram;
    for (const CLI::App* command : {info, test, convert, report, clean})
      if (argc > 1 && command->get_name() == argv[1]) help += " " + command->get_name();
    std::cerr << kProgram << ": " << e.what() << " (" << help << " --help tells what it takes)\n";
    return kUnusable;
  }

  try {
    if (clean->parsed()) return CleanCommand(clean_folders);
    if (info->parsed()) return WithPlugin(plugin, [&](const host::ObjectRef& c) { return InfoCommand(c, json); });
    for (const std::string* source : {&conn, &options.conn})
      if (std::string wrong = tools::WrongUserDatabase(*source); !source->empty() && !wrong.empty())
        throw std::runtime_error(wrong);
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
      return ReportCommand(report_archive, targets, report_overwrite, report_source);
    }
    const std::vector<runreport::ReportTarget> reports = Targets(convert_reports);
    std::vector<std::string> others = refhost::SourceFiles(options.conn);
    others.push_back(options.archive);
    others.push_back(options.trace);
    runreport::CheckTargets(reports, others, options.overwrite);
    options.reports = convert_reports;
    if (utente) options.utente = refhost::ParseUtente(*utente);
    options.progress = isatty(STDERR_FILENO) == 1;
    options.progress_lines = !options.progress;
    stop_after_patient = true;
    options.count_source_patients = SourcePatients;
    options.warn = [](const std::string& warning) { std::cerr << "kairon-convert: warning: " << warning << "\n"; };
    options.leftover_removed = [](const refhost::Removal& removal) {
      std::cerr << "kairon-convert: " << RemovalText(removal) << "\n";
    };
    return WithPlugin(plugin, [&](const host::ObjectRef& c) { return ConvertCommand(c, options, reports); });
  } catch (const std::exception& e) {
    return ReportUnusable(e);
  }
}
