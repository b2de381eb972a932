#include "source/recordset.h"

#include <algorithm>
#include <cctype>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <vector>

#include "host/failure.h"
#include "host/text.h"
#include "source/charset.h"
#include "source/firebird_client.h"

namespace source {
namespace {

constexpr int32_t kBofOrEof = 3021;
constexpr int32_t kObjectClosed = 3704;
constexpr int32_t kObjectOpen = 3705;
constexpr int32_t kConnectionClosed = 3709;

// What the rows read ahead for one query and key may take; beyond it, the
// rows are read when asked for.
constexpr size_t kMostBytesReadAhead = 4 << 20;

// The room of a parameter: for a short value, and for the longest text.
constexpr unsigned kShortValue = 64;
constexpr unsigned kLongestValue = 32765;

[[noreturn]] void RaiseObjectClosed() {
  throw host::Failure(kObjectClosed, "Operazione non consentita se l'oggetto è chiuso.");
}

[[noreturn]] void RaiseBofOrEof() {
  throw host::Failure(kBofOrEof,
                      "BOF o EOF è True oppure il record corrente è stato eliminato. L'operazione richiesta "
                      "richiede un record corrente.");
}

std::string AsciiUpper(std::string_view s) {
  std::string upper(s);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

template <typename Number>
Number Load(const unsigned char* data) {
  Number n;
  std::memcpy(&n, data, sizeof n);
  return n;
}

// An exact NUMERIC or DECIMAL, mantissa times ten to the scale, as the double
// nearest to its decimal value.
double ScaledNumber(int64_t mantissa, int scale) {
  char text[48];
  const int length = std::snprintf(text, sizeof text, "%llde%d", static_cast<long long>(mantissa), scale);
  double number = 0;
  std::from_chars(text, text + length, number);
  return number;
}

// A single precision number as the double of its shortest decimal form, so
// that 0.1 stored as FLOAT reads as 0.1.
double WidenFloat(float f) {
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, f).ptr;
  double number = 0;
  std::from_chars(text, end, number);
  return number;
}

// One column of the query's rows, as the database describes it.
struct Column {
  std::string name;  // the alias, in upper case
  unsigned type = 0;
  int sub_type = 0;
  int scale = 0;
  unsigned length = 0;
  unsigned charset = 0;
  unsigned offset = 0;
  unsigned null_offset = 0;
};

}  // namespace

// A statement prepared on a connection, with what its rows look like. While
// a recordset runs it, the recordset alone uses it.
struct firebird::PreparedQuery {
  Status status;
  Firebird::IStatement* statement = nullptr;
  Firebird::IMessageMetadata* output = nullptr;
  std::vector<Column> columns;
  std::unordered_map<std::string, size_t> column_by_name;  // first column of each upper-case name
  std::vector<unsigned char> buffer;                       // one row

  // The parameters' message as last built, for lengths that the next run
  // often shares.
  Firebird::IMessageMetadata* input = nullptr;
  std::vector<unsigned> input_lengths;
  std::vector<unsigned char> input_buffer;

  PreparedQuery() = default;
  PreparedQuery(const PreparedQuery&) = delete;
  PreparedQuery& operator=(const PreparedQuery&) = delete;
  ~PreparedQuery();

