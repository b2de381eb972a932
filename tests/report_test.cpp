// The run's report: what it shows of a small conversion (every category,
// the patients in ERR by reason, the files, names that would break a page),
// how it renders accounts, the phases of a run, and the command line's care
// for the report's files.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>

#include "support/fixture.h"
#include "support/process.h"
#include "tools/run-report/accounting.h"
#include "tools/run-report/report.h"

namespace {

namespace fs = std::filesystem;
using host::Value;
using nlohmann::json;

constexpr const char* kHostile = "D'Angelo <script>alert(1)</script> & Co";
// As the driver's log line gives the name: upper case.
constexpr const char* kHostileLine = "D'ANGELO <SCRIPT>ALERT(1)</SCRIPT> & CO ZOË <B>";

struct Report {
  runreport::RunRecord record;
  runreport::Reconciliation accounts;
  json figures;
  std::string html;
};

// The report of a conversion of the source that write makes.
Report ReportOf(const std::function<void(sample::Archive&)>& write, refhost::ConvertOptions options) {
  fixture::TempDir dir;
  auto source = sample::Archive::Create(dir.path().string());
  write(*source);
  source->Close();
  const fixture::Run run = fixture::Convert(dir.path() / "GX_USER.FDB", options);
  Report report;
  report.record = runreport::ReadRun(run.archive);
  report.accounts = runreport::Reconcile(report.record);
  const runreport::Figures figures = runreport::MakeFigures(run.archive, report.record, report.accounts);
  report.figures = json::parse(runreport::RenderJson(figures));
  report.html = runreport::RenderHtml(figures);
  return report;
}

refhost::ConvertOptions Categories(const std::string& options) {
  refhost::ConvertOptions convert;
  convert.options = options;
  return convert;
}

// Four patients: Bianchi with a blood pressure and a certificate, the
// hostile name with a blood pressure whose store fails (--fail), Esposito
// whom the host refuses, Rossi with a diagnosis.
class ReportOfRun : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    refhost::ConvertOptions options = Categories("Pressione Arteriosa;Diagnosi;Certificati");
    options.fail = {"Pressione.Salva@2"};
    report_ = ReportOf(
        [](sample::Archive& source) {
          source.Insert("PAZIENTI", fixture::Patient("B1", "Bianchi"));
          source.Insert("PAZIENTI", fixture::Patient("H1", kHostile, {{"nome", "Zoë <b>"}}));
          source.Insert("PAZIENTI", fixture::Patient("E1", "Esposito", {{"nome", "Gennaro"}, {"CodFisc", ""},
                                                                        {"DataNat", Value::Null()}, {"CodiceSSN", ""}}));
          source.Insert("PAZIENTI", fixture::Patient("R1", "Rossi"));
          for (const char* card : {"B1", "H1"})
            source.Insert("BIOMETRIC",
                          {{"CodCart", card}, {"Data", host::Date{2020, 1, 2}}, {"PADIST", 80.0}, {"PASIST", 120.0}});
          const std::string rtf = "{\\rtf1 certificato}";
          source.Insert("MODULI", {{"CodCart", "B1"},
                                   {"bindata", Value::Bytes(std::vector<uint8_t>(rtf.begin(), rtf.end()))},
                                   {"Titolo", "Nota d'<urgenza> & co"},
                                   {"Data", host::Date{2020, 3, 4}}});
          source.Insert("VISITE",
                        {{"CodCart", "R1"}, {"Inizio", host::Date{2019, 5, 6}}, {"Titolo", "Controllo"}, {"Testo", "ok"}});
        },
        options);
  }
  static inline Report report_;
  const json& json_ = report_.figures;
  const std::string& html_ = report_.html;
};

