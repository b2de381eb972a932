// The four entry points of the in-process server, with C linkage and
// exported undecorated through cnvKairon.def. Nothing is thrown across them.
#include <windows.h>

#include <string>
#include <utility>

#include "host/value.h"
#include "plugin/modConversione.h"
#include "plugin/windows/conversione_dispatch.h"
#include "plugin/windows/registration.h"
#include "plugin/windows/server.h"

namespace {

// {6B1F3C52-8E0A-4D7B-9C21-5A4E7D0B3F18}
constexpr CLSID kConversioneClass = {0x6B1F3C52, 0x8E0A, 0x4D7B, {0x9C, 0x21, 0x5A, 0x4E, 0x7D, 0x0B, 0x3F, 0x18}};

HMODULE this_library = nullptr;

HRESULT CreateConversione(REFIID iid, void** object) {
  return cnv::windows::CreateConversione(this_library, iid, object);
}

cnv::windows::ClassFactory conversione_factory(CreateConversione);

// The library's own full path; empty when the system can't give it.
std::wstring LibraryPath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(this_library, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) return {};
    if (length < path.size()) return path.substr(0, length);
    path.resize(path.size() * 2);
  }
}

}  // namespace

extern "C" {

// The host's Interface, kept from the last Converti, is released when the
// library is unloaded. When the process is ending instead, the host's code
// may already be gone: the reference is left held, never released.
BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, LPVOID reserved) {
  if (reason == DLL_PROCESS_ATTACH) {
    this_library = library;
    DisableThreadLibraryCalls(library);
  }
  if (reason == DLL_PROCESS_DETACH && reserved != nullptr)
    new host::Value(std::exchange(cnv::InterfaceCorrente(), host::Value()));
  return TRUE;
}

HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID* object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (clsid != kConversioneClass) return CLASS_E_CLASSNOTAVAILABLE;
  return conversione_factory.QueryInterface(iid, object);
}

HRESULT STDAPICALLTYPE DllCanUnloadNow() { return cnv::windows::CanUnload() ? S_OK : S_FALSE; }

// The type library must load from the library before anything is written,
// so that a host never finds a class whose members it can't read.
HRESULT STDAPICALLTYPE DllRegisterServer() {
  try {
    const std::wstring path = LibraryPath();
    if (path.empty()) return HRESULT_FROM_WIN32(GetLastError());
    ITypeLib* type_library = nullptr;
    const HRESULT loaded = LoadTypeLibEx(path.c_str(), REGKIND_NONE, &type_library);
    if (FAILED(loaded)) return loaded;
    type_library->Release();
    return cnv::windows::RegisterServer(HKEY_CLASSES_ROOT, path);
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

HRESULT STDAPICALLTYPE DllUnregisterServer() { return cnv::windows::UnregisterServer(HKEY_CLASSES_ROOT); }

}  // extern "C"