  // room: the bytes that each "?" of the query takes, 0 for a query without
  // parameters.
  void Prepare(Firebird::IAttachment* attachment, Firebird::ITransaction* transaction, const std::string& sql,
               unsigned room);
  void BindText(const std::vector<std::string>& values);
  // A cursor over the query's rows with values bound to its "?" in order.
  Firebird::IResultSet* OpenCursor(Firebird::ITransaction* transaction, const std::vector<std::string>& values,
                                   Status& cursor_status);
};

namespace {

// Ends an interface in the normal way (which also releases it) or, when
// that fails, just drops the reference; either way it is forgotten.
template <typename Interface, typename End>
void EndOrRelease(Interface*& object, End end) {
  if (object == nullptr) return;
  try {
    end();
    object = nullptr;
  } catch (const Firebird::FbException&) {
    firebird::Release(object);
  }
}

}  // namespace

firebird::PreparedQuery::~PreparedQuery() {
  Release(input);
  Release(output);
  EndOrRelease(statement, [&] { statement->free(&status); });
}

void firebird::PreparedQuery::Prepare(Firebird::IAttachment* attachment, Firebird::ITransaction* transaction,
                                      const std::string& sql, unsigned room) {
  // The database gives a parameter the type of what it is compared with,
  // and would refuse a value longer than a text column or convert it to a
  // number column's type before comparing. As text without character set
  // and of any length, it compares as a literal does.
  const bool with_parameters = room > 0;
  std::string text;
  if (with_parameters) {
    bool quoted = false;
    for (char c : sql) {
      if (c == '\'') quoted = !quoted;
      if (c == '?' && !quoted) {
        text += "CAST(? AS VARCHAR(" + std::to_string(room) + ") CHARACTER SET NONE)";
      } else {
        text += c;
      }
    }
  }
  statement = attachment->prepare(&status, transaction, 0, with_parameters ? text.c_str() : sql.c_str(),
                                  SQL_DIALECT_V6, Firebird::IStatement::PREPARE_PREFETCH_METADATA);
  output = statement->getOutputMetadata(&status);
  const unsigned count = output->getCount(&status);
  columns.resize(count);
  for (unsigned i = 0; i < count; ++i) {
    Column& column = columns[i];
    column.name = AsciiUpper(output->getAlias(&status, i));
    column.type = output->getType(&status, i) & ~1u;
    column.sub_type = output->getSubType(&status, i);
    column.scale = output->getScale(&status, i);
    column.length = output->getLength(&status, i);
    column.charset = output->getCharSet(&status, i) & 0xFF;
    column.offset = output->getOffset(&status, i);
    column.null_offset = output->getNullOffset(&status, i);
    column_by_name.emplace(column.name, i);
  }
  buffer.assign(output->getMessageLength(&status), 0);
}

// Each value as text without character set, its bytes as they are: the
// database compares them with a column as it compares a literal of the
// same bytes. No value is longer than the parameters' room.
void firebird::PreparedQuery::BindText(const std::vector<std::string>& values) {
  std::vector<unsigned> lengths;
  lengths.reserve(values.size());
  for (const std::string& value : values) lengths.push_back(std::max<unsigned>(1, static_cast<unsigned>(value.size())));
  if (input == nullptr || lengths != input_lengths) {
    Release(input);
    Owned<Firebird::IMetadataBuilder> builder(Master()->getMetadataBuilder(&status, static_cast<unsigned>(values.size())));
    for (unsigned i = 0; i < values.size(); ++i) {
      builder->setType(&status, i, SQL_VARYING);
      builder->setCharSet(&status, i, kCharsetNone);
      builder->setLength(&status, i, lengths[i]);
    }
    input = builder->getMetadata(&status);
    input_lengths = std::move(lengths);
    input_buffer.assign(input->getMessageLength(&status), 0);
  }
  for (unsigned i = 0; i < values.size(); ++i) {
    unsigned char* field = input_buffer.data() + input->getOffset(&status, i);
    const auto length = static_cast<uint16_t>(values[i].size());
    std::memcpy(field, &length, sizeof length);
    std::memcpy(field + sizeof length, values[i].data(), values[i].size());
    const int16_t not_null = 0;
    std::memcpy(input_buffer.data() + input->getNullOffset(&status, i), &not_null, sizeof not_null);
  }
}

Firebird::IResultSet* firebird::PreparedQuery::OpenCursor(Firebird::ITransaction* transaction,
                                                         const std::vector<std::string>& values,
                                                         Status& cursor_status) {
  BindText(values);
  return statement->openCursor(&cursor_status, transaction, input, input_buffer.data(), output, 0);
}

struct Recordset::Impl {
  firebird::Status status;
  Firebird::IAttachment* attachment = nullptr;
  Firebird::ITransaction* transaction = nullptr;
  std::shared_ptr<firebird::PreparedQuery> query;
  std::weak_ptr<firebird::QueryPool> pool;  // where the query goes back to; none for a query run once
  std::string pool_key;
  Firebird::IResultSet* cursor = nullptr;
  std::shared_ptr<const firebird::CharacterSets> character_sets;
  // Rows read ahead, taken in turn instead of the cursor's.
  std::shared_ptr<const firebird::RowsReadAhead> read_ahead;
  size_t next_row = 0;

