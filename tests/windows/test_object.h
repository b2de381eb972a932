// A host object of the tests' own, answering IDispatch (and IDispatchEx when
// asked to) as a script host's objects do: members are properties it keeps
// or methods the test gives, and it counts its references and the member
// lookups it was asked.
#pragma once

#include <windows.h>

#include <dispex.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace test {

class TestObject : public IDispatchEx {
 public:
  using Method = std::function<HRESULT(DISPPARAMS* params, VARIANT* result, EXCEPINFO* info)>;

  // With `answers_ex` false the object has only IDispatch, whose
  // GetIDsOfNames matches names with regard to case.
  explicit TestObject(bool answers_ex = true) : answers_ex_(answers_ex) {}
  virtual ~TestObject() {
    for (auto& [id, value] : properties) VariantClear(&value);
  }

  // A property, with its value (which the object then owns).
  void AddProperty(const std::wstring& name, VARIANT value = VARIANT{}) { properties[IdOf(name)] = value; }
  void AddMethod(const std::wstring& name, Method method) { methods[IdOf(name)] = std::move(method); }
  VARIANT& property(const std::wstring& name) { return properties.at(IdOf(name)); }

  long references = 1;  // the test's own
  int lookups = 0;
  WORD last_flags = 0;
  std::map<DISPID, VARIANT> properties;
  std::map<DISPID, Method> methods;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (iid == IID_IUnknown || iid == IID_IDispatch || (answers_ex_ && iid == __uuidof(IDispatchEx))) {
      *object = static_cast<IDispatchEx*>(this);
      AddRef();
      return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
  ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references); }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    *count = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT, LCID, DISPID* id) override {
    ++lookups;
    return Find(names[0], false, id);
  }
  HRESULT STDMETHODCALLTYPE GetDispID(BSTR name, DWORD flags, DISPID* id) override {
    ++lookups;
    return Find(name, (flags & fdexNameCaseInsensitive) != 0, id);
  }

  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                                   EXCEPINFO* info, UINT*) override {
    last_flags = flags;
    if (auto method = methods.find(id); method != methods.end()) return method->second(params, result, info);
    auto property = properties.find(id);
    if (property == properties.end()) return DISP_E_MEMBERNOTFOUND;
    if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) {
      if (params->cArgs != 1 || params->cNamedArgs != 1 || params->rgdispidNamedArgs[0] != DISPID_PROPERTYPUT)
        return DISP_E_BADPARAMCOUNT;
      VariantClear(&property->second);
      return VariantCopyInd(&property->second, &params->rgvarg[0]);
    }
    return result ? VariantCopy(result, &property->second) : S_OK;
  }

  HRESULT STDMETHODCALLTYPE InvokeEx(DISPID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     IServiceProvider*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE DeleteMemberByName(BSTR, DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE DeleteMemberByDispID(DISPID) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetMemberProperties(DISPID, DWORD, DWORD*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetMemberName(DISPID, BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetNextDispID(DWORD, DISPID, DISPID*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetNameSpaceParent(IUnknown**) override { return E_NOTIMPL; }

 private:
  DISPID IdOf(const std::wstring& name) {
    for (size_t i = 0; i < names_.size(); ++i)
      if (names_[i] == name) return static_cast<DISPID>(i + 1);
    names_.push_back(name);
    return static_cast<DISPID>(names_.size());
  }
  HRESULT Find(const wchar_t* name, bool any_case, DISPID* id) {
    for (size_t i = 0; i < names_.size(); ++i) {
      if (any_case ? _wcsicmp(names_[i].c_str(), name) == 0 : names_[i] == name) {
        *id = static_cast<DISPID>(i + 1);
        return S_OK;
      }
    }
    *id = DISPID_UNKNOWN;
    return DISP_E_UNKNOWNNAME;
  }

  bool answers_ex_;
  std::vector<std::wstring> names_;
};

// VARIANTs to build a test's properties and results with.
inline VARIANT Text(const wchar_t* text) {
  VARIANT v;
  v.vt = VT_BSTR;
  v.bstrVal = SysAllocString(text);
  return v;
}
inline VARIANT Integer(LONG n) {
  VARIANT v;
  v.vt = VT_I4;
  v.lVal = n;
  return v;
}

}  // namespace test
