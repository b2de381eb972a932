// Conversione.h comes before any Windows header: those define "interface"
// as a macro, which is the name of one of its parameters.
#include "plugin/Conversione.h"

#include "plugin/windows/conversione_dispatch.h"

#include <atomic>
#include <mutex>

#include "cnvKairon.h"
#include "host/failure.h"
#include "host/windows/variant.h"
#include "plugin/windows/server.h"

namespace cnv::windows {
namespace {

using host::windows::FromVariant;
using host::windows::NewBstr;
using host::windows::ToVariant;
using host::windows::Utf8;

std::string TextOf(BSTR text) { return text ? Utf8(std::wstring_view(text, SysStringLen(text))) : std::string(); }

// Hands a failure to the caller as the platform's late-bound callers read
// it: the description in the thread's error info, the number in the low 16
// bits of a code of the control facility, which ITypeInfo::Invoke passes on
// in the EXCEPINFO.
HRESULT Report(const host::Failure& failure) {
  ICreateErrorInfo* creator = nullptr;
  if (SUCCEEDED(CreateErrorInfo(&creator))) {
    const std::wstring description = host::windows::Utf16(failure.description());
    creator->SetSource(const_cast<LPOLESTR>(L"cnvKaironAmbulor.Conversione"));
    creator->SetDescription(const_cast<LPOLESTR>(description.c_str()));
    creator->SetGUID(__uuidof(_Conversione));
    IErrorInfo* info = nullptr;
    if (SUCCEEDED(creator->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info)))) {
      SetErrorInfo(0, info);
      info->Release();
    }
    creator->Release();
  }
  const int32_t number = failure.number();
  if (number > 0 && number <= 0xFFFF) return MAKE_HRESULT(SEVERITY_ERROR, FACILITY_CONTROL, number);
  return number < 0 ? static_cast<HRESULT>(number) : E_FAIL;
}

// Runs a member of the core, every failure becoming a reported result.
template <typename Action>
HRESULT Guarded(Action action) {
  try {
    action();
    return S_OK;
  } catch (...) {
    return Report(host::CurrentFailure());
  }
}

class ConversioneDispatch : public _Conversione, public ISupportErrorInfo {
 public:
  explicit ConversioneDispatch(ITypeInfo* type_info) : type_info_(type_info) {
    type_info_->AddRef();
    ObjectCreated();
  }
  virtual ~ConversioneDispatch() {
    type_info_->Release();
    ObjectReleased();
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    if (iid == IID_IUnknown || iid == IID_IDispatch || iid == __uuidof(_Conversione)) {
      *object = static_cast<_Conversione*>(this);
    } else if (iid == IID_ISupportErrorInfo) {
      *object = static_cast<ISupportErrorInfo*>(this);
    } else {
      *object = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

  HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) override {
    return iid == __uuidof(_Conversione) ? S_OK : S_FALSE;
  }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (count == nullptr) return E_POINTER;
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** info) override {
    if (info == nullptr) return E_POINTER;
    *info = nullptr;
    if (index != 0) return DISP_E_BADINDEX;
    type_info_->AddRef();
    *info = type_info_;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
    return DispGetIDsOfNames(type_info_, names, count, ids);
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                                   EXCEPINFO* exception, UINT* wrong_argument) override {
    return DispInvoke(static_cast<_Conversione*>(this), type_info_, id, flags, params, result, exception,
                      wrong_argument);
  }

