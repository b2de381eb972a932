// The registry keys by which a host finds the component: the class, its
// name, its type library and its interface, all under one root of classes
// (HKEY_CLASSES_ROOT for DllRegisterServer).
#pragma once

#include <windows.h>

#include <string>

namespace cnv::windows {

// Writes, under `classes`:
//   CLSID\{class}                 "Conversione", with ProgID, TypeLib and Version
//   CLSID\{class}\InprocServer32  the library's full path, ThreadingModel Apartment
//   cnvKaironAmbulor.Conversione  with CLSID
//   TypeLib\{library}\1.0         the type library, carried by the library itself
//   Interface\{_Conversione}      marshalled as an Automation interface
// S_OK when all were written; otherwise what was written is removed again
// and the first write's failure code comes back.
HRESULT RegisterServer(HKEY classes, const std::wstring& library_path);

// Removes those keys and everything under them, and nothing else. Keys that
// are already gone are no failure.
HRESULT UnregisterServer(HKEY classes);

}  // namespace cnv::windows
