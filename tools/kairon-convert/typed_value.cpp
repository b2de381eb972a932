#include "tools/kairon-convert/typed_value.h"

#include <cstdio>

#include "tools/kairon-convert/host_object.h"

namespace refhost {

namespace {

std::string IsoDate(const host::Date& d) {
  char text[32];
  if (d.has_time())
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", d.year, d.month, d.day, d.hour, d.minute,
                  d.second);
  else
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", d.year, d.month, d.day);
  return text;
}

nlohmann::ordered_json Typed(const char* type, nlohmann::ordered_json value) {
  nlohmann::ordered_json typed;
  typed["type"] = type;
  typed["value"] = std::move(value);
  return typed;
}

}  // namespace

std::string TraceNameOf(const host::ObjectRef& object) {
  const auto* own = dynamic_cast<const HostObject*>(object.get());
  return own ? own->trace_name() : "?";
}

nlohmann::ordered_json TypedValue(const host::Value& value) {
  switch (value.type()) {
    case host::Type::Empty:
      return Typed("empty", nullptr);
    case host::Type::Null:
      return Typed("null", nullptr);
    case host::Type::Text:
      return Typed("text", value.text());
    case host::Type::I16:
      return Typed("i16", value.integer());
    case host::Type::I32:
      return Typed("i32", value.integer());
    case host::Type::F64:
      return Typed("f64", value.number());
    case host::Type::Bool:
      return Typed("bool", value.integer() != 0);
    case host::Type::Date:
      return Typed("date", IsoDate(value.date()));
    case host::Type::Object:
      return Typed("object", value.is_object() ? TraceNameOf(value.object()) : "?");
    case host::Type::Bytes:
      return Typed("bytes", value.bytes().size());
  }
  return Typed("empty", nullptr);
}

bool ResultOf(const host::Value& value) {
  switch (value.type()) {
    case host::Type::I16:
    case host::Type::I32:
    case host::Type::Bool:
      return value.integer() != 0;
    case host::Type::F64:
      return value.number() != 0;
    default:
      return false;
  }
}

std::string JsonText(const nlohmann::ordered_json& json) {
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace refhost