TEST_F(ReportOfRun, ShowsEveryCategoryOfTheRunWithItsRecords) {
  std::vector<std::string> keywords;
  for (const json& category : json_["categories"]) keywords.push_back(category["keyword"]);
  EXPECT_EQ(keywords, (std::vector<std::string>{"anagrafica", "pressione arteriosa", "diagnosi", "certificati"}));
  for (const char* name : {"Anagrafica", "Pressione Arteriosa", "Diagnosi", "Certificati"})
    EXPECT_NE(html_.find("<b>" + std::string(name) + "</b>"), std::string::npos) << name;

  // What the archive holds, store by store, as the categories give it: the
  // failed store is the patient's ERR, the refused patient the host's; the
  // accounts leave nothing unexplained, and the report says so, but not in
  // green, since not every patient converted.
  EXPECT_EQ(json_["categories"][1], json::parse(R"j({"keyword": "pressione arteriosa", "name": "Pressione Arteriosa",
      "tables": ["BIOMETRIC"], "source_rows": 2, "records": 1, "unexplained": 0, "ended_by_rule": [], "left_out": [],
      "stores": [{"store": "Pressione", "expected": 2, "arrived": 1, "shared_with": []}], "unforeseen_patients": [],
      "not_arrived": [{"rows": 1, "text": "the patient ended in ERR in this category"}],
      "err_patients": [")j" + std::string(kHostileLine) + R"j("]})j"));
  EXPECT_EQ(json_["categories"][0]["not_arrived"],
            json::parse(R"j([{"rows": 2, "text": "DaiPaziente refused the patient (no CodFisc, DataNat or CodiceSSN)"}])j"));
  EXPECT_EQ(json_["records_per_store"], json(report_.record.records_per_store));
  EXPECT_EQ(json_["accounts"],
            json::parse(R"({"done": true, "summary": "every record accounted for", "unexplained": 0, "why_not": ""})"));
  EXPECT_NE(html_.find("banner partial\">every record accounted for"), std::string::npos);
  EXPECT_EQ(html_.find("banner ok"), std::string::npos);
  EXPECT_EQ(json_["times"]["phases"], nullptr);
}

TEST_F(ReportOfRun, GroupsThePatientsInErrByReasonWithoutTheirNames) {
  EXPECT_EQ(json_["patients"], json::parse(R"({"ended_with_error": "", "err": 2, "lines": 4, "ok": 2, "refused": 1})"));
  EXPECT_EQ(json_["err_reasons"],
            json::parse(R"j([{"reason": "Pressione Arteriosa Errore 1001 Errore simulato dall'host",
                               "category": "Pressione Arteriosa", "patients": [")j" +
                        std::string(kHostileLine) + R"j("]},
                              {"reason": "CodFisc, TesseraSSN o Data Nascita non validi (Almeno uno di questi dati è necessario)",
                               "category": "Anagrafica", "patients": ["ESPOSITO GENNARO"]}])j"));
  EXPECT_NE(html_.find("Pressione Arteriosa Errore 1001 Errore simulato dall&#39;host"), std::string::npos);
  EXPECT_NE(html_.find("ESPOSITO GENNARO"), std::string::npos);
}

TEST_F(ReportOfRun, ListsTheFilesStored) {
  const json& files = json_["files"];
  EXPECT_EQ(files["count"], 1);
  ASSERT_EQ(files["list"].size(), 1u);
  EXPECT_EQ(files["list"][0]["patient"], "BIANCHI MARIO");
  EXPECT_EQ(files["list"][0]["title"], "Nota d'<urgenza> & co");
  EXPECT_EQ(files["bytes"], files["list"][0]["size"]);
  EXPECT_GT(files["bytes"].get<int64_t>(), 0);
  EXPECT_NE(html_.find("Nota d&#39;&lt;urgenza&gt; &amp; co"), std::string::npos);
}

