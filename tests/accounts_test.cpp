// The accounts of a run against its source: a small source built row by row,
// where every figure is known, converted and reconciled; and the generated
// sample, whose reconciliation leaves nothing unexplained.
#include "tools/run-report/accounting.h"

#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <sstream>

#include "support/fixture.h"
#include "tools/run-report/run_record.h"

namespace {

namespace fs = std::filesystem;
using host::Date;
using fixture::Gzip;
using host::Value;
using runreport::CategoryAccount;
using runreport::Reconciliation;

// The run read back from a copy of its archive changed by the statements,
// as if the host had filed otherwise.
runreport::RunRecord Tampered(const runreport::RunRecord& run, const std::vector<std::string>& statements) {
  const std::string copy = run.archive + ".tampered";
  fs::copy_file(run.archive, copy, fs::copy_options::overwrite_existing);
  for (const std::string& sql : statements) fixture::ArchiveRows(copy, sql);
  return runreport::ReadRun(copy);
}

// The accounts in a few lines, for a failing expectation to show.
std::string Describe(const Reconciliation& r) {
  std::ostringstream out;
  if (!r.done) out << "not done: " << r.why_not << "\n";
  for (const CategoryAccount& c : r.categories) {
    out << c.keyword << ": rows " << c.source_rows << ", unexplained " << c.unexplained;
    for (size_t line : c.err_lines) out << ", ERR at " << line;
    out << "\n";
    for (const auto& s : c.stores) out << "  store " << s.store << " " << s.arrived << "/" << s.expected << "\n";
    for (const auto& l : c.left_out) out << "  left out " << l.rows << " " << l.text << "\n";
    for (const auto& l : c.not_arrived) out << "  not arrived " << l.rows << " " << l.text << "\n";
    for (const auto& l : c.failures) out << "  ends " << l.rows << " " << l.text << "\n";
    for (size_t line : c.unforeseen_lines) out << "  unforeseen line " << line << "\n";
  }
  for (const auto& u : r.undecoded) out << "undecoded: line " << u.patient_line << " " << u.keyword << " '" << u.title
                                        << "' " << u.why << "\n";
  return out.str();
}

using Bytes = std::vector<uint8_t>;

Bytes Of(const std::string& s) { return Bytes(s.begin(), s.end()); }

Bytes Cut(Bytes bytes, size_t n) {
  bytes.resize(n);
  return bytes;
}

sample::Row With(sample::Row row, const sample::Row& extra) {
  for (const auto& [column, value] : extra) fixture::SetColumn(row, column, value);
  return row;
}

sample::Row Biometric(const std::string& card, const Value& peso, const Value& padist) {
  return {{"CodCart", card}, {"Data", Date{2020, 5, 4}}, {"Peso", peso}, {"Statura", 170.0}, {"BMI", 24.2},
          {"PADIST", padist}, {"PASIST", "120"}};
}

sample::Row Image(int record, const std::string& card, const Value& content, const std::string& title,
                  const std::string& media_code, const sample::Row& extra = {}) {
  return With({{"Record", Value::I32(record)}, {"CodCart", card}, {"MediaCode", media_code},
               {"Data", Date{2021, 2, 3}}, {"bindata", content}, {"Titolo", title}, {"Settings", "jpg"}},
              extra);
}

sample::Row Modulo(const std::string& card, const Value& content, const std::string& title) {
  return {{"CodCart", card}, {"bindata", content}, {"Titolo", title}, {"Data", Date{2019, 1, 2}}};
}

sample::Row Ricetta(const std::string& card, const std::vector<std::pair<std::string, Value>>& lines) {
  sample::Row row = {{"CodCart", card}, {"DATAEMI", Date{2018, 6, 7}}};
  int n = 0;
  for (const auto& [text, quantity] : lines) {
    ++n;
    row.push_back({"Row_" + std::to_string(n), text});
    row.push_back({"Qta_" + std::to_string(n), quantity});
  }
  return row;
}

// One patient a case, each named for it; they stand in this order by surname.
//   ALFA     measures: one complete, one without weight, one of weight 0
//            without a pressure; two notes; a vaccination
//   BETA     a key with a quote: the master record ends in ERR
//   DELTA    an exam image that a report takes, so the recordings and the
//            scans leave it; an image of 3 bytes; a gzip stream cut short;
//            an image that the recordings take and the scans then leave
//   EPSILON  documents: Null, 1 byte, plain, gzip, gzip cut short
//   ETA      free prescriptions: the second's line without quantity ends
//            the converter; a vaccination that never comes
//   GAMMA    refused by the host: no tax code, birth date or card; a note
//   ZETA     two measures, the host fails the first pressure: ERR; a
//            vaccination that never comes
void FillSmallSource(sample::Archive& a) {
  a.Insert("PAZIENTI", fixture::Patient("A1", "Alfa"));
  a.Insert("BIOMETRIC", Biometric("A1", 70.0, "80"));
  a.Insert("BIOMETRIC", Biometric("A1", Value::Null(), "85"));
  a.Insert("BIOMETRIC", Biometric("A1", 0.0, Value::Null()));
  a.Insert("MESSAGES", {{"CodCart", "A1"}, {"Data_Iniz", Date{2020, 1, 1}}, {"MESG", "primo"}});
  a.Insert("MESSAGES", {{"CodCart", "A1"}, {"Data_Iniz", Date{2020, 1, 2}}, {"MESG", "secondo"}});
  a.Insert("VACCINI", {{"CodCart", "A1"}, {"Data", Date{2015, 1, 1}}, {"Testo", "Antitetanica"}});

  a.Insert("PAZIENTI", fixture::Patient("B'2", "Beta"));
  a.Insert("MESSAGES", {{"CodCart", "B'2"}, {"MESG", "mai"}});
  a.Insert("BIOMETRIC", Biometric("B'2", 60.0, "70"));

  a.Insert("PAZIENTI", fixture::Patient("D4", "Delta"));
  a.Insert("REFERTI", {{"Record", Value::I32(1)}, {"CodCart", "D4"}, {"CODESAME", "E1"}, {"Testo", "Referto"}});
  a.Insert("ESAMI", {{"RECORD", Value::I32(1)}, {"tipo", Value::I32(1)}, {"Data", Date{2021, 2, 3}},
                     {"Testo", "Ecografia"}, {"CODESAME", "E1"}});
  a.Insert("IMAGES", Image(10, "D4", Value::Bytes(Of("JPEG-ECO")), "Eco", "M10", {{"CodEsame", "E1"}}));
  a.Insert("IMAGES", Image(11, "D4", Value::Bytes(Of("abc")), "Corta", "M11"));
  a.Insert("IMAGES", Image(12, "D4", Value::Bytes(Cut(Gzip("immagine"), 12)),
                           "Troncata", "M12"));
  a.Insert("IMAGES", Image(13, "D4", Value::Bytes(Of("JPEG-FOTO")), "Foto", "M13"));

  a.Insert("PAZIENTI", fixture::Patient("E5", "Epsilon"));
  a.Insert("MODULI", Modulo("E5", Value::Null(), "Nullo"));
  a.Insert("MODULI", Modulo("E5", Value::Bytes(Of("x")), "Un byte"));
  a.Insert("MODULI", Modulo("E5", Value::Bytes(Of("{\\rtf1 nota}")), "Nota"));
  a.Insert("MODULI", Modulo("E5", Value::Bytes(Gzip("{\\rtf1 certificato}")), "Certificato"));
  a.Insert("MODULI", Modulo("E5", Value::Bytes(Cut(Gzip("{\\rtf1 rotto}"), 10)),
                            "Rotto"));

  a.Insert("PAZIENTI", fixture::Patient("H6", "Eta"));
  a.Insert("RICETTE", Ricetta("H6", {{"Aspirina", "1"}, {"Tachipirina", "2"}}));
  a.Insert("RICETTE", Ricetta("H6", {{"Ibuprofene", Value::Null()}}));
  a.Insert("RICETTE", Ricetta("H6", {{"Cerotti", "3"}}));
  a.Insert("VACCINI", {{"CodCart", "H6"}, {"Data", Date{2016, 1, 1}}, {"Testo", "Antinfluenzale"}});

  a.Insert("PAZIENTI", fixture::Patient("G7", "Gamma", {{"CodFisc", Value::Null()}, {"DataNat", Value::Null()},
                                                        {"CodiceSSN", Value::Null()}}));
  a.Insert("MESSAGES", {{"CodCart", "G7"}, {"MESG", "rifiutato"}});

  a.Insert("PAZIENTI", fixture::Patient("Z8", "Zeta"));
  a.Insert("BIOMETRIC", Biometric("Z8", 80.0, "90"));
  a.Insert("BIOMETRIC", Biometric("Z8", 81.0, "91"));
  a.Insert("VACCINI", {{"CodCart", "Z8"}, {"Data", Date{2017, 1, 1}}, {"Testo", "Antipneumococcica"}});
}

const char* const kOptions =
    "appunti;bmi;certificati;pressione arteriosa;prescrizioni libere;referti;registrazioni private;scansioni;"
    "vaccinazioni";

// The small source, written once; each test converts it as it needs.
class SmallSourceAccounts : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new fixture::TempDir();
    auto archive = sample::Archive::Create((folder_->path() / "src").string());
    FillSmallSource(*archive);
    archive->Close();
  }
  static void TearDownTestSuite() { delete folder_; }

  static runreport::RunRecord Convert(refhost::ConvertOptions options) {
    if (!options.options) options.options = kOptions;
    fixture::Run run = fixture::Convert((folder_->path() / "src" / "GX_USER.FDB").string(), std::move(options));
    return runreport::ReadRun(run.archive);
  }

  static inline fixture::TempDir* folder_ = nullptr;
};

