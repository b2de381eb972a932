#include <windows.h>

#include "host/failure.h"
#include "host/windows/variant.h"
#include "source/firebird_loader.h"

namespace source::firebird {
namespace {

using host::windows::Utf16;
using host::windows::Utf8;

constexpr wchar_t kClientName[] = L"fbclient.dll";
constexpr wchar_t kInstancesKey[] = L"SOFTWARE\\Firebird Project\\Firebird Server\\Instances";
constexpr wchar_t kDefaultInstance[] = L"DefaultInstance";

using GetMasterInterface = Firebird::IMaster*(ISC_EXPORT*)();

std::string Bits() { return sizeof(void*) == 8 ? "64" : "32"; }

std::string Quoted(const std::wstring& path) { return "\"" + Utf8(path) + "\""; }

std::wstring WithSeparator(std::wstring folder) {
  if (!folder.empty() && folder.back() != L'\\' && folder.back() != L'/') folder += L'\\';
  return folder;
}

std::wstring PathOf(HMODULE module) {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) return L"";
    if (length < path.size()) {
      path.resize(length);
      return path;
    }
    path.resize(path.size() * 2);
  }
}

// The folder of the module that holds this code (cnvKairon.dll, or a test
// program), with its trailing separator.
std::wstring OwnFolder() {
  HMODULE own = nullptr;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          reinterpret_cast<LPCWSTR>(&LoadMaster), &own))
    return L"";
  const std::wstring path = PathOf(own);
  return path.substr(0, path.find_last_of(L"\\/") + 1);
}

// The root folder of the Firebird that the installer recorded as the
// machine's default instance, in the registry view of this process's
// architecture; empty when there is none.
std::wstring InstalledRoot() {
  DWORD bytes = 0;
  if (RegGetValueW(HKEY_LOCAL_MACHINE, kInstancesKey, kDefaultInstance, RRF_RT_REG_SZ, nullptr, nullptr, &bytes) !=
      ERROR_SUCCESS)
    return L"";
  std::wstring root(bytes / sizeof(wchar_t) + 1, L'\0');
  if (RegGetValueW(HKEY_LOCAL_MACHINE, kInstancesKey, kDefaultInstance, RRF_RT_REG_SZ, nullptr, root.data(),
                   &bytes) != ERROR_SUCCESS)
    return L"";
  root.resize(wcslen(root.c_str()));
  return root;
}

bool IsBareName(const std::wstring& place) { return place.find_first_of(L"\\/") == std::wstring::npos; }

// What was found at one place and why it can't be used, in words.
std::string Unusable(const std::wstring& place, DWORD error) {
  if (error == ERROR_BAD_EXE_FORMAT)
    return "il client " + Quoted(place) + " non è a " + Bits() + " bit come il programma che usa la conversione";
  if (error == ERROR_MOD_NOT_FOUND)
    return "il client " + Quoted(place) +
           " non si carica perché manca una libreria che richiede (vanno copiate nella stessa cartella anche le "
           "librerie che lo accompagnano)";
  return "il client " + Quoted(place) + " non si carica (errore di sistema " + std::to_string(error) + ")";
}

std::string Older(const std::wstring& path) {
  return "il client " + Quoted(path) +
         " è di una versione di Firebird anteriore alla 3 (non ha fb_get_master_interface), che questo programma non "
         "usa";
}

[[noreturn]] void RaiseUnavailable(const std::vector<std::wstring>& places, const std::vector<std::string>& found) {
  std::string cause;
  if (found.empty()) {
    std::string where;
    for (const std::wstring& place : places) {
      if (!where.empty()) where += ", ";
      where += IsBareName(place) ? "nel percorso di ricerca del sistema" : Quoted(place);
    }
    cause = "Il client di Firebird (fbclient.dll) non è stato trovato: cercato in " + where + ".";
  } else {
    cause = "Nessun client di Firebird utilizzabile:";
    for (size_t i = 0; i < found.size(); ++i) cause += (i == 0 ? " " : "; ") + found[i];
    cause += ".";
  }
  cause += " Rimedio: installare il client di Firebird 3 (o successivo) a " + Bits() +
           " bit, oppure copiare il suo fbclient.dll a " + Bits() +
           " bit, con le librerie che lo accompagnano, nella cartella di cnvKairon.dll; il server Firebird 2.5 "
           "dello studio si raggiunge poi attraverso questo client, indicando \"host:percorso\".";
  throw host::Failure(kClientUnavailable, cause);
}

}  // namespace

std::vector<std::wstring> ClientPlaces(const std::wstring& own_folder, const std::wstring& installed_root) {
  std::vector<std::wstring> places;
  if (!own_folder.empty()) places.push_back(WithSeparator(own_folder) + kClientName);
  if (!installed_root.empty()) {
    places.push_back(WithSeparator(installed_root) + kClientName);
    places.push_back(WithSeparator(installed_root) + L"bin\\" + kClientName);
  }
  places.push_back(kClientName);
  return places;
}

Firebird::IMaster* LoadMasterFrom(const std::vector<std::wstring>& places) {
  // A library that can't be loaded is told here, not in a dialog box.
  DWORD previous_mode = 0;
  SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &previous_mode);
  std::vector<std::string> found;
  Firebird::IMaster* master = nullptr;
  for (const std::wstring& place : places) {
    HMODULE client = nullptr;
    if (IsBareName(place)) {
      client = LoadLibraryW(place.c_str());
      const DWORD error = GetLastError();
      if (client == nullptr && error != ERROR_MOD_NOT_FOUND) found.push_back(Unusable(place, error));
    } else if (GetFileAttributesW(place.c_str()) != INVALID_FILE_ATTRIBUTES) {
      // The client's own libraries are looked for in its folder first.
      client = LoadLibraryExW(place.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
      if (client == nullptr) found.push_back(Unusable(place, GetLastError()));
    }
    if (client == nullptr) continue;
    const auto get_master =
        reinterpret_cast<GetMasterInterface>(reinterpret_cast<void*>(GetProcAddress(client, "fb_get_master_interface")));
    if (get_master != nullptr && (master = get_master()) != nullptr) break;
    found.push_back(Older(PathOf(client)));
    FreeLibrary(client);
  }
  SetThreadErrorMode(previous_mode, nullptr);
  if (master == nullptr) RaiseUnavailable(places, found);
  return master;
}

Firebird::IMaster* LoadMaster() { return LoadMasterFrom(ClientPlaces(OwnFolder(), InstalledRoot())); }

}  // namespace source::firebird
