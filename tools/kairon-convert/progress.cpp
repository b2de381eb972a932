#include "tools/kairon-convert/progress.h"

#include <algorithm>

namespace refhost {

namespace {

constexpr int kWidth = 30;

std::string Clock(double seconds) {
  long s = static_cast<long>(seconds + 0.5);
  char text[32];
  std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
  return text;
}

}  // namespace

ProgressBar::ProgressBar(std::FILE* out, bool terminal)
    : out_(out), terminal_(terminal), started_(std::chrono::steady_clock::now()) {}

std::string ProgressBar::Line(int percent, int64_t patients, bool taken) const {
  const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
  std::string line = std::to_string(percent) + "%  " + std::to_string(patients);
  if (source_patients_) line += " of " + std::to_string(*source_patients_);
  if (taken) return line + " patients taken  " + Clock(elapsed);
  line += " patients  " + Clock(elapsed) + " elapsed  ";
  return line + (percent > 0 ? Clock(elapsed * (100 - percent) / percent) : std::string("?")) + " left";
}

std::string ProgressBar::Bar(int percent) {
  const int filled = percent * kWidth / 100;
  return "[" + std::string(filled, '#') + std::string(kWidth - filled, '-') + "] ";
}

void ProgressBar::Update(int percent, int64_t patient, bool stopping) {
  percent = std::clamp(percent, 0, 100);
  const char* stopping_note = stopping ? "  (stopping after this patient)" : "";
  const auto now = std::chrono::steady_clock::now();
  const bool redraw = terminal_ ? percent != percent_ || now - drawn_ >= std::chrono::milliseconds(100)
                                : percent / 10 > percent_ / 10;
  shown_ = true;
  if (!redraw) return;
  percent_ = percent;
  drawn_ = now;
  if (terminal_)
    std::fprintf(out_, "\r%s%s%s\033[K", Bar(percent).c_str(), Line(percent, patient, false).c_str(), stopping_note);
  else
    std::fprintf(out_, "kairon-convert: progress %s%s\n", Line(percent, patient, false).c_str(), stopping_note);
  std::fflush(out_);
}

void ProgressBar::Finish(int64_t patients) {
  if (!shown_) return;
  const int percent = std::max(percent_, 0);
  if (terminal_)
    std::fprintf(out_, "\r%s%s\033[K\n", Bar(percent).c_str(), Line(percent, patients, true).c_str());
  else
    std::fprintf(out_, "kairon-convert: progress %s\n", Line(percent, patients, true).c_str());
  std::fflush(out_);
  shown_ = false;
}

}  // namespace refhost
