// Upper and lower case with ICU's simple case mapping, one code point for
// one, the same as the system's mapping gives on Windows.
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include "host/text.h"

namespace host::text {
namespace {

std::string EachCharacter(std::string_view s, UChar32 (*map)(UChar32)) {
  std::string out;
  out.reserve(s.size());
  int32_t at = 0;
  const auto length = static_cast<int32_t>(s.size());
  while (at < length) {
    UChar32 c;
    U8_NEXT_OR_FFFD(s.data(), at, length, c);
    c = map(c);
    char bytes[U8_MAX_LENGTH];
    int32_t size = 0;
    U8_APPEND_UNSAFE(bytes, size, c);
    out.append(bytes, static_cast<size_t>(size));
  }
  return out;
}

}  // namespace

std::string Upper(std::string_view s) { return EachCharacter(s, u_toupper); }

std::string Lower(std::string_view s) { return EachCharacter(s, u_tolower); }

}  // namespace host::text
