#include <windows.h>

#include <unordered_map>

#include "source/charset.h"

namespace source::charset {
namespace {

// The code page of a Firebird character set; 0 for one that Windows has no
// code page for.
UINT CodePage(const std::string& firebird_name) {
  static const std::unordered_map<std::string, UINT> kExact = {
      {"KOI8R", 20866},     {"KOI8U", 21866},     {"BIG_5", 950},      {"GB_2312", 936},   {"GBK", 936},
      {"GB18030", 54936},   {"KSC_5601", 949},    {"SJIS_0208", 932},  {"CP943C", 932},    {"EUCJ_0208", 20932},
      {"TIS620", 874},      {"ISO8859_1", 28591}, {"ISO8859_2", 28592}, {"ISO8859_3", 28593}, {"ISO8859_4", 28594},
      {"ISO8859_5", 28595}, {"ISO8859_6", 28596}, {"ISO8859_7", 28597}, {"ISO8859_8", 28598}, {"ISO8859_9", 28599},
      {"ISO8859_13", 28603}};
  if (auto exact = kExact.find(firebird_name); exact != kExact.end()) return exact->second;
  // WIN1250...WIN1258 and DOS437, DOS850...: the number is the code page's.
  for (const char* prefix : {"WIN", "DOS"}) {
    if (!firebird_name.starts_with(prefix)) continue;
    const std::string digits = firebird_name.substr(3);
    if (digits.empty() || digits.size() > 4 || digits.find_first_not_of("0123456789") != std::string::npos) return 0;
    return static_cast<UINT>(std::stoul(digits));
  }
  return 0;
}

int Length(size_t size) { return static_cast<int>(size); }

}  // namespace

std::optional<std::string> ToUtf8(std::string_view bytes, const std::string& firebird_name) {
  const UINT code_page = CodePage(firebird_name);
  if (code_page == 0 || !IsValidCodePage(code_page)) return std::nullopt;
  if (bytes.empty()) return std::string();
  const int wide_length = MultiByteToWideChar(code_page, 0, bytes.data(), Length(bytes.size()), nullptr, 0);
  if (wide_length <= 0) return std::nullopt;
  std::wstring wide(static_cast<size_t>(wide_length), L'\0');
  MultiByteToWideChar(code_page, 0, bytes.data(), Length(bytes.size()), wide.data(), wide_length);
  const int length = WideCharToMultiByte(CP_UTF8, 0, wide.data(), wide_length, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<size_t>(length), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), wide_length, text.data(), length, nullptr, nullptr);
  return text;
}

std::optional<std::string> FromUtf8(const std::string& text, const std::string& firebird_name) {
  const UINT code_page = CodePage(firebird_name);
  if (code_page == 0 || !IsValidCodePage(code_page)) return std::nullopt;
  if (text.empty()) return std::string();
  const int wide_length =
      MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), Length(text.size()), nullptr, 0);
  if (wide_length <= 0) return std::nullopt;
  std::wstring wide(static_cast<size_t>(wide_length), L'\0');
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), Length(text.size()), wide.data(), wide_length);
  // GB18030 has bytes for every character, and Windows takes no flags for it.
  const bool every_character = code_page == 54936;
  const DWORD flags = every_character ? 0 : WC_NO_BEST_FIT_CHARS;
  BOOL substituted = FALSE;
  BOOL* substituted_out = every_character ? nullptr : &substituted;
  const int length = WideCharToMultiByte(code_page, flags, wide.data(), wide_length, nullptr, 0, nullptr, substituted_out);
  if (length <= 0 || substituted) return std::nullopt;
  std::string bytes(static_cast<size_t>(length), '\0');
  WideCharToMultiByte(code_page, flags, wide.data(), wide_length, bytes.data(), length, nullptr, substituted_out);
  return bytes;
}

}  // namespace source::charset
