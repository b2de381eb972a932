// What the programs that take a source check of its connection text before
// they go further: that it names the user database, GX_USER.FDB, whose
// folder holds the other two, and a path of this machine rather than one of
// Windows.
#pragma once

#include <string>

namespace tools {

// Why conn (a path, or a server's "host:path", and what follows a ";")
// can't name a source's user database, with what to give instead; empty
// when it can. The file's name counts without regard to case.
std::string WrongUserDatabase(const std::string& conn);

}  // namespace tools
