// What one long text costs the conversion in memory: the reference host,
// run as a program of its own, converts a note of some 30 MB and stays
// within 64 MiB plus four times the text, whether the text is plain ASCII or
// full of bytes that become longer in UTF-8 and in JSON, and with the trace.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/text.h"
#include "support/fixture.h"
#include "support/process.h"
#include "tools/kairon-convert/typed_value.h"

namespace {

constexpr size_t kTextBytes = 30u << 20;

// The sanitizers' build keeps freed memory in quarantine and shadows all of
// it: its peak says nothing of the program's, so there only the archive and
// the trace are checked.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kPeakIsMeasured = false;
#else
constexpr bool kPeakIsMeasured = true;
#endif

// Runs kairon-convert with args under /usr/bin/time: its exit status and
// the peak of its resident memory in bytes. The peak is taken by a process
// of its own: a child of this one would inherit this one's peak at exec.
std::pair<int, uint64_t> RunMeasured(const std::vector<std::string>& args, const std::string& peak_file) {
  std::vector<std::string> command = {"/usr/bin/time", "-f", "%M", "-o", peak_file, KAIRON_CONVERT_PATH};
  command.insert(command.end(), args.begin(), args.end());
  const int status = support::Run(command, peak_file + ".run").status;
  uint64_t kib = 0;
  std::ifstream(peak_file) >> kib;
  return {status, kib * 1024};
}

// The args of the one Appunti record of the archive, when they are text.
std::string NoteArgs(const std::string& archive) {
  const auto rows =
      fixture::ArchiveRows(archive, "SELECT args FROM records WHERE store = 'Appunti' AND typeof(args) = 'text'");
  return rows.empty() ? "" : rows.front().front();
}

// One patient with one note, its text the pattern repeated to some
// kTextBytes, by default in a column without character set.
class LongValueMemory : public ::testing::Test {
 protected:
  void Convert(const std::string& pattern, bool trace, const std::string& column_type = "BLOB SUB_TYPE 1") {
    const size_t repeats = kTextBytes / pattern.size();
    std::string text;
    text.reserve(repeats * pattern.size());
    for (size_t i = 0; i < repeats; ++i) text += pattern;
    std::vector<sample::Table> schema = sample::DefaultSchema();
    sample::SetColumnType(schema, "MESSAGES", "MESG", column_type);
    auto source = sample::Archive::Create(dir_ / "source", schema);
    source->Insert("PAZIENTI", fixture::Patient("L1", "LUNGO"));
    source->Insert("MESSAGES", {{"CodCart", "L1"}, {"MESG", host::Value(std::move(text))}});
    source->Close();
    std::vector<std::string> args = {"convert", source->user_path(), "--archive", dir_ / "out.sqlite",
                                     "--options", "Appunti", "--plugin", KAIRON_PLUGIN_PATH};
    if (trace) {
      args.push_back("--trace");
      args.push_back(dir_ / "trace.jsonl");
    }
    const auto [status, peak] = RunMeasured(args, dir_ / "peak.txt");
    ASSERT_EQ(status, 0);
    const uint64_t value_bytes = repeats * host::text::FromLegacyBytes(pattern).size();
    if (kPeakIsMeasured) {
      EXPECT_LE(peak, (uint64_t{64} << 20) + 4 * value_bytes) << "peak resident MiB: " << (peak >> 20);
    }

    // The note reached the archive whole, twice, as text.
    std::string json_pattern;
    refhost::AppendJsonString(json_pattern, host::text::FromLegacyBytes(pattern));
    json_pattern = json_pattern.substr(1, json_pattern.size() - 2);
    const std::string stored = NoteArgs(dir_ / "out.sqlite");
    ASSERT_GE(stored.size(), 2 * repeats * json_pattern.size());
    EXPECT_LT(stored.size() - 2 * repeats * json_pattern.size(), 300u);  // the other five arguments
    const std::string opening = "{\"type\":\"text\",\"value\":\"" + json_pattern + json_pattern;
    const size_t first = stored.find(opening);
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(stored.find(opening, first + 1), std::string::npos);
    if (trace) {
      const std::string lines = support::ReadFile(dir_ / "trace.jsonl");
      EXPECT_NE(lines.find(",\"args\":" + stored + ",\"returns\":"), std::string::npos);
    }
  }

  fixture::TempDir dir_;
};

// Windows-1252 bytes (two and three bytes each in UTF-8), quotes, line ends
// and a control character, escaped in JSON.
TEST_F(LongValueMemory, TextThatGrowsInUtf8AndJson) { Convert("Caff\xE8 \x80 5, \"s\xEC\"\r\n\tfine\x01 ", false); }

// The same bytes in a column that declares its character set.
TEST_F(LongValueMemory, TextInADeclaredCharacterSet) {
  Convert("Caff\xE8 \x80 5, \"s\xEC\"\r\n\tfine\x01 ", false, "BLOB SUB_TYPE 1 CHARACTER SET WIN1252");
}

// Plain ASCII, with the trace, which holds the arguments once more.
TEST_F(LongValueMemory, PlainTextWithTheTrace) { Convert("Paziente richiamato per esito esami. ", true); }

// The arguments' JSON made a piece at a time reads as the library writes
// it, escapes falling on every side of the pieces' bounds, and with a text
// that isn't UTF-8 among them.
TEST(TypedArrayInPieces, ReadsAsTheLibraryWritesIt) {
  std::string escapes;
  while (escapes.size() < (300u << 10)) escapes += "a\"\\\n\x01\xC3\xA8\xE2\x82\xAC ";
  const std::vector<host::Value> values = {host::Value(std::string(200u << 10, 'x')), host::Value(escapes),
                                           host::Value(std::string(70u << 10, 'y') + "\xC3"), host::Value(3.5),
                                           host::Value::Null(), host::Value("corto")};
  nlohmann::ordered_json array = nlohmann::ordered_json::array();
  for (const host::Value& value : values) array.push_back(refhost::TypedValue(value));
  std::string pieces;
  size_t longest = 0;
  refhost::WriteTypedArray(values, [&](std::string_view piece) {
    pieces += piece;
    longest = std::max(longest, piece.size());
  });
  EXPECT_EQ(pieces, array.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  EXPECT_LT(longest, 200u << 10);  // slices of the texts, never one whole
}

}  // namespace
