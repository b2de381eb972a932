// Upper and lower case with the system's own mapping (LCMapStringEx), which
// is one UTF-16 unit for one: the same simple case mapping that ICU gives on
// Linux, for the Italian locale's linguistic casing.
#include <windows.h>

#include <limits>

#include "host/failure.h"
#include "host/text.h"
#include "host/windows/variant.h"

namespace host::text {
namespace {

std::string Mapped(std::string_view s, DWORD how) {
  std::wstring text = windows::Utf16(s);
  if (text.empty()) return {};
  if (text.size() > static_cast<size_t>(std::numeric_limits<int>::max())) failures::Raise(failures::kOutOfMemory);
  const int length = static_cast<int>(text.size());
  std::wstring mapped(text.size(), L'\0');
  if (LCMapStringEx(L"it-IT", how | LCMAP_LINGUISTIC_CASING, text.data(), length, mapped.data(), length, nullptr,
                    nullptr, 0) != length)
    failures::Raise(failures::kInternal);
  return windows::Utf8(mapped);
}

}  // namespace

std::string Upper(std::string_view s) { return Mapped(s, LCMAP_UPPERCASE); }

std::string Lower(std::string_view s) { return Mapped(s, LCMAP_LOWERCASE); }

}  // namespace host::text