TEST_F(ReportOfRun, PageIsSelfContainedAndEscapesEveryText) {
  for (const char* raw : {"<script", "<SCRIPT", "<B>", "<urgenza>", kHostileLine})
    EXPECT_EQ(html_.find(raw), std::string::npos) << raw;
  EXPECT_NE(html_.find("D&#39;ANGELO &lt;SCRIPT&gt;ALERT(1)&lt;/SCRIPT&gt; &amp; CO ZOË &lt;B&gt;"), std::string::npos);
  // Nothing is fetched: the only address is the name space of the inline SVG.
  std::string rest = std::regex_replace(html_, std::regex("http://www\\.w3\\.org/2000/svg"), "");
  for (const char* fetch : {"http:", "https:", "<link", " src=", "@import", "url("})
    EXPECT_EQ(rest.find(fetch), std::string::npos) << fetch;
  // Every tag is one of the page's own.
  const std::set<std::string> own = {"html", "head", "meta", "title", "style", "body", "main", "h1", "h2", "h3", "p",
                                     "div", "table", "tr", "th", "td", "b", "br", "span", "ul", "li", "details",
                                     "summary", "svg", "g", "rect", "text", "code"};
  const std::regex tag("<([a-zA-Z][a-zA-Z0-9]*)");
  for (std::sregex_iterator it(html_.begin(), html_.end(), tag), end; it != end; ++it)
    EXPECT_TRUE(own.contains((*it)[1])) << (*it)[1];
}

// A title that can't be a file name: the plain document under it ends its
// category in ERR, and the report names it beside that ERR; the gzip stream
// under another is left out, and the report says that its name is why.
TEST(ReportOfUnfileableTitles, NamesTheDocumentWhoseTitleEndedItsCategory) {
  const Report report = ReportOf(
      [](sample::Archive& source) {
        source.Insert("PAZIENTI", fixture::Patient("N1", "Neri"));
        const std::string rtf = "{\\rtf1 diario}";
        const std::vector<uint8_t> plain(rtf.begin(), rtf.end());
        for (auto [content, title] : {std::pair{plain, "Diario clinico del 12-03-2019"},
                                      {fixture::Gzip(rtf), "Referto 3/4"}, {plain, "Diario clinico del 12/03/2019"}})
          source.Insert("MODULI", {{"CodCart", "N1"}, {"bindata", Value::Bytes(content)}, {"Titolo", title}});
      },
      Categories("Certificati"));
  ASSERT_TRUE(report.accounts.done) << report.accounts.why_not;
  EXPECT_EQ(report.accounts.unexplained, 0);
  EXPECT_EQ(report.figures["err_documents"], json::parse(R"j([{"patient": "NERI MARIO", "category": "Certificati",
      "title": "Diario clinico del 12/03/2019",
      "why": "its file name \"Diario clinico del 12/03/2019.rtf\" holds \"/\", which can't be written (52)"}])j"));
  ASSERT_EQ(report.figures["files"]["undecoded"].size(), 1u);
  EXPECT_EQ(report.figures["files"]["undecoded"][0]["title"], "Referto 3/4");
  EXPECT_EQ(report.figures["files"]["undecoded"][0]["why"],
            "its file name \"Referto 3/4.rtf\" holds \"/\": the stream is not filed");
  EXPECT_NE(report.html.find("<td>NERI MARIO</td><td>Certificati</td><td>Diario clinico del 12/03/2019</td>"),
            std::string::npos);
}

// Two patients whose keys the database takes as one ('A1' and 'A1 ') got
// each other's records; the report names them, and only them.
TEST(ReportOfSharedKeys, NamesThePatientsWhoseKeysTheDatabaseTakesAsOne) {
  const Report report = ReportOf(
      [](sample::Archive& source) {
        source.Insert("PAZIENTI", fixture::Patient("A1", "Rossi"));
        source.Insert("PAZIENTI", fixture::Patient("A1 ", "Bianchi", {{"nome", "Anna"}}));
        source.Insert("PAZIENTI", fixture::Patient("C3", "Verdi"));
        source.Insert("BIOMETRIC", {{"CodCart", "A1"}, {"PADIST", 80.0}, {"PASIST", 120.0}});
      },
      Categories("Pressione Arteriosa"));
  EXPECT_EQ(report.figures["shared_keys"],
            json::parse(R"([{"key": "A1 ", "patients": ["BIANCHI ANNA", "ROSSI MARIO"]}])"));
  EXPECT_NE(report.html.find("Patients who share a key (1)"), std::string::npos);
}

