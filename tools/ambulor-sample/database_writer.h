// A Firebird database written by the sample generator: created new, then
// filled by statements and parameterised inserts. The reading side of the
// project never writes; only the generator and the tests use this.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/value.h"

namespace sample {

// A row to insert: column name (an SQL identifier, unquoted) and value. Text
// goes in as its raw bytes (so a column without character set can be given
// Windows-1252 bytes), Bytes into a BLOB or binary column, numbers, booleans
// and Null as they are; the database converts a value to its column's type.
// A Date goes into a DATE, TIME or TIMESTAMP column as it is and into a text
// column as "dd/mm/yyyy"; a boolean into a number column as 1 or 0.
using Row = std::vector<std::pair<std::string, host::Value>>;

// Content of a binary column made piece by piece, so that a file of any size
// reaches the database without being held whole: a Producer calls put with
// each piece in order, as many times as it likes.
using PutBytes = std::function<void(const uint8_t* data, size_t size)>;
using Producer = std::function<void(const PutBytes& put)>;

class DatabaseWriter {
 public:
  ~DatabaseWriter();

  // Creates a new database file (default character set NONE) in embedded
  // mode. Raises host::Failure with the database's message when it can't.
  static std::unique_ptr<DatabaseWriter> Create(const std::string& path);

  // Runs one statement without parameters and commits it (for DDL), after
  // committing the inserts so far.
  void Execute(const std::string& sql);

  // Inserts one row into a table, in the current transaction. Statements are
  // prepared once for each table and list of columns.
  void Insert(const std::string& table, const Row& row);

  // The same, with one more column, a BLOB, that takes what produce gives.
  void Insert(const std::string& table, const Row& row, const std::string& streamed_column, const Producer& produce);

  // Commits the inserts so far and starts a new transaction.
  void Commit();

  // Commits and detaches. Safe to call twice.
  void Close();

  struct Impl;

 private:
  explicit DatabaseWriter(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace sample
