#include "tools/run-report/report.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <map>
#include <set>

#include "tools/ambulor-inspect/catalogue.h"

namespace runreport {

namespace {

// The stores that each category files into, as the converters call them;
// the master record's own row is counted as "patients", its table.
const std::map<std::string, std::vector<std::string>>& StoresOfCategory() {
  static const std::map<std::string, std::vector<std::string>> stores = {
      {"anagrafica", {"patients", "Rapporti"}},
      {"allergie", {"Allergie"}},
      {"appunti", {"Appunti"}},
      {"bmi", {"BMI"}},
      {"certificati", {"Certificati", "Appunti", "Files"}},
      {"certificati inps", {"CertificatiINPS"}},
      {"diagnosi", {"Problemi"}},
      {"esenzioni", {"Esenzioni"}},
      {"eventi", {"Eventi"}},
      {"piani terapeutici", {"TerapieCroniche", "Files"}},
      {"prescrizioni esami laboratorio", {"Ricette", "PrescrizioneEsami"}},
      {"prescrizioni farmaceutiche", {"Ricette", "PrescrizioneFarmaci"}},
      {"prescrizioni libere", {"Ricette", "PrescrizioneLibera"}},
      {"pressione arteriosa", {"Pressione"}},
      {"prestazioni", {"VisiteAmbDom", "ADI", "ADP", "PPIP"}},
      {"referti", {"RefertiEsami", "Ricoveri", "RefertiVisite", "Ricette", "PrescrizioneVisite", "Files"}},
      {"registrazioni private", {"Appunti", "Files"}},
      {"scansioni", {"Eventi", "Files"}},
      {"vaccinazioni", {"Vaccinazioni"}},
      {"visite ambulatoriali", {"VisiteAmbDom"}},
  };
  return stores;
}

const inspect::Category* CategoryOf(const std::string& keyword) {
  for (const inspect::Category& category : inspect::Categories())
    if (category.keyword == keyword) return &category;
  return nullptr;
}

// "Pressione Arteriosa" from " - Pressione Arteriosa".
std::string NameOf(const std::string& keyword) {
  const inspect::Category* category = CategoryOf(keyword);
  if (category == nullptr) return keyword;
  const std::string& suffix = category->suffix;
  return suffix.rfind(" - ", 0) == 0 ? suffix.substr(3) : suffix;
}

std::vector<std::string> TablesOf(const std::string& keyword) {
  std::vector<std::string> tables;
  if (const inspect::Category* category = CategoryOf(keyword))
    for (const inspect::TableUse& use : category->tables)
      if (std::find(tables.begin(), tables.end(), use.table) == tables.end()) tables.push_back(use.table);
  return tables;
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// The categories that the driver converts for an option list: each element
// lower-cased, as it stands, matched with a keyword; each category once.
std::vector<std::string> KeywordsOfOptions(const std::string& options) {
  std::vector<std::string> keywords{"anagrafica"};
  size_t start = 0;
  while (start <= options.size()) {
    size_t end = options.find(';', start);
    if (end == std::string::npos) end = options.size();
    const std::string element = Lower(options.substr(start, end - start));
    if (element != "anagrafica" && CategoryOf(element) != nullptr &&
        std::find(keywords.begin(), keywords.end(), element) == keywords.end())
      keywords.push_back(element);
    start = end + 1;
  }
  return keywords;
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// "ROSSI MARIO" from the line "ROSSI MARIO...".
std::string PatientName(const LogLine& line) {
  return EndsWith(line.text, "...") ? line.text.substr(0, line.text.size() - 3) : line.text;
}

// Seconds between two local times "YYYY-MM-DDTHH:MM:SS"; none if either is unreadable.
std::optional<double> SecondsBetween(const std::string& from, const std::string& to) {
  auto parse = [](const std::string& text) -> std::optional<std::time_t> {
    std::tm tm{};
    if (strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &tm) == nullptr) return std::nullopt;
    tm.tm_isdst = -1;
    return std::mktime(&tm);
  };
  auto a = parse(from), b = parse(to);
  if (!a || !b) return std::nullopt;
  return std::difftime(*b, *a);
}

}  // namespace

DetailReason ReasonOf(const std::string& detail) {
  const std::string refused = kNoPatientDetail;
  if (EndsWith(detail, refused)) return {refused.substr(2), "anagrafica"};
  // "<name><suffix> Errore <number> <description>": the leftmost suffix, the
  // longest where two start at the same place. Without a name the detail is
  // trimmed, and starts at the dash of the suffix.
  size_t best = std::string::npos, best_length = 0, reason_start = 0;
  std::string keyword;
  for (const inspect::Category& category : inspect::Categories()) {
    const std::string marker = category.suffix + " Errore ";
    size_t at = detail.find(marker), start = at + 3;
    if (detail.rfind(marker.substr(1), 0) == 0) at = 0, start = 2;
    if (at == std::string::npos) continue;
    if (best == std::string::npos || at < best || (at == best && marker.size() > best_length)) {
      best = at;
      best_length = marker.size();
      reason_start = start;
      keyword = category.keyword;
    }
  }
  if (best == std::string::npos) return {detail, ""};
  return {detail.substr(reason_start), keyword};
}

std::vector<Phase> PhasesOf(const Timeline& timeline, const RunRecord& run) {
  std::vector<Phase> phases;
  double at = 0;
  auto until = [&](const char* name, double end) {
    end = std::max(end, at);
    phases.push_back({name, end - at});
    at = end;
  };
  const size_t driver = run.driver_lines.size();
  const size_t lines = std::min(timeline.lines.size(), driver + run.patient_lines.size());
  if (lines > 0) until("opening and Test", timeline.lines[0].opened);
  if (driver >= 3 && lines >= 3) {
    until("first pass", timeline.lines[2].opened);
    until("archive start", lines > driver ? timeline.lines[driver].opened : timeline.lines[2].last);
  } else if (driver > 0 && lines >= driver) {
    until("first pass", timeline.lines[driver - 1].last);
  }
  if (lines > driver) until("patients", timeline.lines[lines - 1].last);
  until(lines == 0 ? "opening and Test" : "closing", timeline.ended);
  return phases;
}

std::string Figures::AccountsSummary() const {
  if (!accounts_done) return "the accounts were not made: " + accounts_why_not;
  if (unexplained == 0) return "every record accounted for";
  return std::to_string(unexplained) + (unexplained == 1 ? " record unexplained" : " records unexplained");
}

std::string Figures::Outcome() const {
  if (live && !live->raised.empty()) return "the plug-in raised " + live->raised;
  if (live && live->test_result == false) return "Test gave false";
  if (!run.result) return "never closed: the program ended during the run";
  std::string outcome = *run.result ? "Converti gave true" : "Converti gave false";
  if (!ended_with_error.empty()) outcome += ", ending at the patient " + ended_with_error;
  if (live && !live->write_failure.empty()) outcome += "; stopped because " + live->write_failure;
  else if (live && live->stopped) outcome += "; stopped on request after a patient";
  return outcome;
}

namespace {

// The documents at which the patients' categories ended, by patient name and category name.
void AddEndingDocuments(const RunRecord& run, const Reconciliation& accounts, Figures& figures) {
  for (const EndingDocument& document : accounts.ending_documents)
    figures.ending_documents.push_back(
        {document.patient_line < run.patient_lines.size() ? PatientName(run.patient_lines[document.patient_line]) : "",
         NameOf(document.keyword), document.title, document.why});
}

}  // namespace

Figures MakeFigures(const std::string& archive, const RunRecord& run, const Reconciliation& accounts,
                    std::optional<LiveRun> live) {
  Figures figures;
  figures.archive = archive;
  figures.run = run;
  figures.run.file_list = {};  // files holds them, with their patients' names
  figures.live = std::move(live);
  figures.accounts_done = accounts.done;
  figures.accounts_why_not = accounts.why_not;
  figures.unexplained = accounts.unexplained;
  if (!run.ended.empty()) figures.archive_seconds = SecondsBetween(run.started, run.ended);

  // Each patient line's outcome, and the category and reason of its "ERR".
  std::map<std::string, size_t> reason_index;
  std::map<std::string, std::vector<std::string>> err_by_keyword;
  for (size_t i = 0; i < run.patient_lines.size(); ++i) {
    const LogLine& line = run.patient_lines[i];
    ++figures.patient_lines;
    if (line.outcome == "OK") ++figures.patients_ok;
    if (line.outcome == "Errore") figures.ended_with_error = PatientName(line);
    if (line.outcome != "ERR") continue;
    ++figures.patients_err;
    DetailReason reason = line.details.empty() ? DetailReason{"(no detail given)", ""} : ReasonOf(line.details.front());
    if (line.patient == 0 && !line.details.empty() && EndsWith(line.details.front(), kNoPatientDetail))
      ++figures.patients_refused;
    err_by_keyword[reason.keyword].push_back(PatientName(line));
    auto [at, added] = reason_index.try_emplace(reason.reason, figures.err_reasons.size());
    if (added) figures.err_reasons.push_back({reason.reason, reason.keyword.empty() ? "" : NameOf(reason.keyword), {}});
    figures.err_reasons[at->second].patients.push_back(PatientName(line));
  }
  std::stable_sort(figures.err_reasons.begin(), figures.err_reasons.end(),
                   [](const auto& a, const auto& b) { return a.patients.size() > b.patients.size(); });

  // The records that reached each store, the master records among them.
  std::map<std::string, int64_t> per_store = run.records_per_store;
  if (run.master_records > 0) per_store["patients"] = run.master_records;

  if (accounts.done) {
    for (const CategoryAccount& account : accounts.categories) {
      Figures::Category category{account.keyword, NameOf(account.keyword), account.tables, account.source_rows,
                                 account.left_out, account.not_arrived, {}, 0, account.unexplained, {},
                                 account.failures, {}};
      for (size_t line : account.unforeseen_lines)
        if (line < run.patient_lines.size()) category.unforeseen.push_back(PatientName(run.patient_lines[line]));
      for (const StoreCount& store : account.stores) {
        category.stores.push_back({store.store, store.expected, store.arrived, {}});
        category.records += store.arrived;
      }
      for (size_t line : account.err_lines)
        if (line < run.patient_lines.size()) category.err_patients.push_back(PatientName(run.patient_lines[line]));
      figures.categories.push_back(std::move(category));
    }
  } else {
    const std::vector<std::string> keywords = KeywordsOfOptions(run.options);
    for (const std::string& keyword : keywords) {
      Figures::Category category{keyword, NameOf(keyword), TablesOf(keyword), std::nullopt, {}, {}, {}, 0,
                                 std::nullopt, err_by_keyword[keyword], {}, {}};
      auto stores = StoresOfCategory().find(keyword);
      if (stores != StoresOfCategory().end())
        for (const std::string& store : stores->second) {
          Figures::Store figure{store, std::nullopt, per_store.contains(store) ? per_store.at(store) : 0, {}};
          for (const std::string& other : keywords) {
            if (other == keyword) continue;
            const auto& others = StoresOfCategory().at(other);
            if (std::find(others.begin(), others.end(), store) != others.end()) figure.shared_with.push_back(NameOf(other));
          }
          category.records += figure.arrived;
          category.stores.push_back(std::move(figure));
        }
      figures.categories.push_back(std::move(category));
    }
  }

  // Patients by number, for the files and undecoded streams.
  std::map<int64_t, std::string> names;
  for (const LogLine& line : run.patient_lines)
    if (line.patient != 0) names[line.patient] = PatientName(line);
  for (const ReceivedFile& file : run.file_list)
    figures.files.push_back({names.contains(file.patient) ? names.at(file.patient) : "#" + std::to_string(file.patient),
                             file.id, file.title, file.name, file.size});
  for (const UndecodedStream& stream : accounts.undecoded)
    figures.undecoded.push_back({stream.patient_line < run.patient_lines.size()
                                     ? PatientName(run.patient_lines[stream.patient_line])
                                     : "",
                                 NameOf(stream.keyword), stream.title, stream.why});
  AddEndingDocuments(run, accounts, figures);
  for (const SharedKeyLines& shared : accounts.shared_keys) {
    Figures::SharedKey key{shared.key, {}};
    for (size_t line : shared.patient_lines)
      if (line < run.patient_lines.size()) key.patients.push_back(PatientName(run.patient_lines[line]));
    figures.shared_keys.push_back(std::move(key));
  }
  return figures;
}

std::string EscapeHtml(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out += c;
    }
  }
  return out;
}

}  // namespace runreport
