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
  std::lock_guard<std::mutex> lock(mutex_);
  if (broken_) return;
  pending_ += line;
  pending_ += '\n';
}

void Trace::Flush() {
  std::lock_guard<std::mutex> lock(mutex_);
  size_t written = 0;
  while (!broken_ && written < pending_.size()) {
    ssize_t n = write(descriptor_, pending_.data() + written, pending_.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      broken_ = true;
      pending_.clear();
      throw WriteError("the trace " + path_ + " can't be written: " + CauseOf(errno));
    }
    written += static_cast<size_t>(n);
  }
  pending_.clear();
}

}  // namespace refhost