const CategoryAccount& Account(const Reconciliation& r, const std::string& keyword) {
  for (const CategoryAccount& c : r.categories)
    if (c.keyword == keyword) return c;
  throw std::runtime_error("no account for " + keyword);
}

// store -> "arrived/expected"
std::map<std::string, std::string> Stores(const CategoryAccount& c) {
  std::map<std::string, std::string> stores;
  for (const auto& s : c.stores) stores[s.store] = std::to_string(s.arrived) + "/" + std::to_string(s.expected);
  return stores;
}

std::map<std::string, int64_t> Causes(const std::vector<runreport::Cause>& causes) {
  std::map<std::string, int64_t> out;
  for (const auto& cause : causes) out[cause.text] = cause.rows;
  return out;
}

using M = std::map<std::string, std::string>;
using C = std::map<std::string, int64_t>;


// Every figure of a full run where the host fails ZETA's first pressure,
// compared whole. Lines: 0 ALFA, 1 BETA, 2 DELTA, 3 EPSILON, 4 ETA, 5 GAMMA,
// 6 ZETA; the pressure's ERR is the host's failure, not a rule's.
TEST_F(SmallSourceAccounts, EveryFigureOfAFullRunWithAFailure) {
  refhost::ConvertOptions options;
  options.fail = {"Pressione.Salva@3"};
  const Reconciliation r = runreport::Reconcile(Convert(options));
  ASSERT_TRUE(r.done) << r.why_not;
  EXPECT_EQ(r.unexplained, 0);
  EXPECT_EQ(Describe(r), R"(anagrafica: rows 7, unexplained 0, ERR at 1
  store Rapporti 5/7
  store patients 5/7
  not arrived 2 the patient ended in ERR in this category
  not arrived 2 DaiPaziente refused the patient (no CodFisc, DataNat or CodiceSSN)
  ends 1 a quote in the key fails the query
appunti: rows 4, unexplained 0
  store Appunti 2/4
  not arrived 1 the patient ended in ERR in its master record
  not arrived 1 DaiPaziente refused the patient (no CodFisc, DataNat or CodiceSSN)
bmi: rows 6, unexplained 0
  store BMI 3/4
  left out 1 weight, height or index missing
  left out 1 weight, height or index of 0
  not arrived 1 the patient ended in ERR in its master record
certificati: rows 5, unexplained 0
  store Appunti 1/1
  store Certificati 1/1
  store Files 2/2
  left out 1 a document of 1 byte
  left out 1 gzip stream cut short or damaged
  left out 1 no document (Null)
pressione arteriosa: rows 6, unexplained 0, ERR at 6
  store Pressione 2/5
  left out 1 a pressure missing
  not arrived 1 the patient ended in ERR in its master record
  not arrived 2 the patient ended in ERR in this category
prescrizioni libere: rows 3, unexplained 0, ERR at 4
  store PrescrizioneLibera 2/3
  store Ricette 2/3
  not arrived 2 the patient ended in ERR in this category
  ends 1 a line without quantity (94)
referti: rows 1, unexplained 0
  store Files 1/1
  store RefertiEsami 1/1
registrazioni private: rows 4, unexplained 0
  store Appunti 1/1
  store Files 1/1
  left out 1 fewer than 4 bytes
  left out 1 gzip stream cut short or damaged
  left out 1 medium already taken by a report
scansioni: rows 4, unexplained 0
  left out 1 fewer than 4 bytes
  left out 1 gzip stream cut short or damaged
  left out 2 image already taken by a report or a recording
vaccinazioni: rows 3, unexplained 0
  store Vaccinazioni 1/3
  not arrived 2 the patient ended in ERR in an earlier category
undecoded: line 2 registrazioni private 'Corta' fewer than 4 bytes
undecoded: line 2 registrazioni private 'Troncata' gzip stream cut short or damaged
undecoded: line 2 scansioni 'Corta' fewer than 4 bytes
undecoded: line 2 scansioni 'Troncata' gzip stream cut short or damaged
undecoded: line 3 certificati 'Un byte' fewer than 2 bytes
undecoded: line 3 certificati 'Rotto' gzip stream cut short or damaged
)");
}