  HRESULT STDMETHODCALLTYPE get_LastError(BSTR* value) override { return Text("LastError", value); }
  HRESULT STDMETHODCALLTYPE get_NomeProgramma(BSTR* value) override { return Text("NomeProgramma", value); }
  HRESULT STDMETHODCALLTYPE get_TipoOrigine(LONG* value) override {
    if (value == nullptr) return E_POINTER;
    return Guarded([&] { *value = core_.Get("TipoOrigine").integer(); });
  }
  HRESULT STDMETHODCALLTYPE get_DefaultDSN(BSTR* value) override { return Text("DefaultDSN", value); }
  HRESULT STDMETHODCALLTYPE get_DefaultHost(BSTR* value) override { return Text("DefaultHost", value); }
  HRESULT STDMETHODCALLTYPE get_DefaultFile(BSTR* value) override { return Text("DefaultFile", value); }
  HRESULT STDMETHODCALLTYPE get_DefaultPort(BSTR* value) override { return Text("DefaultPort", value); }
  HRESULT STDMETHODCALLTYPE get_DefaultDatabaseName(BSTR* value) override {
    return Text("DefaultDatabaseName", value);
  }
  HRESULT STDMETHODCALLTYPE get_DefaultUsername(BSTR* value) override { return Text("DefaultUsername", value); }
  HRESULT STDMETHODCALLTYPE get_DefaultPassword(BSTR* value) override { return Text("DefaultPassword", value); }
  HRESULT STDMETHODCALLTYPE get_DefaultCartellaImmagini(BSTR* value) override {
    return Text("DefaultCartellaImmagini", value);
  }
  HRESULT STDMETHODCALLTYPE get_ListaOpzioni(BSTR* value) override { return Text("ListaOpzioni", value); }
  HRESULT STDMETHODCALLTYPE get_CausaApertura(BSTR* value) override { return Text("CausaApertura", value); }
  HRESULT STDMETHODCALLTYPE get_CopiaPrivata(BSTR* value) override { return Text("CopiaPrivata", value); }

  // The list reaches the host's variable when it passed one; a value passed
  // instead takes the list in the copy that Invoke made of it.
  HRESULT STDMETHODCALLTYPE Test(BSTR conn, VARIANT* lista_medici, VARIANT_BOOL* result) override {
    if (result == nullptr) return E_POINTER;
    return Guarded([&] {
      host::Value lista;
      host::Args args{TextOf(conn), host::Arg::Ref(lista)};
      const bool opened = host::TruthOf(core_.Call("Test", args));
      if (lista_medici != nullptr) {
        VARIANT filled;
        ToVariant(lista, &filled);
        VariantClear(lista_medici);
        *lista_medici = filled;
      }
      *result = opened ? VARIANT_TRUE : VARIANT_FALSE;
    });
  }

  HRESULT STDMETHODCALLTYPE Converti(BSTR medico, BSTR opzioni, VARIANT* host_object, VARIANT_BOOL* result) override {
    if (result == nullptr) return E_POINTER;
    return Guarded([&] {
      host::Value host_interface = host_object ? FromVariant(*host_object) : host::Value();
      host::Args args{TextOf(medico), TextOf(opzioni), host::Arg::Ref(host_interface)};
      *result = host::TruthOf(core_.Call("Converti", args)) ? VARIANT_TRUE : VARIANT_FALSE;
    });
  }

 private:
  HRESULT Text(const char* property, BSTR* value) {
    if (value == nullptr) return E_POINTER;
    *value = nullptr;
    return Guarded([&] { *value = NewBstr(host::TextOf(core_.Get(property))); });
  }

  std::atomic<ULONG> references_{1};
  ITypeInfo* type_info_;
  Conversione core_;
};

// The type information of _Conversione, read once from the library's own
// type library resource and kept for the life of the process.
HRESULT TypeInfoOf(HMODULE library, ITypeInfo** info) {
  static std::mutex guard;
  static ITypeInfo* loaded = nullptr;
  std::lock_guard<std::mutex> lock(guard);
  if (loaded == nullptr) {
    wchar_t path[MAX_PATH * 4];
    const DWORD length = GetModuleFileNameW(library, path, static_cast<DWORD>(std::size(path)));
    if (length == 0 || length == std::size(path)) return HRESULT_FROM_WIN32(GetLastError());
    ITypeLib* type_library = nullptr;
    HRESULT outcome = LoadTypeLibEx(path, REGKIND_NONE, &type_library);
    if (FAILED(outcome)) return outcome;
    outcome = type_library->GetTypeInfoOfGuid(__uuidof(_Conversione), &loaded);
    type_library->Release();
    if (FAILED(outcome)) return outcome;
  }
  *info = loaded;
  return S_OK;
}

}  // namespace

HRESULT CreateConversione(HMODULE library, REFIID iid, void** object) {
  *object = nullptr;
  ITypeInfo* info = nullptr;
  const HRESULT found = TypeInfoOf(library, &info);
  if (FAILED(found)) return found;
  ConversioneDispatch* conversione = nullptr;
  try {
    conversione = new ConversioneDispatch(info);
  } catch (...) {
    return E_OUTOFMEMORY;
  }
  const HRESULT outcome = conversione->QueryInterface(iid, object);
  conversione->Release();
  return outcome;
}

}  // namespace cnv::windows