  // The current row's message, and its values; a BLOB is read at the first
  // request for it, until then its place is marked as pending.
  const unsigned char* message = nullptr;
  std::vector<host::Value> row;
  std::vector<bool> pending;
  bool eof = true;

  bool is_open() const { return cursor != nullptr || read_ahead != nullptr; }
  const std::vector<Column>& columns() const { return query->columns; }

  void Run(const std::vector<std::string>* parameters);
  void Fetch();
  const host::Value& Value(size_t index);
  host::Value Decode(const Column& column);
  host::Value DecodeText(std::string bytes, unsigned charset, unsigned declared_bytes);
  std::string StoredBytes(const Column& column);
  template <typename Bytes>
  Bytes ReadBlob(ISC_QUAD id);
  unsigned BytesPerCharacter(unsigned charset) const;
  void Release();
};

void Recordset::Impl::Fetch() {
  const bool fetched = read_ahead != nullptr
                           ? next_row < read_ahead->rows.size()
                           : cursor->fetchNext(&status, query->buffer.data()) == Firebird::IStatus::RESULT_OK;
  if (!fetched) {
    eof = true;
    message = nullptr;
    row.clear();
    pending.clear();
    return;
  }
  message = read_ahead != nullptr ? read_ahead->rows[next_row++].data() : query->buffer.data();
  eof = false;
  const std::vector<Column>& all = columns();
  row.resize(all.size());
  pending.assign(all.size(), false);
  for (size_t i = 0; i < all.size(); ++i) {
    const bool null = Load<int16_t>(message + all[i].null_offset) != 0;
    if (all[i].type == SQL_BLOB && !null) {
      row[i] = host::Value();  // the row before's BLOB is let go at once
      pending[i] = true;
    } else {
      row[i] = Decode(all[i]);
    }
  }
}

const host::Value& Recordset::Impl::Value(size_t index) {
  if (pending[index]) {
    row[index] = Decode(columns()[index]);
    pending[index] = false;
  }
  return row[index];
}

unsigned Recordset::Impl::BytesPerCharacter(unsigned charset) const {
  if (auto known = character_sets->find(charset); known != character_sets->end()) {
    return known->second.bytes_per_character;
  }
  if (charset == firebird::kCharsetUtf8) return 4;
  if (charset == firebird::kCharsetUnicodeFss) return 3;
  return 1;
}

// Text in a character set, as UTF-8. A CHAR column keeps its blank padding,
// cut back to the declared number of characters when the character set
// takes more than one byte for a character (declared_bytes is 0 for text
// of no fixed length).
host::Value Recordset::Impl::DecodeText(std::string bytes, unsigned charset, unsigned declared_bytes) {
  std::string text;
  switch (charset) {
    case firebird::kCharsetOctets:
      return host::Value::Bytes(std::vector<uint8_t>(bytes.begin(), bytes.end()));
    case firebird::kCharsetUtf8:
    case firebird::kCharsetUnicodeFss:
      text = std::move(bytes);
      break;
    case firebird::kCharsetNone:
    case firebird::kCharsetAscii:
      // A long text read once, and kept as it came when it is UTF-8.
      text = host::text::IsValidUtf8(bytes) ? std::move(bytes) : host::text::FromWindows1252(bytes);
      break;
    default: {
      const auto known = character_sets->find(charset);
      if (known == character_sets->end()) {
        text = host::text::FromLegacyBytes(bytes);
        break;
      }
      std::optional<std::string> utf8 = charset::ToUtf8(bytes, known->second.name);
      text = utf8 ? std::move(*utf8) : host::text::FromLegacyBytes(bytes);
    }
  }
  const unsigned bytes_per_character = BytesPerCharacter(charset);
  if (declared_bytes > 0 && bytes_per_character > 1) {
    text = host::text::Left(text, declared_bytes / bytes_per_character);
  }
  return host::Value(std::move(text));
}

// The whole content of a BLOB, its room taken once at the length that the
// database gives.
template <typename Bytes>
Bytes Recordset::Impl::ReadBlob(ISC_QUAD id) {
  Firebird::IBlob* blob = attachment->openBlob(&status, transaction, &id, 0, nullptr);
  Bytes content;
  try {
    const unsigned char item = isc_info_blob_total_length;
    unsigned char info[16] = {};
    blob->getInfo(&status, 1, &item, sizeof info, info);
    // The answer: the item, the length of its value (2 bytes), and the value,
    // each little-endian.
    const unsigned value_length = info[1] | info[2] << 8;
    if (info[0] == isc_info_blob_total_length && value_length <= 4) {
      uint32_t total = 0;
      for (unsigned i = value_length; i > 0; --i) total = total << 8 | info[2 + i];
      content.reserve(total);
    }
    // One buffer for the segments of every BLOB that this thread reads.
    thread_local std::vector<char> segment(65535);
    for (;;) {
      unsigned length = 0;
      const int result = blob->getSegment(&status, static_cast<unsigned>(segment.size()), segment.data(), &length);
      if (result != Firebird::IStatus::RESULT_OK && result != Firebird::IStatus::RESULT_SEGMENT) break;
      content.insert(content.end(), segment.data(), segment.data() + length);
    }
    blob->close(&status);
  } catch (...) {
    blob->release();
    throw;
  }
  return content;
}

host::Value Recordset::Impl::Decode(const Column& column) {
  if (Load<int16_t>(message + column.null_offset) != 0) return host::Value::Null();
  const unsigned char* data = message + column.offset;
  switch (column.type) {
    case SQL_SHORT: {
      const auto n = Load<int16_t>(data);
      return column.scale == 0 ? host::Value::I16(n) : host::Value(ScaledNumber(n, column.scale));
    }
    case SQL_LONG: {
      const auto n = Load<int32_t>(data);
      return column.scale == 0 ? host::Value::I32(n) : host::Value(ScaledNumber(n, column.scale));
    }
    case SQL_INT64: {
      const auto n = Load<int64_t>(data);
      return column.scale == 0 ? host::Value(static_cast<double>(n)) : host::Value(ScaledNumber(n, column.scale));
    }
    case SQL_FLOAT:
      return host::Value(WidenFloat(Load<float>(data)));
    case SQL_DOUBLE:
    case SQL_D_FLOAT:
      return host::Value(Load<double>(data));
    case SQL_BOOLEAN:
      return host::Value::Bool(*data != 0);
    case SQL_TYPE_DATE: {
      unsigned year = 0, month = 0, day = 0;
      firebird::Util()->decodeDate(Load<ISC_DATE>(data), &year, &month, &day);
      return host::Value(host::Date{static_cast<int>(year), static_cast<int>(month), static_cast<int>(day)});
    }
    case SQL_TYPE_TIME: {
      unsigned hour = 0, minute = 0, second = 0, fraction = 0;
      firebird::Util()->decodeTime(Load<ISC_TIME>(data), &hour, &minute, &second, &fraction);
      return host::Value(host::Date{1899, 12, 30, static_cast<int>(hour), static_cast<int>(minute),
                                    static_cast<int>(second)});
    }
    case SQL_TIMESTAMP: {
      const auto stamp = Load<ISC_TIMESTAMP>(data);
      unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, fraction = 0;
      firebird::Util()->decodeDate(stamp.timestamp_date, &year, &month, &day);
      firebird::Util()->decodeTime(stamp.timestamp_time, &hour, &minute, &second, &fraction);
      return host::Value(host::Date{static_cast<int>(year), static_cast<int>(month), static_cast<int>(day),
                                    static_cast<int>(hour), static_cast<int>(minute), static_cast<int>(second)});
    }
    case SQL_TEXT:
      return DecodeText(std::string(reinterpret_cast<const char*>(data), column.length), column.charset,
                        column.length);
    case SQL_VARYING: {
      const auto length = Load<uint16_t>(data);
      return DecodeText(std::string(reinterpret_cast<const char*>(data) + sizeof(uint16_t), length),
                        column.charset, 0);
    }
    case SQL_BLOB:
      if (column.sub_type == isc_blob_text)
        return DecodeText(ReadBlob<std::string>(Load<ISC_QUAD>(data)), column.charset, 0);
      return host::Value::Bytes(ReadBlob<std::vector<uint8_t>>(Load<ISC_QUAD>(data)));
    default:
      // Arrays and untyped Nulls: nothing that the conversion reads.
      return host::Value::Null();
  }
}

// The bytes of a text column of the current row as the database holds them.
std::string Recordset::Impl::StoredBytes(const Column& column) {
  const unsigned char* data = message + column.offset;
  switch (column.type) {
    case SQL_TEXT:
      return std::string(reinterpret_cast<const char*>(data), column.length);
    case SQL_VARYING:
      return std::string(reinterpret_cast<const char*>(data) + sizeof(uint16_t), Load<uint16_t>(data));
    case SQL_BLOB:
      return ReadBlob<std::string>(Load<ISC_QUAD>(data));
    default:
      return {};
  }
}

// Closes the cursor and hands the statement back to its connection for the
// next run, or frees it if it was for this run only or the connection has
// closed in the meantime.
void Recordset::Impl::Release() {
  EndOrRelease(cursor, [&] { cursor->close(&status); });
  read_ahead.reset();
  next_row = 0;
  message = nullptr;
  if (query != nullptr) {
    std::shared_ptr<firebird::QueryPool> queries = pool.lock();
    constexpr size_t kMostIdle = 256;
    if (queries != nullptr && queries->idle_count < kMostIdle) {
      queries->idle[pool_key].push_back(std::move(query));
      ++queries->idle_count;
    }
    query.reset();
  }
  pool.reset();
  pool_key.clear();
  firebird::Release(transaction);
  firebird::Release(attachment);
  character_sets.reset();
  row.clear();
  pending.clear();
  eof = true;
}

// Opens the cursor over the prepared query and stands on its first row.
void Recordset::Impl::Run(const std::vector<std::string>* parameters) {
  if (parameters != nullptr) {
    cursor = query->OpenCursor(transaction, *parameters, status);
  } else {
    cursor = query->statement->openCursor(&status, transaction, nullptr, nullptr, query->output, 0);
  }
  Fetch();
}

Recordset::Recordset() : impl_(std::make_unique<Impl>()) {}

Recordset::~Recordset() { Close(); }

namespace {

void CheckCanOpen(bool recordset_open, const Connection& connection) {
  if (recordset_open) throw host::Failure(kObjectOpen, "Operazione non consentita se l'oggetto è aperto.");
  if (!connection.is_open()) {
    throw host::Failure(kConnectionClosed,
                        "La connessione non può essere utilizzata per eseguire questa operazione. È chiusa o "
                        "non valida in questo contesto.");
  }
}

// Keys are short, and a statement whose parameters have room for short
// values only gives the database far fewer bytes to move at every run; a
// longer value takes the statement with room for the longest text.
unsigned RoomFor(const std::vector<std::string>& values) {
  const bool short_values =
      std::all_of(values.begin(), values.end(), [](const std::string& value) { return value.size() <= kShortValue; });
  return short_values ? kShortValue : kLongestValue;
}

// The name under which a connection keeps the statements of a query with
// parameters of that room.
std::string StatementKey(const std::string& sql, unsigned room) { return sql + '\0' + std::to_string(room); }

// The query as it reads with each "?" outside quotes replaced by its value
// between single quotes, without doubling the value's own quotes.
std::string WithLiterals(const std::string& sql, const std::vector<std::string>& values) {
  std::string text;
  size_t next = 0;
  bool quoted = false;
  for (char c : sql) {
    if (c == '\'') quoted = !quoted;
    if (c == '?' && !quoted && next < values.size()) {
      text += '\'';
      text += values[next++];
      text += '\'';
    } else {
      text += c;
    }
  }
  return text;
}

// The same value with one quote: what comes before its first quote, the
// quote, and the letters and digits that come after it (or "X", if none),
// which the database reads as a word that can't follow a literal.
std::string WithOneQuote(const std::string& value) {
  const size_t quote = value.find('\'');
  if (quote == std::string::npos) return value;
  std::string word;
  for (char c : value.substr(quote + 1))
    if (std::isalnum(static_cast<unsigned char>(c))) word += c;
  return value.substr(0, quote + 1) + (word.empty() ? "X" : word);
}

// A value with a quote never reaches the database as a parameter: the query
// fails as it fails with the value written between quotes into its text,
// which the database refuses to prepare ("Token unknown" at the letters
// after an apostrophe). When the text would prepare after all, the value
// having closed the literal, or the database's message would tell no place
// in the text (a literal left open at the end), it fails as the value with
// its first quote only does. Either way nothing runs and no row is selected.
[[noreturn]] void RaiseForQuote(const std::string& sql, std::vector<std::string> values,
                                Connection::Impl& connection) {
  firebird::Status status;
  std::optional<host::Failure> failure;
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      Firebird::IStatement* statement = connection.attachment->prepare(
          &status, connection.transaction, 0, WithLiterals(sql, values).c_str(), SQL_DIALECT_V6, 0);
      EndOrRelease(statement, [&] { statement->free(&status); });
    } catch (const Firebird::FbException& error) {
      failure = firebird::FailureOf(error);
      if (failure->description().find("Unexpected end of command") == std::string::npos) throw *failure;
    }
    for (std::string& value : values) value = WithOneQuote(value);
  }
  if (failure) throw *failure;
  throw host::Failure(host::failures::kInvalidArgument, "Apice in un valore della query");
}

}  // namespace

