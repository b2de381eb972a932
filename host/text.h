// Unicode text as the value model holds it: UTF-8. Case and lengths are
// those of characters (code points), never of bytes. Everything here is
// plain C++ (text.cpp) but upper and lower case, which take the platform's
// own tables (text_case.cpp with ICU, windows/text_case.cpp with the
// system's case mapping).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace host::text {

// Simple case mapping: each character becomes one character ("ß" stays
// "ß", final sigma is not told apart), so no text changes its number of
// characters. A sequence that isn't well-formed UTF-8 becomes U+FFFD.
std::string Upper(std::string_view s);
std::string Lower(std::string_view s);

// At most the first n characters.
std::string Left(std::string_view s, size_t n);

// The number of characters.
size_t Length(std::string_view s);

// Blanks (U+0020) taken off both ends; other white space stays.
std::string Trim(std::string_view s);

bool IsValidUtf8(std::string_view bytes);

// Bytes of a legacy column: kept when they are valid UTF-8, read as
// Windows-1252 otherwise.
std::string FromLegacyBytes(std::string_view bytes);

// Windows-1252 bytes as UTF-8 (the five bytes that the code page leaves
// unassigned give their C1 controls).
std::string FromWindows1252(std::string_view bytes);

// UTF-8 text as Windows-1252 bytes, the inverse of the reading above (the
// five bytes that the code page leaves unassigned come back from their C1
// controls). Nullopt when a character has no byte in the code page.
std::optional<std::string> ToWindows1252(std::string_view utf8);

}  // namespace host::text