TEST_F(SmallSourceAccounts, ASurnameRangeAndAStopTakeTheirBlockOfPatients) {
  refhost::ConvertOptions range;
  range.from = "Delta";
  range.to = "Eta";
  const Reconciliation ranged = runreport::Reconcile(Convert(range));
  ASSERT_TRUE(ranged.done) << ranged.why_not;
  SCOPED_TRACE(Describe(ranged));
  EXPECT_EQ(ranged.unexplained, 0);
  EXPECT_EQ(Stores(Account(ranged, "anagrafica")), (M{{"Rapporti", "3/3"}, {"patients", "3/3"}}));
  EXPECT_EQ(Account(ranged, "appunti").source_rows, 0);
  EXPECT_EQ(Stores(Account(ranged, "appunti")), M{});
  EXPECT_EQ(Stores(Account(ranged, "vaccinazioni")), (M{{"Vaccinazioni", "0/1"}}));
  EXPECT_EQ(Account(ranged, "prescrizioni libere").err_lines, std::vector<size_t>{2});

  refhost::ConvertOptions stop;
  stop.stop_at_patient = 2;
  const Reconciliation stopped = runreport::Reconcile(Convert(stop));
  ASSERT_TRUE(stopped.done) << stopped.why_not;
  EXPECT_EQ(stopped.unexplained, 0) << Describe(stopped);
  EXPECT_EQ(Stores(Account(stopped, "anagrafica")), (M{{"Rapporti", "1/2"}, {"patients", "1/2"}}));
  EXPECT_EQ(Stores(Account(stopped, "appunti")), (M{{"Appunti", "2/3"}}));
}

