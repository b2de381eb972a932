#include "support/fixture.h"

#include <algorithm>
#include <fstream>
#include <random>

#include <gtest/gtest.h>
#include <ibase.h>
#include <sqlite3.h>

#include "plugin/Conversione.h"

namespace fixture {
namespace {

// The embedded engine's threads end with the tests, before the process's
// leak check runs at exit.
class FirebirdShutdown : public ::testing::Environment {
 public:
  void TearDown() override { fb_shutdown(0, fb_shutrsn_app_stopped); }
};
[[maybe_unused]] ::testing::Environment* const firebird_shutdown =
    ::testing::AddGlobalTestEnvironment(new FirebirdShutdown);

}  // namespace

TempDir::TempDir() {
  std::random_device random;
  path_ = std::filesystem::temp_directory_path() / ("kairon-test-" + std::to_string(random()));
  std::filesystem::create_directories(path_);
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void SetColumn(sample::Row& row, const std::string& column, const host::Value& value) {
  auto same = std::find_if(row.begin(), row.end(), [&](const auto& c) { return c.first == column; });
  if (same != row.end())
    same->second = value;
  else
    row.emplace_back(column, value);
}

sample::Row Patient(const std::string& cod_cart, const std::string& cognome, const sample::Row& extra) {
  sample::Row row = {{"Cod_Cart", cod_cart},
                     {"cognome", cognome},
                     {"nome", "Mario"},
                     {"CodFisc", "RSSMRA50C07H501X"},
                     {"DataNat", host::Date{1950, 3, 7}},
                     {"CodiceSSN", "80380800000000000001"}};
  for (const auto& [column, value] : extra) SetColumn(row, column, value);
  return row;
}

std::vector<json> Run::Calls(const std::string& object_suffix, const std::string& member) const {
  std::vector<json> calls;
  for (const json& line : trace) {
    if (line["op"] != "call" || line["member"] != member || line.contains("failed")) continue;
    std::string obj = line["obj"];
    if (obj.size() >= object_suffix.size() && obj.compare(obj.size() - object_suffix.size(), std::string::npos,
                                                          object_suffix) == 0)
      calls.push_back(line);
  }
  return calls;
}

std::vector<json> Run::ArgsOf(const std::string& object_suffix, const std::string& member) const {
  std::vector<json> args;
  for (const json& call : Calls(object_suffix, member)) args.push_back(call["args"]);
  return args;
}

std::vector<std::string> Run::Messages() const {
  std::vector<std::string> messages;
  for (const json& line : trace) {
    if (line["obj"] != "Interface" || line["op"] != "call") continue;
    std::string member = line["member"];
    if (member == "AddMsg" || member == "ChangeMsg" || member == "AddInfo")
      messages.push_back(member + ": " + line["args"][0]["value"].get<std::string>());
  }
  return messages;
}

Run Convert(const std::string& user_path, refhost::ConvertOptions options) {
  std::filesystem::path folder = std::filesystem::path(user_path).parent_path();
  if (options.conn.empty()) options.conn = user_path;
  if (options.archive.empty()) options.archive = (folder / "kairon.sqlite").string();
  if (options.trace.empty()) options.trace = (folder / "trace.jsonl").string();
  if (options.data_dir.empty()) options.data_dir = KAIRON_DATA_DIR;
  Run run;
  if (options.tempdir.empty()) {
    run.own_tempdir = std::make_shared<TempDir>();
    options.tempdir = run.own_tempdir->path().string();
  }
  std::filesystem::create_directories(options.tempdir);
  options.overwrite = true;

  run.archive = options.archive;
  run.tempdir = options.tempdir;
  run.outcome = refhost::Convert(std::make_shared<cnv::Conversione>(), options);
  std::ifstream trace(options.trace);
  for (std::string line; std::getline(trace, line);) run.trace.push_back(json::parse(line));
  return run;
}

std::vector<std::vector<std::string>> ArchiveRows(const std::string& file, const std::string& sql) {
  std::vector<std::vector<std::string>> rows;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) == SQLITE_OK)
      while (sqlite3_step(stmt) == SQLITE_ROW) {
        rows.emplace_back();
        for (int i = 0; i < sqlite3_column_count(stmt); ++i) {
          auto text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, i));
          rows.back().push_back(text ? text : "NULL");
        }
      }
    sqlite3_finalize(stmt);
  }
  sqlite3_close(db);
  return rows;
}

json Text(const std::string& s) { return {{"type", "text"}, {"value", s}}; }
json I16(int n) { return {{"type", "i16"}, {"value", n}}; }
json I32(int n) { return {{"type", "i32"}, {"value", n}}; }
json F64(double d) { return {{"type", "f64"}, {"value", d}}; }
json Bool(bool b) { return {{"type", "bool"}, {"value", b}}; }

}  // namespace fixture
