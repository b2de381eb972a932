#include "host/text.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace host::text {
namespace {

// Windows-1252 code points of the bytes 0x80 to 0x9F; the five bytes that the
// code page leaves unassigned keep their C1 control code.
constexpr char16_t kWindows1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

constexpr bool IsTrail(unsigned char b) { return (b & 0xC0) == 0x80; }

// The character at s[at], moving at past it; -1 for a sequence that isn't
// well-formed UTF-8, past whose longest well-formed start at moves (at
// least one byte), so that each ill-formed piece counts as one character.
int32_t NextCharacter(std::string_view s, size_t& at) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(s[i]); };
  const unsigned char lead = byte(at++);
  if (lead < 0x80) return lead;
  // The lead byte gives the length and the range that the first trail byte
  // may take, which excludes overlong forms, surrogates and what lies past
  // U+10FFFF.
  size_t trails;
  unsigned char low = 0x80, high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    trails = 1;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    trails = 2;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    trails = 3;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return -1;
  }
  int32_t c = lead & (0x3F >> trails);
  for (size_t k = 0; k < trails; ++k) {
    if (at == s.size()) return -1;
    const unsigned char b = byte(at);
    if (k == 0 ? b < low || b > high : !IsTrail(b)) return -1;
    c = c << 6 | (b & 0x3F);
    ++at;
  }
  return c;
}

}  // namespace

std::string Left(std::string_view s, size_t n) {
  size_t at = 0;
  for (size_t count = 0; count < n && at < s.size(); ++count) NextCharacter(s, at);
  return std::string(s.substr(0, at));
}

size_t Length(std::string_view s) {
  size_t at = 0, count = 0;
  for (; at < s.size(); ++count) NextCharacter(s, at);
  return count;
}

std::string Trim(std::string_view s) {
  size_t first = s.find_first_not_of(' ');
  if (first == std::string_view::npos) return "";
  size_t last = s.find_last_not_of(' ');
  return std::string(s.substr(first, last - first + 1));
}

bool IsValidUtf8(std::string_view bytes) {
  size_t at = 0;
  while (at < bytes.size())
    if (NextCharacter(bytes, at) < 0) return false;
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
  size_t at = 0;
  while (at < utf8.size()) {
    const int32_t c = NextCharacter(utf8, at);
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
