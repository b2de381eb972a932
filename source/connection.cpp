#include "source/connection.h"

#include <atomic>
#include <string_view>

#include "host/text.h"
#include "source/firebird_client.h"
#include "source/firebird_loader.h"
#include "source/recordset.h"

namespace source {
namespace firebird {

Firebird::IMaster* Master() {
  // Kept once found; a client that wasn't found is looked for again at the
  // next opening, so that one put in place meanwhile is taken.
  static std::atomic<Firebird::IMaster*> master{nullptr};
  Firebird::IMaster* found = master.load();
  if (found == nullptr) {
    found = LoadMaster();
    master.store(found);
  }
  return found;
}

Firebird::IUtil* Util() { return Master()->getUtilInterface(); }

host::Failure FailureOf(const Firebird::FbException& error) {
  Firebird::IStatus* status = error.getStatus();
  const intptr_t* vector = status->getErrors();
  const int32_t number = vector[0] == isc_arg_gds ? static_cast<int32_t>(vector[1]) : 0;

  char buffer[4096];
  const unsigned length = Util()->formatStatus(buffer, sizeof buffer, status);
  std::string_view message(buffer, length);

  std::string one_line;
  while (!message.empty()) {
    const size_t end = message.find('\n');
    std::string line = host::text::Trim(message.substr(0, end));
    if (!line.empty() && line.front() == '-') line = host::text::Trim(line.substr(1));
    if (!line.empty()) {
      if (!one_line.empty()) one_line += "; ";
      one_line += line;
    }
    message = end == std::string_view::npos ? std::string_view() : message.substr(end + 1);
  }
  return host::Failure(number, host::text::FromLegacyBytes(one_line));
}

}  // namespace firebird

namespace {

constexpr int32_t kObjectOpen = 3705;

std::string_view TrimBlanks(std::string_view s) {
  const size_t first = s.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  const size_t last = s.find_last_not_of(" \t");
  return s.substr(first, last - first + 1);
}

std::string AsciiLower(std::string_view s) {
  std::string lower(s);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

// The end of the field that starts at start: the next ";" that no braces
// enclose, or the end of the text.
size_t FieldEnd(const std::string& text, size_t start) {
  int depth = 0;
  for (size_t i = start; i < text.size(); ++i) {
    if (text[i] == '{') {
      ++depth;
    } else if (text[i] == '}' && depth > 0) {
      --depth;
    } else if (text[i] == ';' && depth == 0) {
      return i;
    }
  }
  return text.size();
}

// Read-only, read committed with the latest committed version of each row,
// and never waiting on a lock: the one transaction of a connection.
constexpr unsigned char kReadOnlyTransaction[] = {isc_tpb_version3, isc_tpb_read, isc_tpb_read_committed,
                                                  isc_tpb_rec_version, isc_tpb_nowait};

// Ends a transaction, committing it or, if that fails, rolling it back; what
// still fails is let go.
void EndTransaction(Firebird::ITransaction*& transaction, firebird::Status& status) {
  if (transaction == nullptr) return;
  try {
    transaction->commit(&status);
    transaction = nullptr;
    return;
  } catch (const Firebird::FbException&) {
  }
  try {
    transaction->rollback(&status);
    transaction = nullptr;
  } catch (const Firebird::FbException&) {
    firebird::Release(transaction);
  }
}

// The character sets that the database defines, by number.
std::shared_ptr<const firebird::CharacterSets> ReadCharacterSets(Connection& connection) {
  auto character_sets = std::make_shared<firebird::CharacterSets>();
  Recordset rows;
  rows.Open(
      "SELECT RDB$CHARACTER_SET_ID, RDB$CHARACTER_SET_NAME, RDB$BYTES_PER_CHARACTER "
      "FROM RDB$CHARACTER_SETS",
      connection);
  for (; !rows.Eof(); rows.MoveNext()) {
    const host::Value id = rows.Field("RDB$CHARACTER_SET_ID");
    const host::Value name = rows.Field("RDB$CHARACTER_SET_NAME");
    const host::Value bytes_per_character = rows.Field("RDB$BYTES_PER_CHARACTER");
    if (id.is_null() || name.is_null()) continue;
    firebird::CharacterSet& set = (*character_sets)[static_cast<unsigned>(id.integer())];
    set.name = host::text::Trim(name.text());
    if (!bytes_per_character.is_null() && bytes_per_character.integer() > 0) {
      set.bytes_per_character = static_cast<unsigned>(bytes_per_character.integer());
    }
  }
  rows.Close();
  return character_sets;
}

}  // namespace

ConnectionText ParseConnectionText(const std::string& text) {
  ConnectionText parts;
  for (size_t start = 0; start < text.size();) {
    const size_t end = FieldEnd(text, start);
    const std::string_view field(text.data() + start, end - start);
    start = end + 1;

    const size_t equals = field.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string key = AsciiLower(TrimBlanks(field.substr(0, equals)));
    const std::string value(TrimBlanks(field.substr(equals + 1)));
    if (key == "dbname") {
      parts.database = value;
    } else if (key == "uid") {
      parts.user = value;
    } else if (key == "pwd") {
      parts.password = value;
    }
  }
  return parts;
}

Connection::Connection() : impl_(std::make_unique<Impl>()) {}

Connection::~Connection() { Close(); }

bool Connection::is_open() const { return impl_->attachment != nullptr; }

void Connection::Open(const std::string& connection_text) {
  if (is_open()) throw host::Failure(kObjectOpen, "Operazione non consentita se l'oggetto è aperto.");
  const ConnectionText parts = ParseConnectionText(connection_text);
  Impl& c = *impl_;
  firebird::Status& status = c.status.emplace();

  try {
    firebird::Owned<Firebird::IXpbBuilder> dpb(
        firebird::Util()->getXpbBuilder(&status, Firebird::IXpbBuilder::DPB, nullptr, 0));
    if (!parts.user.empty()) dpb->insertString(&status, isc_dpb_user_name, parts.user.c_str());
    if (!parts.password.empty()) dpb->insertString(&status, isc_dpb_password, parts.password.c_str());
    // No character set for the connection: the bytes of every column arrive
    // as the database holds them, and the recordset decodes them itself.
    dpb->insertString(&status, isc_dpb_lc_ctype, "NONE");
    // A page cache of 256 pages for each database instead of the engine's
    // thousands: a conversion reads each row once, and the default cache
    // only filled with the pages of documents already filed (some 25 MB
    // more at the peak of the 2,000-patient sample, for no gain in time).
    dpb->insertString(&status, isc_dpb_config, "DefaultDbCachePages = 256");

    firebird::Owned<Firebird::IProvider> provider(firebird::Master()->getDispatcher());
    c.attachment = provider->attachDatabase(&status, parts.database.c_str(), dpb->getBufferLength(&status),
                                            dpb->getBuffer(&status));

    c.transaction = c.attachment->startTransaction(&status, sizeof kReadOnlyTransaction, kReadOnlyTransaction);
    c.queries = std::make_shared<firebird::QueryPool>();
    c.read_ahead = std::make_shared<firebird::ReadAhead>();
  } catch (const Firebird::FbException& error) {
    Close();
    throw firebird::FailureOf(error);
  }

  try {
    // The names of the character sets are in UNICODE_FSS, which the
    // recordset reads without the table that it is about to fill.
    c.character_sets = std::make_shared<firebird::CharacterSets>();
    c.character_sets = ReadCharacterSets(*this);
  } catch (...) {
    Close();
    throw;
  }
}

void Connection::Close() {
  Impl& c = *impl_;
  // The statements go before the attachment that they were prepared on.
  c.queries.reset();
  c.read_ahead.reset();
  if (c.status) EndTransaction(c.transaction, *c.status);
  if (c.attachment != nullptr) {
    try {
      c.attachment->detach(&*c.status);
      c.attachment = nullptr;
    } catch (const Firebird::FbException&) {
      firebird::Release(c.attachment);
    }
  }
  c.character_sets.reset();
  c.status.reset();
}

}  // namespace source
