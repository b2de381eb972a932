#include "tools/kairon-convert/typed_value.h"

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "host/text.h"
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

namespace {

// Well-formed UTF-8 between the quotes of a JSON string. Each byte is
// escaped or not by itself, so a text may come a slice at a time.
void AppendEscaped(std::string& out, std::string_view text) {
  size_t plain_from = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\') continue;
    out.append(text, plain_from, i - plain_from);
    plain_from = i + 1;
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
        out += escaped;
    }
  }
  out.append(text, plain_from, std::string::npos);
}

void AppendString(std::string& out, const std::string& text) {
  if (!host::text::IsValidUtf8(text)) {
    // The library's own way of replacing what isn't UTF-8.
    out += nlohmann::ordered_json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    return;
  }
  out += '"';
  AppendEscaped(out, text);
  out += '"';
}

void AppendJson(std::string& out, const nlohmann::ordered_json& json) {
  switch (json.type()) {
    case nlohmann::json::value_t::object: {
      out += '{';
      bool first = true;
      for (const auto& [key, value] : json.items()) {
        if (!first) out += ',';
        first = false;
        AppendString(out, key);
        out += ':';
        AppendJson(out, value);
      }
      out += '}';
      break;
    }
    case nlohmann::json::value_t::array: {
      out += '[';
      bool first = true;
      for (const auto& value : json) {
        if (!first) out += ',';
        first = false;
        AppendJson(out, value);
      }
      out += ']';
      break;
    }
    case nlohmann::json::value_t::string:
      AppendString(out, json.get_ref<const std::string&>());
      break;
    case nlohmann::json::value_t::boolean:
      out += json.get<bool>() ? "true" : "false";
      break;
    case nlohmann::json::value_t::number_integer:
      out += std::to_string(json.get<int64_t>());
      break;
    case nlohmann::json::value_t::number_unsigned:
      out += std::to_string(json.get<uint64_t>());
      break;
    case nlohmann::json::value_t::null:
      out += "null";
      break;
    default:
      // Floating point (and whatever else) as the library writes it.
      out += json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  }
}

}  // namespace

void AppendJsonString(std::string& out, const std::string& text) { AppendString(out, text); }

// What JsonText(TypedValue(value)) gives, without making the JSON value.
void AppendTypedValue(std::string& out, const host::Value& value) {
  auto typed = [&](std::string_view type) {
    out += "{\"type\":\"";
    out += type;
    out += "\",\"value\":";
  };
  switch (value.type()) {
    case host::Type::Empty:
      typed("empty");
      out += "null";
      break;
    case host::Type::Null:
      typed("null");
      out += "null";
      break;
    case host::Type::Text:
      typed("text");
      AppendString(out, value.text());
      break;
    case host::Type::I16:
      typed("i16");
      out += std::to_string(value.integer());
      break;
    case host::Type::I32:
      typed("i32");
      out += std::to_string(value.integer());
      break;
    case host::Type::F64:
      typed("f64");
      AppendJson(out, nlohmann::ordered_json(value.number()));
      break;
    case host::Type::Bool:
      typed("bool");
      out += value.integer() != 0 ? "true" : "false";
      break;
    case host::Type::Date:
      typed("date");
      AppendString(out, IsoDate(value.date()));
      break;
    case host::Type::Object:
      typed("object");
      AppendString(out, value.is_object() ? TraceNameOf(value.object()) : "?");
      break;
    case host::Type::Bytes:
      typed("bytes");
      out += std::to_string(value.bytes().size());
      break;
  }
  out += '}';
}

namespace {

// Pieces of JSON text on their way to write, handed over as they pass
// about 64 KiB; a long text goes in a slice at a time.
class PieceWriter {
 public:
  explicit PieceWriter(const std::function<void(std::string_view)>& write) : write_(write) {}

  void Add(std::string_view text) {
    piece_ += text;
    WriteWhenFull();
  }
  void AddTypedValue(const host::Value& value) {
    if (value.type() != host::Type::Text || value.text().size() <= kPiece || !host::text::IsValidUtf8(value.text())) {
      AppendTypedValue(piece_, value);
      WriteWhenFull();
      return;
    }
    piece_ += "{\"type\":\"text\",\"value\":\"";
    const std::string_view text = value.text();
    for (size_t from = 0; from < text.size(); from += kPiece) {
      AppendEscaped(piece_, text.substr(from, kPiece));
      WriteWhenFull();
    }
    piece_ += "\"}";
  }
  // Hands over what is left.
  void End() {
    if (!piece_.empty()) write_(piece_);
    piece_.clear();
  }

 private:
  static constexpr size_t kPiece = 64 * 1024;
  void WriteWhenFull() {
    if (piece_.size() < kPiece) return;
    write_(piece_);
    piece_.clear();
  }
  const std::function<void(std::string_view)>& write_;
  std::string piece_;
};

}  // namespace

void WriteTypedValue(const host::Value& value, const std::function<void(std::string_view)>& write) {
  PieceWriter pieces(write);
  pieces.AddTypedValue(value);
  pieces.End();
}

void WriteTypedArray(const std::vector<host::Value>& values, const std::function<void(std::string_view)>& write) {
  PieceWriter pieces(write);
  pieces.Add("[");
  for (size_t i = 0; i < values.size(); ++i) {
    if (i > 0) pieces.Add(",");
    pieces.AddTypedValue(values[i]);
  }
  pieces.Add("]");
  pieces.End();
}

bool HoldsLongText(const std::vector<host::Value>& values) {
  constexpr size_t kLongText = 1 << 20;
  for (const host::Value& value : values)
    if (value.type() == host::Type::Text && value.text().size() >= kLongText) return true;
  return false;
}

// The compact form that the library's dump gives, replacing bytes that
// aren't UTF-8 as it does, written without its per-character machinery.
std::string JsonText(const nlohmann::ordered_json& json) {
  std::string out;
  out.reserve(256);
  AppendJson(out, json);
  return out;
}

}  // namespace refhost