void Recordset::Open(const std::string& sql, Connection& connection) {
  CheckCanOpen(impl_->is_open(), connection);
  Impl& r = *impl_;
  Connection::Impl& c = connection.impl();
  r.attachment = c.attachment;
  r.attachment->addRef();
  r.transaction = c.transaction;
  r.transaction->addRef();
  r.character_sets = c.character_sets;
  try {
    r.query = std::make_shared<firebird::PreparedQuery>();
    r.query->Prepare(r.attachment, r.transaction, sql, 0);
    r.Run(nullptr);
  } catch (const Firebird::FbException& error) {
    r.Release();
    throw firebird::FailureOf(error);
  } catch (...) {
    r.Release();
    throw;
  }
}

void Recordset::Open(const std::string& sql, const std::vector<std::string>& parameters, Connection& connection) {
  CheckCanOpen(impl_->is_open(), connection);
  Impl& r = *impl_;
  Connection::Impl& c = connection.impl();
  for (const std::string& value : parameters)
    if (value.find('\'') != std::string::npos) RaiseForQuote(sql, parameters, c);
  // A value longer than a parameter holds goes into the query's text as the
  // literal that it stands for: the database then selects by it, or refuses
  // a literal that long, and nothing is cut.
  for (const std::string& value : parameters) {
    if (value.size() > kLongestValue) {
      Open(WithLiterals(sql, parameters), connection);
      return;
    }
  }

  r.attachment = c.attachment;
  r.attachment->addRef();
  r.transaction = c.transaction;
  r.transaction->addRef();
  r.character_sets = c.character_sets;
  firebird::ReadAhead& ahead = *c.read_ahead;
  const bool with_patient_key = parameters.size() == 1 && !ahead.key.empty() && parameters[0] == ahead.key;
  if (with_patient_key) {
    if (auto read = ahead.rows.find(sql); read != ahead.rows.end()) {
      r.read_ahead = read->second;
      r.query = read->second->query;
      try {
        r.Fetch();
      } catch (...) {
        r.Release();
        throw;
      }
      return;
    }
    if (std::find(ahead.queries.begin(), ahead.queries.end(), sql) == ahead.queries.end())
      ahead.queries.push_back(sql);
  }
  const unsigned room = RoomFor(parameters);
  r.pool = c.queries;
  r.pool_key = StatementKey(sql, room);
  try {
    auto idle = c.queries->idle.find(r.pool_key);
    if (idle != c.queries->idle.end() && !idle->second.empty()) {
      r.query = std::move(idle->second.back());
      idle->second.pop_back();
      --c.queries->idle_count;
    } else {
      r.query = std::make_shared<firebird::PreparedQuery>();
      r.query->Prepare(r.attachment, r.transaction, sql, room);
    }
    r.Run(&parameters);
  } catch (const Firebird::FbException& error) {
    // A statement that failed isn't run again.
    r.pool.reset();
    r.Release();
    throw firebird::FailureOf(error);
  } catch (...) {
    r.pool.reset();
    r.Release();
    throw;
  }
}

