// The rows of the source's tables as the accounts need them, asked for as
// the conversion's queries select them: the rows whose column the database
// finds equal to a key, in the order the database gives them, kept only
// until the accounts move on to the next patient. The binary column bindata
// is not kept: only what the rules ask of it (Null, length, whether a gzip
// stream decodes).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/value.h"
#include "tools/ambulor-inspect/source_databases.h"

namespace runreport {

// What the rules ask of a stored file.
struct StoredFile {
  bool null = true;
  size_t size = 0;
  bool gzip = false;             // begins 1F 8B 08
  int32_t decoder_answer = -1;   // for a gzip stream, the plug-in's decoder's answer (kGzipDone...)
};

// One cell: the value as the converters read it, and the text that goes
// back into a query (source::Recordset::QueryText).
struct Cell {
  host::Value value;
  std::string query_text;
};

class SourceRow {
 public:
  // The column's value; raises ColumnMissing for a column the table lacks,
  // as the converter's read of it fails.
  const host::Value& Field(const std::string& column) const;
  const std::string& QueryText(const std::string& column) const;
  // bindata; raises ColumnMissing as Field does.
  const StoredFile& File() const;

  std::map<std::string, Cell> cells;  // by lower-case column name
  std::optional<StoredFile> file;
};

// Raised when a rule reads a column that the table lacks.
struct ColumnMissing {
  std::string column;
};

// A table of the source and the columns that the accounts read of it.
struct SourceTable {
  bool present = false;
  std::string name;
  inspect::SourceFile file = inspect::SourceFile::User;
  std::set<std::string> columns;          // asked for and present, lower case, bindata apart
  bool with_file = false;                 // bindata asked for and present
  std::set<std::string> missing_columns;  // of those asked for, lower case
};

class SourceTables {
 public:
  explicit SourceTables(inspect::SourceDatabases& databases) : databases_(databases) {}
  ~SourceTables();

  // The table of file with the columns asked for (bindata among them, when
  // asked), told once; a missing table gives present false.
  const SourceTable& Table(const std::string& table, inspect::SourceFile file, const std::set<std::string>& columns);

  // The rows of a present table whose column the database finds equal to
  // key, as "SELECT * FROM table WHERE column = ?" gives them. They stay
  // until NextPatient. Raises host::Failure when the query fails.
  const std::vector<const SourceRow*>& Where(const SourceTable& table, const std::string& column,
                                             const std::string& key);

  // Lets go of the rows that Where gave.
  void NextPatient() { rows_.clear(); }

  // Calls row for each row of a present table, read in the order given.
  void Each(const SourceTable& table, const std::string& order_by, const std::function<void(const SourceRow&)>& row);

 private:
  struct Rows {
    std::vector<SourceRow> rows;
    std::vector<const SourceRow*> pointers;
  };
  StoredFile Summarize(const host::Value& bytes);
  inspect::SourceDatabases& databases_;
  std::map<std::string, SourceTable> tables_;
  std::map<std::string, Rows> rows_;  // by query and key, for the patient under way
  std::string scratch_;               // a private folder where gzip streams are tried
};

}  // namespace runreport