// The host fails DaiPaziente of the third patient: the run ends there in
// "Errore"; that patient's records are the run's end, those after it never
// were patients of the run.
TEST_F(SmallSourceAccounts, ARunThatEndsInErroreStopsItsAccountsAtThatPatient) {
  refhost::ConvertOptions options;
  options.fail = {"DaiPaziente@3"};
  const runreport::RunRecord run = Convert(options);
  ASSERT_EQ(run.patient_lines.size(), 3u);
  const Reconciliation r = runreport::Reconcile(run);
  ASSERT_TRUE(r.done) << r.why_not;
  SCOPED_TRACE(Describe(r));
  EXPECT_EQ(r.unexplained, 0);
  EXPECT_EQ(Causes(Account(r, "referti").not_arrived),
            (C{{"the run ended (\"Errore\") while the patient was converted", 2}}));
  EXPECT_EQ(Stores(Account(r, "anagrafica")), (M{{"Rapporti", "1/3"}, {"patients", "1/3"}}));
}

// With the recordings before the reports, the recordings take the exam image
// first and the report's filing of it ends the reports in ERR, before the
// report's record; the scans, after them, never run, yet their rows are
// still told by their rules.
TEST_F(SmallSourceAccounts, TheOptionOrderDecidesWhoTakesAnImage) {
  refhost::ConvertOptions options;
  options.options.emplace("registrazioni private;referti;scansioni");
  const Reconciliation r = runreport::Reconcile(Convert(options));
  ASSERT_TRUE(r.done) << r.why_not;
  SCOPED_TRACE(Describe(r));
  EXPECT_EQ(r.unexplained, 0);
  const CategoryAccount& recordings = Account(r, "registrazioni private");
  EXPECT_EQ(Stores(recordings), (M{{"Appunti", "2/2"}, {"Files", "2/2"}}));
  const CategoryAccount& reports = Account(r, "referti");
  EXPECT_EQ(Stores(reports), (M{{"Files", "1/1"}}));
  EXPECT_EQ(Causes(reports.failures), (C{{"an exam image already taken (457)", 1}}));
  EXPECT_EQ(reports.err_lines, std::vector<size_t>{2});
  const CategoryAccount& scans = Account(r, "scansioni");
  EXPECT_EQ(scans.left_out.size(), 3u);
  EXPECT_EQ(Causes(scans.left_out)["image already taken by a report or a recording"], 2);
}

