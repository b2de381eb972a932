// The host's archives, read from CSV files (UTF-8, a header row, RFC 4180
// quoting): the catalogues of archivio (ICD9, Farmaci, Esenzioni), whose
// first column is "code" and whose other columns are the members of an
// entry, and the table of provinces with their region codes.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace refhost {

// Every row of a CSV file, header included. Fields may be quoted with '"',
// with '""' for a quote inside; a quoted field may hold commas and line
// breaks. Nothing is trimmed; blank lines are passed over. Raises
// std::runtime_error for a file that can't be read or quoting that is
// broken.
std::vector<std::vector<std::string>> ReadCsv(const std::string& path);
// The same for a CSV text already read; name stands for the file in errors.
std::vector<std::vector<std::string>> ParseCsv(std::string_view content, const std::string& name);

class Catalogue {
 public:
  // Raises std::runtime_error for an unreadable file, a header whose first
  // column isn't "code", or a row with another number of fields than the
  // header. Of two rows with one code, the first counts.
  static Catalogue Load(const std::string& path);
  // The same for the CSV text of a file; path names it in errors.
  static Catalogue Parse(std::string_view content, const std::string& path);

  // The names of an entry's members: the columns after "code".
  const std::vector<std::string>& columns() const { return columns_; }

  // The values of the entry whose code is exactly code (no trimming, case
  // counts), in the order of columns(); nullptr if there is none.
  const std::vector<std::string>* Find(std::string_view code) const;

 private:
  std::vector<std::string> columns_;
  std::map<std::string, std::vector<std::string>, std::less<>> entries_;
};

class Provinces {
 public:
  // A file with the header "provincia,regione". Raises std::runtime_error as
  // Catalogue::Load does.
  static Provinces Load(const std::string& path);

  // The region code of a province's sigla, compared after taking the blanks
  // off its ends and without regard to case; nullopt for an unknown one.
  std::optional<std::string> RegionOf(std::string_view sigla) const;

 private:
  std::map<std::string, std::string, std::less<>> regions_;
};

}  // namespace refhost
