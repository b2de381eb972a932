// The dynamically typed value that crosses every late-bound call between the
// plug-in and the host: Empty, Null, text (UTF-8), 16- and 32-bit integers,
// double, 16-bit boolean, date, object reference or bytes. It also holds the
// conversions between those types that the reading rules rest on.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace host {

class Object;
using ObjectRef = std::shared_ptr<Object>;

// A calendar date with an optional time of day. A time of 00:00:00 counts as
// no time of day.
struct Date {
  int year = 1899;
  int month = 12;
  int day = 30;
  int hour = 0;
  int minute = 0;
  int second = 0;

  bool has_time() const { return hour != 0 || minute != 0 || second != 0; }
  bool operator==(const Date&) const = default;
};

// True if year, month, day and time name a real moment (years 100 to 9999).
bool IsValidDate(const Date& d);

enum class Type { Empty, Null, Text, I16, I32, F64, Bool, Date, Object, Bytes };

class Value {
 public:
  Value() = default;  // Empty
  Value(std::string text);
  Value(const char* text);
  Value(double number);
  Value(Date date);
  Value(ObjectRef object);

  static Value Null();
  static Value I16(int16_t n);
  static Value I32(int32_t n);
  static Value Bool(bool b);  // held as 16 bits: -1 true, 0 false
  // The bytes, like a text, are shared by the value's copies (none can
  // change them), so a copy costs the same whatever their length.
  static Value Bytes(std::vector<uint8_t> bytes);

  Type type() const { return type_; }
  bool is_empty() const { return type_ == Type::Empty; }
  bool is_null() const { return type_ == Type::Null; }
  bool is_object() const { return type_ == Type::Object && object_ != nullptr; }

  // Raw access: each requires the matching type and raises type mismatch
  // (13) otherwise.
  const std::string& text() const;
  int32_t integer() const;  // I16, I32 or Bool (-1 / 0)
  double number() const;    // F64
  const Date& date() const;
  const ObjectRef& object() const;  // raises 424 unless is_object()
  const std::vector<uint8_t>& bytes() const;

  bool operator==(const Value& other) const;

 private:
  Type type_ = Type::Empty;
  std::shared_ptr<const std::string> text_;  // set for Text only
  int32_t integer_ = 0;
  double number_ = 0;
  Date date_;
  ObjectRef object_;
  std::shared_ptr<const std::vector<uint8_t>> bytes_;  // set for Bytes only
};

// A number as text: plain decimal notation with "." as separator, at most 15
// significant digits, no trailing zeros; from 1E+15 up and below 1E-04 in
// magnitude the exponent form "1.5E+15", "1E-05". 100000 gives "100000", 0.1 +
// 0.2 gives "0.3", 0.0001 gives "0.0001". Every number becomes text this way.
std::string NumberText(double number);

// The text of a value: Empty and Null give "", integers their digits,
// doubles their NumberText, booleans "True" / "False", dates
// "dd/mm/yyyy" with " hh:mm:ss" when they have a time of day, bytes their
// content as UTF-8 (Windows-1252 where that isn't valid). An object raises
// type mismatch (13).
std::string TextOf(const Value& v);

// The same as a text value: a text value is given itself, its text shared
// instead of copied, so that a long text read once can go to the host as
// several arguments at the cost of one.
Value TextValueOf(const Value& v);

// The date that a value holds or that its text reads as, blanks around it
// passed over (the forms are listed with the reading rules, in
// plugin/modConversione.h); nullopt for anything else, Null included, and for
// a date that doesn't exist (31/02).
std::optional<Date> DateOf(const Value& v);

// The date rendered as "dd/mm/yyyy"; the time of day falls away.
std::string FormatDate(const Date& d);

// A boolean value as the host's 16-bit convention reads it: anything that
// isn't zero is true. Empty reads as false; text raises type mismatch.
bool TruthOf(const Value& v);

}  // namespace host
