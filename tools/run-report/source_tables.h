// The rows of the source's tables as the accounts need them: each table read
// once, its rows kept in the order the database gives them, looked up by a
// key column as the conversion's queries select them (the key's bytes as
// stored, compared without the blanks that pad them). The binary column
// bindata is not kept: only what the rules ask of it (Null, length, whether
// a gzip stream decodes).
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
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

// A key as the database compares it: the stored bytes without trailing blanks.
std::string KeyOf(const std::string& query_text);

class SourceTable {
 public:
  bool present = false;
  std::string name;
  std::set<std::string> missing_columns;  // of those asked for, lower case
  std::vector<SourceRow> rows;

  // The rows whose column holds key (compared as KeyOf), in the table's
  // order. None for a missing table or column.
  const std::vector<const SourceRow*>& Where(const std::string& column, const std::string& key) const;

 private:
  mutable std::map<std::string, std::unordered_map<std::string, std::vector<const SourceRow*>>> indexes_;
};

class SourceTables {
 public:
  explicit SourceTables(inspect::SourceDatabases& databases) : databases_(databases) {}
  ~SourceTables();

  // Reads a table of file once (the first call), keeping columns (and
  // bindata, summed up, when asked). A missing table gives present false.
  const SourceTable& Table(const std::string& table, inspect::SourceFile file, const std::set<std::string>& columns,
                           const std::string& order_by = "");

 private:
  StoredFile Summarize(const host::Value& bytes);
  inspect::SourceDatabases& databases_;
  std::map<std::string, SourceTable> tables_;
  std::string scratch_;  // a private folder where gzip streams are tried
};

}  // namespace runreport
