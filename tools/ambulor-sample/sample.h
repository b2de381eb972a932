// Ambulor archives for demos, tests and benchmarks: the three databases with
// every table and column that the plug-in reads. Tests build small archives
// row by row; the generator fills a realistic one from a seed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/ambulor-sample/database_writer.h"

namespace sample {

enum class Database { User, Media, Data };  // GX_USER.FDB, GX_MEDIA.FDB, GX_DATA.FDB

struct Column {
  std::string name;
  std::string type;  // Firebird type as in CREATE TABLE, e.g. "VARCHAR(40)", "DATE", "BLOB SUB_TYPE 1"
};

struct Table {
  std::string name;
  Database database;
  std::vector<Column> columns;
};

// Every table of the three databases with realistic column types. A test may
// change a column's type (a date kept as text), or drop a column or a table,
// before it creates an archive.
std::vector<Table> DefaultSchema();

// Changes the type of a column of a table in schema; raises if there's none.
// Names compare without regard to case. All three raise std::invalid_argument
// for a table or column that schema doesn't have.
void SetColumnType(std::vector<Table>& schema, const std::string& table, const std::string& column,
                   const std::string& type);
void DropColumn(std::vector<Table>& schema, const std::string& table, const std::string& column);
void DropTable(std::vector<Table>& schema, const std::string& table);

// Raised by Archive::Create, before anything is touched, when a database file
// is already in the folder and force wasn't given.
class ExistingArchive : public std::runtime_error {
 public:
  explicit ExistingArchive(const std::string& path) : std::runtime_error(path + " already exists"), path_(path) {}
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Raised by GenerateSample, before anything is written, when the folder
// can't hold the archive (a file, a folder that can't be made or written).
class UnusableFolder : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Raised by GenerateSample when stop_requested said yes; nothing is left of
// the run.
class Interrupted : public std::runtime_error {
 public:
  Interrupted() : std::runtime_error("interrupted") {}
};

class Archive {
 public:
  ~Archive();

  // Creates GX_USER.FDB, GX_MEDIA.FDB and GX_DATA.FDB in dir (made if
  // missing) with the tables of schema. Refuses existing files unless force.
  static std::unique_ptr<Archive> Create(const std::string& dir, const std::vector<Table>& schema = DefaultSchema(),
                                         bool force = false);

  // Inserts one row into a table, on the database the schema puts it in;
  // columns not named are Null. Values for a table or column that the
  // default schema has and this archive's schema dropped are left out, so a
  // test can drop a column and still insert its usual rows; a name that
  // neither schema knows raises std::invalid_argument.
  void Insert(const std::string& table, const Row& row);

  // The same, with one more column, a BLOB, whose content produce hands over
  // piece by piece: a file of any size, never held whole. A streamed column
  // that this archive's schema dropped is left out like any other.
  void Insert(const std::string& table, const Row& row, const std::string& streamed_column, const Producer& produce);

  // Commits everything and closes the three databases. Safe to call twice.
  void Close();

  // Full path of GX_USER.FDB: the connection text a host hands to Test.
  std::string user_path() const;

 private:
  Archive() = default;
  DatabaseWriter& writer(Database database);
  std::string dir_;
  std::vector<Table> schema_;
  std::unique_ptr<DatabaseWriter> user_, media_, data_;
};

struct SampleOptions {
  int patients = 200;
  uint64_t seed = 1;
  bool force = false;
  // About how many megabytes (MiB) of media the whole sample holds: beyond
  // the usual documents, ordinary patients get scanned pages (IMAGES, some
  // gzip-compressed), scanned therapeutic plans (SCANSIONI) and long RTF
  // documents (MODULI), up to a dozen MB each, till the total is reached. 0
  // adds none: the sample then holds only the usual small files and the few
  // multi-MB documents of one of the awkward patients.
  int media_mb = 0;
  // Called after each patient with the number written so far and the total.
  std::function<void(int written, int total)> progress;
  // Asked after each table and each patient: true ends the run (Interrupted).
  std::function<bool()> stop_requested;
  // Told the folder (inside dir) where the databases are written until they
  // are complete, so that a program ending at once can remove it.
  std::function<void(const std::string& folder)> writing_in;
};

// What GenerateSample wrote, for the command line's closing line.
struct SampleSummary {
  int patients = 0;
  int rows = 0;             // all rows of all tables
  int files = 0;            // rows with a binary document
  int64_t media_bytes = 0;  // the bytes of those documents, as stored
};

// A patient of every sample (of enough patients) whose conversion of all
// categories, in the order of the plug-in's list, gets "ERR" on purpose:
// every other patient converts cleanly.
struct PlantedFailure {
  std::string card;      // PAZIENTI.Cod_Cart
  std::string category;  // the converter's suffix in the detail line without " - ", e.g. "Referti"; empty when
                         // the host refuses the patient before any category
  std::string cause;     // in words
};
const std::vector<PlantedFailure>& PlantedFailures();

// Writes a realistic archive into dir (made if missing): the same content
// for the same patients and seed. A few fixed awkward patients come first,
// whatever the seed (as many of them as patients allows), then ordinary ones.
// The databases are written in a folder of their own inside dir and moved
// into dir once complete, so a run that fails leaves no database behind and
// the files it would replace as they were. Raises ExistingArchive as
// Archive::Create does, and UnusableFolder, before anything is written.
SampleSummary GenerateSample(const std::string& dir, const SampleOptions& options);

}  // namespace sample
