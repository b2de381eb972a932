// Values as the platform's Automation passes them: host::Value to VARIANT and
// back, and texts between the value model's UTF-8 and BSTR's UTF-16.
#pragma once

#include <oaidl.h>

#include <string>
#include <string_view>

#include "host/value.h"

namespace host::windows {

// UTF-8 to UTF-16 and back; every code point, those beyond the BMP included,
// comes through as itself. A byte that isn't UTF-8 becomes U+FFFD, and so does
// an unpaired surrogate on the way back.
std::wstring Utf16(std::string_view utf8);
std::string Utf8(std::wstring_view utf16);

// A new BSTR of the text; the caller frees it (SysFreeString). Raises 7 when
// there is no memory for it.
BSTR NewBstr(std::string_view utf8);

// Fills *out, which holds nothing (VT_EMPTY or just cleared), with the value:
// Empty VT_EMPTY, Null VT_NULL, text VT_BSTR, 16- and 32-bit integers VT_I2
// and VT_I4, double VT_R8, boolean VT_BOOL (-1 or 0), date VT_DATE, bytes a
// VT_ARRAY|VT_UI1, a host object VT_DISPATCH (its reference counted once
// more). The caller clears *out. An object of the plug-in's own has no
// IDispatch and raises type mismatch (13).
void ToVariant(const Value& value, VARIANT* out);

// The value that a VARIANT holds, read through VT_BYREF (VT_BYREF|VT_VARIANT
// included). Other integer and decimal types become 32-bit integers where
// they fit, doubles otherwise; VT_UNKNOWN becomes an object when it answers
// IDispatch; a missing optional argument (VT_ERROR DISP_E_PARAMNOTFOUND) is
// Empty. Anything else raises type mismatch (13). The VARIANT is left as it
// is: an object found in it is referenced once more by the value.
Value FromVariant(const VARIANT& variant);

// A VARIANT that clears itself at the end of its scope.
class OwnedVariant {
 public:
  OwnedVariant() { VariantInit(&v_); }
  ~OwnedVariant() { VariantClear(&v_); }
  OwnedVariant(const OwnedVariant&) = delete;
  OwnedVariant& operator=(const OwnedVariant&) = delete;
  VARIANT* get() { return &v_; }
  const VARIANT& operator*() const { return v_; }

 private:
  VARIANT v_;
};

}  // namespace host::windows
