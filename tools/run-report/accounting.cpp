#include "tools/run-report/accounting.h"

#include <algorithm>
#include <map>
#include <memory>

#include "host/failure.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "tools/ambulor-inspect/catalogue.h"
#include "tools/ambulor-inspect/key_matching.h"
#include "tools/common/installation.h"
#include "tools/kairon-convert/catalogues.h"
#include "tools/run-report/alignment.h"
#include "tools/run-report/category_rules.h"

namespace runreport {
namespace {

// The causes of records that never reached the host.
const char* const kErrHere = "the patient ended in ERR in this category";
const char* const kErrMaster = "the patient ended in ERR in its master record";
const char* const kErrEarlier = "the patient ended in ERR in an earlier category";
const char* const kErrUnnamed = "the patient ended in ERR (its line names no category)";
const char* const kRefused = "DaiPaziente refused the patient (no CodFisc, DataNat or CodiceSSN)";
const char* const kRunEnded = "the run ended (\"Errore\") while the patient was converted";
const char* const kNoOutcome = "the run stopped without an outcome for the patient";

// How far one step (the master record, or one element of the options) got
// for one patient, as its line tells.
enum class Reach { Ran, FailedHere, Cut, Unsure };

struct StepReach {
  Reach reach = Reach::Ran;
  std::string cause;  // for Cut and Unsure
};

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

const std::string& SuffixOf(const std::string& keyword) {
  static const std::string none;
  for (const inspect::Category& category : inspect::Categories())
    if (category.keyword == keyword) return category.suffix;
  return none;
}

// The step whose trap wrote the line's detail: "NAME - Suffix Errore N ...".
// Of a keyword given twice, the run where the rules end it, else the first.
// With no suffix in it (ImportaAnagrafica refused, and LastError kept an
// older text), the first step whose rules end it; nullopt if none.
std::optional<size_t> FailedStep(const LogLine& line, const std::vector<std::string>& steps,
                                 const std::vector<rules::Verdict>& verdicts) {
  const std::string detail = line.details.empty() ? "" : line.details.back();
  std::optional<size_t> named;
  size_t named_length = 0;
  for (size_t step = 0; step < steps.size(); ++step) {
    const std::string& suffix = SuffixOf(steps[step]);
    if (detail.find(suffix + " Errore ") == std::string::npos) continue;
    const bool better = !named || suffix.size() > named_length ||
                        (suffix.size() == named_length && verdicts[*named].failure.empty() &&
                         !verdicts[step].failure.empty());
    if (better) {
      named = step;
      named_length = suffix.size();
    }
  }
  if (named) return named;
  for (size_t step = 0; step < steps.size(); ++step)
    if (!verdicts[step].failure.empty()) return step;
  return std::nullopt;
}

std::vector<StepReach> Reaches(const LogLine& line, const std::vector<std::string>& steps,
                               const std::vector<rules::Verdict>& verdicts) {
  std::vector<StepReach> reaches(steps.size());
  if (line.outcome == "OK") return reaches;
  const bool refused = line.patient == 0 && line.outcome == "ERR" && !line.details.empty() &&
                       EndsWith(line.details.front(), kNoPatientDetail);
  if (refused) {
    for (StepReach& reach : reaches) reach = {Reach::Cut, kRefused};
    return reaches;
  }
  if (line.outcome != "ERR") {
    for (StepReach& reach : reaches) reach = {Reach::Unsure, line.outcome == "Errore" ? kRunEnded : kNoOutcome};
    return reaches;
  }
  std::optional<size_t> failed = FailedStep(line, steps, verdicts);
  if (!failed) {
    for (StepReach& reach : reaches) reach = {Reach::Unsure, kErrUnnamed};
    return reaches;
  }
  reaches[*failed] = {Reach::FailedHere, ""};
  for (size_t step = *failed + 1; step < steps.size(); ++step)
    reaches[step] = {Reach::Cut, *failed == 0 ? kErrMaster : kErrEarlier};
  return reaches;
}

void AddCause(std::vector<Cause>& causes, const std::string& text, int64_t rows) {
  if (rows == 0) return;
  for (Cause& cause : causes)
    if (cause.text == text) {
      cause.rows += rows;
      return;
    }
  causes.push_back({text, rows});
}

StoreCount& StoreOf(CategoryAccount& account, const std::string& store) {
  for (StoreCount& count : account.stores)
    if (count.store == store) return count;
  account.stores.push_back({store, 0, 0});
  return account.stores.back();
}

std::vector<std::string> Elements(const std::string& options) {
  std::vector<std::string> elements;
  if (options.empty()) return elements;
  size_t start = 0;
  for (size_t sep; (sep = options.find(';', start)) != std::string::npos; start = sep + 1)
    elements.push_back(options.substr(start, sep - start));
  elements.push_back(options.substr(start));
  return elements;
}

// "dd/mm/yyyy" of the day the run started ("YYYY-MM-DDTHH:MM:SS"); today
// when the run doesn't say.
std::string RunDay(const std::string& started) {
  if (started.size() >= 10 && started[4] == '-' && started[7] == '-')
    return started.substr(8, 2) + "/" + started.substr(5, 2) + "/" + started.substr(0, 4);
  return cnv::DateText(host::Value(cnv::Today()));
}

// Splits what one patient received of each store among the steps that make
// records there, in the order they ran, and books every difference.
void Book(size_t line_index, const PatientReceived* received,
          const std::vector<std::string>& steps, const std::vector<rules::Verdict>& verdicts,
          const std::vector<StepReach>& reaches, std::vector<CategoryAccount*>& accounts,
          std::vector<UndecodedStream>& undecoded) {
  std::map<std::string, int64_t> arrived;
  if (received) {
    arrived = received->records;
    if (received->imported) arrived["patients"] = 1;
  }
  for (size_t step = 0; step < steps.size(); ++step) {
    CategoryAccount& account = *accounts[step];
    const rules::Verdict& verdict = verdicts[step];
    const StepReach& reach = reaches[step];
    const bool ran = reach.reach == Reach::Ran || reach.reach == Reach::FailedHere;
    account.source_rows += verdict.rows;
    for (const auto& [cause, rows] : verdict.left_out) AddCause(account.left_out, cause, rows);
    if (ran && !verdict.failure.empty()) AddCause(account.failures, verdict.failure, 1);
    if (ran)
      for (const auto& [title, why] : verdict.undecoded) undecoded.push_back({line_index, steps[step], title, why});
    if (reach.reach == Reach::FailedHere &&
        std::find(account.err_lines.begin(), account.err_lines.end(), line_index) == account.err_lines.end())
      account.err_lines.push_back(line_index);
    if (reach.reach == Reach::Ran && !verdict.failure.empty()) {
      account.unforeseen_lines.push_back(line_index);
      account.unexplained += 1;
    }

    std::map<std::string, int64_t> would = verdict.made;
    for (const auto& [store, n] : verdict.cut) would[store] += n;
    for (const auto& [store, n] : would) {
      int64_t& left = arrived[store];
      const int64_t taken = reach.reach == Reach::Cut ? 0 : std::min(left, n);
      left -= taken;
      StoreCount& count = StoreOf(account, store);
      count.expected += n;
      count.arrived += taken;
      switch (reach.reach) {
        case Reach::Ran: account.unexplained += n - taken; break;
        case Reach::FailedHere: AddCause(account.not_arrived, kErrHere, n - taken); break;
        case Reach::Cut:
        case Reach::Unsure: AddCause(account.not_arrived, reach.cause, n - taken); break;
      }
    }
  }
  // What is left arrived beyond what the rules make: booked to the last step
  // that makes records in the store, or to the master record.
  for (const auto& [store, excess] : arrived) {
    if (excess <= 0) continue;
    size_t owner = 0;
    for (size_t step = 0; step < steps.size(); ++step)
      if (verdicts[step].made.count(store) || verdicts[step].cut.count(store)) owner = step;
    CategoryAccount& account = *accounts[owner];
    StoreOf(account, store).arrived += excess;
    account.unexplained += excess;
  }
}

// The document at which the category that a line's "ERR" came from ended.
void NoteEndingDocument(size_t line_index, const std::vector<std::string>& steps,
                        const std::vector<rules::Verdict>& verdicts, const std::vector<StepReach>& reaches,
                        std::vector<EndingDocument>& documents) {
  for (size_t step = 0; step < steps.size(); ++step)
    if (reaches[step].reach == Reach::FailedHere && verdicts[step].ended_at)
      documents.push_back({line_index, steps[step], verdicts[step].ended_at->title, verdicts[step].ended_at->why});
}

// The keys of the source that several patients share, each with the lines
// of the run's patients who hold it; none when PAZIENTI can't be grouped by
// its key.
std::vector<SharedKeyLines> SharedKeysOfRun(source::Connection& user, const std::vector<const DriverRow*>& lines) {
  std::vector<inspect::SharedKey> shared;
  try {
    shared = inspect::SharedKeys(user);
  } catch (const host::Failure&) {
    return {};
  }
  std::vector<SharedKeyLines> of_run;
  for (const inspect::SharedKey& key : shared) {
    SharedKeyLines marked{key.key, {}};
    for (size_t line = 0; line < lines.size(); ++line)
      if (std::find(key.keys.begin(), key.keys.end(), lines[line]->key) != key.keys.end())
        marked.patient_lines.push_back(line);
    if (!marked.patient_lines.empty()) of_run.push_back(std::move(marked));
  }
  return of_run;
}

}  // namespace

Reconciliation Reconcile(const RunRecord& run, const AccountsInputs& inputs) {
  Reconciliation accounts;
  std::unique_ptr<inspect::SourceDatabases> databases;
  try {
    databases = std::make_unique<inspect::SourceDatabases>(!inputs.source.empty() ? inputs.source : run.conn);
  } catch (const inspect::Unopenable& unopenable) {
    accounts.why_not = unopenable.what();
    return accounts;
  }
  refhost::Catalogue farmaci, esenzioni;
  try {
    farmaci = refhost::Catalogue::Load(!inputs.farmaci_csv.empty() ? inputs.farmaci_csv
                                                                    : tools::InstalledCatalogues() + "/farmaci.csv");
    esenzioni = refhost::Catalogue::Load(
        !inputs.esenzioni_csv.empty() ? inputs.esenzioni_csv : tools::InstalledCatalogues() + "/esenzioni.csv");
  } catch (const std::exception& e) {
    accounts.why_not = std::string("the host's archives can't be read: ") + e.what();
    return accounts;
  }

  SourceTables tables(*databases);
  std::set<std::string> master_columns;
  for (const inspect::ColumnUse& column : inspect::Categories().front().tables.front().columns)
    master_columns.insert(column.name);
  const SourceTable& pazienti = tables.Table("PAZIENTI", inspect::SourceFile::User, master_columns);
  if (!pazienti.present) {
    accounts.why_not = "the source has no table PAZIENTI";
    return accounts;
  }
  std::vector<DriverRow> driver_rows;
  try {
    driver_rows = DriverRows(tables, pazienti);
  } catch (const ColumnMissing& missing) {
    accounts.why_not = "PAZIENTI has no column " + missing.column;
    return accounts;
  }
  ReceivedByPatient received(run.archive);
  const std::optional<std::vector<const DriverRow*>> aligned = Align(driver_rows, run, received);
  if (!aligned) {
    accounts.why_not =
        "the run's patient lines are no block of this source's patients in the driver's order: the archive doesn't "
        "come from this source as it is now";
    return accounts;
  }

  // The steps of each patient: the master record, then each element of the
  // options that names a category, in their order.
  std::vector<std::string> steps = {"anagrafica"};
  for (const std::string& element : Elements(run.options)) {
    const std::string keyword = host::text::Lower(element);
    for (size_t i = 1; i < rules::AllRules().size(); ++i)
      if (rules::AllRules()[i].keyword == keyword) steps.push_back(keyword);
  }
  std::vector<const rules::Rule*> step_rules;
  std::map<std::string, size_t> account_of;
  for (const std::string& keyword : steps) {
    for (const rules::CategoryRules& category : rules::AllRules())
      if (category.keyword == keyword) step_rules.push_back(&category.rule);
    if (account_of.count(keyword)) continue;
    account_of[keyword] = accounts.categories.size();
    CategoryAccount account;
    account.keyword = keyword;
    for (const inspect::Category& category : inspect::Categories())
      if (category.keyword == keyword)
        for (const inspect::TableUse& use : category.tables)
          if (std::find(account.tables.begin(), account.tables.end(), use.table) == account.tables.end())
            account.tables.push_back(use.table);
    accounts.categories.push_back(std::move(account));
  }
  std::vector<CategoryAccount*> step_accounts;
  for (const std::string& keyword : steps) step_accounts.push_back(&accounts.categories[account_of[keyword]]);

  accounts.shared_keys = SharedKeysOfRun(databases->Of(inspect::SourceFile::User), *aligned);

  rules::Context context{tables, {&farmaci, &esenzioni}, RunDay(run.started)};
  for (size_t index = 0; index < run.patient_lines.size(); ++index) {
    const LogLine& line = run.patient_lines[index];
    const DriverRow& source = *(*aligned)[index];
    const rules::PatientRow patient{source.cognome, source.key};
    rules::PatientLists lists;
    std::vector<rules::Verdict> verdicts(steps.size());
    for (size_t step = 0; step < steps.size(); ++step) (*step_rules[step])(context, patient, lists, verdicts[step]);
    tables.NextPatient();
    const std::vector<StepReach> reaches = Reaches(line, steps, verdicts);
    const std::optional<PatientReceived> got =
        line.patient != 0 ? std::optional<PatientReceived>(received.Next(line.patient)) : std::nullopt;
    Book(index, got ? &*got : nullptr, steps, verdicts, reaches, step_accounts, accounts.undecoded);
    NoteEndingDocument(index, steps, verdicts, reaches, accounts.ending_documents);
    if (inputs.progress) inputs.progress(index + 1, run.patient_lines.size());
  }
  for (const CategoryAccount& account : accounts.categories) accounts.unexplained += account.unexplained;
  accounts.done = true;
  return accounts;
}

}  // namespace runreport