// A keyword given twice runs twice: the second run of the recordings finds
// its images taken by the first and ends in ERR.
TEST_F(SmallSourceAccounts, AKeywordGivenTwiceIsAccountedOnceWithBothRuns) {
  refhost::ConvertOptions options;
  options.options.emplace("Registrazioni Private;bmi;registrazioni private; scansioni");
  const Reconciliation r = runreport::Reconcile(Convert(options));
  ASSERT_TRUE(r.done) << r.why_not;
  SCOPED_TRACE(Describe(r));
  EXPECT_EQ(r.unexplained, 0);
  ASSERT_EQ(r.categories.size(), 3u);  // " scansioni" names nothing
  const CategoryAccount& recordings = Account(r, "registrazioni private");
  EXPECT_EQ(Stores(recordings), (M{{"Appunti", "3/4"}, {"Files", "3/4"}}));
  EXPECT_EQ(Causes(recordings.failures), (C{{"an image already taken by a report or the scans (457)", 1}}));
  EXPECT_EQ(recordings.err_lines, std::vector<size_t>{2});
}

// What no cause explains stands out: a record taken away from the archive
// and one added, or a log from another source.
TEST_F(SmallSourceAccounts, ADifferenceWithoutCauseIsUnexplained) {
  runreport::RunRecord run = Convert({});
  const int64_t alfa = run.patient_lines[0].patient;
  const std::string of_alfa = " WHERE patient_id = " + std::to_string(alfa);
  const runreport::RunRecord fewer = Tampered(
      run, {"DELETE FROM records WHERE id = (SELECT MIN(id) FROM records" + of_alfa + " AND store = 'Appunti')",
            "INSERT INTO records(patient_id, store, args) SELECT patient_id, 'Eventi', args FROM records" + of_alfa +
                " LIMIT 1"});
  const Reconciliation r = runreport::Reconcile(fewer);
  ASSERT_TRUE(r.done) << r.why_not;
  EXPECT_EQ(Account(r, "appunti").unexplained, 1) << Describe(r);
  EXPECT_EQ(Account(r, "anagrafica").unexplained, 1) << Describe(r);
  EXPECT_EQ(r.unexplained, 2);

  // ETA's free prescriptions end at a line without quantity: a line that
  // says OK contradicts the rules.
  runreport::RunRecord contradicted = run;
  contradicted.patient_lines[4].outcome = "OK";
  contradicted.patient_lines[4].details.clear();
  const Reconciliation c = runreport::Reconcile(contradicted);
  const CategoryAccount& free = Account(c, "prescrizioni libere");
  EXPECT_EQ(free.unforeseen_lines, std::vector<size_t>{4}) << Describe(c);
  EXPECT_EQ(free.unexplained, 1 + 2);  // the contradiction, and the prescription and item that never came
  EXPECT_EQ(Account(c, "vaccinazioni").unexplained, 1);

  runreport::RunRecord other = run;
  other.patient_lines[1].text = "ROSSI MARIO...";
  const Reconciliation mismatch = runreport::Reconcile(other);
  EXPECT_FALSE(mismatch.done);
  EXPECT_NE(mismatch.why_not.find("doesn't come from this source"), std::string::npos) << mismatch.why_not;

  runreport::RunRecord elsewhere = run;
  elsewhere.conn = (folder_->path() / "nowhere" / "GX_USER.FDB").string();
  EXPECT_FALSE(runreport::Reconcile(elsewhere).done);
}

