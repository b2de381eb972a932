#include "tools/run-report/source_tables.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "converters/documents/filing.h"
#include "converters/documents/gzip_decoder.h"
#include "host/failure.h"
#include "host/process_mark.h"
#include "plugin/modConversione.h"
#include "source/recordset.h"

namespace runreport {
namespace {

std::string Lower(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
  return name;
}

}  // namespace

const host::Value& SourceRow::Field(const std::string& column) const {
  auto cell = cells.find(Lower(column));
  if (cell == cells.end()) throw ColumnMissing{column};
  return cell->second.value;
}

const std::string& SourceRow::QueryText(const std::string& column) const {
  auto cell = cells.find(Lower(column));
  if (cell == cells.end()) throw ColumnMissing{column};
  return cell->second.query_text;
}

const StoredFile& SourceRow::File() const {
  if (!file) throw ColumnMissing{"bindata"};
  return *file;
}

SourceTables::~SourceTables() {
  if (!scratch_.empty()) {
    std::error_code ec;
    std::filesystem::remove_all(scratch_, ec);
  }
}

StoredFile SourceTables::Summarize(const host::Value& bytes) {
  StoredFile file;
  file.null = bytes.is_null();
  const host::Value value = cnv::BytesOf(bytes);
  const std::vector<uint8_t>& content = value.bytes();
  file.size = content.size();
  file.gzip = content.size() >= 3 && content[0] == 0x1F && content[1] == 0x8B && content[2] == 0x08;
  if (file.gzip) {
    if (scratch_.empty()) {
      std::string pattern = (std::filesystem::temp_directory_path() / ("kairon-accounts-" + host::process_mark::Own() + "-XXXXXX")).string();
      if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder for the gzip streams");
      scratch_ = pattern;
    }
    cnv::filing::TempFolder folder(scratch_);
    file.decoder_answer = cnv::filing::DecodeGzip(content, folder, "stream");
  }
  return file;
}

const SourceTable& SourceTables::Table(const std::string& table, inspect::SourceFile file,
                                       const std::set<std::string>& columns) {
  auto known = tables_.find(table);
  if (known != tables_.end()) return known->second;
  SourceTable& told = tables_[table];
  told.name = table;
  told.file = file;
  source::Recordset rs;
  try {
    rs.Open("SELECT * FROM " + table + " WHERE 1 = 0", databases_.Of(file));
  } catch (const host::Failure&) {
    return told;  // no such table
  }
  told.present = true;
  // A name that the query doesn't have fails before the end of the rows does.
  for (const std::string& asked : columns) {
    const std::string column = Lower(asked);
    try {
      rs.Field(column);
    } catch (const host::Failure& failure) {
      if (failure.number() == host::failures::kItemNotFound) {
        told.missing_columns.insert(column);
        continue;
      }
    }
    if (column == "bindata")
      told.with_file = true;
    else
      told.columns.insert(column);
  }
  rs.Close();
  return told;
}

namespace {

SourceRow RowOf(const source::Recordset& rs, const SourceTable& table,
                const std::function<StoredFile(const host::Value&)>& summarize) {
  SourceRow row;
  for (const std::string& column : table.columns) row.cells[column] = Cell{rs.Field(column), rs.QueryText(column)};
  if (table.with_file) row.file = summarize(rs.Bytes("bindata"));
  return row;
}

}  // namespace

const std::vector<const SourceRow*>& SourceTables::Where(const SourceTable& table, const std::string& column,
                                                        const std::string& key) {
  const std::string sql = "SELECT * FROM " + table.name + " WHERE " + column + " = ?";
  auto [at, added] = rows_.try_emplace(sql + '\0' + key);
  Rows& read = at->second;
  if (!added) return read.pointers;
  const auto summarize = [this](const host::Value& bytes) { return Summarize(bytes); };
  try {
    source::Recordset rs;
    // A bound value never holds a quote; the rows of such a key, which the
    // converter's query never reaches, are still told.
    if (key.find('\'') == std::string::npos)
      rs.Open(sql, {key}, databases_.Of(table.file));
    else
      rs.Open(sql.substr(0, sql.size() - 1) + "'" + cnv::RaddoppiaApici(key) + "'", databases_.Of(table.file));
    for (; !rs.Eof(); rs.MoveNext()) read.rows.push_back(RowOf(rs, table, summarize));
    rs.Close();
  } catch (...) {
    rows_.erase(at);
    throw;
  }
  for (const SourceRow& row : read.rows) read.pointers.push_back(&row);
  return read.pointers;
}

void SourceTables::Each(const SourceTable& table, const std::string& order_by,
                        const std::function<void(const SourceRow&)>& row) {
  const auto summarize = [this](const host::Value& bytes) { return Summarize(bytes); };
  source::Recordset rs;
  for (rs.Open("SELECT * FROM " + table.name + " ORDER BY " + order_by, databases_.Of(table.file)); !rs.Eof();
       rs.MoveNext())
    row(RowOf(rs, table, summarize));
  rs.Close();
}

}  // namespace runreport
