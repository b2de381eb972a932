#include "host/value.h"

#include <charconv>
#include <cstdio>

#include "host/failure.h"
#include "host/object.h"
#include "host/text.h"

namespace host {

bool IsValidDate(const Date& d) {
  static constexpr int kDaysIn[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (d.year < 100 || d.year > 9999 || d.month < 1 || d.month > 12 || d.day < 1) return false;
  bool leap = (d.year % 4 == 0 && d.year % 100 != 0) || d.year % 400 == 0;
  int days = kDaysIn[d.month - 1] + (d.month == 2 && leap ? 1 : 0);
  return d.day <= days && d.hour >= 0 && d.hour < 24 && d.minute >= 0 && d.minute < 60 &&
         d.second >= 0 && d.second < 60;
}

Value::Value(std::string text) : type_(Type::Text), text_(std::move(text)) {}
Value::Value(const char* text) : type_(Type::Text), text_(text) {}
Value::Value(double number) : type_(Type::F64), number_(number) {}
Value::Value(Date date) : type_(Type::Date), date_(date) {}
Value::Value(ObjectRef object) : type_(Type::Object), object_(std::move(object)) {}

Value Value::Null() {
  Value v;
  v.type_ = Type::Null;
  return v;
}
Value Value::I16(int16_t n) {
  Value v;
  v.type_ = Type::I16;
  v.integer_ = n;
  return v;
}
Value Value::I32(int32_t n) {
  Value v;
  v.type_ = Type::I32;
  v.integer_ = n;
  return v;
}
Value Value::Bool(bool b) {
  Value v;
  v.type_ = Type::Bool;
  v.integer_ = b ? -1 : 0;
  return v;
}
Value Value::Bytes(std::vector<uint8_t> bytes) {
  Value v;
  v.type_ = Type::Bytes;
  v.bytes_ = std::move(bytes);
  return v;
}

const std::string& Value::text() const {
  if (type_ != Type::Text) failures::Raise(failures::kTypeMismatch);
  return text_;
}
int32_t Value::integer() const {
  if (type_ != Type::I16 && type_ != Type::I32 && type_ != Type::Bool) failures::Raise(failures::kTypeMismatch);
  return integer_;
}
double Value::number() const {
  if (type_ != Type::F64) failures::Raise(failures::kTypeMismatch);
  return number_;
}
const Date& Value::date() const {
  if (type_ != Type::Date) failures::Raise(failures::kTypeMismatch);
  return date_;
}
const ObjectRef& Value::object() const {
  if (!is_object()) failures::Raise(failures::kObjectRequired);
  return object_;
}
const std::vector<uint8_t>& Value::bytes() const {
  if (type_ != Type::Bytes) failures::Raise(failures::kTypeMismatch);
  return bytes_;
}

bool Value::operator==(const Value& o) const {
  if (type_ != o.type_) return false;
  switch (type_) {
    case Type::Empty:
    case Type::Null:
      return true;
    case Type::Text:
      return text_ == o.text_;
    case Type::I16:
    case Type::I32:
    case Type::Bool:
      return integer_ == o.integer_;
    case Type::F64:
      return number_ == o.number_;
    case Type::Date:
      return date_ == o.date_;
    case Type::Object:
      return object_ == o.object_;
    case Type::Bytes:
      return bytes_ == o.bytes_;
  }
  return false;
}

std::string FormatDate(const Date& d) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%02d/%02d/%04d", d.day, d.month, d.year);
  return buf;
}

std::string TextOf(const Value& v) {
  switch (v.type()) {
    case Type::Empty:
    case Type::Null:
      return "";
    case Type::Text:
      return v.text();
    case Type::I16:
    case Type::I32:
      return std::to_string(v.integer());
    case Type::Bool:
      return v.integer() ? "True" : "False";
    case Type::F64: {
      char buf[32];
      auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v.number());
      return std::string(buf, end);
    }
    case Type::Date: {
      const Date& d = v.date();
      if (!d.has_time()) return FormatDate(d);
      char buf[16];
      std::snprintf(buf, sizeof buf, " %02d:%02d:%02d", d.hour, d.minute, d.second);
      return FormatDate(d) + buf;
    }
    case Type::Bytes: {
      const auto& b = v.bytes();
      return text::FromLegacyBytes(std::string_view(reinterpret_cast<const char*>(b.data()), b.size()));
    }
    case Type::Object:
      break;
  }
  failures::Raise(failures::kTypeMismatch);
}

