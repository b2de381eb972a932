// The component's boundary that holds without the plug-in's core: the
// registry keys written and removed under a test key of the current user,
// the type library that the library carries, and the counts that
// DllCanUnloadNow answers from.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "plugin/windows/registration.h"
#include "plugin/windows/server.h"

namespace {

using cnv::windows::RegisterServer;
using cnv::windows::UnregisterServer;

// Every key under `key` with its values, one a line, in the registry's order.
std::wstring Snapshot(HKEY key, const std::wstring& path = L"") {
  std::wstring out;
  wchar_t name[256];
  BYTE data[1024];
  for (DWORD i = 0;; ++i) {
    DWORD name_size = 256, data_size = sizeof data, type = 0;
    if (RegEnumValueW(key, i, name, &name_size, nullptr, &type, data, &data_size) != ERROR_SUCCESS) break;
    out += path + L"|" + name + L"=" + std::wstring(reinterpret_cast<wchar_t*>(data), data_size / 2) + L"\n";
  }
  for (DWORD i = 0;; ++i) {
    DWORD name_size = 256;
    if (RegEnumKeyExW(key, i, name, &name_size, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    HKEY sub = nullptr;
    if (RegOpenKeyExW(key, name, 0, KEY_READ, &sub) != ERROR_SUCCESS) continue;
    out += path + L"\\" + name + L"\n" + Snapshot(sub, path + L"\\" + name);
    RegCloseKey(sub);
  }
  return out;
}

std::wstring Read(HKEY root, const std::wstring& path, const wchar_t* name = nullptr) {
  wchar_t text[1024];
  DWORD size = sizeof text;
  if (RegGetValueW(root, path.c_str(), name, RRF_RT_REG_SZ, nullptr, text, &size) != ERROR_SUCCESS) return L"<none>";
  return text;
}

// A root of classes of the test's own, with the keys that a machine's root
// already has and one class of someone else's.
class Registration : public ::testing::Test {
 protected:
  void SetUp() override {
    test_key_ = L"Software\\cnvKaironTest" + std::to_wstring(GetCurrentProcessId());
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, test_key_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &classes_,
                              nullptr),
              ERROR_SUCCESS);
    HKEY other = nullptr;
    ASSERT_EQ(RegCreateKeyExW(classes_, L"CLSID\\{00000000-1111-2222-3333-444444444444}\\InprocServer32", 0, nullptr, 0,
                              KEY_ALL_ACCESS, nullptr, &other, nullptr),
              ERROR_SUCCESS);
    RegSetValueExW(other, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(L"altro.dll"), 20);
    RegCloseKey(other);
    for (const wchar_t* parent : {L"TypeLib", L"Interface"}) {
      HKEY key = nullptr;
      RegCreateKeyExW(classes_, parent, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
      RegCloseKey(key);
    }
  }
  void TearDown() override {
    RegCloseKey(classes_);
    RegDeleteTreeW(HKEY_CURRENT_USER, test_key_.c_str());
  }

  std::wstring test_key_;
  HKEY classes_ = nullptr;
};

TEST_F(Registration, RegisteringThenUnregisteringLeavesTheRegistryAsItWas) {
  const std::wstring before = Snapshot(classes_);
  const std::wstring library = L"C:\\Programmi\\Kairon\\cnvKairon.dll";
  ASSERT_EQ(RegisterServer(classes_, library), S_OK);

  const std::wstring clsid = L"CLSID\\{6B1F3C52-8E0A-4D7B-9C21-5A4E7D0B3F18}";
  EXPECT_EQ(Read(classes_, clsid + L"\\InprocServer32"), library);
  EXPECT_EQ(Read(classes_, clsid + L"\\InprocServer32", L"ThreadingModel"), L"Apartment");
  EXPECT_EQ(Read(classes_, clsid + L"\\ProgID"), L"cnvKaironAmbulor.Conversione");
  EXPECT_EQ(Read(classes_, L"cnvKaironAmbulor.Conversione\\CLSID"), L"{6B1F3C52-8E0A-4D7B-9C21-5A4E7D0B3F18}");
  const std::wstring library_id = Read(classes_, clsid + L"\\TypeLib");
  const std::wstring platform = sizeof(void*) == 8 ? L"win64" : L"win32";
  EXPECT_EQ(Read(classes_, L"TypeLib\\" + library_id + L"\\1.0\\0\\" + platform), library);
  EXPECT_EQ(Read(classes_, L"TypeLib\\" + library_id + L"\\1.0\\HELPDIR"), L"C:\\Programmi\\Kairon");
  EXPECT_EQ(Read(classes_, L"Interface\\{7602646F-A233-4599-A1B0-CA36796E1544}\\TypeLib"), library_id);

  // Registering again over the keys is no failure.
  ASSERT_EQ(RegisterServer(classes_, library), S_OK);
  ASSERT_EQ(UnregisterServer(classes_), S_OK);
  EXPECT_EQ(Snapshot(classes_), before);
  EXPECT_EQ(UnregisterServer(classes_), S_OK);
}

// A write that fails half way (the type library's keys can't go under a
// volatile key) gives its code, and the keys written before it are removed.
TEST_F(Registration, AWriteThatFailsGivesItsCodeAndLeavesNothing) {
  RegDeleteTreeW(classes_, L"TypeLib");
  HKEY volatile_key = nullptr;
  ASSERT_EQ(RegCreateKeyExW(classes_, L"TypeLib", 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr,
                            &volatile_key, nullptr),
            ERROR_SUCCESS);
  RegCloseKey(volatile_key);
  const std::wstring before = Snapshot(classes_);
  EXPECT_EQ(RegisterServer(classes_, L"C:\\cnvKairon.dll"), HRESULT_FROM_WIN32(ERROR_CHILD_MUST_BE_VOLATILE));
  EXPECT_EQ(Snapshot(classes_), before);
}

std::wstring OwnPath() {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

std::wstring NameOf(ITypeInfo* info, MEMBERID id) {
  BSTR name = nullptr;
  info->GetDocumentation(id, &name, nullptr, nullptr, nullptr);
  std::wstring text = name ? name : L"";
  SysFreeString(name);
  return text;
}

// The type library that widl made, as the program carries it in its
// resources: Conversione, whose default interface _Conversione is dual, of
// version 1.0, with the members and types that a host reads.
TEST(TypeLibrary, DescribesConversioneAndItsMembers) {
  ITypeLib* library = nullptr;
  ASSERT_EQ(LoadTypeLibEx(OwnPath().c_str(), REGKIND_NONE, &library), S_OK);
  TLIBATTR* attributes = nullptr;
  library->GetLibAttr(&attributes);
  EXPECT_EQ(attributes->wMajorVerNum, 1);
  EXPECT_EQ(attributes->wMinorVerNum, 0);
  library->ReleaseTLibAttr(attributes);

  const CLSID conversione = {0x6B1F3C52, 0x8E0A, 0x4D7B, {0x9C, 0x21, 0x5A, 0x4E, 0x7D, 0x0B, 0x3F, 0x18}};
  ITypeInfo* coclass = nullptr;
  ASSERT_EQ(library->GetTypeInfoOfGuid(conversione, &coclass), S_OK);
  HREFTYPE reference = 0;
  ITypeInfo* dispatch = nullptr;
  ASSERT_EQ(coclass->GetRefTypeOfImplType(0, &reference), S_OK);
  ASSERT_EQ(coclass->GetRefTypeInfo(reference, &dispatch), S_OK);
  EXPECT_EQ(NameOf(dispatch, MEMBERID_NIL), L"_Conversione");
  TYPEATTR* type = nullptr;
  dispatch->GetTypeAttr(&type);
  EXPECT_EQ(type->typekind, TKIND_DISPATCH);
  EXPECT_TRUE(type->wTypeFlags & TYPEFLAG_FDUAL);
  const WORD functions = type->cFuncs;
  dispatch->ReleaseTypeAttr(type);

  // Names are found whatever their case.
  LPOLESTR names[] = {const_cast<LPOLESTR>(L"listaopzioni")};
  MEMBERID id = 0;
  EXPECT_EQ(dispatch->GetIDsOfNames(names, 1, &id), S_OK);
  EXPECT_EQ(NameOf(dispatch, id), L"ListaOpzioni");

  std::wstring members;
  for (WORD i = 0; i < functions; ++i) {
    FUNCDESC* function = nullptr;
    dispatch->GetFuncDesc(i, &function);
    if (function->memid >= 1 && function->memid <= 16) {
      members += NameOf(dispatch, function->memid) + L":" + std::to_wstring(function->elemdescFunc.tdesc.vt);
      for (SHORT p = 0; p < function->cParams; ++p) {
        const TYPEDESC& param = function->lprgelemdescParam[p].tdesc;
        members += L"," + std::to_wstring(param.vt == VT_PTR ? VT_BYREF | param.lptdesc->vt : param.vt);
      }
      members += L" ";
    }
    dispatch->ReleaseFuncDesc(function);
  }
  const std::wstring text = std::to_wstring(VT_BSTR) + L" ", flag = std::to_wstring(VT_BOOL);
  const std::wstring byref_variant = std::to_wstring(VT_BYREF | VT_VARIANT), bstr = std::to_wstring(VT_BSTR);
  EXPECT_EQ(members, L"LastError:" + text + L"NomeProgramma:" + text + L"TipoOrigine:" + std::to_wstring(VT_I4) +
                         L" DefaultDSN:" + text + L"DefaultHost:" + text + L"DefaultFile:" + text +
                         L"DefaultPort:" + text + L"DefaultDatabaseName:" + text + L"DefaultUsername:" + text +
                         L"DefaultPassword:" + text + L"Test:" + flag + L"," + bstr + L"," + byref_variant +
                         L" DefaultCartellaImmagini:" + text + L"ListaOpzioni:" + text + L"Converti:" + flag +
                         L"," + bstr + L"," + bstr + L"," + byref_variant + L" CausaApertura:" + text +
                         L"CopiaPrivata:" + text);
  dispatch->Release();
  coclass->Release();
  library->Release();
}

class Counted : public IUnknown {
 public:
  Counted() { cnv::windows::ObjectCreated(); }
  virtual ~Counted() { cnv::windows::ObjectReleased(); }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (iid != IID_IUnknown) return E_NOINTERFACE;
    *object = this;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

 private:
  ULONG references_ = 1;
};

HRESULT CreateCounted(REFIID iid, void** object) {
  auto* counted = new Counted;
  const HRESULT outcome = counted->QueryInterface(iid, object);
  counted->Release();
  return outcome;
}

// The library may unload only when no object it made, no lock and no
// reference to its factory is alive.
TEST(ClassFactory, TheLibraryUnloadsOnlyWhenNothingOfItsIsAlive) {
  cnv::windows::ClassFactory factory(CreateCounted);
  ASSERT_TRUE(cnv::windows::CanUnload());

  IClassFactory* held = nullptr;
  ASSERT_EQ(factory.QueryInterface(IID_IClassFactory, reinterpret_cast<void**>(&held)), S_OK);
  EXPECT_FALSE(cnv::windows::CanUnload());
  IUnknown* object = nullptr;
  ASSERT_EQ(held->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&object)), S_OK);
  held->Release();
  EXPECT_FALSE(cnv::windows::CanUnload());
  object->Release();
  EXPECT_TRUE(cnv::windows::CanUnload());

  factory.LockServer(TRUE);
  EXPECT_FALSE(cnv::windows::CanUnload());
  factory.LockServer(FALSE);
  EXPECT_TRUE(cnv::windows::CanUnload());

  IUnknown* outer = reinterpret_cast<IUnknown*>(&factory);
  EXPECT_EQ(factory.CreateInstance(outer, IID_IUnknown, reinterpret_cast<void**>(&object)), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(factory.CreateInstance(nullptr, IID_IDispatch, reinterpret_cast<void**>(&object)), E_NOINTERFACE);
  EXPECT_TRUE(cnv::windows::CanUnload());
}

}  // namespace
