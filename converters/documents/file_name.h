// The rule for a file name in the temporary folder: one component directly
// inside it. Filing writes nothing under any other name (52), and the tools
// that foretell a run (ambulor-inspect, the run's accounts) judge titles by
// this same rule.
#pragma once

#include <cstddef>
#include <string_view>

namespace cnv::filing {

// The longest name that a folder takes, in bytes.
inline constexpr size_t kLongestFileName = 255;

// Why name can't be one file name in the folder, in words ("holds \"/\""),
// or the empty text when it can: not empty, neither "." nor "..", no "/",
// no NUL, at most kLongestFileName bytes.
constexpr std::string_view WhyNotFileName(std::string_view name) {
  if (name.empty()) return "is empty";
  if (name == "." || name == "..") return "is \".\" or \"..\"";
  if (name.find('/') != std::string_view::npos) return "holds \"/\"";
  if (name.find('\0') != std::string_view::npos) return "holds a NUL character";
  if (name.size() > kLongestFileName) return "is longer than 255 bytes";
  return "";
}

constexpr bool IsFileName(std::string_view name) { return WhyNotFileName(name).empty(); }

}  // namespace cnv::filing
