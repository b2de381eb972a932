#include "host/windows/variant.h"

#include <windows.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "host/failure.h"
#include "host/windows/dispatch_object.h"

namespace host::windows {

std::wstring Utf16(std::string_view utf8) {
  if (utf8.empty()) return {};
  if (utf8.size() > static_cast<size_t>(std::numeric_limits<int>::max())) failures::Raise(failures::kOutOfMemory);
  const int size = static_cast<int>(utf8.size());
  const int length = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0);
  std::wstring out(static_cast<size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, out.data(), length);
  return out;
}

std::string Utf8(std::wstring_view utf16) {
  if (utf16.empty()) return {};
  if (utf16.size() > static_cast<size_t>(std::numeric_limits<int>::max() / 3)) failures::Raise(failures::kOutOfMemory);
  const int size = static_cast<int>(utf16.size());
  const int length = WideCharToMultiByte(CP_UTF8, 0, utf16.data(), size, nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<size_t>(length), '\0');
  WideCharToMultiByte(CP_UTF8, 0, utf16.data(), size, out.data(), length, nullptr, nullptr);
  return out;
}

BSTR NewBstr(std::string_view utf8) {
  const std::wstring wide = Utf16(utf8);
  BSTR text = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
  if (text == nullptr) failures::Raise(failures::kOutOfMemory);
  return text;
}

namespace {

// Days from 1970-01-01 of a day of the proleptic Gregorian calendar, and back.
long long DaysFromCivil(long long y, unsigned m, unsigned d) {
  y -= m <= 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<long long>(doe) - 719468;
}

Date CivilFromDays(long long z) {
  z += 719468;
  const long long era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  Date date;
  date.day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  date.month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  date.year = static_cast<int>(yoe + era * 400 + (date.month <= 2));
  return date;
}

const long long kDateZero = DaysFromCivil(1899, 12, 30);

// A VT_DATE counts days from 30/12/1899; its fraction is the time of day,
// which goes forward from the day's start also for a day before that date.
double VariantDate(const Date& d) {
  const double days = static_cast<double>(DaysFromCivil(d.year, d.month, d.day) - kDateZero);
  const double time = (d.hour * 3600 + d.minute * 60 + d.second) / 86400.0;
  return days < 0 ? days - time : days + time;
}

Date DateOfVariant(double serial) {
  if (!std::isfinite(serial) || std::fabs(serial) > 3e6) failures::Raise(failures::kOverflow);
  double whole = std::trunc(serial);
  long long seconds = std::llround(std::fabs(serial - whole) * 86400.0);
  if (seconds == 86400) {
    seconds = 0;
    whole += serial < 0 ? -1 : 1;
  }
  Date date = CivilFromDays(static_cast<long long>(whole) + kDateZero);
  date.hour = static_cast<int>(seconds / 3600);
  date.minute = static_cast<int>(seconds / 60 % 60);
  date.second = static_cast<int>(seconds % 60);
  return date;
}

SAFEARRAY* ByteArray(const std::vector<uint8_t>& bytes) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
  if (array == nullptr) failures::Raise(failures::kOutOfMemory);
  void* data = nullptr;
  if (FAILED(SafeArrayAccessData(array, &data))) {
    SafeArrayDestroy(array);
    failures::Raise(failures::kOutOfMemory);
  }
  if (!bytes.empty()) std::memcpy(data, bytes.data(), bytes.size());
  SafeArrayUnaccessData(array);
  return array;
}

Value BytesOf(SAFEARRAY* array) {
  if (array == nullptr) return Value::Bytes({});
  LONG lower = 0, upper = -1;
  if (SafeArrayGetDim(array) != 1 || FAILED(SafeArrayGetLBound(array, 1, &lower)) ||
      FAILED(SafeArrayGetUBound(array, 1, &upper)))
    failures::Raise(failures::kTypeMismatch);
  void* data = nullptr;
  if (FAILED(SafeArrayAccessData(array, &data))) failures::Raise(failures::kTypeMismatch);
  const auto* first = static_cast<const uint8_t*>(data);
  std::vector<uint8_t> bytes(first, first + (upper - lower + 1));
  SafeArrayUnaccessData(array);
  return Value::Bytes(std::move(bytes));
}

Value ObjectOf(IDispatch* object) {
  if (object == nullptr) return Value(ObjectRef());
  return Value(ObjectRef(std::make_shared<DispatchObject>(object)));
}

Value ObjectOf(IUnknown* unknown) {
  if (unknown == nullptr) return Value(ObjectRef());
  IDispatch* object = nullptr;
  if (FAILED(unknown->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&object))))
    failures::Raise(failures::kTypeMismatch);
  Value value = ObjectOf(object);
  object->Release();
  return value;
}

