// Queries with parameters: a value bound to a "?" selects the rows that the
// same bytes written between quotes into the query select, whatever the
// column's type and character set; a prepared query runs again and again,
// also twice at once; and a value with a quote never reaches a query.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "host/failure.h"
#include "host/text.h"
#include "source/connection.h"
#include "source/recordset.h"
#include "support/fixture.h"
#include "tools/ambulor-sample/sample.h"
#include "tools/ambulor-sample/database_writer.h"

namespace {

using ::testing::HasSubstr;

std::string ConnectionTextFor(const std::string& path) {
  return "Driver={Firebird/InterBase(r) driver};Uid=SYSDBA;Pwd=gravelpin; DbName=" + path;
}

// The IDs of the rows that a query selects, or the failure it gives.
struct Outcome {
  std::vector<int32_t> ids;
  int32_t failure = 0;
  std::string description;
  bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& o, std::ostream* out) {
  *out << "ids {";
  for (int32_t id : o.ids) *out << id << " ";
  *out << "} failure " << o.failure << " " << o.description;
}

// Without an ID column each row counts as 0.
Outcome Select(const std::function<void(source::Recordset&)>& open, bool with_id = true) {
  Outcome outcome;
  try {
    source::Recordset rs;
    for (open(rs); !rs.Eof(); rs.MoveNext()) outcome.ids.push_back(with_id ? rs.Field("ID").integer() : 0);
  } catch (const host::Failure& failure) {
    outcome.failure = failure.number();
    outcome.description = failure.description();
  }
  return outcome;
}

class Statements : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_ / "KEYS.FDB";
    auto writer = sample::DatabaseWriter::Create(path_);
    writer->Execute(
        "CREATE TABLE K (ID INTEGER, KNONE VARCHAR(20), KWIN VARCHAR(20) CHARACTER SET WIN1252, "
        "KUTF VARCHAR(20) CHARACTER SET UTF8, KCHAR CHAR(12), KNUM NUMERIC(18,0), KINT INTEGER, KSHORT VARCHAR(4))");
    writer->Execute("CREATE INDEX K_NONE ON K (KNONE)");
    const std::vector<std::string> texts = {"K\xE0" "1", "K\xC3\xA8" "2", "\xC0ngelo3", "abc", "abc ", "ABC", "x"};
    const std::vector<std::string> utf8 = {"Kà1", "Kè2", "Àngelo3", "abc", "abc ", "ABC", "x"};
    const char* const numbers[] = {"100000", "1234567890123457", "1234567890123456", "0", "-7", "42", "100001"};
    for (int i = 0; i < static_cast<int>(texts.size()); ++i) {
      writer->Insert("K", {{"ID", host::Value::I32(i + 1)}, {"KNONE", texts[i]}, {"KWIN", utf8[i]},
                           {"KUTF", utf8[i]}, {"KCHAR", texts[i]}, {"KNUM", numbers[i]},
                           {"KINT", host::Value::I32(i * 1000)}, {"KSHORT", texts[i].substr(0, 4)}});
    }
    writer->Close();
    connection_.Open(ConnectionTextFor(path_));
  }

  fixture::TempDir dir_;
  std::string path_;
  source::Connection connection_;
};

TEST_F(Statements, ParametersSelectTheRowsThatLiteralsSelect) {
  const char* const columns[] = {"KNONE", "KWIN", "KUTF", "KCHAR", "KNUM", "KINT", "KSHORT"};
  for (const char* column : columns) {
    // Every stored value in the bytes that QueryText gives, and values that
    // compare in the database's own ways: trailing blanks, case, a value
    // longer than the column, nothing, a number written otherwise; for a
    // text column also values of 64 bytes and of more (one query text runs
    // with statements of more room for them), blanks or not at their end.
    std::vector<std::string> probes = {"abc  ", "Abc", "abcdefghijklmnopqrstuvwxyz", "", "42.0", "1e5", "K"};
    if (std::string_view(column) != "KNUM" && std::string_view(column) != "KINT")
      probes.insert(probes.end(), {"abc" + std::string(61, ' '), "abc" + std::string(62, ' '), std::string(64, 'x'),
                                   std::string(65, 'x'), std::string(300, 'a'), std::string(40000, 'x'),
                                   "abc" + std::string(40000, ' '), std::string(65537, 'x')});
    {
      source::Recordset rs;
      for (rs.Open(std::string("SELECT ") + column + " FROM K", connection_); !rs.Eof(); rs.MoveNext())
        probes.push_back(rs.QueryText(column));
    }
    const std::string by_literal = std::string("SELECT ID FROM K WHERE ") + column + " = '";
    const std::string by_parameter = std::string("SELECT ID FROM K WHERE ") + column + " = (?) ORDER BY ID";
    for (const std::string& probe : probes) {
      const Outcome literal =
          Select([&](source::Recordset& rs) { rs.Open(by_literal + probe + "' ORDER BY ID", connection_); });
      const Outcome bound = Select([&](source::Recordset& rs) { rs.Open(by_parameter, {probe}, connection_); });
      EXPECT_EQ(bound, literal) << column << " = '" << probe << "'";
    }
  }
}

