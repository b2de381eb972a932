#include "tools/kairon-convert/session.h"

#include <atomic>
#include <cstdio>

#include "tools/kairon-convert/reference_host.h"
#include "tools/kairon-convert/typed_value.h"

namespace refhost {

namespace {
std::atomic<bool> stop_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "RequestStop runs in a signal handler");
}  // namespace

void RequestStop() { stop_requested.store(true); }
bool StopRequested() { return stop_requested.load(); }
void ClearStopRequest() { stop_requested.store(false); }

Session::Session(SessionSetup setup) : setup_(std::move(setup)) {
  if (setup_.progress || setup_.progress_lines) progress_.emplace(stderr, setup_.progress);
}

void Session::WriteTrace(const std::string& line) {
  if (setup_.trace) setup_.trace->Write(line);
}

void Session::WriteTrace(const TextPieces& line) {
  if (setup_.trace) setup_.trace->Write(line);
}

void Session::Message(const std::string& kind, const std::string& text) {
  archive().AddMessage(kind, text);
  const auto now = std::chrono::steady_clock::now();
  if (kind == "AddMsg")
    line_times_.push_back({now, now});
  else if (!line_times_.empty())
    line_times_.back().last = now;
  if (kind == "AddMsg") {
    patient_line_open_ = false;
  } else if (kind == "ChangeMsg" && patient_line_open_) {
    if (text == "OK") ++counts_.patients_ok;
    if (text == "ERR") ++counts_.patients_err;
    patient_line_open_ = false;
  }
}

bool Session::Progress(int percent) {
  ++progress_calls_;
  last_percent_ = percent;
  if (setup_.stop_at_progress > 0 && progress_calls_ >= setup_.stop_at_progress) stop_ = true;
  bool stop = stop_ || StopRequested();
  stop_answered_ = stop_answered_ || stop;
  if (progress_) progress_->Update(percent, progress_calls_, stop);
  return stop;
}

std::shared_ptr<PatientRecord> Session::BeginPatient() {
  WritePendingPatients();
  archive().BeginTransaction();
  if (setup_.trace) setup_.trace->Flush();
  auto patient = std::make_shared<PatientRecord>();
  patient->number = ++patients_;
  return patient;
}

void Session::ImportPatient(PatientRecord& patient) {
  archive().SavePatient(patient.number, patient.members.JsonText());
  patient.imported = true;
  patient.changed_since_write = false;
}

void Session::PatientChanged(const std::shared_ptr<PatientRecord>& patient) {
  if (!patient->imported || patient->changed_since_write) return;
  patient->changed_since_write = true;
  pending_.push_back(patient);
}

void Session::WritePendingPatients() {
  for (const auto& patient : pending_)
    if (patient->changed_since_write) ImportPatient(*patient);
  pending_.clear();
}

void Session::WriteFailed(const std::string& cause) {
  if (write_failure_.empty()) write_failure_ = cause;
  stop_ = true;
}

void Session::Finish() {
  Record([&] { WritePendingPatients(); });
  Record([&] { archive().Commit(); });
  if (setup_.trace) Record([&] { setup_.trace->Flush(); });
  if (progress_) progress_->Finish(counts_.patients_taken);
}

void Session::Abandon() {
  archive().Abandon();
  if (setup_.trace) Record([&] { setup_.trace->Flush(); });
}

}  // namespace refhost
