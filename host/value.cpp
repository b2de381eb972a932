#include "host/value.h"

#include <charconv>
#include <cctype>
#include <cmath>
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

Value::Value(std::string text) : type_(Type::Text), text_(std::make_shared<const std::string>(std::move(text))) {}
Value::Value(const char* text) : type_(Type::Text), text_(std::make_shared<const std::string>(text)) {}
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
  v.bytes_ = std::make_shared<const std::vector<uint8_t>>(std::move(bytes));
  return v;
}

const std::string& Value::text() const {
  if (type_ != Type::Text) failures::Raise(failures::kTypeMismatch);
  static const std::string kNone;  // a value moved from holds none
  return text_ ? *text_ : kNone;
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
  static const std::vector<uint8_t> kNone;  // a value moved from holds none
  return bytes_ ? *bytes_ : kNone;
}

bool Value::operator==(const Value& o) const {
  if (type_ != o.type_) return false;
  switch (type_) {
    case Type::Empty:
    case Type::Null:
      return true;
    case Type::Text:
      return text_ == o.text_ || text() == o.text();
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
      return bytes_ == o.bytes_ || bytes() == o.bytes();
  }
  return false;
}

std::string FormatDate(const Date& d) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%02d/%02d/%04d", d.day, d.month, d.year);
  return buf;
}

std::string NumberText(double number) {
  if (std::isnan(number)) return "NaN";
  if (std::isinf(number)) return number < 0 ? "-Inf" : "Inf";
  if (number == 0) return "0";
  // Fifteen significant digits as d.dddddddddddddde[+-]x: the exponent is
  // read after the rounding, so that 999999999999999.9 counts as 1E+15.
  char scientific[40];
  std::snprintf(scientific, sizeof scientific, "%.14e", number);
  std::string_view text(scientific);
  const size_t e = text.find('e');
  const bool negative = text.front() == '-';
  std::string digits;
  for (char c : text.substr(0, e))
    if (c >= '0' && c <= '9') digits += c;
  while (digits.size() > 1 && digits.back() == '0') digits.pop_back();
  int exponent = 0;
  std::from_chars(text.data() + e + (text[e + 1] == '+' ? 2 : 1), text.data() + text.size(), exponent);

  std::string out = negative ? "-" : "";
  if (exponent >= 15 || exponent < -4) {
    out += digits.substr(0, 1);
    if (digits.size() > 1) out += "." + digits.substr(1);
    char tail[16];
    std::snprintf(tail, sizeof tail, "E%c%02d", exponent < 0 ? '-' : '+', exponent < 0 ? -exponent : exponent);
    return out + tail;
  }
  if (exponent < 0) return out + "0." + std::string(static_cast<size_t>(-exponent - 1), '0') + digits;
  const size_t whole = static_cast<size_t>(exponent) + 1;
  if (digits.size() <= whole) return out + digits + std::string(whole - digits.size(), '0');
  return out + digits.substr(0, whole) + "." + digits.substr(whole);
}

Value TextValueOf(const Value& v) { return v.type() == Type::Text ? v : Value(TextOf(v)); }

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
    case Type::F64:
      return NumberText(v.number());
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

void SkipBlanks(std::string_view s, size_t& pos) {
  while (pos < s.size() && s[pos] == ' ') ++pos;
}

// An optional time of day at pos, after one or more blanks or a "T": hours
// and minutes, optionally seconds with a fraction that is dropped; ":" or "."
// between the parts, the same throughout. True if the text ends with it.
bool ReadTime(std::string_view s, size_t& pos, Date& d) {
  d.hour = d.minute = d.second = 0;
  if (pos == s.size()) return true;
  if (s[pos] != ' ' && s[pos] != 'T') return false;
  SkipBlanks(s, pos);
  if (pos < s.size() && s[pos] == 'T') ++pos;
  d.hour = ReadNumber(s, pos, 2);
  if (d.hour < 0 || pos >= s.size() || (s[pos] != ':' && s[pos] != '.')) return false;
  const char sep = s[pos++];
  d.minute = ReadNumber(s, pos, 2);
  if (d.minute < 0) return false;
  if (pos < s.size() && s[pos] == sep) {
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

// The month that an Italian month name or its three-letter form names, in
// any case (1 to 12), read at pos; 0 when the letters there name none.
int ReadMonthName(std::string_view s, size_t& pos) {
  static constexpr const char* kMonths[] = {"gennaio", "febbraio", "marzo",     "aprile",  "maggio",   "giugno",
                                            "luglio",  "agosto",   "settembre", "ottobre", "novembre", "dicembre"};
  std::string word;
  size_t end = pos;
  for (; end < s.size() && std::isalpha(static_cast<unsigned char>(s[end])); ++end)
    word += static_cast<char>(std::tolower(static_cast<unsigned char>(s[end])));
  for (int month = 1; month <= 12; ++month) {
    const std::string_view name = kMonths[month - 1];
    if (word == name || word == name.substr(0, 3)) {
      pos = end;
      return month;
    }
  }
  return 0;
}

// The separator between a month name and its neighbours: blanks, or one of
// "/", "-", "." with blanks allowed around it. False if there is none.
bool ReadNameSeparator(std::string_view s, size_t& pos) {
  const size_t start = pos;
  SkipBlanks(s, pos);
  if (pos < s.size() && (s[pos] == '/' || s[pos] == '-' || s[pos] == '.')) {
    ++pos;
    SkipBlanks(s, pos);
  }
  return pos > start;
}

// A year of the day-first forms: four digits, or one or two read in the
// window 00-29 as 2000-2029 and 30-99 as 1930-1999; -1 for anything else.
int ReadYear(std::string_view s, size_t& pos) {
  const size_t start = pos;
  const int year = ReadNumber(s, pos, 4);
  if (year < 0) return -1;
  if (pos - start <= 2) return year + (year < 30 ? 2000 : 1900);
  return pos - start == 4 ? year : -1;
}

std::optional<Date> ParseDate(std::string_view raw) {
  std::string trimmed = text::Trim(raw);
  std::string_view s = trimmed;
  size_t pos = 0;
  Date d;
  const int first = ReadNumber(s, pos, 4);
  const size_t first_length = pos;
  if (first < 0 || pos + 1 >= s.size()) return std::nullopt;

  const char sep = s[pos];
  const bool numeric = (sep == '/' || sep == '-' || sep == '.') && std::isdigit(static_cast<unsigned char>(s[pos + 1]));
  if (numeric) {
    ++pos;
    const int second = ReadNumber(s, pos, 2);
    if (pos >= s.size() || s[pos] != sep) return std::nullopt;
    ++pos;
    if (first_length == 4) {
      d.year = first, d.month = second, d.day = ReadNumber(s, pos, 2);
    } else {
      d.day = first, d.month = second, d.year = ReadYear(s, pos);
    }
  } else {
    if (first_length > 2 || !ReadNameSeparator(s, pos)) return std::nullopt;
    d.month = ReadMonthName(s, pos);
    if (d.month == 0 || !ReadNameSeparator(s, pos)) return std::nullopt;
    d.day = first, d.year = ReadYear(s, pos);
  }
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
