#include "tools/ambulor-sample/database_writer.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <unordered_map>

#include "host/failure.h"
#include "source/firebird_client.h"

namespace sample {
namespace {

namespace firebird = source::firebird;
using firebird::Owned;

constexpr int32_t kObjectClosed = 3704;

// What a parameter of an insert expects, as the prepared statement describes it.
struct Target {
  unsigned type = 0;
  int sub_type = 0;
  unsigned charset = 0;

  bool is_text() const { return type == SQL_TEXT || type == SQL_VARYING; }
  bool is_blob() const { return type == SQL_BLOB; }
};

// How one value travels to its parameter: the type of its field in the
// message and the bytes of the field (for VARYING, the text without its
// length word). A Null keeps the field that the statement described.
struct Parameter {
  bool is_null = false;
  unsigned type = 0;
  int sub_type = 0;
  unsigned charset = 0;
  std::string data;
};

Parameter NullParameter() {
  Parameter null;
  null.is_null = true;
  return null;
}

// Bytes as a VARCHAR in a character set; the longest that a message holds
// is that of the longest VARCHAR column.
Parameter Varying(std::string bytes, unsigned charset) {
  constexpr size_t kLongestVarchar = 32765;
  if (bytes.size() > kLongestVarchar) {
    throw host::Failure(host::failures::kInvalidArgument,
                        "Testo di " + std::to_string(bytes.size()) + " byte: troppo lungo per una colonna di testo");
  }
  return Parameter{false, SQL_VARYING, 0, charset, std::move(bytes)};
}

template <typename Number>
std::string BytesOf(Number n) {
  return std::string(reinterpret_cast<const char*>(&n), sizeof n);
}

struct PreparedInsert {
  Firebird::IStatement* statement = nullptr;
  Owned<Firebird::IMessageMetadata> parameters;  // as the statement describes them
  std::vector<Target> targets;
};

}  // namespace

struct DatabaseWriter::Impl {
  firebird::Status status;
  Firebird::IAttachment* attachment = nullptr;
  Firebird::ITransaction* transaction = nullptr;  // of the inserts, started by the first one
  std::unordered_map<std::string, PreparedInsert> inserts;  // by statement text