TEST(ReportRendering, MarksUnexplainedRecordsAndShowsTheAccounts) {
  runreport::RunRecord run;
  run.options = "Diagnosi";
  run.result = true;
  run.patient_lines = {{"ROSSI MARIO...", "ERR", {"ROSSI MARIO - Diagnosi Errore 94 Utilizzo non valido di Null"}, 1},
                       {"VERDI ANNA...", "OK", {}, 2}};
  runreport::Reconciliation accounts;
  accounts.done = true;
  accounts.categories = {
      {"anagrafica", {"PAZIENTI"}, 2, {}, {}, {{"patients", 2, 2}}, 0, {}, {}, {}},
      {"diagnosi", {"VISITE"}, 7, {{"empty title", 2}}, {{"the patient ended in ERR", 1}}, {{"Problemi", 4, 2}}, 2, {0}, {}, {}}};
  accounts.undecoded = {{1, "diagnosi", "referto.rtf", "gzip stream cut short"}};
  accounts.unexplained = 2;

  runreport::Figures figures = runreport::MakeFigures("a.sqlite", run, accounts);
  const std::string html = runreport::RenderHtml(figures);
  const json report = json::parse(runreport::RenderJson(figures));
  EXPECT_NE(html.find("banner bad\">2 records unexplained"), std::string::npos);
  EXPECT_NE(html.find("<td class=\"n bad\">2</td>"), std::string::npos);
  EXPECT_EQ(html.find("<td class=\"n bad\">0</td>"), std::string::npos);
  EXPECT_NE(html.find("empty title"), std::string::npos);
  EXPECT_NE(html.find("gzip stream cut short"), std::string::npos);
  EXPECT_NE(html.find("Records per category"), std::string::npos);

  EXPECT_EQ(report["accounts"]["summary"], "2 records unexplained");
  const json& diagnosi = report["categories"][1];
  EXPECT_EQ(diagnosi["source_rows"], 7);
  EXPECT_EQ(diagnosi["stores"][0], json({{"store", "Problemi"}, {"expected", 4}, {"arrived", 2}, {"shared_with", json::array()}}));
  EXPECT_EQ(diagnosi["err_patients"], json::array({"ROSSI MARIO"}));
  EXPECT_EQ(report["files"]["undecoded"][0]["patient"], "VERDI ANNA");

  accounts.unexplained = 0;
  accounts.categories[1].unexplained = 0;
  EXPECT_EQ(runreport::MakeFigures("a.sqlite", run, accounts).AccountsSummary(), "every record accounted for");
}

TEST(ReportRendering, FindsTheCategoryAndReasonOfAnErrDetail) {
  const std::string refused = "CodFisc, TesseraSSN o Data Nascita non validi (Almeno uno di questi dati è necessario)";
  for (auto [detail, keyword, reason] : std::vector<std::tuple<std::string, std::string, std::string>>{
           {"ROSSI MARIO - Certificati INPS Errore 5 Chiamata", "certificati inps", "Certificati INPS Errore 5 Chiamata"},
           {"DE LUCA - ANNA - Certificati Errore 94 Null", "certificati", "Certificati Errore 94 Null"},
           {std::string("O'Neil Ann") + runreport::kNoPatientDetail, "anagrafica", refused},
           {"- Anagrafica Errore 335544569 SQL", "anagrafica", "Anagrafica Errore 335544569 SQL"},  // without a name
           {"something else", "", "something else"}}) {
    EXPECT_EQ(runreport::ReasonOf(detail).keyword, keyword) << detail;
    EXPECT_EQ(runreport::ReasonOf(detail).reason, reason) << detail;
  }
}

