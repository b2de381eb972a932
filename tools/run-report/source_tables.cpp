#include "tools/run-report/source_tables.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "converters/documents/filing.h"
#include "converters/documents/gzip_decoder.h"
#include "host/failure.h"
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

std::string KeyOf(const std::string& query_text) {
  const size_t end = query_text.find_last_not_of(' ');
  return end == std::string::npos ? std::string() : query_text.substr(0, end + 1);
}

const std::vector<const SourceRow*>& SourceTable::Where(const std::string& column, const std::string& key) const {
  static const std::vector<const SourceRow*> none;
  const std::string name = Lower(column);
  auto index = indexes_.find(name);
  if (index == indexes_.end()) {
    auto& built = indexes_[name];
    for (const SourceRow& row : rows) {
      auto cell = row.cells.find(name);
      if (cell != row.cells.end() && !cell->second.value.is_null())
        built[KeyOf(cell->second.query_text)].push_back(&row);
    }
    index = indexes_.find(name);
  }
  auto found = index->second.find(KeyOf(key));
  return found == index->second.end() ? none : found->second;
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
      std::string pattern = (std::filesystem::temp_directory_path() / "kairon-accounts-XXXXXX").string();
      if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder for the gzip streams");
      scratch_ = pattern;
    }
    cnv::filing::TempFolder folder(scratch_);
    file.decoder_answer = cnv::filing::DecodeGzip(content, folder, "stream");
  }
  return file;
}

const SourceTable& SourceTables::Table(const std::string& table, inspect::SourceFile file,
                                       const std::set<std::string>& columns, const std::string& order_by) {
  auto known = tables_.find(table);
  if (known != tables_.end()) return known->second;
  SourceTable& read = tables_[table];
  read.name = table;
  source::Recordset rs;
  try {
    rs.Open("SELECT * FROM " + table + (order_by.empty() ? "" : " ORDER BY " + order_by), databases_.Of(file));
  } catch (const host::Failure&) {
    return read;  // no such table
  }
  read.present = true;
  std::set<std::string> asked;
  for (const std::string& column : columns) asked.insert(Lower(column));
  const bool wants_file = asked.erase("bindata") > 0;
  bool file_missing = false;
  for (; !rs.Eof(); rs.MoveNext()) {
    SourceRow row;
    for (const std::string& column : asked) {
      if (read.missing_columns.count(column)) continue;
      try {
        row.cells[column] = Cell{rs.Field(column), rs.QueryText(column)};
      } catch (const host::Failure&) {
        read.missing_columns.insert(column);
      }
    }
    if (wants_file && !file_missing) {
      try {
        row.file = Summarize(rs.Bytes("bindata"));
      } catch (const host::Failure&) {
        file_missing = true;
        read.missing_columns.insert("bindata");
      }
    }
    read.rows.push_back(std::move(row));
  }
  rs.Close();
  return read;
}

}  // namespace runreport
