// The character type of a program's locale, which decides how file names
// with letters beyond ASCII reach the database client.
#pragma once

namespace tools {

// Sets the character type (LC_CTYPE only, so that numbers keep "." as
// decimal separator) from the environment. An environment that names the C
// or POSIX locale, whose character type is ASCII, gets C.UTF-8 instead, so
// that an accented path still works.
void UseEnvironmentCharacterType();

}  // namespace tools