TEST(ReportRendering, PhasesCoverTheRunFromStartToEnd) {
  runreport::RunRecord run;
  run.driver_lines.resize(3);
  run.patient_lines.resize(2);
  runreport::Timeline timeline{{{0.5, 0.5}, {0.5, 1.5}, {1.5, 1.5}, {2.0, 3.0}, {3.0, 5.0}}, 6.0};
  std::vector<std::pair<std::string, double>> phases;
  for (const runreport::Phase& phase : runreport::PhasesOf(timeline, run)) phases.emplace_back(phase.name, phase.seconds);
  EXPECT_EQ(phases, (std::vector<std::pair<std::string, double>>{
                        {"opening and Test", 0.5}, {"first pass", 1.0}, {"archive start", 0.5}, {"patients", 3.0}, {"closing", 1.0}}));

  // Test gave false: no line came.
  runreport::RunRecord empty;
  auto phases_of_empty = runreport::PhasesOf({{}, 2.0}, empty);
  ASSERT_EQ(phases_of_empty.size(), 1u);
  EXPECT_EQ(phases_of_empty[0].seconds, 2.0);
}

// The command line, on a small sample.
class ReportCommandLine : public ::testing::Test {
 protected:
  support::Outcome Convert(const std::vector<std::string>& more) {
    std::vector<std::string> args{KAIRON_CONVERT_PATH, "convert", (src_ / "GX_USER.FDB").string(), "--plugin",
                                  KAIRON_PLUGIN_PATH, "--options", "pressione arteriosa;diagnosi"};
    args.insert(args.end(), more.begin(), more.end());
    return support::Run(args, dir_.path() / ("run" + std::to_string(++runs_)));
  }
  support::Outcome Report(const std::vector<std::string>& more) {
    std::vector<std::string> args{KAIRON_CONVERT_PATH, "report"};
    args.insert(args.end(), more.begin(), more.end());
    return support::Run(args, dir_.path() / ("run" + std::to_string(++runs_)));
  }

  fixture::TempDir dir_;
  fs::path src_ = support::CopyOfSample(dir_.path());
  int runs_ = 0;
};

TEST_F(ReportCommandLine, ConvertWritesBothReportsAndReportRemakesThemFromTheArchive) {
  const std::string archive = dir_ / "a.sqlite", html = dir_ / "r.html", json_path = dir_ / "r.json";
  support::Outcome outcome = Convert({"--archive", archive, "--report", html, "--report", json_path, "--fail", "Pressione.Salva@1"});
  ASSERT_EQ(outcome.status, 5) << outcome.err;
  const json report = json::parse(support::ReadFile(json_path));
  EXPECT_EQ(report["times"]["phases"].size(), 5u);
  EXPECT_NE(support::ReadFile(html).find("Errore simulato dall&#39;host"), std::string::npos);

  // Afterwards, from the archive: the same figures, without the phases.
  const std::string later = dir_ / "later.json";
  outcome = Report({archive, "--json", later, "--html", dir_ / "later.html"});
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  json again = json::parse(support::ReadFile(later)), before = report;
  EXPECT_EQ(again["times"]["phases"], nullptr);
  for (json* figures : {&again, &before}) {
    for (const char* live : {"times", "archive"}) figures->erase(live);
    for (const char* live : {"test_result", "stopped", "write_failure", "raised", "warnings"}) (*figures)["run"].erase(live);
  }
  EXPECT_EQ(again, before);
}

