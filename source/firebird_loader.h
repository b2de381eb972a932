// Where the database code gets the Firebird client from. On Linux the client
// library is linked with the program. On Windows fbclient.dll is looked for
// when the client is first needed: beside cnvKairon.dll, then in the
// Firebird installed on the machine, then on the system's search path; the
// first that is of Firebird 3 or later is kept for the life of the process.
#pragma once

#include <firebird/Interface.h>

#include <cstdint>
#include <string>
#include <vector>

namespace source::firebird {

// The number that the source fails with when no client can be used: the one
// that a late-bound caller gets for a library that doesn't load.
inline constexpr int32_t kClientUnavailable = 48;

// The client's master interface. Raises host::Failure(kClientUnavailable,
// cause) when no client of Firebird 3 or later loads; the cause tells what
// was looked for and found, and what to do about it.
Firebird::IMaster* LoadMaster();

#ifdef _WIN32
// The places where fbclient.dll is looked for, in order: in own_folder, in
// the installed Firebird's root folder and then its bin folder (where
// versions before 3 keep it) when installed_root isn't empty, and by name on
// the system's search path (last element: "fbclient.dll").
std::vector<std::wstring> ClientPlaces(const std::wstring& own_folder, const std::wstring& installed_root);

// The master interface of the first place whose library loads and exports
// fb_get_master_interface; a library without it (a client before Firebird 3)
// is let go and the search goes on. Raises as LoadMaster, the cause naming
// what was found and why it can't be used.
Firebird::IMaster* LoadMasterFrom(const std::vector<std::wstring>& places);
#endif

}  // namespace source::firebird