// Any other number, by the platform's own coercion: a 32-bit integer where
// it fits, a double otherwise.
Value OtherNumber(const VARIANT& variant) {
  OwnedVariant as_integer;
  if (SUCCEEDED(VariantChangeType(as_integer.get(), const_cast<VARIANT*>(&variant), 0, VT_I4)) &&
      variant.vt != VT_R4 && variant.vt != VT_CY && variant.vt != VT_DECIMAL)
    return Value::I32((*as_integer).lVal);
  OwnedVariant as_double;
  if (FAILED(VariantChangeType(as_double.get(), const_cast<VARIANT*>(&variant), 0, VT_R8))) failures::Raise(failures::kTypeMismatch);
  return Value((*as_double).dblVal);
}

}  // namespace

void ToVariant(const Value& value, VARIANT* out) {
  VariantInit(out);
  switch (value.type()) {
    case Type::Empty:
      return;
    case Type::Null:
      out->vt = VT_NULL;
      return;
    case Type::Text:
      out->bstrVal = NewBstr(value.text());
      out->vt = VT_BSTR;
      return;
    case Type::I16:
      out->vt = VT_I2;
      out->iVal = static_cast<SHORT>(value.integer());
      return;
    case Type::I32:
      out->vt = VT_I4;
      out->lVal = value.integer();
      return;
    case Type::F64:
      out->vt = VT_R8;
      out->dblVal = value.number();
      return;
    case Type::Bool:
      out->vt = VT_BOOL;
      out->boolVal = value.integer() != 0 ? VARIANT_TRUE : VARIANT_FALSE;
      return;
    case Type::Date:
      out->vt = VT_DATE;
      out->date = VariantDate(value.date());
      return;
    case Type::Bytes:
      out->parray = ByteArray(value.bytes());
      out->vt = VT_ARRAY | VT_UI1;
      return;
    case Type::Object:
      out->pdispVal = DispatchOf(value);
      out->vt = VT_DISPATCH;
      return;
  }
}

Value FromVariant(const VARIANT& variant) {
  const VARTYPE type = variant.vt;
  if (type == (VT_BYREF | VT_VARIANT)) {
    if (variant.pvarVal == nullptr) failures::Raise(failures::kTypeMismatch);
    return FromVariant(*variant.pvarVal);
  }
  const bool by_ref = (type & VT_BYREF) != 0;
  if (by_ref && variant.byref == nullptr) failures::Raise(failures::kTypeMismatch);
  switch (type & ~VT_BYREF) {
    case VT_EMPTY:
      return {};
    case VT_NULL:
      return Value::Null();
    case VT_BSTR: {
      const BSTR text = by_ref ? *variant.pbstrVal : variant.bstrVal;
      return text ? Value(Utf8(std::wstring_view(text, SysStringLen(text)))) : Value("");
    }
    case VT_I2:
      return Value::I16(by_ref ? *variant.piVal : variant.iVal);
    case VT_I4:
      return Value::I32(by_ref ? *variant.plVal : variant.lVal);
    case VT_R8:
      return Value(by_ref ? *variant.pdblVal : variant.dblVal);
    case VT_BOOL:
      return Value::Bool((by_ref ? *variant.pboolVal : variant.boolVal) != VARIANT_FALSE);
    case VT_DATE:
      return Value(DateOfVariant(by_ref ? *variant.pdate : variant.date));
    case VT_DISPATCH:
      return ObjectOf(by_ref ? *variant.ppdispVal : variant.pdispVal);
    case VT_UNKNOWN:
      return ObjectOf(by_ref ? *variant.ppunkVal : variant.punkVal);
    case VT_ARRAY | VT_UI1:
      return BytesOf(by_ref ? *variant.pparray : variant.parray);
    case VT_ERROR:
      if ((by_ref ? *variant.pscode : variant.scode) == DISP_E_PARAMNOTFOUND) return {};
      break;
    case VT_UI1:
    case VT_I1:
    case VT_UI2:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
    case VT_I8:
    case VT_UI8:
    case VT_R4:
    case VT_CY:
    case VT_DECIMAL: {
      if (!by_ref) return OtherNumber(variant);
      OwnedVariant copy;
      if (FAILED(VariantCopyInd(copy.get(), const_cast<VARIANT*>(&variant)))) failures::Raise(failures::kTypeMismatch);
      return OtherNumber(*copy);
    }
  }
  failures::Raise(failures::kTypeMismatch);
}

}  // namespace host::windows
