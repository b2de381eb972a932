// The trace: one JSON object a line, in the order of the plug-in's calls and
// assignments on host objects, written as they happen.
#pragma once

#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

namespace refhost {

class Trace {
 public:
  // Creates (or empties) the file. Raises std::runtime_error when it can't.
  static std::unique_ptr<Trace> Open(const std::string& path);

  // Writes one line. Text that isn't valid UTF-8 is written with U+FFFD in
  // place of the bad bytes.
  void Write(const nlohmann::ordered_json& line);

  // Hands what is written so far to the file, so that a crash leaves whole
  // lines behind.
  void Flush();

 private:
  explicit Trace(const std::string& path);
  std::string path_;
  std::ofstream out_;
};

}  // namespace refhost
