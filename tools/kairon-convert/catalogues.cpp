#include "tools/kairon-convert/catalogues.h"

#include <csv.h>

#include <cctype>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace refhost {

namespace {

struct CsvRows {
  std::vector<std::vector<std::string>> rows;
  std::vector<std::string> row;
};

void OnField(void* data, size_t size, void* sink) {
  static_cast<CsvRows*>(sink)->row.emplace_back(static_cast<const char*>(data), size);
}

void OnRowEnd(int, void* sink) {
  auto* rows = static_cast<CsvRows*>(sink);
  rows->rows.push_back(std::move(rows->row));
  rows->row.clear();
}

// Blanks around unquoted fields are part of the field.
int NoSpace(unsigned char) { return 0; }

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) throw std::runtime_error("cannot read " + path);
  return content;
}

// The rows after the header, each with as many fields as the header.
std::vector<std::vector<std::string>> Body(const std::string& path, const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::vector<std::string>> body(rows.begin() + 1, rows.end());
  for (size_t i = 0; i < body.size(); ++i)
    if (body[i].size() != rows.front().size())
      throw std::runtime_error(path + ": row " + std::to_string(i + 2) + " has " + std::to_string(body[i].size()) +
                               " fields, the header " + std::to_string(rows.front().size()));
  return body;
}

std::string Upper(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

}  // namespace

std::vector<std::vector<std::string>> ReadCsv(const std::string& path) { return ParseCsv(ReadFile(path), path); }

std::vector<std::vector<std::string>> ParseCsv(std::string_view content, const std::string& name) {
  size_t start = content.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  csv_parser parser;
  if (csv_init(&parser, CSV_STRICT | CSV_STRICT_FINI) != 0) throw std::runtime_error("csv: out of memory");
  csv_set_space_func(&parser, NoSpace);
  CsvRows rows;
  size_t length = content.size() - start;
  bool ok = csv_parse(&parser, content.data() + start, length, OnField, OnRowEnd, &rows) == length &&
            csv_fini(&parser, OnField, OnRowEnd, &rows) == 0;
  std::string error = ok ? "" : csv_strerror(csv_error(&parser));
  csv_free(&parser);
  if (!ok) throw std::runtime_error(name + ": " + error);
  return std::move(rows.rows);
}

Catalogue Catalogue::Load(const std::string& path) { return Parse(ReadFile(path), path); }

Catalogue Catalogue::Parse(std::string_view content, const std::string& path) {
  std::vector<std::vector<std::string>> rows = ParseCsv(content, path);
  if (rows.empty() || rows.front().empty() || rows.front().front() != "code")
    throw std::runtime_error(path + ": the header must begin with the column code");
  Catalogue catalogue;
  catalogue.columns_.assign(rows.front().begin() + 1, rows.front().end());
  for (std::vector<std::string>& row : Body(path, rows)) {
    std::string code = std::move(row.front());
    catalogue.entries_.emplace(std::move(code), std::vector<std::string>(row.begin() + 1, row.end()));
  }
  return catalogue;
}

const std::vector<std::string>* Catalogue::Find(std::string_view code) const {
  auto it = entries_.find(code);
  return it == entries_.end() ? nullptr : &it->second;
}

Provinces Provinces::Load(const std::string& path) {
  std::vector<std::vector<std::string>> rows = ReadCsv(path);
  if (rows.empty() || rows.front() != std::vector<std::string>{"provincia", "regione"})
    throw std::runtime_error(path + ": the header must be provincia,regione");
  Provinces provinces;
  for (const std::vector<std::string>& row : Body(path, rows)) provinces.regions_.emplace(Upper(row[0]), row[1]);
  return provinces;
}

std::optional<std::string> Provinces::RegionOf(std::string_view sigla) const {
  size_t first = sigla.find_first_not_of(' ');
  if (first == std::string_view::npos) return std::nullopt;
  sigla = sigla.substr(first, sigla.find_last_not_of(' ') - first + 1);
  auto it = regions_.find(Upper(sigla));
  if (it == regions_.end()) return std::nullopt;
  return it->second;
}

}  // namespace refhost
