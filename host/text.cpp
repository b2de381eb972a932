#include "host/text.h"

#include <algorithm>
#include <iterator>

#include <unicode/locid.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

namespace host::text {
namespace {

std::string ToUtf8(const icu::UnicodeString& u) {
  std::string out;
  u.toUTF8String(out);
  return out;
}

icu::UnicodeString FromUtf8(std::string_view s) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(s.data(), static_cast<int32_t>(s.size())));
}

// Windows-1252 code points of the bytes 0x80 to 0x9F; the five bytes that the
// code page leaves unassigned keep their C1 control code.
constexpr char16_t kWindows1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

}  // namespace

std::string Upper(std::string_view s) { return ToUtf8(FromUtf8(s).toUpper(icu::Locale::getItalian())); }

std::string Lower(std::string_view s) { return ToUtf8(FromUtf8(s).toLower(icu::Locale::getItalian())); }

std::string Left(std::string_view s, size_t n) {
  int32_t offset = 0, length = static_cast<int32_t>(s.size());
  for (size_t count = 0; count < n && offset < length; ++count) U8_FWD_1(s.data(), offset, length);
  return std::string(s.substr(0, static_cast<size_t>(offset)));
}

size_t Length(std::string_view s) {
  int32_t offset = 0, length = static_cast<int32_t>(s.size());
  size_t count = 0;
  for (; offset < length; ++count) U8_FWD_1(s.data(), offset, length);
  return count;
}

std::string Trim(std::string_view s) {
  size_t first = s.find_first_not_of(' ');
  if (first == std::string_view::npos) return "";
  size_t last = s.find_last_not_of(' ');
  return std::string(s.substr(first, last - first + 1));
}

bool IsValidUtf8(std::string_view bytes) {
  int32_t i = 0, length = static_cast<int32_t>(bytes.size());
  while (i < length) {
    UChar32 c;
    U8_NEXT(bytes.data(), i, length, c);
    if (c < 0) return false;
  }
  return true;
}

std::string FromLegacyBytes(std::string_view bytes) {
  if (IsValidUtf8(bytes)) return std::string(bytes);
  return FromWindows1252(bytes);
}

// Each byte is one character, so the UTF-8 is made in one room of its exact
// length: one byte for ASCII, two up to U+07FF, three for the rest of the
// code page's characters.
std::string FromWindows1252(std::string_view bytes) {
  auto code_point = [](unsigned char b) -> char32_t {
    return b >= 0x80 && b < 0xA0 ? kWindows1252High[b - 0x80] : b;
  };
  size_t length = 0;
  for (unsigned char b : bytes) {
    const char32_t c = code_point(b);
    length += c < 0x80 ? 1 : c < 0x800 ? 2 : 3;
  }
  std::string out(length, '\0');
  size_t at = 0;
  for (unsigned char b : bytes) {
    const char32_t c = code_point(b);
    if (c < 0x80) {
      out[at++] = static_cast<char>(c);
    } else if (c < 0x800) {
      out[at++] = static_cast<char>(0xC0 | c >> 6);
      out[at++] = static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out[at++] = static_cast<char>(0xE0 | c >> 12);
      out[at++] = static_cast<char>(0x80 | (c >> 6 & 0x3F));
      out[at++] = static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

std::optional<std::string> ToWindows1252(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  int32_t i = 0, length = static_cast<int32_t>(utf8.size());
  while (i < length) {
    UChar32 c;
    U8_NEXT(utf8.data(), i, length, c);
    if (c < 0) return std::nullopt;
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) {
      out += static_cast<char>(c);
      continue;
    }
    const char16_t* high = std::find(std::begin(kWindows1252High), std::end(kWindows1252High), c);
    if (high == std::end(kWindows1252High)) return std::nullopt;
    out += static_cast<char>(0x80 + (high - std::begin(kWindows1252High)));
  }
  return out;
}

}  // namespace host::text
