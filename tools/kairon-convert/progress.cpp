#include "tools/kairon-convert/progress.h"

#include <algorithm>
#include <string>

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

ProgressBar::ProgressBar(std::FILE* out) : out_(out), started_(std::chrono::steady_clock::now()) {}

void ProgressBar::Update(int percent, int patients, bool stopping) {
  percent = std::clamp(percent, 0, 100);
  auto now = std::chrono::steady_clock::now();
  if (percent == percent_ && now - drawn_ < std::chrono::milliseconds(100)) return;
  percent_ = percent;
  drawn_ = now;
  double elapsed = std::chrono::duration<double>(now - started_).count();
  std::string rest = percent > 0 ? Clock(elapsed * (100 - percent) / percent) : "?";
  int filled = percent * kWidth / 100;
  std::string bar = std::string(filled, '#') + std::string(kWidth - filled, '-');
  std::fprintf(out_, "\r[%s] %3d%%  %d patients  %s elapsed  %s left%s\033[K", bar.c_str(), percent, patients,
               Clock(elapsed).c_str(), rest.c_str(), stopping ? "  (stopping after this patient)" : "");
  std::fflush(out_);
  shown_ = true;
}

void ProgressBar::Clear() {
  if (!shown_) return;
  std::fprintf(out_, "\r\033[K");
  std::fflush(out_);
  shown_ = false;
}

}  // namespace refhost
