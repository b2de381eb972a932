#include "tools/kairon-convert/trace.h"

#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "tools/kairon-convert/output_files.h"
#include "tools/kairon-convert/typed_value.h"

namespace refhost {

Trace::Trace(int descriptor, std::string path) : descriptor_(descriptor), path_(std::move(path)) {}

std::string Trace::NotOurTrace(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "can't be read";
  std::string first;
  if (!std::getline(in, first)) return "";
  nlohmann::json line = nlohmann::json::parse(first, nullptr, false);
  if (line.is_discarded() || !line.is_object() || !line.contains("obj") || !line.contains("op"))
    return "is not a trace (its first line is not a call or an assignment)";
  return "";
}

void Trace::Write(const std::string& line) {
  Write([&](const std::function<void(std::string_view)>& write) { write(line); });
}

void Trace::Write(const TextPieces& line) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (broken_) return;
  constexpr size_t kMostPending = 1 << 20;
  auto write_out = [&](std::string_view text) {
    const int error = WriteOut(text);
    if (error == 0) return;
    broken_ = true;
    failure_ = "the trace " + path_ + " can't be written: " + CauseOf(error);
  };
  if (pending_.size() >= kMostPending) {
    write_out(pending_);
    pending_.clear();
  }
  size_t line_start = pending_.size();
  line([&](std::string_view piece) {
    if (broken_) return;
    if (pending_.size() - line_start + piece.size() < kMostPending) {
      pending_ += piece;
      return;
    }
    // A line too long to be held whole goes out as it is made.
    write_out(pending_);
    pending_.clear();
    line_start = 0;
    if (!broken_) write_out(piece);
  });
  if (!broken_) pending_ += '\n';
}

void Trace::Flush() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!failure_.empty()) {
    const std::string failure = std::move(failure_);
    failure_.clear();
    throw WriteError(failure);
  }
  if (broken_) return;
  const int error = WriteOut(pending_);
  pending_.clear();
  if (error != 0) {
    broken_ = true;
    throw WriteError("the trace " + path_ + " can't be written: " + CauseOf(error));
  }
}

int Trace::WriteOut(std::string_view text) {
  size_t written = 0;
  while (written < text.size()) {
    const ssize_t n = write(descriptor_, text.data() + written, text.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    written += static_cast<size_t>(n);
  }
  return 0;
}

}  // namespace refhost
