// Reading the source databases: connection texts, every column type as a
// value, navigation and field names, and the failures of the database.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>

#include "host/failure.h"
#include "source/connection.h"
#include "source/recordset.h"
#include "support/fixture.h"
#include "tools/ambulor-sample/database_writer.h"

namespace {

using host::Date;
using host::Value;

std::string ConnectionTextFor(const std::string& path) {
  return "Driver={Firebird/InterBase(r) driver};Uid=SYSDBA;Pwd=gravelpin; DbName=" + path;
}

host::Failure FailureOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const host::Failure& failure) {
    return failure;
  }
  return host::Failure(0, "no failure");
}

// The rows of one query as read through a recordset, field by field.
std::vector<std::vector<Value>> ReadAll(source::Connection& connection, const std::string& sql,
                                        const std::vector<std::string>& fields) {
  std::vector<std::vector<Value>> rows;
  source::Recordset recordset;
  for (recordset.Open(sql, connection); !recordset.Eof(); recordset.MoveNext()) {
    rows.emplace_back();
    for (const std::string& field : fields) rows.back().push_back(recordset.Field(field));
  }
  recordset.Close();
  return rows;
}

TEST(ConnectionText, SplitsTheFieldsThatReachTheDatabase) {
  auto parts = source::ParseConnectionText(
      "Driver={Firebird/InterBase(r) driver};Uid=SYSDBA;Pwd=gravelpin; DbName=/path/GX_USER.FDB");
  EXPECT_EQ(parts.database, "/path/GX_USER.FDB");
  EXPECT_EQ(parts.user, "SYSDBA");
  EXPECT_EQ(parts.password, "gravelpin");

  parts = source::ParseConnectionText(" dbname = server:/a b/x.fdb ;PWD={p=;q}; uid=");
  EXPECT_EQ(parts.database, "server:/a b/x.fdb");
  EXPECT_EQ(parts.password, "{p=;q}");
  EXPECT_EQ(parts.user, "");
}

class SourceDatabase : public ::testing::Test {
 protected:
  std::string Create(const std::string& name, const std::vector<std::string>& ddl,
                     const std::vector<std::pair<std::string, sample::Row>>& rows) {
    const std::string path = dir_ / name;
    auto writer = sample::DatabaseWriter::Create(path);
    for (const std::string& statement : ddl) writer->Execute(statement);
    for (const auto& [table, row] : rows) writer->Insert(table, row);
    writer->Close();
    return path;
  }

  fixture::TempDir dir_;
};

