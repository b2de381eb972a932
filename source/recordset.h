// A forward-only recordset over one query, read field by field by name in
// the manner of an ADO recordset. Values come as host::Value: Null told apart
// from empty text; text as UTF-8, decoded by the column's character set (bytes
// without one are kept when valid UTF-8 and read as Windows-1252 otherwise),
// CHAR with its blank padding; SMALLINT and INTEGER as 16/32-bit integers,
// BIGINT, NUMERIC/DECIMAL with a scale and floating point as double; DATE and
// TIMESTAMP as dates (whole seconds), TIME as a time of day on 30/12/1899;
// BOOLEAN as boolean; text BLOBs as text; OCTETS and other BLOBs as bytes.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/value.h"
#include "source/connection.h"

namespace source {

class Recordset {
 public:
  Recordset();
  ~Recordset();
  Recordset(const Recordset&) = delete;
  Recordset& operator=(const Recordset&) = delete;

  // Runs the query in the connection's transaction and stands on its first
  // row; several recordsets of one connection may be open at once. Raises
  // host::Failure with the database's number and description for a bad query,
  // 3709 for a connection that isn't open and 3705 if this one already is.
  void Open(const std::string& sql, Connection& connection);

  // Runs a query that the connection prepares once (once more when some value
  // passes 64 bytes) and then runs again for each call with the same text, its
  // "?" markers bound in order to the values: each the bytes of a text as
  // QueryText gives them, which the database compares with a column exactly as
  // it compares the same bytes written between quotes into the query (a number's
  // digits, too), however long. A value that holds a single quote fails as the
  // query with the value written into it fails, with the database's syntax error
  // at the word after the quote: a value never changes which rows a query
  // selects. Raises as the other Open does.
  void Open(const std::string& sql, const std::vector<std::string>& parameters, Connection& connection);

  // True once the rows are exhausted (at once for a query without rows).
  // Like every call but Open and Close, raises 3704 on a closed recordset.
  bool Eof() const;

  // Moves to the next row. Raises 3021 at Eof.
  void MoveNext();

  // The value of a field of the current row, by name (the column's alias)
  // without regard to case. Raises 3265 for a name the query doesn't have,
  // and 3021 at Eof. A BLOB is read at the first request for it in its row
  // (a row whose BLOBs no one asks for costs no BLOB read), and a failure of
  // that read is raised here with the database's number.
  host::Value Field(std::string_view name) const;

  // The field as it goes back into a query of the same source: a text
  // column's bytes exactly as stored (not decoded, CHAR padding kept), the
  // digits of a whole number (all of them, for a NUMERIC(18,0) or BIGINT
  // too), the text of any other value; "" for Null. Raises as Field does.
  std::string QueryText(std::string_view name) const;

  // The field's content as the database stores it, never decoded: a BLOB of
  // any sub-type and a CHAR or VARCHAR column as Bytes (CHAR padding kept),
  // Null as Null. A field of any other type raises type mismatch (13); names
  // and position raise as Field does.
  host::Value Bytes(std::string_view name) const;

  // Releases the query. Closing twice does nothing.
  void Close();

  struct Impl;

 private:
  friend std::string TextForColumn(Connection&, const std::string&, const std::string&, const std::string&);
  std::unique_ptr<Impl> impl_;
};

// Reads ahead, query after query while the engine's data is at hand, the
// rows of every query that recordsets of the connection ran with the key
// that ReadAhead was last given as their only value, now with key; until
// the next ReadAhead, a recordset of one of those queries with key takes
// its rows from memory: the same rows, in the same order, BLOBs still read
// when asked for. A query that fails here, or whose rows for key pass
// 4 MiB, is left to run when asked for; a key with a quote reads nothing
// ahead. Never raises. Does nothing on a closed connection.
void ReadAhead(Connection& connection, const std::string& key);

// The text as the bytes that a literal compared with column of table must
// hold: the column's character set; for a column without one, Windows-1252
// when some stored value isn't valid UTF-8 (the column holds Windows-1252
// text), UTF-8 otherwise. ASCII text comes back as it is, without a query.
// Raises 5 when a character has no byte in that character set, and the
// database's failure when the table or the column is missing.
std::string TextForColumn(Connection& connection, const std::string& table, const std::string& column,
                          const std::string& text);

}  // namespace source