  Firebird::ITransaction* Transaction();
  PreparedInsert& Prepare(const std::string& sql);
  Parameter Encode(const host::Value& value, const Target& target);
  Parameter Characters(const std::string& text, const Target& target);
  Parameter Blob(const std::string& content, const Target& target);
  Parameter Blob(const Producer& produce, const Target& target);
  void InsertRow(const std::string& table, const Row& row, const std::string* streamed_column,
                 const Producer* produce);
  void FreeInserts();
  void CommitInserts();
  void RequireOpen() const;
};

void DatabaseWriter::Impl::RequireOpen() const {
  if (attachment == nullptr) throw host::Failure(kObjectClosed, "Operazione non consentita se l'oggetto è chiuso.");
}

Firebird::ITransaction* DatabaseWriter::Impl::Transaction() {
  if (transaction == nullptr) transaction = attachment->startTransaction(&status, 0, nullptr);
  return transaction;
}

void DatabaseWriter::Impl::CommitInserts() {
  if (transaction == nullptr) return;
  transaction->commit(&status);
  transaction = nullptr;
}

void DatabaseWriter::Impl::FreeInserts() {
  for (auto& [sql, insert] : inserts) {
    try {
      insert.statement->free(&status);
    } catch (const Firebird::FbException&) {
      insert.statement->release();
    }
  }
  inserts.clear();
}

PreparedInsert& DatabaseWriter::Impl::Prepare(const std::string& sql) {
  if (auto known = inserts.find(sql); known != inserts.end()) return known->second;
  PreparedInsert insert;
  insert.statement = attachment->prepare(&status, Transaction(), 0, sql.c_str(), SQL_DIALECT_V6,
                                         Firebird::IStatement::PREPARE_PREFETCH_METADATA);
  try {
    insert.parameters.reset(insert.statement->getInputMetadata(&status));
    Firebird::IMessageMetadata* parameters = insert.parameters.get();
    const unsigned count = parameters->getCount(&status);
    for (unsigned i = 0; i < count; ++i) {
      insert.targets.push_back(Target{parameters->getType(&status, i) & ~1u, parameters->getSubType(&status, i),
                                      parameters->getCharSet(&status, i) & 0xFF});
    }
  } catch (...) {
    insert.statement->release();
    throw;
  }
  return inserts.emplace(sql, std::move(insert)).first->second;
}

// A blob of the target's kind and character set, written in segments as the
// producer hands its pieces over; the parameter carries its id.
Parameter DatabaseWriter::Impl::Blob(const Producer& produce, const Target& target) {
  const auto sub_type = static_cast<uint16_t>(target.sub_type);
  const auto charset = static_cast<uint16_t>(target.charset);
  const unsigned char bpb[] = {
      isc_bpb_version1,
      isc_bpb_source_type,   2, static_cast<unsigned char>(sub_type), static_cast<unsigned char>(sub_type >> 8),
      isc_bpb_target_type,   2, static_cast<unsigned char>(sub_type), static_cast<unsigned char>(sub_type >> 8),
      isc_bpb_source_interp, 2, static_cast<unsigned char>(charset),  static_cast<unsigned char>(charset >> 8),
      isc_bpb_target_interp, 2, static_cast<unsigned char>(charset),  static_cast<unsigned char>(charset >> 8)};

  ISC_QUAD id{};
  Firebird::IBlob* blob = attachment->createBlob(&status, Transaction(), &id, sizeof bpb, bpb);
  try {
    produce([&](const uint8_t* data, size_t size) {
      constexpr size_t kSegment = 65535;
      for (size_t written = 0; written < size; written += kSegment) {
        const size_t length = std::min(kSegment, size - written);
        blob->putSegment(&status, static_cast<unsigned>(length), data + written);
      }
    });
    blob->close(&status);
  } catch (...) {
    blob->release();
    throw;
  }
  return Parameter{false, SQL_BLOB, target.sub_type, target.charset, BytesOf(id)};
}

Parameter DatabaseWriter::Impl::Blob(const std::string& content, const Target& target) {
  return Blob(
      [&](const PutBytes& put) { put(reinterpret_cast<const uint8_t*>(content.data()), content.size()); }, target);
}

// Text as its raw bytes: into a text column in the column's character set,
// into a blob, or into any other column for the database to convert.
Parameter DatabaseWriter::Impl::Characters(const std::string& text, const Target& target) {
  if (target.is_blob()) return Blob(text, target);
  return Varying(text, target.is_text() ? target.charset : firebird::kCharsetNone);
}

Parameter DatabaseWriter::Impl::Encode(const host::Value& value, const Target& target) {
  switch (value.type()) {
    case host::Type::Empty:
    case host::Type::Null:
      return NullParameter();
    case host::Type::Text:
      return Characters(value.text(), target);
    case host::Type::Bytes: {
      const std::string content(value.bytes().begin(), value.bytes().end());
      if (target.is_blob()) return Blob(content, target);
      if (target.is_text()) return Varying(content, target.charset);
      break;
    }
    case host::Type::Date: {
      const host::Date& d = value.date();
      Firebird::IUtil* util = firebird::Util();
      const ISC_DATE date = util->encodeDate(d.year, d.month, d.day);
      const ISC_TIME time = util->encodeTime(d.hour, d.minute, d.second, 0);
      switch (target.type) {
        case SQL_TYPE_DATE:
          return Parameter{false, SQL_TYPE_DATE, 0, 0, BytesOf(date)};
        case SQL_TYPE_TIME:
          return Parameter{false, SQL_TYPE_TIME, 0, 0, BytesOf(time)};
        case SQL_TIMESTAMP:
          return Parameter{false, SQL_TIMESTAMP, 0, 0, BytesOf(ISC_TIMESTAMP{date, time})};
        default:
          return Characters(host::FormatDate(d), target);
      }
    }
    case host::Type::I16:
    case host::Type::I32:
      if (target.is_text() || target.is_blob()) return Characters(host::TextOf(value), target);
      return Parameter{false, SQL_LONG, 0, 0, BytesOf(value.integer())};
    case host::Type::F64:
      if (target.is_text() || target.is_blob()) return Characters(host::TextOf(value), target);
      return Parameter{false, SQL_DOUBLE, 0, 0, BytesOf(value.number())};
    case host::Type::Bool:
      if (target.type == SQL_BOOLEAN) {
        return Parameter{false, SQL_BOOLEAN, 0, 0, BytesOf<FB_BOOLEAN>(value.integer() != 0)};
      }
      if (target.is_text() || target.is_blob()) return Characters(host::TextOf(value), target);
      // A flag kept in a number column: 1 for true, 0 for false.
      return Parameter{false, SQL_SHORT, 0, 0, BytesOf<int16_t>(value.integer() != 0 ? 1 : 0)};
    case host::Type::Object:
      break;
  }
  host::failures::Raise(host::failures::kTypeMismatch);
}

DatabaseWriter::DatabaseWriter(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

DatabaseWriter::~DatabaseWriter() {
  try {
    Close();
  } catch (const host::Failure&) {
  }
}

std::unique_ptr<DatabaseWriter> DatabaseWriter::Create(const std::string& path) {
  auto impl = std::make_unique<Impl>();
  try {
    Owned<Firebird::IXpbBuilder> dpb(
        firebird::Util()->getXpbBuilder(&impl->status, Firebird::IXpbBuilder::DPB, nullptr, 0));
    dpb->insertString(&impl->status, isc_dpb_user_name, "SYSDBA");
    dpb->insertInt(&impl->status, isc_dpb_page_size, 8192);
    dpb->insertInt(&impl->status, isc_dpb_sql_dialect, SQL_DIALECT_V6);
    dpb->insertString(&impl->status, isc_dpb_set_db_charset, "NONE");
    dpb->insertString(&impl->status, isc_dpb_lc_ctype, "NONE");
    // Sample files are written in one go and can be written again: no need
    // to wait for each page to reach the disk.
    dpb->insertInt(&impl->status, isc_dpb_force_write, 0);
    Owned<Firebird::IProvider> provider(firebird::Master()->getDispatcher());
    impl->attachment = provider->createDatabase(&impl->status, path.c_str(), dpb->getBufferLength(&impl->status),
                                                dpb->getBuffer(&impl->status));
  } catch (const Firebird::FbException& error) {
    throw firebird::FailureOf(error);
  }
  return std::unique_ptr<DatabaseWriter>(new DatabaseWriter(std::move(impl)));
}

void DatabaseWriter::Execute(const std::string& sql) {
  Impl& w = *impl_;
  w.RequireOpen();
  Firebird::ITransaction* transaction = nullptr;
  try {
    // A change of the schema can't wait on the inserts' statements and
    // transaction: those end first.
    w.FreeInserts();
    w.CommitInserts();
    transaction = w.attachment->startTransaction(&w.status, 0, nullptr);
    w.attachment->execute(&w.status, transaction, 0, sql.c_str(), SQL_DIALECT_V6, nullptr, nullptr, nullptr, nullptr);
    transaction->commit(&w.status);
  } catch (const Firebird::FbException& error) {
    if (transaction != nullptr) transaction->release();
    throw firebird::FailureOf(error);
  }
}

void DatabaseWriter::Insert(const std::string& table, const Row& row) {
  impl_->RequireOpen();
  impl_->InsertRow(table, row, nullptr, nullptr);
}

void DatabaseWriter::Insert(const std::string& table, const Row& row, const std::string& streamed_column,
                            const Producer& produce) {
  impl_->RequireOpen();
  impl_->InsertRow(table, row, &streamed_column, &produce);
}

// The streamed column, if any, comes after those of the row.
void DatabaseWriter::Impl::InsertRow(const std::string& table, const Row& row, const std::string* streamed_column,
                                     const Producer* produce) {
  Impl& w = *this;
  std::vector<std::string> columns;
  for (const auto& [column, value] : row) columns.push_back(column);
  if (streamed_column != nullptr) columns.push_back(*streamed_column);
  std::string sql = "INSERT INTO " + table + " (";
  std::string placeholders;
  for (size_t i = 0; i < columns.size(); ++i) {
    sql += (i == 0 ? "" : ",") + columns[i];
    placeholders += i == 0 ? "?" : ",?";
  }
  sql += ") VALUES (" + placeholders + ")";

  try {
    PreparedInsert& insert = w.Prepare(sql);
    std::vector<Parameter> parameters;
    parameters.reserve(columns.size());
    for (size_t i = 0; i < row.size(); ++i) parameters.push_back(w.Encode(row[i].second, insert.targets[i]));
    if (produce != nullptr) {
      if (!insert.targets.back().is_blob()) host::failures::Raise(host::failures::kTypeMismatch);
      parameters.push_back(w.Blob(*produce, insert.targets.back()));
    }

    // The message takes the type of each value, not of its column: the
    // database converts between the two.
    Owned<Firebird::IMetadataBuilder> builder(insert.parameters->getBuilder(&w.status));
    for (unsigned i = 0; i < parameters.size(); ++i) {
      const Parameter& p = parameters[i];
      if (p.is_null) continue;
      builder->setType(&w.status, i, p.type);
      builder->setSubType(&w.status, i, p.sub_type);
      builder->setCharSet(&w.status, i, p.charset);
      builder->setScale(&w.status, i, 0);
      builder->setLength(&w.status, i, std::max<unsigned>(static_cast<unsigned>(p.data.size()), 1));
    }
    Owned<Firebird::IMessageMetadata> message(builder->getMetadata(&w.status));

    std::vector<unsigned char> buffer(message->getMessageLength(&w.status), 0);
    for (unsigned i = 0; i < parameters.size(); ++i) {
      const Parameter& p = parameters[i];
      const int16_t null_flag = p.is_null ? -1 : 0;
      std::memcpy(buffer.data() + message->getNullOffset(&w.status, i), &null_flag, sizeof null_flag);
      if (p.is_null) continue;
      unsigned char* field = buffer.data() + message->getOffset(&w.status, i);
      if (p.type == SQL_VARYING) {
        const auto length = static_cast<uint16_t>(p.data.size());
        std::memcpy(field, &length, sizeof length);
        field += sizeof length;
      }
      std::memcpy(field, p.data.data(), p.data.size());
    }
    insert.statement->execute(&w.status, w.Transaction(), message.get(), buffer.data(), nullptr, nullptr);
  } catch (const Firebird::FbException& error) {
    throw firebird::FailureOf(error);
  }
}

void DatabaseWriter::Commit() {
  impl_->RequireOpen();
  try {
    impl_->CommitInserts();
  } catch (const Firebird::FbException& error) {
    throw firebird::FailureOf(error);
  }
}

void DatabaseWriter::Close() {
  Impl& w = *impl_;
  if (w.attachment == nullptr) return;
  std::optional<host::Failure> failure;
  w.FreeInserts();
  try {
    w.CommitInserts();
  } catch (const Firebird::FbException& error) {
    failure = firebird::FailureOf(error);
    try {
      w.transaction->rollback(&w.status);
      w.transaction = nullptr;
    } catch (const Firebird::FbException&) {
      firebird::Release(w.transaction);
    }
  }
  try {
    w.attachment->detach(&w.status);
    w.attachment = nullptr;
  } catch (const Firebird::FbException& error) {
    if (!failure) failure = firebird::FailureOf(error);
    firebird::Release(w.attachment);
  }
  if (failure) throw *failure;
}

}  // namespace sample