bool Recordset::Eof() const {
  if (!impl_->is_open()) RaiseObjectClosed();
  return impl_->eof;
}

void Recordset::MoveNext() {
  if (!impl_->is_open()) RaiseObjectClosed();
  if (impl_->eof) RaiseBofOrEof();
  try {
    impl_->Fetch();
  } catch (const Firebird::FbException& error) {
    throw firebird::FailureOf(error);
  }
}

host::Value Recordset::Field(std::string_view name) const {
  if (!impl_->is_open()) RaiseObjectClosed();
  const auto found = impl_->query->column_by_name.find(AsciiUpper(name));
  if (found == impl_->query->column_by_name.end()) host::failures::Raise(host::failures::kItemNotFound);
  if (impl_->eof) RaiseBofOrEof();
  try {
    return impl_->Value(found->second);
  } catch (const Firebird::FbException& error) {
    throw firebird::FailureOf(error);
  }
}

std::string Recordset::QueryText(std::string_view name) const {
  const host::Value value = Field(name);
  if (value.is_null()) return "";
  const Column& column = impl_->columns()[impl_->query->column_by_name.at(AsciiUpper(name))];
  try {
    if (column.type == SQL_TEXT || column.type == SQL_VARYING || (column.type == SQL_BLOB && column.sub_type == isc_blob_text))
      return impl_->StoredBytes(column);
  } catch (const Firebird::FbException& error) {
    throw firebird::FailureOf(error);
  }
  if (column.type == SQL_INT64 && column.scale == 0)
    return std::to_string(Load<int64_t>(impl_->message + column.offset));
  return host::TextOf(value);
}

