// Rows read ahead for a patient: the queries that a connection ran with the
// patient's key are run again for the next key in one go, and recordsets
// take those rows from memory exactly as the database would give them.
#include <gtest/gtest.h>

#include <map>

#include "host/failure.h"
#include "source/connection.h"
#include "source/recordset.h"
#include "support/fixture.h"
#include "tools/ambulor-sample/database_writer.h"

namespace {

// Every field of every row as the recordset gives it, or the failure.
using Rows = std::vector<std::vector<std::string>>;
struct Outcome {
  Rows rows;
  std::string failure;
  bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& o, std::ostream* out) {
  *out << o.rows.size() << " rows, failure '" << o.failure << "'";
}

class ReadAhead : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = (dir_.path() / "AHEAD.FDB").string();
    auto writer = sample::DatabaseWriter::Create(path_);
    writer->Execute("CREATE TABLE R (ID INTEGER, K VARCHAR(10), TESTO BLOB SUB_TYPE TEXT, DATI BLOB, DATA DATE)");
    writer->Execute("CREATE INDEX R_K ON R (K)");
    writer->Execute("CREATE TABLE BIG (ID INTEGER, K VARCHAR(10), PIENO CHAR(4000))");
    writer->Execute("CREATE INDEX BIG_K ON BIG (K)");
    int id = 0;
    for (const char* key : {"C", "A", "C", "A", "A", "Q'1"}) {
      ++id;
      writer->Insert("R", {{"ID", host::Value::I32(id)},
                           {"K", key},
                           {"TESTO", id % 2 ? host::Value("testo " + std::to_string(id)) : host::Value::Null()},
                           {"DATI", host::Value::Bytes({0x1F, 0x8B, static_cast<uint8_t>(id)})},
                           {"DATA", host::Value(host::Date{2020, 1, id})}});
    }
    // More than the 4 MiB that one query's rows may take in memory.
    for (int i = 0; i < 1200; ++i)
      writer->Insert("BIG", {{"ID", host::Value::I32(i)}, {"K", "A"}, {"PIENO", std::string(3000, 'x')}});
    writer->Close();
  }

  std::string ConnectionText() const { return "Uid=SYSDBA;Pwd=masterkey;DbName=" + path_; }

  static Outcome Run(source::Connection& connection, const std::string& sql, const std::string& key) {
    Outcome outcome;
    try {
      source::Recordset rs;
      rs.Open(sql, {key}, connection);
      for (; !rs.Eof(); rs.MoveNext()) {
        std::vector<std::string> fields;
        for (const char* name : {"ID", "K", "TESTO", "DATI", "DATA"}) {
          if (std::string(name) != "ID" && std::string(name) != "K" && sql.find(" BIG ") != std::string::npos) continue;
          const host::Value value = rs.Field(name);
          fields.push_back(value.is_null() ? "Null" : value.type() == host::Type::Bytes
                                                          ? std::to_string(value.bytes().back())
                                                          : host::TextOf(value));
        }
        fields.push_back(rs.QueryText("K"));
        outcome.rows.push_back(std::move(fields));
      }
    } catch (const host::Failure& failure) {
      outcome.failure = std::to_string(failure.number()) + " " + failure.description();
    }
    return outcome;
  }

  fixture::TempDir dir_;
  std::string path_;
};

const std::vector<std::string> kQueries = {
    "SELECT * FROM R WHERE K = (?)",           "SELECT * FROM R WHERE (K= ?) ORDER BY DATA DESC",
    "SELECT * FROM BIG WHERE K = ?",           "SELECT * FROM MISSING WHERE K = ?",
    "SELECT * FROM R WHERE K = ? AND ID > 100"};

TEST_F(ReadAhead, EachPatientGetsTheRowsTheDatabaseGivesInTheSameOrder) {
  // What each query gives each key on a connection that reads nothing ahead.
  std::map<std::pair<std::string, std::string>, Outcome> expected;
  {
    source::Connection plain;
    plain.Open(ConnectionText());
    for (const std::string key : {"A", "C", "B", "Q'1", "A"})
      for (const std::string& sql : kQueries) expected[{sql, key}] = Run(plain, sql, key);
  }
  auto of = [&](size_t query, const std::string& key) { return expected[{kQueries[query], key}]; };
  EXPECT_EQ(of(0, "A").rows.size(), 3u);
  EXPECT_EQ(of(2, "A").rows.size(), 1200u);
  EXPECT_NE(of(3, "A").failure, "");
  EXPECT_NE(of(0, "Q'1").failure, "");

  // The patients one after the other, each query run twice for its patient
  // (two categories reading one table), once more with another key.
  source::Connection connection;
  connection.Open(ConnectionText());
  for (const std::string key : {"A", "C", "B", "Q'1", "A"}) {
    SCOPED_TRACE(key);
    source::ReadAhead(connection, key);
    for (const std::string& sql : kQueries) {
      SCOPED_TRACE(sql);
      EXPECT_EQ(Run(connection, sql, key), (expected[{sql, key}]));
      EXPECT_EQ(Run(connection, sql, key), (expected[{sql, key}]));
      EXPECT_EQ(Run(connection, sql, "C"), (expected[{sql, "C"}]));
    }
  }
}

TEST_F(ReadAhead, RecordsetsOfOneQueryReadTheRowsAheadEachInTurn) {
  source::Connection connection;
  connection.Open(ConnectionText());
  source::ReadAhead(connection, "C");
  Run(connection, kQueries[0], "C");
  source::ReadAhead(connection, "A");
  source::Recordset first, second;
  first.Open(kQueries[0], {"A"}, connection);
  second.Open(kQueries[0], {"A"}, connection);
  std::vector<int32_t> ids;
  for (; !first.Eof(); first.MoveNext()) {
    ids.push_back(first.Field("ID").integer());
    if (!second.Eof()) {
      ids.push_back(second.Field("ID").integer());
      EXPECT_EQ(host::TextOf(second.Field("TESTO")), host::TextOf(first.Field("TESTO")));
      second.MoveNext();
    }
  }
  EXPECT_TRUE(second.Eof());
  EXPECT_EQ(ids, (std::vector<int32_t>{2, 2, 4, 4, 5, 5}));
  // A recordset still open keeps its rows when the next patient's come.
  source::Recordset open;
  open.Open(kQueries[0], {"A"}, connection);
  source::ReadAhead(connection, "C");
  EXPECT_EQ(Run(connection, kQueries[0], "C").rows.size(), 2u);
  std::vector<int32_t> still;
  for (; !open.Eof(); open.MoveNext()) still.push_back(open.Field("ID").integer());
  EXPECT_EQ(still, (std::vector<int32_t>{2, 4, 5}));
}

}  // namespace