namespace {

// Reads 1 to max_digits digits at pos; -1 when there is none.
int ReadNumber(std::string_view s, size_t& pos, size_t max_digits) {
  size_t start = pos;
  int n = 0;
  while (pos < s.size() && pos - start < max_digits && s[pos] >= '0' && s[pos] <= '9') n = n * 10 + (s[pos++] - '0');
  return pos == start ? -1 : n;
}

bool ReadTime(std::string_view s, size_t& pos, Date& d) {
  if (pos == s.size()) return true;
  if (s[pos] != ' ' && s[pos] != 'T') return false;
  while (pos < s.size() && s[pos] == ' ') ++pos;
  if (pos < s.size() && s[pos] == 'T') ++pos;
  d.hour = ReadNumber(s, pos, 2);
  if (d.hour < 0 || pos >= s.size() || s[pos++] != ':') return false;
  d.minute = ReadNumber(s, pos, 2);
  if (d.minute < 0) return false;
  d.second = 0;
  if (pos < s.size() && s[pos] == ':') {
    ++pos;
    d.second = ReadNumber(s, pos, 2);
    if (d.second < 0) return false;
    if (pos < s.size() && s[pos] == '.') {
      ++pos;
      if (ReadNumber(s, pos, 9) < 0) return false;
    }
  }
  return pos == s.size();
}

std::optional<Date> ParseDate(std::string_view raw) {
  std::string trimmed = text::Trim(raw);
  std::string_view s = trimmed;
  size_t pos = 0;
  Date d;
  int first = ReadNumber(s, pos, 4);
  if (first < 0 || pos >= s.size()) return std::nullopt;
  char sep = s[pos];
  if (sep != '/' && sep != '-' && sep != '.') return std::nullopt;
  bool year_first = pos == 4;
  ++pos;
  int second = ReadNumber(s, pos, 2);
  if (second < 0 || pos >= s.size() || s[pos] != sep) return std::nullopt;
  ++pos;
  size_t third_start = pos;
  int third = ReadNumber(s, pos, year_first ? 2 : 4);
  if (third < 0) return std::nullopt;
  if (year_first) {
    d.year = first, d.month = second, d.day = third;
  } else {
    if (pos - third_start <= 2) third += third < 30 ? 2000 : 1900;
    else if (pos - third_start != 4) return std::nullopt;
    d.day = first, d.month = second, d.year = third;
  }
  d.hour = d.minute = d.second = 0;
  if (!ReadTime(s, pos, d) || !IsValidDate(d)) return std::nullopt;
  return d;
}

}  // namespace

std::optional<Date> DateOf(const Value& v) {
  if (v.type() == Type::Date) return IsValidDate(v.date()) ? std::optional<Date>(v.date()) : std::nullopt;
  if (v.type() == Type::Text) return ParseDate(v.text());
  return std::nullopt;
}

bool TruthOf(const Value& v) {
  switch (v.type()) {
    case Type::Empty:
      return false;
    case Type::I16:
    case Type::I32:
    case Type::Bool:
      return v.integer() != 0;
    case Type::F64:
      return v.number() != 0;
    case Type::Null:
      failures::Raise(failures::kInvalidUseOfNull);
    default:
      failures::Raise(failures::kTypeMismatch);
  }
}

}  // namespace host