TEST_F(Statements, APreparedQueryRunsAgainAndTwiceAtOnce) {
  const std::string sql = "SELECT ID FROM K WHERE KNUM = (?) ORDER BY ID";
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(Select([&](source::Recordset& rs) { rs.Open(sql, {"42"}, connection_); }).ids,
              std::vector<int32_t>{6});
    EXPECT_EQ(Select([&](source::Recordset& rs) { rs.Open(sql, {"100001"}, connection_); }).ids,
              std::vector<int32_t>{7});
  }

  // The same query open in two recordsets at once, each with its own rows;
  // and a recordset opened again after Close.
  const std::string below = "SELECT ID FROM K WHERE KINT < (?) ORDER BY ID";
  source::Recordset outer, inner;
  outer.Open(below, {"3000"}, connection_);
  std::vector<std::pair<int32_t, int32_t>> pairs;
  for (; !outer.Eof(); outer.MoveNext()) {
    inner.Open(below, {std::to_string(outer.Field("ID").integer() * 1000 - 1000)}, connection_);
    for (; !inner.Eof(); inner.MoveNext()) pairs.emplace_back(outer.Field("ID").integer(), inner.Field("ID").integer());
    inner.Close();
  }
  outer.Close();
  EXPECT_EQ(pairs, (std::vector<std::pair<int32_t, int32_t>>{{2, 1}, {3, 1}, {3, 2}}));

  // A query that fails to prepare fails the same way every time.
  auto nowhere = [&](source::Recordset& rs) { rs.Open("SELECT ID FROM NOWHERE WHERE X = ?", {"1"}, connection_); };
  const Outcome bad = Select(nowhere);
  EXPECT_NE(bad.failure, 0);
  EXPECT_EQ(Select(nowhere), bad);

  // A recordset left open when its connection closes fails from then on,
  // and the connection opens again with nothing left over.
  source::Recordset left_open;
  left_open.Open(sql, {"42"}, connection_);
  connection_.Close();
  EXPECT_THROW(left_open.MoveNext(), host::Failure);
  left_open.Close();
  connection_.Open(ConnectionTextFor(path_));
  EXPECT_EQ(Select([&](source::Recordset& rs) { rs.Open(sql, {"42"}, connection_); }).ids, std::vector<int32_t>{6});
}

// A key with a quote, whichever table a converter reads by it: the query
// fails as the database fails it with the key written into its text, and no
// key reaches another patient's rows.
TEST(QuoteKeys, FailAsTheDatabaseFailsAndSelectNothing) {
  fixture::TempDir dir;
  const std::vector<sample::Table> schema = sample::DefaultSchema();
  auto archive = sample::Archive::Create(dir.path().string(), schema);
  struct Lookup {
    std::string table, column;
    sample::Database database;
  };
  std::vector<Lookup> lookups;
  for (const sample::Table& table : schema) {
    for (const sample::Column& column : table.columns) {
      const std::string name = host::text::Upper(column.name);
      if (name != "CODCART" && name != "COD_CART" && name != "CODESAME") continue;
      lookups.push_back({table.name, column.name, table.database});
      for (const char* key : {"A1", "O'Brien1"}) archive->Insert(table.name, {{column.name, key}});
    }
  }
  archive->Close();
  ASSERT_GE(lookups.size(), 15u);

  source::Connection user, media;
  user.Open(ConnectionTextFor(dir / "GX_USER.FDB"));
  media.Open(ConnectionTextFor(dir / "GX_MEDIA.FDB"));
  for (const Lookup& lookup : lookups) {
    source::Connection& connection = lookup.database == sample::Database::Media ? media : user;
    const std::string sql = "SELECT * from " + lookup.table + " where " + lookup.column + " = (?)";
    auto rows_for = [&](const std::string& key) {
      return Select([&](source::Recordset& rs) { rs.Open(sql, {key}, connection); }, false);
    };
    EXPECT_EQ(rows_for("A1").ids.size(), 1u) << sql;

    // An apostrophe in a name: exactly what the key written into the text
    // gives, a syntax error at the letters after it.
    const Outcome literal = Select(
        [&](source::Recordset& rs) {
          rs.Open("SELECT * from " + lookup.table + " where " + lookup.column + " = ('O'Brien1')", connection);
        },
        false);
    ASSERT_EQ(literal.failure, 335544569) << sql;
    EXPECT_THAT(literal.description, HasSubstr("Token unknown"));
    EXPECT_EQ(rows_for("O'Brien1"), literal) << sql;

    // Keys that would close the literal and select more, or comment the
    // rest away, or hold nothing but quotes.
    for (const std::string& key :
         {std::string("X') OR ('1'='1"), std::string("A1') --"), std::string("A1'"), std::string("''"),
          std::string("A1'' "), "') OR 1=1 OR (" + lookup.column + "='A1"}) {
      const Outcome outcome = rows_for(key);
      EXPECT_EQ(outcome.failure, 335544569) << sql << " " << key;
      EXPECT_THAT(outcome.description, HasSubstr("SQL error code = -104; Token unknown - line 1, column ")) << key;
      EXPECT_TRUE(outcome.ids.empty()) << key;
    }
  }
}

}  // namespace
