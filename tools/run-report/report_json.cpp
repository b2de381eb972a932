#include "tools/run-report/report.h"

namespace runreport {

namespace {

using nlohmann::ordered_json;

template <typename T>
ordered_json OrNull(const std::optional<T>& value) {
  return value ? ordered_json(*value) : ordered_json(nullptr);
}

ordered_json Causes(const std::vector<Cause>& causes) {
  ordered_json list = ordered_json::array();
  for (const Cause& cause : causes) list.push_back({{"text", cause.text}, {"rows", cause.rows}});
  return list;
}

ordered_json Times(const Figures& figures) {
  ordered_json times;
  if (figures.live) {
    ordered_json phases = ordered_json::array();
    double patients = 0;
    for (const Phase& phase : figures.live->phases) {
      phases.push_back({{"name", phase.name}, {"seconds", phase.seconds}});
      if (phase.name == "patients") patients = phase.seconds;
    }
    times["seconds"] = figures.live->seconds;
    times["phases"] = phases;
    times["patients_per_second"] =
        patients > 0 ? ordered_json(static_cast<double>(figures.patient_lines) / patients) : ordered_json(nullptr);
  } else {
    times["seconds"] = OrNull(figures.archive_seconds);
    times["phases"] = nullptr;
    times["note"] = "made from the archive alone: only the run's start and end are known";
  }
  return times;
}

// The documents at which a category ended, null when the accounts weren't made.
ordered_json EndingDocuments(const Figures& figures) {
  if (!figures.accounts_done) return nullptr;
  ordered_json documents = ordered_json::array();
  for (const Figures::EndingDocument& d : figures.ending_documents)
    documents.push_back({{"patient", d.patient}, {"category", d.category}, {"title", d.title}, {"why", d.why}});
  return documents;
}

// The place of the list of files in the text, where no text of the run can
// stand: a quote followed by an escaped control character.
const char* const kFileListPlace = "\x01files\x01";

ordered_json FileJson(const Figures::File& file) {
  return {{"patient", file.patient}, {"id", file.id}, {"title", file.title}, {"name", file.name}, {"size", file.size}};
}

std::string Dump(const ordered_json& value) { return value.dump(2, ' ', false, ordered_json::error_handler_t::replace); }

}  // namespace

std::string RenderJson(const Figures& figures) {
  const RunRecord& run = figures.run;
  ordered_json report;
  report["report"] = "kairon-convert run report";
  report["version"] = 1;
  report["archive"] = figures.archive;

  ordered_json run_json;
  run_json["id"] = run.run_id;
  run_json["conn"] = run.conn;
  run_json["options"] = run.options;
  run_json["started"] = run.started;
  run_json["ended"] = run.ended.empty() ? ordered_json(nullptr) : ordered_json(run.ended);
  run_json["result"] = OrNull(run.result);
  run_json["last_error"] = run.last_error;
  run_json["outcome"] = figures.Outcome();
  if (figures.live) {
    run_json["test_result"] = OrNull(figures.live->test_result);
    run_json["stopped"] = figures.live->stopped;
    run_json["write_failure"] = figures.live->write_failure;
    run_json["raised"] = figures.live->raised;
    run_json["warnings"] = figures.live->warnings;
  }
  report["run"] = run_json;

  report["patients"] = {{"lines", figures.patient_lines},
                        {"ok", figures.patients_ok},
                        {"err", figures.patients_err},
                        {"refused", figures.patients_refused},
                        {"ended_with_error", figures.ended_with_error}};
  report["accounts"] = {{"done", figures.accounts_done},
                        {"why_not", figures.accounts_why_not},
                        {"unexplained", figures.accounts_done ? ordered_json(figures.unexplained) : ordered_json(nullptr)},
                        {"summary", figures.AccountsSummary()}};

  ordered_json categories = ordered_json::array();
  for (const Figures::Category& category : figures.categories) {
    ordered_json stores = ordered_json::array();
    for (const Figures::Store& store : category.stores)
      stores.push_back({{"store", store.store},
                        {"expected", OrNull(store.expected)},
                        {"arrived", store.arrived},
                        {"shared_with", store.shared_with}});
    categories.push_back({{"keyword", category.keyword},
                          {"name", category.name},
                          {"tables", category.tables},
                          {"source_rows", OrNull(category.source_rows)},
                          {"left_out", Causes(category.left_out)},
                          {"not_arrived", Causes(category.not_arrived)},
                          {"stores", stores},
                          {"records", category.records},
                          {"unexplained", OrNull(category.unexplained)},
                          {"err_patients", category.err_patients},
                          {"ended_by_rule", Causes(category.ended_by_rule)},
                          {"unforeseen_patients", category.unforeseen}});
  }
  report["categories"] = categories;
  report["records_per_store"] = run.records_per_store;

  ordered_json reasons = ordered_json::array();
  for (const Figures::ErrReason& reason : figures.err_reasons)
    reasons.push_back({{"reason", reason.reason}, {"category", reason.category}, {"patients", reason.patients}});
  report["err_reasons"] = reasons;
  report["err_documents"] = EndingDocuments(figures);

  ordered_json shared_keys = ordered_json::array();
  for (const Figures::SharedKey& shared : figures.shared_keys)
    shared_keys.push_back({{"key", shared.key}, {"patients", shared.patients}});
  report["shared_keys"] = figures.accounts_done ? shared_keys : ordered_json(nullptr);

  ordered_json undecoded = ordered_json::array();
  for (const Figures::Undecoded& stream : figures.undecoded)
    undecoded.push_back(
        {{"patient", stream.patient}, {"category", stream.category}, {"title", stream.title}, {"why", stream.why}});
  report["files"] = {{"count", run.files},
                     {"bytes", run.file_bytes},
                     {"list", kFileListPlace},
                     {"undecoded", figures.accounts_done ? undecoded : ordered_json(nullptr)}};
  report["times"] = Times(figures);

  // A run can store tens of thousands of files: their list is written into
  // the text one file at a time, as the whole document would give it.
  std::string text = Dump(report);
  const std::string place = Dump(kFileListPlace);
  const size_t at = text.find(place);
  const size_t line = text.rfind('\n', at) + 1;
  const std::string indent(text.find_first_not_of(' ', line) - line, ' ');
  std::string list = "[";
  for (size_t i = 0; i < figures.files.size(); ++i) {
    std::string entry = Dump(FileJson(figures.files[i]));
    for (size_t nl = 0; (nl = entry.find('\n', nl)) != std::string::npos; nl += 1 + indent.size() + 2)
      entry.insert(nl + 1, indent + "  ");
    list += (i == 0 ? "\n" : ",\n") + indent + "  " + entry;
  }
  list += figures.files.empty() ? "]" : "\n" + indent + "]";
  text.replace(at, place.size(), list);
  return text + "\n";
}

}  // namespace runreport