TEST_F(SourceDatabase, ReadsEveryColumnTypeAsItsValue) {
  const std::vector<uint8_t> large = [] {
    std::vector<uint8_t> bytes(1 << 20);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 251);
    return bytes;
  }();
  const std::string path = Create(
      "TYPES.FDB",
      {"CREATE TABLE T (K INTEGER, S SMALLINT, I INTEGER, B BIGINT, N NUMERIC(9,2), N0 NUMERIC(4,0), "
       "D DECIMAL(18,4), F FLOAT, DP DOUBLE PRECISION, DT DATE, TM TIME, TS TIMESTAMP, BL BOOLEAN, "
       "C CHAR(5), V VARCHAR(20), VU VARCHAR(10) CHARACTER SET UTF8, CU CHAR(4) CHARACTER SET UTF8, "
       "VW VARCHAR(10) CHARACTER SET WIN1251, O VARCHAR(4) CHARACTER SET OCTETS, "
       "TB BLOB SUB_TYPE 1, TU BLOB SUB_TYPE 1 CHARACTER SET UTF8, BB BLOB SUB_TYPE 0, DV VARCHAR(10))"},
      {{"T",
        {{"K", Value::I32(1)}, {"S", Value::I16(-7)}, {"I", Value::I32(123456)}, {"B", Value(1234567890123.0)},
         {"N", Value("-1234.56")}, {"N0", Value::I32(42)}, {"D", Value(0.1)}, {"F", Value(0.1)},
         {"DP", Value(-2.5e-3)}, {"DT", Value(Date{2012, 1, 5})}, {"TM", Value(Date{1899, 12, 30, 13, 45, 30})},
         {"TS", Value("2019-12-31 08:05:07.9")}, {"BL", Value::Bool(true)}, {"C", Value("ab")},
         {"V", Value("perch\xE9 \x80")}, {"VU", Value("citt\xC3\xA0")}, {"CU", Value("\xC3\xA8")},
         {"VW", Value("\xEF\xF0\xE8")}, {"O", Value::Bytes({0, 1, 0xFF})}, {"TB", Value("n\xE8")},
         {"TU", Value("\xE2\x82\xAC")}, {"BB", Value::Bytes(large)}, {"DV", Value(Date{2014, 3, 9})}}},
       {"T", {{"K", Value::I32(2)}, {"V", Value::Null()}, {"BL", Value::Bool(false)}}},
       {"T", {{"K", Value::I32(3)}, {"V", Value("")}, {"TB", Value("")}, {"BB", Value::Bytes({})}}}});

  source::Connection connection;
  connection.Open(ConnectionTextFor(path));
  const auto rows = ReadAll(connection, "SELECT * FROM T ORDER BY K",
                            {"S", "I", "B", "N", "N0", "D", "F", "DP", "DT", "TM", "TS", "BL", "C", "V", "VU",
                             "CU", "VW", "O", "TB", "TU", "BB", "DV"});
  ASSERT_EQ(rows.size(), 3u);
  // Windows-1252 bytes become UTF-8; CHAR of UTF8 is cut back to its
  // characters with its padding; a DATE in a VARCHAR reads as text.
  EXPECT_EQ(rows[0], (std::vector<Value>{
                         Value::I16(-7), Value::I32(123456), Value(1234567890123.0), Value(-1234.56), Value::I16(42),
                         Value(0.1), Value(0.1), Value(-2.5e-3), Value(Date{2012, 1, 5}),
                         Value(Date{1899, 12, 30, 13, 45, 30}), Value(Date{2019, 12, 31, 8, 5, 7}), Value::Bool(true),
                         Value("ab   "), Value("perch\xC3\xA9 \xE2\x82\xAC"), Value("citt\xC3\xA0"),
                         Value("\xC3\xA8   "), Value("\xD0\xBF\xD1\x80\xD0\xB8"), Value::Bytes({0, 1, 0xFF}),
                         Value("n\xC3\xA8"), Value("\xE2\x82\xAC"), Value::Bytes(large), Value("09/03/2014")}));
  std::vector<Value> nulls(22, Value::Null());
  nulls[11] = Value::Bool(false);
  EXPECT_EQ(rows[1], nulls);
  EXPECT_EQ(rows[2][13], Value(""));
  EXPECT_EQ(rows[2][18], Value(""));
  EXPECT_EQ(rows[2][20], Value::Bytes({}));
}

TEST_F(SourceDatabase, NavigatesForwardWithFieldsByName) {
  const std::string path =
      Create("NAV.FDB", {"CREATE TABLE PAZIENTI (Cod_Cart VARCHAR(10), cognome VARCHAR(30))",
                         "CREATE TABLE VISITE (CodCart VARCHAR(10), Titolo VARCHAR(30))"},
             {{"PAZIENTI", {{"Cod_Cart", "P1"}, {"cognome", "Rossi"}}},
              {"PAZIENTI", {{"Cod_Cart", "P2"}, {"cognome", "Bianchi"}}},
              {"VISITE", {{"CodCart", "P1"}, {"Titolo", "Otite"}}},
              {"VISITE", {{"CodCart", "P1"}, {"Titolo", "Gastrite"}}}});
  source::Connection connection;
  connection.Open(ConnectionTextFor(path));

  // The driver walks one table while a converter queries another.
  source::Recordset patients;
  patients.Open("SELECT * FROM PAZIENTI ORDER BY Cod_Cart", connection);
  std::vector<size_t> visits_per_patient;
  for (; !patients.Eof(); patients.MoveNext()) {
    const std::string key = patients.Field("cod_cart").text();
    EXPECT_EQ(patients.Field("COGNOME"), patients.Field("Cognome"));
    visits_per_patient.push_back(
        ReadAll(connection, "SELECT * from VISITE where CodCart = ('" + key + "')", {"titolo"}).size());
  }
  EXPECT_EQ(visits_per_patient, (std::vector<size_t>{2, 0}));

  EXPECT_EQ(FailureOf([&] { patients.MoveNext(); }).number(), 3021);
  EXPECT_EQ(FailureOf([&] { patients.Field("cognome"); }).number(), 3021);
  EXPECT_EQ(FailureOf([&] { patients.Field("nome"); }).number(), host::failures::kItemNotFound);
  patients.Close();
  patients.Close();
  EXPECT_EQ(FailureOf([&] { patients.Eof(); }).number(), 3704);

  source::Recordset aliased;
  aliased.Open("SELECT cognome AS \"Surname\" FROM PAZIENTI WHERE Cod_Cart = 'P2'", connection);
  EXPECT_EQ(aliased.Field("surname"), Value("Bianchi"));
  EXPECT_EQ(FailureOf([&] { aliased.Field("cognome"); }).number(), host::failures::kItemNotFound);

  source::Recordset none;
  none.Open("SELECT * FROM VISITE WHERE CodCart = 'P9'", connection);
  EXPECT_TRUE(none.Eof());

  // The connection's transaction is read-only: not even a row lock is taken.
  source::Recordset locking;
  EXPECT_EQ(FailureOf([&] { locking.Open("SELECT * FROM PAZIENTI WITH LOCK", connection); }).number(), 335544361);

  source::Recordset left_open;
  left_open.Open("SELECT * FROM PAZIENTI", connection);
  connection.Close();
  connection.Close();
  EXPECT_FALSE(connection.is_open());
  EXPECT_NE(FailureOf([&] { left_open.MoveNext(); }).number(), 0);
  left_open.Close();
  source::Recordset after_close;
  EXPECT_EQ(FailureOf([&] { after_close.Open("SELECT * FROM VISITE", connection); }).number(), 3709);
}

