// Ambulor archives for demos, tests and benchmarks: the three databases with
// every table and column that the plug-in reads. Tests build small archives
// row by row; the generator fills a realistic one from a seed.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/ambulor-sample/database_writer.h"

namespace sample {

enum class Database { User, Media, Data };  // GX_USER.FDB, GX_MEDIA.FDB, GX_DATA.FDB

struct Column {
  std::string name;
  std::string type;  // Firebird type as in CREATE TABLE, e.g. "VARCHAR(40)", "DATE", "BLOB SUB_TYPE 1"
};

struct Table {
  std::string name;
  Database database;
  std::vector<Column> columns;
};

// Every table of the three databases with realistic column types. A test may
// change a column's type (a date kept as text), or drop a column or a table,
// before it creates an archive.
std::vector<Table> DefaultSchema();

// Changes the type of a column of a table in schema; raises if there's none.
void SetColumnType(std::vector<Table>& schema, const std::string& table, const std::string& column,
                   const std::string& type);
void DropColumn(std::vector<Table>& schema, const std::string& table, const std::string& column);
void DropTable(std::vector<Table>& schema, const std::string& table);

class Archive {
 public:
  ~Archive();

  // Creates GX_USER.FDB, GX_MEDIA.FDB and GX_DATA.FDB in dir (made if
  // missing) with the tables of schema. Refuses existing files unless force.
  static std::unique_ptr<Archive> Create(const std::string& dir, const std::vector<Table>& schema = DefaultSchema(),
                                         bool force = false);

  // Inserts one row into a table, on the database the schema puts it in;
  // columns not named are Null.
  void Insert(const std::string& table, const Row& row);

  // Commits everything and closes the three databases. Safe to call twice.
  void Close();

  // Full path of GX_USER.FDB: the connection text a host hands to Test.
  std::string user_path() const;

 private:
  Archive() = default;
  std::string dir_;
  std::vector<Table> schema_;
  std::unique_ptr<DatabaseWriter> user_, media_, data_;
};

struct SampleOptions {
  int patients = 200;
  uint64_t seed = 1;
  bool force = false;
};

// What GenerateSample wrote, for the command line's closing line.
struct SampleSummary {
  int patients = 0;
  int rows = 0;  // all rows of all tables
  int files = 0; // rows with a binary document
};

// Writes a realistic archive into dir: the same files for the same options.
SampleSummary GenerateSample(const std::string& dir, const SampleOptions& options);

}  // namespace sample