TEST_F(ReportCommandLine, RefusesWhatItMayNotWriteOrReadBeforeAnythingIsWritten) {
  const std::string html = dir_ / "r.html";
  std::ofstream(html) << "<p>not ours</p>";
  for (const std::vector<std::string>& bad :
       {std::vector<std::string>{"--report", html}, {"--report", html, "--overwrite"}, {"--report", dir_ / "r.txt"},
        {"--report", (dir_.path() / "no-folder" / "r.html").string()}, {"--report", dir_ / "x.json", "--trace", dir_ / "x.json"}}) {
    std::vector<std::string> args{"--archive", dir_ / "a.sqlite"};
    args.insert(args.end(), bad.begin(), bad.end());
    support::Outcome outcome = Convert(args);
    EXPECT_EQ(outcome.status, 2) << bad[1];
    EXPECT_TRUE(outcome.Says("report")) << outcome.err;
    EXPECT_FALSE(fs::exists(dir_ / "a.sqlite")) << bad[1];
  }
  EXPECT_EQ(support::ReadFile(html), "<p>not ours</p>");
  EXPECT_FALSE(fs::exists(dir_ / "r.txt"));
  EXPECT_FALSE(fs::exists(dir_ / "x.json"));

  // A report of an earlier run is replaced with --overwrite only.
  ASSERT_EQ(Convert({"--archive", dir_ / "a.sqlite", "--report", dir_ / "ours.html"}).status, 5);
  EXPECT_EQ(Report({dir_ / "a.sqlite", "--html", dir_ / "ours.html"}).status, 2);
  EXPECT_EQ(Report({dir_ / "a.sqlite", "--html", dir_ / "ours.html", "--overwrite"}).status, 0);
  EXPECT_EQ(Report({dir_ / "a.sqlite", "--html", dir_ / "ours.json"}).status, 2);

  // A file that isn't an archive is named, and nothing is written.
  std::ofstream(dir_ / "notes.sqlite") << "just some notes";
  support::Outcome notes = Report({dir_ / "notes.sqlite", "--html", dir_ / "notes.html"});
  EXPECT_EQ(notes.status, 2);
  EXPECT_TRUE(notes.Says(dir_ / "notes.sqlite")) << notes.err;
  EXPECT_FALSE(fs::exists(dir_ / "notes.html"));
}

// The archive keeps the source's path whole, so that the report is made
// from any folder; --source points the accounts to a source that moved.
// Meanwhile the accounts tell how far they are.
TEST_F(ReportCommandLine, AReportIsMadeFromAnyFolderAndAgainstAMovedSource) {
  const fs::path archive = dir_.path() / "a.sqlite";
  support::Outcome outcome =
      support::Run({"/bin/sh", "-c", "cd \"$0\" && exec \"$@\"", dir_.path().string(), KAIRON_CONVERT_PATH, "convert",
                    "./src/GX_USER.FDB", "--archive", "a.sqlite", "--plugin", KAIRON_PLUGIN_PATH},
                   dir_.path() / "relative");
  ASSERT_TRUE(fs::exists(archive)) << outcome.err;
  const std::string report = dir_ / "r.json";
  auto accounts_done = [&](const std::vector<std::string>& more) {
    std::vector<std::string> args{archive.string(), "--json", report, "--overwrite"};
    args.insert(args.end(), more.begin(), more.end());
    support::Outcome made = Report(args);
    EXPECT_EQ(made.status, 0) << made.err;
    const json figures = json::parse(support::ReadFile(report));
    EXPECT_EQ(figures["run"]["conn"], (src_ / "GX_USER.FDB").string());
    EXPECT_NE(made.err.find(" patients (100%)\n"), std::string::npos) << made.err;
    return figures["accounts"]["done"].get<bool>();
  };
  EXPECT_TRUE(accounts_done({}));
  fs::rename(src_, dir_.path() / "moved");
  EXPECT_EQ(Report({archive.string(), "--json", report, "--overwrite"}).status, 0);
  EXPECT_FALSE(json::parse(support::ReadFile(report))["accounts"]["done"].get<bool>());
  EXPECT_TRUE(accounts_done({"--source", (dir_.path() / "moved" / "GX_USER.FDB").string()}));
}

support::SampleCleanup cleanup;

}  // namespace