// Two patients of one name stand in an order that the database doesn't fix:
// each line goes to the row whose tax code and card its master record has,
// whichever order the run took them in.
TEST(Accounts, PatientsOfOneNameAreToldApartByTheirIdentity) {
  fixture::TempDir folder;
  auto archive = sample::Archive::Create((folder.path() / "src").string());
  archive->Insert("PAZIENTI", fixture::Patient("T1", "Theta", {{"CodFisc", "THTMRA50A01H501A"}, {"CodiceSSN", "1"}}));
  archive->Insert("PAZIENTI", fixture::Patient("T2", "Theta", {{"CodFisc", "THTMRA50A01H501B"}, {"CodiceSSN", "2"}}));
  for (const char* text : {"uno", "due"}) archive->Insert("MESSAGES", {{"CodCart", "T1"}, {"MESG", text}});
  archive->Insert("MESSAGES", {{"CodCart", "T2"}, {"MESG", "tre"}});
  archive->Close();
  refhost::ConvertOptions options;
  options.options = "appunti";
  runreport::RunRecord run =
      runreport::ReadRun(fixture::Convert((folder.path() / "src" / "GX_USER.FDB").string(), options).archive);
  ASSERT_EQ(run.patient_lines.size(), 2u);
  const std::string first = std::to_string(run.patient_lines[0].patient),
                    second = std::to_string(run.patient_lines[1].patient);
  const std::string other = "CASE %1 WHEN " + first + " THEN " + second + " WHEN " + second + " THEN " + first + " END";
  auto swap = [&](const std::string& column) { return std::regex_replace(other, std::regex("%1"), column); };
  const runreport::RunRecord other_way =
      Tampered(run, {"UPDATE patients SET id = -id", "UPDATE patients SET id = " + swap("-id"),
                     "UPDATE records SET patient_id = " + swap("patient_id")});
  const Reconciliation r = runreport::Reconcile(other_way);
  ASSERT_TRUE(r.done) << r.why_not;
  EXPECT_EQ(r.unexplained, 0) << Describe(r);
  EXPECT_EQ(Stores(Account(r, "appunti")), (M{{"Appunti", "3/3"}}));
}

class SampleAccounts : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new fixture::TempDir();
    sample::SampleOptions options;
    options.patients = 200;
    sample::GenerateSample((folder_->path() / "src").string(), options);
    fixture::Run run = fixture::Convert((folder_->path() / "src" / "GX_USER.FDB").string());
    run_ = new runreport::RunRecord(runreport::ReadRun(run.archive));
  }
  static void TearDownTestSuite() {
    delete run_;
    delete folder_;
  }
  static inline fixture::TempDir* folder_ = nullptr;
  static inline runreport::RunRecord* run_ = nullptr;
};

TEST_F(SampleAccounts, EveryDifferenceHasItsCause) {
  const Reconciliation r = runreport::Reconcile(*run_);
  ASSERT_TRUE(r.done) << r.why_not;
  EXPECT_EQ(r.unexplained, 0) << Describe(r);
  for (const CategoryAccount& c : r.categories) EXPECT_GT(c.source_rows, 0) << c.keyword;
  EXPECT_EQ(r.categories.size(), 20u);
}

}  // namespace
