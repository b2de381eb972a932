#include "host/windows/dispatch_object.h"

#include <windows.h>

#include <dispex.h>

#include "host/windows/variant.h"

namespace host::windows {
namespace {

// The arguments of one Invoke, last first as Invoke takes them. An argument
// by reference is a VT_BYREF|VT_VARIANT that points to a VARIANT of its own,
// which the callee may change and which is read back afterwards.
class InvokeArguments {
 public:
  explicit InvokeArguments(const Args& args) : slots_(args.size()), referred_(args.size()) {
    const size_t count = args.size();
    for (size_t i = 0; i < count; ++i) {
      VARIANT& slot = slots_[count - 1 - i];
      VariantInit(&slot);
      VariantInit(&referred_[i]);
    }
    try {
      for (size_t i = 0; i < count; ++i) {
        VARIANT& slot = slots_[count - 1 - i];
        if (args[i].by_ref()) {
          ToVariant(args[i].value(), &referred_[i]);
          slot.vt = VT_BYREF | VT_VARIANT;
          slot.pvarVal = &referred_[i];
        } else {
          ToVariant(args[i].value(), &slot);
        }
      }
    } catch (...) {
      Clear();
      throw;
    }
  }
  ~InvokeArguments() { Clear(); }
  InvokeArguments(const InvokeArguments&) = delete;
  InvokeArguments& operator=(const InvokeArguments&) = delete;

  VARIANT* slots() { return slots_.empty() ? nullptr : slots_.data(); }
  UINT count() const { return static_cast<UINT>(slots_.size()); }

  // Gives the by-reference arguments what the callee left in them.
  void ReadBack(Args& args) const {
    for (size_t i = 0; i < args.size(); ++i)
      if (args[i].by_ref()) args[i].value() = FromVariant(referred_[i]);
  }

 private:
  void Clear() {
    for (VARIANT& slot : slots_)
      if (slot.vt != (VT_BYREF | VT_VARIANT)) VariantClear(&slot);
    for (VARIANT& referred : referred_) VariantClear(&referred);
  }

  std::vector<VARIANT> slots_;
  std::vector<VARIANT> referred_;
};

void FreeTexts(EXCEPINFO& info) {
  SysFreeString(info.bstrSource);
  SysFreeString(info.bstrDescription);
  SysFreeString(info.bstrHelpFile);
  info.bstrSource = info.bstrDescription = info.bstrHelpFile = nullptr;
}

// The number that a late-bound caller reads from a failure code.
int32_t NumberOf(HRESULT result) {
  switch (result) {
    case DISP_E_UNKNOWNNAME:
    case DISP_E_MEMBERNOTFOUND:
      return failures::kMemberNotSupported;
    case DISP_E_TYPEMISMATCH:
      return failures::kTypeMismatch;
    case DISP_E_BADPARAMCOUNT:
      return failures::kWrongArgumentCount;
    case DISP_E_OVERFLOW:
      return failures::kOverflow;
    case DISP_E_DIVBYZERO:
      return failures::kDivisionByZero;
    case E_OUTOFMEMORY:
      return failures::kOutOfMemory;
  }
  if (HRESULT_FACILITY(result) == FACILITY_CONTROL) return HRESULT_CODE(result);
  return static_cast<int32_t>(result);
}

// The standard description of a number, as the model raises it; a failure
// code passed on as it is reads as an Automation error with the system's
// text for it.
std::string DescriptionOf(int32_t number) {
  if (number < 0) {
    std::string description = "Errore di automazione";
    wchar_t* message = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        static_cast<DWORD>(number), 0, reinterpret_cast<wchar_t*>(&message), 0, nullptr);
    if (message != nullptr) {
      std::wstring_view text(message, length);
      while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r' || text.back() == L' '))
        text.remove_suffix(1);
      if (!text.empty()) description += ": " + Utf8(text);
      LocalFree(message);
    }
    return description;
  }
  try {
    failures::Raise(number);
  } catch (const Failure& standard) {
    return standard.description();
  }
}

}  // namespace

Failure FailureOf(HRESULT result, EXCEPINFO* info) {
  int32_t number = 0;
  std::string description;
  if (info != nullptr) {
    if (info->pfnDeferredFillIn != nullptr) {
      info->pfnDeferredFillIn(info);
      info->pfnDeferredFillIn = nullptr;
    }
    if (info->wCode != 0) {
      number = info->wCode;
    } else if (FAILED(info->scode)) {
      number = NumberOf(info->scode);
    }
    if (info->bstrDescription != nullptr)
      description = Utf8(std::wstring_view(info->bstrDescription, SysStringLen(info->bstrDescription)));
    FreeTexts(*info);
  }
  if (number == 0) number = NumberOf(result);
  if (description.empty()) description = DescriptionOf(number);
  return Failure(number, std::move(description));
}

