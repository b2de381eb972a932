// Unicode text as the value model holds it: UTF-8. Case and lengths are
// those of characters (code points), worked out with ICU, never of bytes.
#pragma once

#include <string>
#include <string_view>

namespace host::text {

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

}  // namespace host::text
