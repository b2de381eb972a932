// What the end-to-end tests share: a temporary folder, a small Ambulor
// archive written row by row, and a conversion of it through the reference
// host with the plug-in's Conversione created in this process, read back as
// the host's trace.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/failure_of.h"
#include "support/gzip.h"
#include "tools/ambulor-sample/sample.h"
#include "tools/kairon-convert/reference_host.h"

namespace fixture {

using nlohmann::json;

// A new empty folder under the system's temporary folder, removed with it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::filesystem::path& path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

// Gives the column of row the value, in its place if the row has it, else
// at the end.
void SetColumn(sample::Row& row, const std::string& column, const host::Value& value);

// A PAZIENTI row that the host accepts (tax code, birth date, card) with the
// given key and surname; extra columns are added or override.
sample::Row Patient(const std::string& cod_cart, const std::string& cognome, const sample::Row& extra = {});

// The trace and outcome of one conversion.
struct Run {
  refhost::ConvertOutcome outcome;
  std::vector<json> trace;
  std::string archive;
  std::string tempdir;                  // the temporary folder of the run
  std::shared_ptr<TempDir> own_tempdir;  // holds it when Convert chose it

  // The trace lines of calls of member on objects whose name ends in
  // object_suffix ("Pressione", "Interface"), in order; calls that the host
  // made fail are left out.
  std::vector<json> Calls(const std::string& object_suffix, const std::string& member) const;
  // The arguments of those calls.
  std::vector<json> ArgsOf(const std::string& object_suffix, const std::string& member) const;
  // Every AddMsg / ChangeMsg / AddInfo text, as "AddMsg: text".
  std::vector<std::string> Messages() const;
};

// Converts the archive whose GX_USER.FDB lies at user_path. options.conn,
// archive, trace and data_dir are filled in when left empty; without a
// tempdir the run gets a new folder apart from the source's, which goes
// with the Run.
Run Convert(const std::string& user_path, refhost::ConvertOptions options = {});

// The rows of a query on an SQLite file, each column as text ("NULL" for
// Null); none when the file or the query can't be opened. The file is opened
// for writing, so that a log that a killed run left is taken in.
std::vector<std::vector<std::string>> ArchiveRows(const std::string& file, const std::string& sql);

// A typed value as the trace writes it.
json Text(const std::string& s);
json I16(int n);
json I32(int n);
json F64(double d);
json Bool(bool b);

}  // namespace fixture
