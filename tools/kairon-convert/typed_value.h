// A value as the archive and the trace write it: {"type": T, "value": V}
// with T one of text, i16, i32, f64, bool, date, null, empty, object, bytes.
// A date is "YYYY-MM-DD", or "YYYY-MM-DDTHH:MM:SS" when it has a time of
// day; an object is its trace name; bytes are their length.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include <vector>

#include "host/value.h"

namespace refhost {

nlohmann::ordered_json TypedValue(const host::Value& value);

// The trace name of an object: its own for a host object, "?" for an
// object that isn't the host's.
std::string TraceNameOf(const host::ObjectRef& object);

// A boolean that the plug-in gives back: true for a non-zero boolean or
// integer, false for anything else.
bool ResultOf(const host::Value& value);

// JSON text as the archive stores it; bytes that aren't valid UTF-8 become
// U+FFFD.
std::string JsonText(const nlohmann::ordered_json& json);

// Appends to out what JsonText gives for a string, and for TypedValue(value).
void AppendJsonString(std::string& out, const std::string& text);
void AppendTypedValue(std::string& out, const host::Value& value);

// What AppendTypedValue appends for a value, and the JSON array of the
// values' typed forms, handed to write a piece at a time: a long text is
// escaped a slice at a time, never copied whole (but for one that isn't
// UTF-8, which the library's replacement takes whole).
void WriteTypedValue(const host::Value& value, const std::function<void(std::string_view)>& write);
void WriteTypedArray(const std::vector<host::Value>& values, const std::function<void(std::string_view)>& write);

// Whether a value is a text of a megabyte or more.
bool HoldsLongText(const std::vector<host::Value>& values);

}  // namespace refhost