IDispatch* DispatchOf(const Value& value) {
  if (!value.is_object()) return nullptr;
  auto* object = dynamic_cast<DispatchObject*>(value.object().get());
  if (object == nullptr) failures::Raise(failures::kTypeMismatch);
  object->dispatch()->AddRef();
  return object->dispatch();
}

DispatchObject::DispatchObject(IDispatch* object) : object_(object) {
  object_->AddRef();
  if (FAILED(object_->QueryInterface(__uuidof(IDispatchEx), reinterpret_cast<void**>(&object_ex_)))) object_ex_ = nullptr;
}

DispatchObject::~DispatchObject() {
  if (object_ex_ != nullptr) object_ex_->Release();
  object_->Release();
}

DISPID DispatchObject::MemberId(std::string_view member) {
  if (auto known = ids_.find(member); known != ids_.end()) return known->second;
  DISPID id = DISPID_UNKNOWN;
  HRESULT result;
  if (object_ex_ != nullptr) {
    BSTR text = NewBstr(member);
    result = object_ex_->GetDispID(text, fdexNameCaseInsensitive, &id);
    SysFreeString(text);
  } else {
    std::wstring name = Utf16(member);
    LPOLESTR names[] = {name.data()};
    result = object_->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
  }
  if (FAILED(result)) throw FailureOf(result, nullptr);
  ids_.emplace(std::string(member), id);
  return id;
}

Value DispatchObject::Invoke(DISPID id, WORD flags, Args& args) {
  InvokeArguments arguments(args);
  DISPPARAMS params{arguments.slots(), nullptr, arguments.count(), 0};
  OwnedVariant result;
  EXCEPINFO info{};
  UINT wrong_argument = 0;
  const HRESULT outcome =
      object_->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result.get(), &info, &wrong_argument);
  if (FAILED(outcome)) throw FailureOf(outcome, &info);
  FreeTexts(info);
  arguments.ReadBack(args);
  return FromVariant(*result);
}

Value DispatchObject::Get(std::string_view member) {
  Args none;
  return Invoke(MemberId(member), DISPATCH_PROPERTYGET, none);
}

Value DispatchObject::Call(std::string_view member, Args& args) {
  return Invoke(MemberId(member), DISPATCH_METHOD | DISPATCH_PROPERTYGET, args);
}

void DispatchObject::Set(std::string_view member, const Value& value) {
  const DISPID id = MemberId(member);
  OwnedVariant argument;
  ToVariant(value, argument.get());
  DISPID put = DISPID_PROPERTYPUT;
  DISPPARAMS params{argument.get(), &put, 1, 1};
  EXCEPINFO info{};
  UINT wrong_argument = 0;
  const WORD flags = value.is_object() ? DISPATCH_PROPERTYPUTREF : DISPATCH_PROPERTYPUT;
  const HRESULT outcome =
      object_->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, nullptr, &info, &wrong_argument);
  if (FAILED(outcome)) throw FailureOf(outcome, &info);
  FreeTexts(info);
}

std::vector<Value> DispatchObject::Items() {
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  OwnedVariant enumerator;
  EXCEPINFO info{};
  UINT wrong_argument = 0;
  const HRESULT outcome = object_->Invoke(DISPID_NEWENUM, IID_NULL, LOCALE_USER_DEFAULT,
                                          DISPATCH_METHOD | DISPATCH_PROPERTYGET, &none, enumerator.get(), &info,
                                          &wrong_argument);
  if (FAILED(outcome)) throw FailureOf(outcome, &info);
  FreeTexts(info);
  IUnknown* unknown = nullptr;
  if ((*enumerator).vt == VT_UNKNOWN || (*enumerator).vt == VT_DISPATCH) unknown = (*enumerator).punkVal;
  IEnumVARIANT* items = nullptr;
  if (unknown == nullptr ||
      FAILED(unknown->QueryInterface(IID_IEnumVARIANT, reinterpret_cast<void**>(&items))))
    failures::Raise(failures::kMemberNotSupported);
  std::vector<Value> values;
  try {
    for (;;) {
      OwnedVariant item;
      ULONG fetched = 0;
      const HRESULT next = items->Next(1, item.get(), &fetched);
      if (FAILED(next)) throw FailureOf(next, nullptr);
      if (fetched == 0) break;
      values.push_back(FromVariant(*item));
    }
  } catch (...) {
    items->Release();
    throw;
  }
  items->Release();
  return values;
}

}  // namespace host::windows
