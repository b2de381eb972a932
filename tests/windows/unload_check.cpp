// What the library does with the host's Interface, kept from the last
// Converti, when it goes:
//   unload_check LIBRARY unload   FreeLibrary releases it;
//   unload_check LIBRARY exit     the process ends with the library loaded,
//                                 and it is never released (the host's code
//                                 may be gone by then).
// Exits 0 when that held, 1 with what didn't, 3 when the Interface was
// released after the process began to end.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>

#include "test_object.h"

namespace {

constexpr CLSID kConversioneClass = {0x6B1F3C52, 0x8E0A, 0x4D7B, {0x9C, 0x21, 0x5A, 0x4E, 0x7D, 0x0B, 0x3F, 0x18}};

bool process_ending = false;

class HostInterface : public test::TestObject {
 public:
  ULONG STDMETHODCALLTYPE Release() override {
    if (process_ending) TerminateProcess(GetCurrentProcess(), 3);
    return TestObject::Release();
  }
};

int Fail(const char* what) {
  std::fprintf(stderr, "unload_check: %s\n", what);
  return 1;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc != 3) return Fail("usage: unload_check LIBRARY unload|exit");
  const bool unload = std::wcscmp(argv[2], L"unload") == 0;
  CoInitialize(nullptr);
  HMODULE library = LoadLibraryW(argv[1]);
  if (library == nullptr) return Fail("the library doesn't load");
  auto get_class_object = reinterpret_cast<HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**)>(
      reinterpret_cast<void*>(GetProcAddress(library, "DllGetClassObject")));
  IClassFactory* factory = nullptr;
  IDispatch* conversione = nullptr;
  if (get_class_object == nullptr || FAILED(get_class_object(kConversioneClass, IID_IClassFactory,
                                                             reinterpret_cast<void**>(&factory))) ||
      FAILED(factory->CreateInstance(nullptr, IID_IDispatch, reinterpret_cast<void**>(&conversione))))
    return Fail("no Conversione");
  factory->Release();

  // Converti with no source opened keeps the Interface and answers False.
  auto* host_interface = new HostInterface;
  LPOLESTR name = const_cast<LPOLESTR>(L"Converti");
  DISPID converti = 0;
  if (FAILED(conversione->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &converti)))
    return Fail("Conversione has no Converti");
  VARIANT args[3];
  args[0].vt = VT_DISPATCH;
  args[0].pdispVal = host_interface;
  args[1] = test::Text(L"");
  args[2] = test::Text(L"");
  DISPPARAMS params{args, nullptr, 3, 0};
  VARIANT result;
  VariantInit(&result);
  if (FAILED(conversione->Invoke(converti, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, &result, nullptr,
                                 nullptr)))
    return Fail("Converti failed");
  conversione->Release();
  if (host_interface->references == 1) return Fail("the library doesn't hold the Interface after Converti");

  if (unload) {
    FreeLibrary(library);
    if (host_interface->references != 1) return Fail("unloading the library doesn't release the Interface");
    return 0;
  }
  std::atexit([] { process_ending = true; });
  return 0;
}
