// The host's objects as the plug-in reaches them on Windows: values through
// VARIANTs both ways, by-reference arguments, failures with their numbers,
// member ids asked once, and every reference given back.
#include <gtest/gtest.h>

#include <memory>

#include "host/failure.h"
#include "host/windows/dispatch_object.h"
#include "host/windows/variant.h"
#include "tests/support/failure_of.h"
#include "tests/windows/test_object.h"

namespace {

using fixture::FailureRaisedBy;

using host::Arg;
using host::Args;
using host::Value;
using host::windows::DispatchObject;
using host::windows::FromVariant;
using test::TestObject;

Value Wrap(TestObject& object) { return Value(host::ObjectRef(std::make_shared<DispatchObject>(&object))); }

// Each value is put into a property of the host's object, checked there as
// the VARIANT a host reads, and read back as the value it was.
TEST(DispatchBridge, EveryValueCrossesBothWaysWithItsType) {
  TestObject host_object, other;
  host_object.AddProperty(L"Campo");
  {
    Value target = Wrap(host_object);
    auto crosses = [&](const Value& value, VARTYPE type) {
      host::Set(target, "Campo", value);
      EXPECT_EQ(host_object.property(L"Campo").vt, type);
      EXPECT_EQ(host::Get(target, "Campo"), value) << host::TextOf(value);
    };
    // Every code point, those beyond the 16 bits of one UTF-16 unit too.
    const std::string text = "Citt\xC3\xA0 \xC3\x9F \xE2\x82\xAC \xCE\xA9 \xF0\x9F\x98\x80 \"'<>";
    crosses(text, VT_BSTR);
    EXPECT_EQ(std::wstring(host_object.property(L"Campo").bstrVal), L"Citt\u00E0 \u00DF \u20AC \u03A9 \U0001F600 \"'<>");
    crosses("", VT_BSTR);
    crosses(Value(), VT_EMPTY);
    crosses(Value::Null(), VT_NULL);
    crosses(Value::I16(-32768), VT_I2);
    crosses(Value::I32(2147483647), VT_I4);
    crosses(Value(0.1 + 0.2), VT_R8);
    crosses(Value::Bool(true), VT_BOOL);
    EXPECT_EQ(host_object.property(L"Campo").boolVal, VARIANT_TRUE);
    crosses(Value::Bool(false), VT_BOOL);
    EXPECT_EQ(host_object.property(L"Campo").boolVal, VARIANT_FALSE);
    crosses(Value(host::Date{2024, 2, 29, 23, 59, 59}), VT_DATE);
    crosses(Value(host::Date{1899, 12, 29, 6, 0, 0}), VT_DATE);
    EXPECT_DOUBLE_EQ(host_object.property(L"Campo").date, -1.25);
    crosses(Value(host::Date{1900, 1, 1}), VT_DATE);
    EXPECT_DOUBLE_EQ(host_object.property(L"Campo").date, 2.0);
    crosses(Value::Bytes({0x1F, 0x8B, 0x00, 0xFF}), VT_ARRAY | VT_UI1);

    // An object goes by reference, as itself.
    Value other_value = Wrap(other);
    host::Set(target, "Campo", other_value);
    EXPECT_EQ(host_object.last_flags, DISPATCH_PROPERTYPUTREF);
    EXPECT_EQ(host_object.property(L"Campo").pdispVal, static_cast<IDispatch*>(&other));
    Value back = host::Get(target, "Campo");
    EXPECT_EQ(dynamic_cast<DispatchObject&>(*back.object()).dispatch(), static_cast<IDispatch*>(&other));
  }
  VariantClear(&host_object.property(L"Campo"));
  EXPECT_EQ(host_object.references, 1);
  EXPECT_EQ(other.references, 1);
}

// What a host hands back by reference, or in a type of its own choosing, is
// read through to the value it holds.
TEST(DispatchBridge, VariantsReadThroughReferencesAndOtherNumberTypes) {
  BSTR text = SysAllocString(L"\u00C8 gi\u00E0");
  VARIANT by_ref;
  by_ref.vt = VT_BYREF | VT_BSTR;
  by_ref.pbstrVal = &text;
  EXPECT_EQ(FromVariant(by_ref), Value("\xC3\x88 gi\xC3\xA0"));
  VARIANT referred = test::Integer(7);
  VARIANT to_variant;
  to_variant.vt = VT_BYREF | VT_VARIANT;
  to_variant.pvarVal = &referred;
  EXPECT_EQ(FromVariant(to_variant), Value::I32(7));
  VARIANT_BOOL flag = VARIANT_TRUE;
  VARIANT to_bool;
  to_bool.vt = VT_BYREF | VT_BOOL;
  to_bool.pboolVal = &flag;
  EXPECT_EQ(FromVariant(to_bool), Value::Bool(true));
  SysFreeString(text);

  VARIANT other;
  other.vt = VT_UI1;
  other.bVal = 200;
  EXPECT_EQ(FromVariant(other), Value::I32(200));
  other.vt = VT_R4;
  other.fltVal = 1.5f;
  EXPECT_EQ(FromVariant(other), Value(1.5));
  other.vt = VT_CY;
  other.cyVal.int64 = 12345;  // 1.2345
  EXPECT_EQ(FromVariant(other), Value(1.2345));
  other.vt = VT_ERROR;
  other.scode = DISP_E_PARAMNOTFOUND;
  EXPECT_EQ(FromVariant(other), Value());
  other.vt = VT_ERROR;
  other.scode = E_FAIL;
  EXPECT_EQ(FailureRaisedBy([&] { FromVariant(other); }).number(), 13);
  VARIANT null_text;
  null_text.vt = VT_BSTR;
  null_text.bstrVal = nullptr;
  EXPECT_EQ(FromVariant(null_text), Value(""));
}

// UpdateProgress(Percent, Stop) and SalvaFile(id, title, path): arguments
// come last first, by reference as VT_BYREF|VT_VARIANT, and what the host
// writes there reaches the plug-in's variables; what it writes into a
// by-value argument doesn't.
TEST(DispatchBridge, ByReferenceArgumentsComeBackChanged) {
  TestObject host_object;
  host_object.AddMethod(L"UpdateProgress", [](DISPPARAMS* params, VARIANT*, EXCEPINFO*) {
    if (params->cArgs != 2) return DISP_E_BADPARAMCOUNT;
    VARIANT& percent = params->rgvarg[1];
    VARIANT& stop = params->rgvarg[0];
    if (percent.vt != (VT_BYREF | VT_VARIANT) || stop.vt != (VT_BYREF | VT_VARIANT)) return DISP_E_TYPEMISMATCH;
    if (percent.pvarVal->vt != VT_I4 || percent.pvarVal->lVal != 40) return DISP_E_TYPEMISMATCH;
    if (stop.pvarVal->vt != VT_BOOL || stop.pvarVal->boolVal != VARIANT_FALSE) return DISP_E_TYPEMISMATCH;
    stop.pvarVal->boolVal = VARIANT_TRUE;
    return S_OK;
  });
  host_object.AddMethod(L"SalvaFile", [](DISPPARAMS* params, VARIANT*, EXCEPINFO*) {
    if (params->cArgs != 3) return DISP_E_BADPARAMCOUNT;
    VARIANT& id = params->rgvarg[2];
    VARIANT& title = params->rgvarg[1];
    VARIANT& path = params->rgvarg[0];
    if (title.vt != VT_BSTR || std::wstring(title.bstrVal) != L"Referto \u00E8co") return DISP_E_TYPEMISMATCH;
    VariantClear(id.pvarVal);
    *id.pvarVal = test::Text(L"F-42");
    VariantClear(&title);
    title = test::Text(L"cambiato");
    VariantClear(path.pvarVal);
    return S_OK;
  });
  {
    Value target = Wrap(host_object);
    Value percent = Value::I32(40), stop = Value::Bool(false);
    host::Call(target, "UpdateProgress", {Arg::Ref(percent), Arg::Ref(stop)});
    EXPECT_EQ(stop, Value::Bool(true));
    EXPECT_EQ(percent, Value::I32(40));

    Value id = "", path = "C:\\Temp\\a.pdf";
    std::string title = "Referto \xC3\xA8" "co";
    host::Call(target, "SalvaFile", {Arg::Ref(id), title, Arg::Ref(path)});
    EXPECT_EQ(id, Value("F-42"));
    EXPECT_EQ(path, Value());
    EXPECT_EQ(title, "Referto \xC3\xA8" "co");
  }
  EXPECT_EQ(host_object.references, 1);
}

HRESULT RaiseWith(EXCEPINFO* info, WORD code, SCODE scode, const wchar_t* description) {
  info->wCode = code;
  info->scode = scode;
  info->bstrSource = SysAllocString(L"Host");
  info->bstrDescription = description ? SysAllocString(description) : nullptr;
  return DISP_E_EXCEPTION;
}

HRESULT STDAPICALLTYPE FillLater(EXCEPINFO* info) {
  info->wCode = 2001;
  info->bstrDescription = SysAllocString(L"Archivio pieno");
  return S_OK;
}

// A member of the host that fails reaches the plug-in's trap with a number
// and a description: the host's own where it gave them, else those a
// late-bound caller reads from the failure code.
TEST(DispatchBridge, FailuresOfTheHostKeepANumberAndDescription) {
  TestObject host_object;
  auto fails_with = [&](const wchar_t* name, std::function<HRESULT(EXCEPINFO*)> fail) {
    host_object.AddMethod(name, [fail](DISPPARAMS*, VARIANT*, EXCEPINFO* info) { return fail(info); });
  };
  fails_with(L"Bloccato", [](EXCEPINFO* info) { return RaiseWith(info, 1234, 0, L"Paziente bloccato"); });
  fails_with(L"Sollevato", [](EXCEPINFO* info) { return RaiseWith(info, 0, 0x800A04D2, nullptr); });
  fails_with(L"Differito", [](EXCEPINFO* info) {
    info->pfnDeferredFillIn = FillLater;
    return DISP_E_EXCEPTION;
  });
  fails_with(L"Script", [](EXCEPINFO*) { return static_cast<HRESULT>(0x800A04D2); });
  fails_with(L"Manca", [](EXCEPINFO*) { return DISP_E_MEMBERNOTFOUND; });
  fails_with(L"Tipo", [](EXCEPINFO*) { return DISP_E_TYPEMISMATCH; });
  fails_with(L"Conteggio", [](EXCEPINFO*) { return DISP_E_BADPARAMCOUNT; });
  fails_with(L"Generico", [](EXCEPINFO*) { return E_FAIL; });
  {
    Value target = Wrap(host_object);
    auto failure = [&](const char* member) {
      // An object among the arguments is released also when the call fails.
      return FailureRaisedBy([&] { host::Call(target, member, {target}); });
    };
    host::Failure own = failure("Bloccato");
    EXPECT_EQ(own.number(), 1234);
    EXPECT_EQ(own.description(), "Paziente bloccato");
    host::Failure raised = failure("Sollevato");
    EXPECT_EQ(raised.number(), 1234);
    EXPECT_EQ(raised.description(), "Errore definito dall'applicazione o dall'oggetto");
    host::Failure deferred = failure("Differito");
    EXPECT_EQ(deferred.number(), 2001);
    EXPECT_EQ(deferred.description(), "Archivio pieno");
    EXPECT_EQ(failure("Script").number(), 1234);
    host::Failure missing = failure("Manca");
    EXPECT_EQ(missing.number(), 438);
    EXPECT_EQ(missing.description(), "Propriet\xC3\xA0 o metodo non supportati dall'oggetto");
    host::Failure unknown = failure("NonCe");
    EXPECT_EQ(unknown.number(), 438);
    EXPECT_EQ(unknown.description(), missing.description());
    host::Failure mismatch = failure("Tipo");
    EXPECT_EQ(mismatch.number(), 13);
    EXPECT_EQ(mismatch.description(), "Tipo non corrispondente");
    host::Failure count = failure("Conteggio");
    EXPECT_EQ(count.number(), 450);
    EXPECT_EQ(count.description(), "Numero di argomenti errato o assegnazione di propriet\xC3\xA0 non valida");
    host::Failure other = failure("Generico");
    EXPECT_EQ(other.number(), static_cast<int32_t>(E_FAIL));
    EXPECT_EQ(other.description().rfind("Errore di automazione", 0), 0u) << other.description();
  }
  EXPECT_EQ(host_object.references, 1);
}

// The id of a member is asked once per object and name: of IDispatchEx
// without regard to case, of GetIDsOfNames as spelled where there is no
// IDispatchEx.
TEST(DispatchBridge, MemberIdsAreAskedOncePerName) {
  TestObject with_ex, without_ex(false);
  for (TestObject* object : {&with_ex, &without_ex}) {
    object->AddProperty(L"FiltroDa", test::Text(L"A"));
    object->AddMethod(L"AddMsg", [](DISPPARAMS*, VARIANT*, EXCEPINFO*) { return S_OK; });
  }
  {
    Value target = Wrap(with_ex);
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(host::Get(target, "filtroda"), Value("A"));
      host::Call(target, "AddMsg", {"riga"});
    }
    EXPECT_EQ(with_ex.lookups, 2);
    EXPECT_EQ(with_ex.last_flags, DISPATCH_METHOD | DISPATCH_PROPERTYGET);

    Value plain = Wrap(without_ex);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(host::Get(plain, "FiltroDa"), Value("A"));
    EXPECT_EQ(without_ex.last_flags, DISPATCH_PROPERTYGET);
    EXPECT_EQ(without_ex.lookups, 1);
  }
  EXPECT_EQ(with_ex.references, 1);
  EXPECT_EQ(without_ex.references, 1);
}

// Objects that the host gives back (a patient, a store) are held only as
// long as the plug-in holds their values.
TEST(DispatchBridge, ObjectsGivenBackAreReleased) {
  TestObject host_interface, patient;
  host_interface.AddMethod(L"DaiPaziente", [&](DISPPARAMS*, VARIANT* result, EXCEPINFO*) {
    result->vt = VT_DISPATCH;
    result->pdispVal = &patient;
    patient.AddRef();
    return S_OK;
  });
  patient.AddProperty(L"Cognome", test::Text(L"Rossi"));
  {
    Value target = Wrap(host_interface);
    Value first = host::Call(target, "DaiPaziente");
    Value second = host::Call(target, "DaiPaziente");
    EXPECT_EQ(host::Get(first, "Cognome"), Value("Rossi"));
    EXPECT_GT(patient.references, 1);
  }
  EXPECT_EQ(host_interface.references, 1);
  EXPECT_EQ(patient.references, 1);
}

}  // namespace
