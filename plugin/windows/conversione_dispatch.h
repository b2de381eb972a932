// Conversione as the host reaches it on Windows: the dual interface
// _Conversione of the type library that the library carries, whose IDispatch
// the platform's Automation runtime answers from that type library (names
// without regard to case, arguments coerced to the members' types).
#pragma once

#include <objbase.h>

namespace cnv::windows {

// A new Conversione, its interface `iid` in *object as QueryInterface gives
// it. The type library is read from `library` (the DLL's own file) the first
// time; its failure, or E_OUTOFMEMORY, comes back as the result.
HRESULT CreateConversione(HMODULE library, REFIID iid, void** object);

}  // namespace cnv::windows
