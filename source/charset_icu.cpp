#include <unicode/ucnv.h>
#include <unicode/unistr.h>

#include <unordered_map>

#include "source/charset.h"

namespace source::charset {
namespace {

// The name under which ICU knows a Firebird character set.
std::string IcuConverterName(const std::string& firebird_name) {
  static const std::unordered_map<std::string, std::string> kExact = {
      {"KOI8R", "KOI8-R"},       {"KOI8U", "KOI8-U"},         {"BIG_5", "Big5"},
      {"GB_2312", "GB2312"},     {"KSC_5601", "windows-949"}, {"SJIS_0208", "Shift_JIS"},
      {"EUCJ_0208", "EUC-JP"},   {"TIS620", "TIS-620"},       {"CP943C", "ibm-943_P15A-2003"}};
  if (auto exact = kExact.find(firebird_name); exact != kExact.end()) return exact->second;
  if (firebird_name.starts_with("WIN")) return "windows-" + firebird_name.substr(3);
  if (firebird_name.starts_with("DOS")) return "ibm-" + firebird_name.substr(3);
  if (firebird_name.starts_with("ISO8859_")) return "ISO-8859-" + firebird_name.substr(8);
  return firebird_name;
}

// Text in a character set that ICU knows by name, as UTF-8 made in one room
// of its exact length (bytes that don't belong to the set give U+FFFD, or
// the set's own substitute); nullopt when ICU has no such converter.
std::optional<std::string> Utf8WithIcu(std::string_view bytes, const std::string& converter_name) {
  UErrorCode error = U_ZERO_ERROR;
  UConverter* converter = ucnv_open(converter_name.c_str(), &error);
  if (U_FAILURE(error)) return std::nullopt;
  const auto size = static_cast<int32_t>(bytes.size());
  const int32_t length = ucnv_toAlgorithmic(UCNV_UTF8, converter, nullptr, 0, bytes.data(), size, &error);
  std::optional<std::string> text;
  if (error == U_BUFFER_OVERFLOW_ERROR || U_SUCCESS(error)) {
    error = U_ZERO_ERROR;
    ucnv_resetToUnicode(converter);
    text.emplace(static_cast<size_t>(length), '\0');
    ucnv_toAlgorithmic(UCNV_UTF8, converter, text->data(), length, bytes.data(), size, &error);
    if (U_FAILURE(error)) text.reset();
  }
  ucnv_close(converter);
  return text;
}

// UTF-8 text in a character set that ICU knows by name; nullopt when a
// character has no bytes there.
std::optional<std::string> EncodeWithIcu(const std::string& text, const std::string& converter_name) {
  UErrorCode error = U_ZERO_ERROR;
  UConverter* converter = ucnv_open(converter_name.c_str(), &error);
  if (U_FAILURE(error)) return std::nullopt;
  ucnv_setFromUCallBack(converter, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
  const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
  std::string bytes(static_cast<size_t>(unicode.length()) * 4 + 4, '\0');
  const int32_t length = ucnv_fromUChars(converter, bytes.data(), static_cast<int32_t>(bytes.size()),
                                         unicode.getBuffer(), unicode.length(), &error);
  ucnv_close(converter);
  if (U_FAILURE(error)) return std::nullopt;
  bytes.resize(static_cast<size_t>(length));
  return bytes;
}

}  // namespace

std::optional<std::string> ToUtf8(std::string_view bytes, const std::string& firebird_name) {
  return Utf8WithIcu(bytes, IcuConverterName(firebird_name));
}

std::optional<std::string> FromUtf8(const std::string& text, const std::string& firebird_name) {
  return EncodeWithIcu(text, IcuConverterName(firebird_name));
}

}  // namespace source::charset
