// Upper and lower case on Windows give what ICU gives on Linux, for every
// character of Windows-1252, Latin-1 Supplement, Latin Extended-A and Greek
// (tests/windows/case_table.inc, made on Linux).
#include <gtest/gtest.h>

#include <cstdio>
#include <iterator>
#include <string>

#include "host/text.h"
#include "host/windows/variant.h"

namespace {

struct Row {
  char16_t character, upper, lower;
};

constexpr Row kTable[] = {
#include "tests/windows/case_table.inc"
};

std::string Utf8Of(char16_t c) { return host::windows::Utf8(std::wstring(1, static_cast<wchar_t>(c))); }

TEST(WindowsText, CaseAsIcuGivesOnLinux) {
  std::string differences;
  char line[80];
  for (const Row& row : kTable) {
    const std::string character = Utf8Of(row.character);
    const std::string upper = host::text::Upper(character), lower = host::text::Lower(character);
    if (upper == Utf8Of(row.upper) && lower == Utf8Of(row.lower)) continue;
    const std::wstring got_upper = host::windows::Utf16(upper), got_lower = host::windows::Utf16(lower);
    std::snprintf(line, sizeof line, "U+%04X: upper U+%04X (Linux U+%04X), lower U+%04X (Linux U+%04X)\n",
                  row.character, got_upper.empty() ? 0u : unsigned(got_upper[0]), row.upper,
                  got_lower.empty() ? 0u : unsigned(got_lower[0]), row.lower);
    differences += line;
  }
  EXPECT_EQ(differences, "");
  EXPECT_GT(std::size(kTable), 500u);
  EXPECT_EQ(host::text::Upper("straße Ωμέγα àèìòù"), "STRAßE ΩΜΈΓΑ ÀÈÌÒÙ");
  EXPECT_EQ(host::text::Lower("ÀÈÌ ΣΟΦΊΑ"), "àèì σοφία");
}

}  // namespace
