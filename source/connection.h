// Read-only access to one Firebird database, in the manner of an ADO
// connection: opened from a connection text, queried by forward-only
// recordsets (source/recordset.h), closed at the end.
#pragma once

#include <memory>
#include <string>

namespace source {

// The parts of a connection text "Driver={...};Uid=USER;Pwd=PASS; DbName=PATH"
// that reach the database: fields end at a ";" outside braces, a key ends at
// the first "=", keys compare without regard to case and blanks around keys
// and values are dropped; braces around a value stay. A missing key gives
// empty text.
struct ConnectionText {
  std::string database;  // DbName: a bare path (embedded) or "host:path" (server)
  std::string user;      // Uid
  std::string password;  // Pwd
};
ConnectionText ParseConnectionText(const std::string& text);

class Connection {
 public:
  Connection();
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Attaches to the database that the connection text names, without a
  // connection character set, and starts the one read-only, read-committed
  // transaction that every query of this connection runs in. Raises
  // host::Failure with the database's own number and description when the
  // file is missing, corrupt or refused, and 3705 if already open.
  void Open(const std::string& connection_text);

  // Ends the transaction and detaches; never fails. Closing what isn't open
  // does nothing. Recordsets still open fail from then on.
  void Close();

  bool is_open() const;

  // The attachment behind this connection, for source/recordset.cpp only
  // (defined in source/firebird_client.h).
  struct Impl;
  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace source
