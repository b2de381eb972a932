// The rule for a file name in the temporary folder: one component directly
// inside it. Filing writes nothing under any other name (52), and the tools
// that foretell a run (ambulor-inspect, the run's accounts) judge titles by
// this same rule. On Windows the rule adds what Windows can't name.
#pragma once

#include <cstddef>
#include <string_view>

namespace cnv::filing {

// The longest name that a folder takes, in bytes.
inline constexpr size_t kLongestFileName = 255;

namespace windows_names {

constexpr bool SameLetters(std::string_view a, std::string_view upper) {
  if (a.size() != upper.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if ((a[i] >= 'a' && a[i] <= 'z' ? static_cast<char>(a[i] - 'a' + 'A') : a[i]) != upper[i]) return false;
  return true;
}

// CON, PRN, AUX, NUL, and COM or LPT with a digit, "¹", "²" or "³".
constexpr bool IsDevice(std::string_view stem) {
  for (std::string_view device : {"CON", "PRN", "AUX", "NUL"})
    if (SameLetters(stem, device)) return true;
  if (stem.size() < 4 || !(SameLetters(stem.substr(0, 3), "COM") || SameLetters(stem.substr(0, 3), "LPT")))
    return false;
  const std::string_view number = stem.substr(3);
  return (number.size() == 1 && number[0] >= '0' && number[0] <= '9') || number == "\xC2\xB9" ||
         number == "\xC2\xB2" || number == "\xC2\xB3";
}

}  // namespace windows_names

// Why Windows can't take name as a file name, in words, or the empty text
// when it can: none of <>:"/\|?* nor a control character, no dot or blank
// at the end, and not the name of a device, alone or before an extension
// ("con", "LPT1.txt", "nul .rtf"), which Windows would open instead.
constexpr std::string_view WhyNotWindowsFileName(std::string_view name) {
  for (char c : name) {
    if (static_cast<unsigned char>(c) < 0x20) return "holds a control character";
    if (std::string_view("<>:\"/\\|?*").find(c) != std::string_view::npos) return "holds one of <>:\"/\\|?*";
  }
  if (!name.empty() && (name.back() == '.' || name.back() == ' ')) return "ends with a dot or a blank";
  std::string_view stem = name.substr(0, name.find('.'));
  while (!stem.empty() && stem.back() == ' ') stem.remove_suffix(1);
  if (windows_names::IsDevice(stem)) return "is the name of a device";
  return "";
}

// Why name can't be one file name in the folder, in words ("holds \"/\""),
// or the empty text when it can: not empty, neither "." nor "..", no "/",
// no NUL, at most kLongestFileName bytes, and on Windows a name that
// Windows takes (WhyNotWindowsFileName).
constexpr std::string_view WhyNotFileName(std::string_view name) {
  if (name.empty()) return "is empty";
  if (name == "." || name == "..") return "is \".\" or \"..\"";
  if (name.find('/') != std::string_view::npos) return "holds \"/\"";
  if (name.find('\0') != std::string_view::npos) return "holds a NUL character";
  if (name.size() > kLongestFileName) return "is longer than 255 bytes";
#ifdef _WIN32
  return WhyNotWindowsFileName(name);
#else
  return "";
#endif
}

constexpr bool IsFileName(std::string_view name) { return WhyNotFileName(name).empty(); }

}  // namespace cnv::filing
