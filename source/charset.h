// Text between UTF-8 and the character sets that a database declares for
// its columns, each known by its Firebird name (WIN1252, ISO8859_2, DOS850,
// KOI8R...): with ICU on Linux (source/charset_icu.cpp), with the system's
// code pages on Windows (source/charset_windows.cpp).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace source::charset {

// Text in the character set named firebird_name, as UTF-8 made in one room
// of its exact length; bytes that don't belong to the set give U+FFFD, or
// the set's own substitute. nullopt when the set isn't known here.
std::optional<std::string> ToUtf8(std::string_view bytes, const std::string& firebird_name);

// UTF-8 text in the character set named firebird_name; nullopt when the set
// isn't known here or a character has no bytes there.
std::optional<std::string> FromUtf8(const std::string& text, const std::string& firebird_name);

}  // namespace source::charset
