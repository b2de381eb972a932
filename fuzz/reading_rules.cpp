// The reading rules over arbitrary column content: the date text (with and
// without fallback), the number of and the text of a value made from the
// bytes as the source would give them (Windows-1252 text), and from the bytes
// taken as UTF-8 text as they stand.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/failure.h"
#include "host/text.h"
#include "host/value.h"
#include "plugin/modConversione.h"

namespace {

bool IsDateText(const std::string& s) {
  if (s.size() != 10 || s[2] != '/' || s[5] != '/') return false;
  for (size_t i : {0u, 1u, 3u, 4u, 6u, 7u, 8u, 9u})
    if (s[i] < '0' || s[i] > '9') return false;
  const int day = std::atoi(s.substr(0, 2).c_str());
  const int month = std::atoi(s.substr(3, 2).c_str());
  return day >= 1 && day <= 31 && month >= 1 && month <= 12;
}

void Check(const host::Value& value) {
  const std::string text = cnv::TextOf(value);
  const std::string date = cnv::DateText(value);
  const std::string with_fallback = cnv::DateText(value, "01/01/2012");
  // A value read as a date gives the same date with or without fallback;
  // one that reads as none comes back as its text, or as the fallback.
  if (with_fallback.empty()) std::abort();
  if (with_fallback == "01/01/2012" && date != text && date != "01/01/2012") std::abort();
  if (with_fallback != "01/01/2012" && (date != with_fallback || !IsDateText(date))) std::abort();
  // A date text reads again as itself.
  if (IsDateText(date) && cnv::DateText(host::Value(date)) != date) std::abort();
  // A number beyond a double's range is an overflow (6), which the
  // converters' traps take like any failure; nothing else is raised.
  try {
    (void)cnv::NumberOf(value);
  } catch (const host::Failure& failure) {
    if (failure.number() != host::failures::kOverflow) throw;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  Check(host::Value(host::text::FromLegacyBytes(bytes)));
  Check(host::Value(bytes));
  return 0;
}
