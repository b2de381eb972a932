#include "plugin/modConversione.h"

#include <cmath>
#include <optional>

#include "host/failure.h"
#include "host/text.h"
#include "plugin/local_system.h"

namespace cnv {

host::Value& InterfaceCorrente() {
  static host::Value interface_corrente;
  return interface_corrente;
}

void AddMsg(const std::string& msg) { host::Call(InterfaceCorrente(), "AddMsg", {msg}); }

void ChangeMsg(const std::string& msg) { host::Call(InterfaceCorrente(), "ChangeMsg", {msg}); }

void AddInfo(const std::string& msg) { host::Call(InterfaceCorrente(), "AddInfo", {msg}); }

void UpdateProgress(int32_t percent, host::Value& stop) {
  host::Value percent_value = host::Value::I32(percent);
  host::Call(InterfaceCorrente(), "UpdateProgress", {host::Arg::Ref(percent_value), host::Arg::Ref(stop)});
}

int32_t Percentuale(int64_t parte, int64_t totale) {
  if (totale == 0) host::failures::Raise(host::failures::kDivisionByZero);
  double quotient = static_cast<double>(parte) / static_cast<double>(totale);
  // Four decimals in fixed point (ten-thousandths), ties to the even digit as
  // nearbyint does in the default rounding mode.
  auto ten_thousandths = static_cast<int64_t>(std::nearbyint(quotient * 10000.0));
  int64_t hundredths_floor = ten_thousandths >= 0 ? ten_thousandths / 100 : -((-ten_thousandths + 99) / 100);
  return static_cast<int32_t>(hundredths_floor);
}

bool EsisteFile(const std::string& percorso) {
  if (host::text::Trim(percorso).empty()) return false;
  return local_system::IsFileThere(percorso);
}

std::string RaddoppiaApici(const std::string& testo) {
  std::string out;
  out.reserve(testo.size());
  for (char c : testo) {
    out += c;
    if (c == '\'') out += '\'';
  }
  return out;
}

bool IsTrue(const host::Value& v) {
  bool integral = v.type() == host::Type::Bool || v.type() == host::Type::I16 || v.type() == host::Type::I32;
  return integral && v.integer() == -1;
}

std::string DateText(const host::Value& v) {
  if (std::optional<host::Date> d = host::DateOf(v)) return host::FormatDate(*d);
  return host::TextOf(v);
}

std::string DateText(const host::Value& v, const std::string& fallback) {
  if (std::optional<host::Date> d = host::DateOf(v)) return host::FormatDate(*d);
  return fallback;
}

double NumberOf(const host::Value& v) {
  std::string text = host::TextOf(v);
  // A number's own text, in the exponent form from 1E+15 up, reads back as
  // the number that it writes.
  if (v.type() == host::Type::F64) return std::strtod(text.c_str(), nullptr);

  std::string digits;
  size_t i = 0;
  auto skip_blanks = [&] {
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r')) ++i;
  };
  auto take_digits = [&] {
    size_t taken = 0;
    for (skip_blanks(); i < text.size() && text[i] >= '0' && text[i] <= '9'; skip_blanks()) {
      digits += text[i++];
      ++taken;
    }
    return taken;
  };
  skip_blanks();
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) digits += text[i++];
  size_t taken = take_digits();
  if (i < text.size() && text[i] == '.') {
    digits += text[i++];
    taken += take_digits();
  }
  if (taken == 0) return 0;
  double number = std::strtod(digits.c_str(), nullptr);
  if (!std::isfinite(number)) host::failures::Raise(host::failures::kOverflow);
  return number;
}

host::Value BytesOf(host::Value v) {
  switch (v.type()) {
    case host::Type::Bytes:
      return v;
    case host::Type::Null:
    case host::Type::Empty:
      return host::Value::Bytes({});
    case host::Type::Text:
      return host::Value::Bytes(std::vector<uint8_t>(v.text().begin(), v.text().end()));
    default:
      host::failures::Raise(host::failures::kTypeMismatch);
  }
}

namespace {
host::Date& FixedToday() {
  static host::Date fixed;
  return fixed;
}
}  // namespace

host::Date Today() {
  if (FixedToday() != host::Date{}) return FixedToday();
  const local_system::Day today = local_system::LocalToday();
  return host::Date{today.year, today.month, today.day, 0, 0, 0};
}

void SetTodayForTesting(const host::Date& today) { FixedToday() = today; }

}  // namespace cnv