host::Value Recordset::Bytes(std::string_view name) const {
  const host::Value value = Field(name);
  if (value.is_null()) return value;
  if (value.type() == host::Type::Bytes) return value;
  const Column& column = impl_->columns()[impl_->query->column_by_name.at(AsciiUpper(name))];
  if (column.type != SQL_TEXT && column.type != SQL_VARYING && column.type != SQL_BLOB)
    host::failures::Raise(host::failures::kTypeMismatch);
  try {
    const std::string stored = impl_->StoredBytes(column);
    return host::Value::Bytes(std::vector<uint8_t>(stored.begin(), stored.end()));
  } catch (const Firebird::FbException& error) {
    throw firebird::FailureOf(error);
  }
}

void Recordset::Close() { impl_->Release(); }

void ReadAhead(Connection& connection, const std::string& key) {
  if (!connection.is_open()) return;
  Connection::Impl& c = connection.impl();
  firebird::ReadAhead& ahead = *c.read_ahead;
  ahead.key = key;
  ahead.rows.clear();
  if (key.empty() || key.find('\'') != std::string::npos || key.size() > kLongestValue) return;
  const std::vector<std::string> values{key};
  const unsigned room = RoomFor(values);
  for (const std::string& sql : ahead.queries) {
    try {
      std::shared_ptr<firebird::PreparedQuery>& query = ahead.statements[StatementKey(sql, room)];
      if (query == nullptr) {
        auto prepared = std::make_shared<firebird::PreparedQuery>();
        prepared->Prepare(c.attachment, c.transaction, sql, room);
        query = std::move(prepared);
      }
      auto read = std::make_shared<firebird::RowsReadAhead>();
      read->query = query;
      firebird::Owned<Firebird::IResultSet> cursor(query->OpenCursor(c.transaction, values, query->status));
      size_t bytes = 0;
      while (bytes <= kMostBytesReadAhead &&
             cursor->fetchNext(&query->status, query->buffer.data()) == Firebird::IStatus::RESULT_OK) {
        read->rows.push_back(query->buffer);
        bytes += query->buffer.size();
      }
      cursor->close(&query->status);
      cursor.release();
      // A patient with rows beyond the bound has them read when asked for.
      if (bytes <= kMostBytesReadAhead) ahead.rows.emplace(sql, std::move(read));
    } catch (const Firebird::FbException&) {
      // The query runs, and fails, when a recordset asks for it.
    }
  }
}

