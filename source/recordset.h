// A forward-only recordset over one query, read field by field by name in
// the manner of an ADO recordset. Values come as host::Value: Null told apart
// from empty text, text as UTF-8 (legacy bytes that aren't valid UTF-8 read as
// Windows-1252), integers as 16/32 bits, NUMERIC/DECIMAL/floating point and
// BIGINT as double, DATE/TIME/TIMESTAMP as dates, BOOLEAN as boolean, text
// BLOBs as text and binary BLOBs as bytes.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "host/value.h"
#include "source/connection.h"

namespace source {

class Recordset {
 public:
  Recordset();
  ~Recordset();
  Recordset(const Recordset&) = delete;
  Recordset& operator=(const Recordset&) = delete;

  // Runs the query on an open connection and stands on its first row. Raises
  // host::Failure with the database's number and description for a bad query
  // or a connection that isn't open.
  void Open(const std::string& sql, Connection& connection);

  // True once the rows are exhausted (at once for a query without rows).
  bool Eof() const;

  // Moves to the next row. Raises at Eof.
  void MoveNext();

  // The value of a field of the current row, by name without regard to case.
  // Raises 3265 for a name the query doesn't have, and at Eof.
  host::Value Field(std::string_view name) const;

  // Releases the query. Closing twice does nothing.
  void Close();

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace source
