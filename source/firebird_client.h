// What the database code of the project shares over the Firebird client's
// object interface: the client's entry points, a status that throws, the
// failure that a database error becomes, and the state of an open connection
// that its recordsets borrow. Only source/*.cpp and the sample writer use it.
#pragma once

#include <firebird/Interface.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/failure.h"
#include "source/connection.h"

namespace source::firebird {

Firebird::IMaster* Master();
Firebird::IUtil* Util();

// A status of its own for one user of the client: every call made through it
// throws Firebird::FbException when the database reports an error.
class Status : public Firebird::ThrowStatusWrapper {
 public:
  Status() : ThrowStatusWrapper(Master()->getStatus()) {}
  ~Status() { dispose(); }
  Status(const Status&) = delete;
  Status& operator=(const Status&) = delete;
};

// The failure a database error becomes: the first error code of the status
// as a signed number, and the database's own message on one line, the lines
// of the message joined by "; ".
host::Failure FailureOf(const Firebird::FbException& error);

// Releases a reference to an interface, if any, and forgets it.
template <typename Interface>
void Release(Interface*& object) {
  if (object != nullptr) object->release();
  object = nullptr;
}

// A reference to an interface that is released (or, for a builder,
// disposed of) with its owner.
template <typename Interface>
struct Releaser {
  void operator()(Interface* object) const {
    if constexpr (requires { object->release(); }) {
      object->release();
    } else {
      object->dispose();
    }
  }
};
template <typename Interface>
using Owned = std::unique_ptr<Interface, Releaser<Interface>>;

// A character set of a database, by the name that the database gives it.
struct CharacterSet {
  std::string name;
  unsigned bytes_per_character = 1;
};
using CharacterSets = std::unordered_map<unsigned, CharacterSet>;

// The character set numbers that Firebird fixes for every database.
inline constexpr unsigned kCharsetNone = 0;
inline constexpr unsigned kCharsetOctets = 1;
inline constexpr unsigned kCharsetAscii = 2;
inline constexpr unsigned kCharsetUnicodeFss = 3;
inline constexpr unsigned kCharsetUtf8 = 4;

// A query prepared once on a connection and run again and again, each run
// with a cursor of its own (defined in source/recordset.cpp).
struct PreparedQuery;

// The rows of one query read ahead for a key: each row's message as the
// statement gave it, and the statement, whose columns describe them.
struct RowsReadAhead {
  std::shared_ptr<PreparedQuery> query;
  std::vector<std::vector<unsigned char>> rows;
};

// What a connection reads ahead (source::ReadAhead): the queries that it ran
// with the key of the patient under way as their only value, in the order
// first run, each with a statement of its own (by query and room), and
// their rows for the key read ahead last (by query).
struct ReadAhead {
  std::string key;
  std::vector<std::string> queries;
  std::unordered_map<std::string, std::shared_ptr<PreparedQuery>> statements;
  std::unordered_map<std::string, std::shared_ptr<const RowsReadAhead>> rows;
};

// The prepared queries with parameters of one connection that no recordset
// is running, by their text, waiting for the next run. A query that several
// recordsets run at the same time has a statement for each; all are freed
// when the connection closes, those of recordsets still open when they close.
struct QueryPool {
  std::unordered_map<std::string, std::vector<std::shared_ptr<PreparedQuery>>> idle;
  size_t idle_count = 0;
};

}  // namespace source::firebird

// An open connection: the attachment, its one read-only transaction, the
// character sets of its database and its prepared queries. Every pointer is
// null, and there is no status, while closed: a connection is made without
// the client, which is first looked for when it opens.
struct source::Connection::Impl {
  std::optional<firebird::Status> status;
  Firebird::IAttachment* attachment = nullptr;
  Firebird::ITransaction* transaction = nullptr;
  std::shared_ptr<const firebird::CharacterSets> character_sets;
  std::shared_ptr<firebird::QueryPool> queries;
  std::shared_ptr<firebird::ReadAhead> read_ahead;
};
