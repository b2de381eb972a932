#include "tools/kairon-convert/trace.h"

#include <stdexcept>

#include "tools/kairon-convert/typed_value.h"

namespace refhost {

std::unique_ptr<Trace> Trace::Open(const std::string& path) {
  std::unique_ptr<Trace> trace(new Trace(path));
  if (!trace->out_) throw std::runtime_error("cannot write the trace " + path);
  return trace;
}

Trace::Trace(const std::string& path) : path_(path), out_(path, std::ios::binary | std::ios::trunc) {}

void Trace::Write(const nlohmann::ordered_json& line) { out_ << JsonText(line) << '\n'; }

void Trace::Flush() {
  out_.flush();
  if (!out_) throw std::runtime_error("cannot write the trace " + path_);
}

}  // namespace refhost
