#include "plugin/windows/registration.h"

#include <initializer_list>

namespace cnv::windows {
namespace {

constexpr const wchar_t* kClassKey = L"CLSID\\{6B1F3C52-8E0A-4D7B-9C21-5A4E7D0B3F18}";
constexpr const wchar_t* kProgId = L"cnvKaironAmbulor.Conversione";
constexpr const wchar_t* kClassId = L"{6B1F3C52-8E0A-4D7B-9C21-5A4E7D0B3F18}";
constexpr const wchar_t* kLibraryId = L"{7A541A3C-DA1A-402C-BA8A-CC71E698D79E}";
constexpr const wchar_t* kTypeLibKey = L"TypeLib\\{7A541A3C-DA1A-402C-BA8A-CC71E698D79E}";
constexpr const wchar_t* kInterfaceKey = L"Interface\\{7602646F-A233-4599-A1B0-CA36796E1544}";
// The marshaller of interfaces described by a type library.
constexpr const wchar_t* kAutomationMarshaller = L"{00020424-0000-0000-C000-000000000046}";
#ifdef _WIN64
constexpr const wchar_t* kTypeLibPlatform = L"win64";
#else
constexpr const wchar_t* kTypeLibPlatform = L"win32";
#endif

// Sets the value `name` (nullptr for the key's own) of the key `path` under
// `root`, making the key where it isn't there.
LSTATUS SetText(HKEY root, const std::wstring& path, const wchar_t* name, const std::wstring& text) {
  HKEY key = nullptr;
  LSTATUS status = RegCreateKeyExW(root, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr,
                                   &key, nullptr);
  if (status != ERROR_SUCCESS) return status;
  status = RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  RegCloseKey(key);
  return status;
}

std::wstring FolderOf(const std::wstring& path) {
  const size_t end = path.find_last_of(L"\\/");
  return end == std::wstring::npos ? std::wstring() : path.substr(0, end);
}

}  // namespace

HRESULT RegisterServer(HKEY classes, const std::wstring& library_path) {
  const std::wstring class_key = kClassKey;
  const std::wstring version_key = std::wstring(kTypeLibKey) + L"\\1.0";
  const std::wstring interface_key = kInterfaceKey;
  struct Entry {
    std::wstring path;
    const wchar_t* name;
    std::wstring text;
  };
  const std::initializer_list<Entry> entries = {
      {class_key, nullptr, L"Conversione"},
      {class_key + L"\\InprocServer32", nullptr, library_path},
      {class_key + L"\\InprocServer32", L"ThreadingModel", L"Apartment"},
      {class_key + L"\\ProgID", nullptr, kProgId},
      {class_key + L"\\TypeLib", nullptr, kLibraryId},
      {class_key + L"\\Version", nullptr, L"1.0"},
      {kProgId, nullptr, L"Conversione"},
      {std::wstring(kProgId) + L"\\CLSID", nullptr, kClassId},
      {version_key, nullptr, L"cnvKaironAmbulor"},
      {version_key + L"\\0\\" + kTypeLibPlatform, nullptr, library_path},
      {version_key + L"\\FLAGS", nullptr, L"0"},
      {version_key + L"\\HELPDIR", nullptr, FolderOf(library_path)},
      {interface_key, nullptr, L"_Conversione"},
      {interface_key + L"\\ProxyStubClsid", nullptr, kAutomationMarshaller},
      {interface_key + L"\\ProxyStubClsid32", nullptr, kAutomationMarshaller},
      {interface_key + L"\\TypeLib", nullptr, kLibraryId},
      {interface_key + L"\\TypeLib", L"Version", L"1.0"},
  };
  for (const Entry& entry : entries) {
    const LSTATUS status = SetText(classes, entry.path, entry.name, entry.text);
    if (status != ERROR_SUCCESS) {
      UnregisterServer(classes);
      return HRESULT_FROM_WIN32(status);
    }
  }
  return S_OK;
}

HRESULT UnregisterServer(HKEY classes) {
  HRESULT outcome = S_OK;
  for (const wchar_t* path : {kClassKey, kProgId, kTypeLibKey, kInterfaceKey}) {
    const LSTATUS status = RegDeleteTreeW(classes, path);
    if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND && outcome == S_OK)
      outcome = HRESULT_FROM_WIN32(status);
  }
  return outcome;
}

}  // namespace cnv::windows