// BLOBs are read when asked for: always those of the row the recordset
// stands on, whichever rows were passed over and however often they are asked.
TEST_F(SourceDatabase, BlobsComeFromTheRowAskedFor) {
  const std::string path =
      Create("BLOBS.FDB", {"CREATE TABLE IMAGES (K INTEGER, bindata BLOB SUB_TYPE 0, Testo BLOB SUB_TYPE 1)"},
             {{"IMAGES", {{"K", Value::I32(1)}, {"bindata", Value::Bytes({1})}, {"Testo", Value("uno")}}},
              {"IMAGES", {{"K", Value::I32(2)}, {"bindata", Value::Bytes({2, 2})}, {"Testo", Value("due")}}},
              {"IMAGES", {{"K", Value::I32(3)}, {"bindata", Value::Null()}, {"Testo", Value("tre")}}}});
  source::Connection connection;
  connection.Open(ConnectionTextFor(path));
  source::Recordset rows;
  rows.Open("SELECT * FROM IMAGES ORDER BY K", connection);
  rows.MoveNext();
  EXPECT_EQ(rows.Bytes("BINDATA"), Value::Bytes({2, 2}));
  EXPECT_EQ(rows.Field("bindata"), Value::Bytes({2, 2}));
  EXPECT_EQ(rows.QueryText("testo"), "due");
  EXPECT_EQ(rows.Field("Testo"), Value("due"));
  rows.MoveNext();
  EXPECT_TRUE(rows.Bytes("bindata").is_null());
  EXPECT_EQ(rows.Field("testo"), Value("tre"));
  rows.MoveNext();
  EXPECT_EQ(FailureOf([&] { rows.Field("bindata"); }).number(), 3021);
}

TEST_F(SourceDatabase, FailuresCarryTheDatabaseNumberAndMessage) {
  const std::string path = Create("ERR.FDB", {"CREATE TABLE STUDIO (cognome VARCHAR(30))"}, {});
  source::Connection connection;
  connection.Open(ConnectionTextFor(path));
  source::Recordset recordset;
  host::Failure bad_sql = FailureOf([&] { recordset.Open("SELEC * FROM STUDIO", connection); });
  EXPECT_EQ(bad_sql.number(), 335544569);  // dynamic SQL error
  EXPECT_NE(bad_sql.description().find("Token unknown"), std::string::npos) << bad_sql.description();
  host::Failure no_table = FailureOf([&] { recordset.Open("SELECT * FROM MANCA", connection); });
  EXPECT_NE(no_table.description().find("MANCA"), std::string::npos) << no_table.description();
  connection.Close();

  const std::string missing = dir_ / "GX_MEDIA.FDB";
  host::Failure not_there = FailureOf([&] { connection.Open(ConnectionTextFor(missing)); });
  EXPECT_EQ(not_there.number(), 335544344);  // I/O error
  EXPECT_NE(not_there.description().find(missing), std::string::npos) << not_there.description();
  EXPECT_EQ(not_there.description().find('\n'), std::string::npos);
  EXPECT_FALSE(connection.is_open());

  const std::string corrupt = dir_ / "GX_DATA.FDB";
  std::ofstream(corrupt, std::ios::binary) << std::string(16384, '\x5A');
  host::Failure garbage = FailureOf([&] { connection.Open(ConnectionTextFor(corrupt)); });
  EXPECT_GT(garbage.number(), 335544320) << garbage.description();
  EXPECT_NE(garbage.description().find(corrupt), std::string::npos) << garbage.description();
  EXPECT_FALSE(connection.is_open());

  EXPECT_NE(FailureOf([&] { sample::DatabaseWriter::Create(path); }).number(), 0);
}

}  // namespace
