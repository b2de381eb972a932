// The reading rules and shared routines that every converter leans on.
#include <gtest/gtest.h>

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <fstream>
#include <set>
#include <sstream>

#include "host/failure.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/keyed_list.h"
#include "support/fixture.h"

namespace {

using fixture::FailureOf;

using host::Date;
using host::Value;

TEST(TextOf, EveryValueTypeBecomesText) {
  const std::pair<Value, const char*> cases[] = {
      {Value(), ""},
      {Value::Null(), ""},
      {Value("Rossi"), "Rossi"},
      {Value::I16(-7), "-7"},
      {Value(72.5), "72.5"},
      {Value(100000.0), "100000"},
      {Value::Bool(true), "True"},
      {Value(Date{1950, 3, 7}), "07/03/1950"},
      {Value(Date{2019, 12, 31, 8, 5, 0}), "31/12/2019 08:05:00"},
      {Value::Bytes({'a', 0xE8}), "a\xC3\xA8"}};
  for (const auto& [value, text] : cases) EXPECT_EQ(cnv::TextOf(value), text) << text;
  EXPECT_EQ(FailureOf([] { cnv::TextOf(Value(host::ObjectRef())); }), host::failures::kTypeMismatch);
}

TEST(NumberText, PlainDecimalsUpToFifteenDigitsThenTheExponent) {
  const std::pair<double, const char*> cases[] = {
      {2000000, "2000000"},          {-0.25, "-0.25"},
      {0.1 + 0.2, "0.3"},            {1.0 / 3.0, "0.333333333333333"},
      {0.0001, "0.0001"},            {0.00012345, "0.00012345"},
      {-0.0, "0"},                   {123456789012345.0, "123456789012345"},
      {1e15, "1E+15"},               {999999999999999.9, "1E+15"},
      {0.00001, "1E-05"},            {1234567890123456.0, "1.23456789012346E+15"},
      {-0.000015, "-1.5E-05"},       {1e100, "1E+100"}};
  for (const auto& [number, text] : cases) EXPECT_EQ(host::NumberText(number), text);
}

// Dates as stored and as people type them; what reads as no date goes on
// unchanged, or gives way to the fallback when there is one.
TEST(DateText, DatesTimestampsTextsAndFallbacks) {
  struct Case {
    Value value;
    std::string fallback, read;
  };
  const Case cases[] = {
      {Date{2014, 1, 5, 23, 59, 59}, "", "05/01/2014"}, {"2014-01-05 10:30", "", "05/01/2014"},
      {"  05/01/2014  ", "", "05/01/2014"},              {Value::Null(), "", ""},
      {"revocato", "", "revocato"},                      {"31/02/2014", "", "31/02/2014"},
      {Value::Null(), "01/01/2012", "01/01/2012"},       {"29/02/2013", "01/01/2012", "01/01/2012"},
      {"29/02/2012", "01/01/2014", "29/02/2012"},        {Date{1900, 1, 1}, "01/01/2012", "01/01/1900"},
      {"07/03/1950 10.30.15", "-", "07/03/1950"},        {"7-3-1950 9:05", "-", "07/03/1950"},
      {"07.03.50", "-", "07/03/1950"},                   {"7/3/29", "-", "07/03/2029"},
      {"7/3/30", "-", "07/03/1930"},                     {"7 mar 1950", "-", "07/03/1950"},
      {"07-MAR-1950", "-", "07/03/1950"},                {"31 dic 99", "-", "31/12/1999"},
      {"15/ago/2010", "-", "15/08/2010"},                {"2 set. 2014 08.15", "-", "02/09/2014"},
      {"12 SETTEMBRE 1975", "-", "12/09/1975"},          {"1950-03-07T10:30:00", "-", "07/03/1950"},
      {"07/03/1950 10:30:15.250", "-", "07/03/1950"}};
  for (const Case& c : cases)
    EXPECT_EQ(c.fallback.empty() ? cnv::DateText(c.value) : cnv::DateText(c.value, c.fallback), c.read) << c.read;
  // Month first, English names, impossible dates, mixed separators and
  // texts that merely start like a date stay unread.
  for (const char* unread : {"mar 7 1950", "March 7, 1950", "7 march 1950", "7 marz 1950", "29 feb 2013",
                             "07/03-1950", "7 3 1950", "07/03/1950 10", "07/03/1950 10.30:15", "07/03/1950 25.00",
                             "12.5 mg", "7marzo1950", "07/03/195", "1950/3", "marzo"})
    EXPECT_EQ(cnv::DateText(Value(unread), "none"), "none") << unread;
}

// The longest numeric beginning; a decimal number has no exponent, so "e"
// (or "d") ends it like any letter.
TEST(NumberOf, LongestNumericBeginning) {
  const std::pair<Value, double> cases[] = {
      {" 7 2.5 kg", 72.5}, {"7,5", 7},   {"-3.25", -3.25}, {"+4", 4},  {".5", 0.5},     {"1 e 1/2", 1},
      {"1e3x", 1},         {"2.5E-1", 2.5}, {"4D2", 4},    {"1.5.2", 1.5}, {"abc", 0},    {"-", 0},
      {Value::Null(), 0},  {Value(24.75), 24.75},          {Value::I16(80), 80},          {Value(1e20), 1e20}};
  for (const auto& [value, number] : cases) EXPECT_EQ(cnv::NumberOf(value), number) << cnv::TextOf(value);
  // Digits beyond a double's range overflow; as many after the period are
  // just a long fraction.
  EXPECT_EQ(FailureOf([] { cnv::NumberOf(Value(std::string(400, '9'))); }), host::failures::kOverflow);
  EXPECT_EQ(cnv::NumberOf(Value("0." + std::string(400, '9'))), 1);
}

TEST(BytesOf, BinaryTextAndNull) {
  // Binary content is the column's own, not a copy, and stays when the
  // column's value goes.
  Value column = Value::Bytes({0x1F, 0x8B, 0x08, 0x00});
  const Value held = cnv::BytesOf(column);
  EXPECT_EQ(held.bytes().data(), column.bytes().data());
  column = Value();
  EXPECT_EQ(held.bytes(), (std::vector<uint8_t>{0x1F, 0x8B, 0x08, 0x00}));
  EXPECT_EQ(cnv::BytesOf(Value("ab")), Value::Bytes({'a', 'b'}));
  EXPECT_EQ(cnv::BytesOf(Value::Null()), Value::Bytes({}));
  EXPECT_EQ(FailureOf([] { cnv::BytesOf(Value(1.5)); }), host::failures::kTypeMismatch);
  // Copies compare by content; a value moved from holds none.
  Value moved = Value::Bytes({1, 2});
  const Value taken = std::move(moved);
  EXPECT_NE(taken, Value::Bytes({1, 3}));
  EXPECT_TRUE(moved.bytes().empty());  // NOLINT(bugprone-use-after-move)
}

TEST(Percentuale, RoundsToFourDecimalsThenFloors) {
  EXPECT_EQ(cnv::Percentuale(2, 3), 66);
  EXPECT_EQ(cnv::Percentuale(1999, 2000), 99);
  // 0.99996 rounds to 1.0000 at four decimals before the floor.
  EXPECT_EQ(cnv::Percentuale(24999, 25000), 100);
  EXPECT_EQ(FailureOf([] { cnv::Percentuale(1, 0); }), host::failures::kDivisionByZero);
}

TEST(EsisteFile, EmptyFilesCountBlanksAndFoldersDoNot) {
  fixture::TempDir dir;
  std::ofstream(dir / "empty.fdb").close();
  EXPECT_TRUE(cnv::EsisteFile(dir / "empty.fdb"));
  EXPECT_FALSE(cnv::EsisteFile(dir / "missing.fdb"));
  EXPECT_FALSE(cnv::EsisteFile("   "));
  EXPECT_FALSE(cnv::EsisteFile(dir.path().string()));
}

TEST(Text, CharactersNotBytes) {
  EXPECT_EQ(host::text::Upper("niccolò d'àngelo"), "NICCOLÒ D'ÀNGELO");
  EXPECT_EQ(host::text::Left("àèìòù", 3), "àèì");
  EXPECT_EQ(host::text::Length("perché"), 6u);
  EXPECT_EQ(host::text::Trim("  a b \t "), "a b \t");
  EXPECT_EQ(host::text::FromLegacyBytes("Nicol\xF2"), "Nicolò");
  EXPECT_EQ(host::text::FromLegacyBytes("già UTF-8"), "già UTF-8");
  // Windows-1252 written back gives the bytes it was read from, all 256.
  std::string every_byte;
  for (int b = 1; b < 256; ++b) every_byte += static_cast<char>(b);
  EXPECT_EQ(host::text::ToWindows1252(host::text::FromLegacyBytes(every_byte)), every_byte);
  EXPECT_FALSE(host::text::ToWindows1252("Łódź").has_value());
}

TEST(Text, CaseIsOneCharacterForOne) {
  EXPECT_EQ(host::text::Upper("straße ǆ ŉ"), "STRAßE Ǆ ŉ");
  EXPECT_EQ(host::text::Lower("ΟΔΟΣ İ"), "οδοσ i");
  EXPECT_EQ(host::text::Upper("a\xFF" "b\xE0\x80"), "A\uFFFD" "B\uFFFD\uFFFD");
}

// Length, Left and the test of well-formed UTF-8 walk text themselves; they
// must agree with ICU's reading on every short sequence, ill-formed ones
// included: all pairs of bytes, and runs of four drawn from the bytes where
// the rules change.
TEST(Text, WalksUtf8AsIcuDoes) {
  const auto icu_length = [](const std::string& s, bool& valid) {
    int32_t at = 0, length = static_cast<int32_t>(s.size());
    size_t count = 0;
    valid = true;
    while (at < length) {
      UChar32 c;
      U8_NEXT(s.data(), at, length, c);
      valid = valid && c >= 0;
      ++count;
    }
    return count;
  };
  const auto check = [&](const std::string& s) {
    bool valid;
    const size_t count = icu_length(s, valid);
    ASSERT_EQ(host::text::Length(s), count) << testing::PrintToString(s);
    ASSERT_EQ(host::text::IsValidUtf8(s), valid) << testing::PrintToString(s);
    int32_t at = 0;
    U8_FWD_1(s.data(), at, static_cast<int32_t>(s.size()));
    ASSERT_EQ(host::text::Left(s, 1), s.substr(0, static_cast<size_t>(at))) << testing::PrintToString(s);
  };
  for (int a = 0; a < 256; ++a)
    for (int b = 0; b < 256; ++b) check({static_cast<char>(a), static_cast<char>(b)});
  const unsigned char edges[] = {0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2,
                                 0xDF, 0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF3, 0xF4, 0xF5, 0xFF};
  for (unsigned char a : edges)
    for (unsigned char b : edges)
      for (unsigned char c : edges)
        for (unsigned char d : edges)
          check({static_cast<char>(a), static_cast<char>(b), static_cast<char>(c), static_cast<char>(d)});
}

// tests/windows/case_table.inc holds every character of Windows-1252, Latin-1
// Supplement, Latin Extended-A and Greek with its upper and lower case as
// made here, and the Windows tests check that the system's mapping gives the
// same. KAIRON_UPDATE_CASE_TABLE=1 rewrites it.
TEST(CaseTable, IsCurrent) {
  std::set<UChar32> characters;
  for (int b = 0; b < 256; ++b) {
    const std::string utf8 = host::text::FromWindows1252(std::string(1, static_cast<char>(b)));
    int32_t at = 0;
    UChar32 c;
    U8_NEXT(utf8.data(), at, static_cast<int32_t>(utf8.size()), c);
    characters.insert(c);
  }
  for (UChar32 c = 0x80; c <= 0x17F; ++c) characters.insert(c);
  for (UChar32 c = 0x370; c <= 0x3FF; ++c) characters.insert(c);
  std::ostringstream table;
  table << "// Every character of Windows-1252, Latin-1 Supplement, Latin Extended-A and\n"
           "// Greek: {character, upper case, lower case}, as ICU's simple case mapping\n"
           "// gives them. Made by reading_rules_test (CaseTable.IsCurrent); don't edit.\n";
  char row[64];
  for (UChar32 c : characters) {
    if (c == 0 || u_charType(c) == U_UNASSIGNED) continue;
    std::snprintf(row, sizeof row, "{0x%04X, 0x%04X, 0x%04X},\n", c, u_toupper(c), u_tolower(c));
    table << row;
  }
  const std::filesystem::path file = std::filesystem::path(KAIRON_DATA_DIR) / "../tests/windows/case_table.inc";
  if (std::getenv("KAIRON_UPDATE_CASE_TABLE") != nullptr) std::ofstream(file, std::ios::binary) << table.str();
  std::ifstream in(file, std::ios::binary);
  const std::string stored((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(stored, table.str()) << "run with KAIRON_UPDATE_CASE_TABLE=1 to rewrite " << file;
}

TEST(KeyedList, KeysIgnoreCaseAndRefuseDuplicates) {
  cnv::KeyedList list;
  list.Add("I12");
  EXPECT_TRUE(list.Contains("i12"));
  EXPECT_FALSE(list.Contains("I1"));
  EXPECT_EQ(FailureOf([&] { list.Add("i12"); }), host::failures::kDuplicateKey);
}

TEST(Value, ConversionsAndTruth) {
  EXPECT_TRUE(cnv::IsTrue(Value::I16(-1)));
  EXPECT_FALSE(cnv::IsTrue(Value::I16(1)));
  EXPECT_FALSE(cnv::IsTrue(Value("True")));
  EXPECT_EQ(FailureOf([] { host::TruthOf(Value::Null()); }), host::failures::kInvalidUseOfNull);
  EXPECT_EQ(FailureOf([] { host::Get(Value("x"), "Salva"); }), host::failures::kObjectRequired);
  EXPECT_FALSE(host::DateOf(Value(Date{2013, 2, 29})).has_value());
  // Only A to Z fold: accented letters (UTF-8 bytes) compare as they are,
  // and names order as their lower case does ("_" before "a").
  EXPECT_FALSE(host::SameName("Età", "ETÀ"));
  EXPECT_TRUE(host::SameName("ETà", "età"));
  EXPECT_TRUE(host::NameLess()("_x", "Ax"));
  EXPECT_FALSE(host::NameLess()("Ax", "_x"));
  EXPECT_FALSE(host::NameLess()("ab", "AB"));
}

}  // namespace