namespace {

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Whether a column without character set holds Windows-1252 text: some
// stored value that isn't plain ASCII is not valid UTF-8 either.
bool HoldsWindows1252(Connection& connection, const std::string& table, const std::string& column) {
  Recordset rows;
  rows.Open("SELECT " + column + " FROM " + table, connection);
  for (; !rows.Eof(); rows.MoveNext()) {
    if (!host::text::IsValidUtf8(rows.QueryText(column))) return true;
  }
  return false;
}

}  // namespace

std::string TextForColumn(Connection& connection, const std::string& table, const std::string& column,
                          const std::string& text) {
  if (IsAscii(text)) return text;
  Recordset probe;
  probe.Open("SELECT " + column + " FROM " + table + " WHERE 1 = 0", connection);
  Recordset::Impl& impl = *probe.impl_;
  const unsigned charset = impl.columns().at(0).charset;
  std::string charset_name = "NONE";
  if (auto known = impl.character_sets->find(charset); known != impl.character_sets->end())
    charset_name = known->second.name;
  probe.Close();

  std::optional<std::string> bytes;
  switch (charset) {
    case firebird::kCharsetUtf8:
    case firebird::kCharsetUnicodeFss:
      return text;
    case firebird::kCharsetNone:
    case firebird::kCharsetAscii:
    case firebird::kCharsetOctets:
      if (!HoldsWindows1252(connection, table, column)) return text;
      bytes = host::text::ToWindows1252(text);
      charset_name = "WIN1252";
      break;
    default:
      bytes = charset::FromUtf8(text, charset_name);
  }
  if (!bytes) {
    throw host::Failure(host::failures::kInvalidArgument, "Il testo \"" + text +
                                                              "\" ha caratteri che la codifica della colonna " +
                                                              column + " (" + charset_name + ") non rappresenta");
  }
  return *bytes;
}

}  // namespace source
