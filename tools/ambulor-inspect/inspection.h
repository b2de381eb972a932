// The look at a source before a conversion: its three databases, what each
// category reads of them and whether it is there, and the figures of its
// tables. It opens the databases as the plug-in does and only reads.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/ambulor-inspect/catalogue.h"
#include "tools/ambulor-inspect/document_titles.h"
#include "tools/ambulor-inspect/key_matching.h"
#include "tools/ambulor-inspect/source_databases.h"

namespace inspect {

struct DatabaseState {
  SourceFile file;
  std::string path;                  // as opened: a file path or "host:path"
  std::optional<int64_t> size;       // bytes of a local file
  std::string ods;                   // on-disk structure of a local file, "12.0"; empty for a server's
  std::string character_set;         // the database's default one, "NONE" when it has none
};

struct ColumnState {
  std::string name;
  bool present = false;
  Effect effect;  // what its absence does
};

struct TableState {
  std::string table;
  SourceFile file;
  bool per_patient = false;
  bool present = false;
  std::vector<ColumnState> columns;
};

struct CategoryState {
  std::string keyword, suffix;
  std::vector<TableState> tables;
  // True when every table and column that the category reads is there.
  bool CanRun() const;
};

// The figures of one table that some category reads; -1 where they don't
// apply (a missing table, no key, no binary column).
struct TableFigures {
  std::string table;
  SourceFile file;
  bool present = false;
  int64_t rows = -1;
  int64_t orphan_rows = -1;  // rows that no patient's query selects
  int64_t blob_bytes = -1;   // bytes of bindata, over all rows
};

struct Inspection {
  std::vector<DatabaseState> databases;
  int64_t patients = 0;          // rows of PAZIENTI
  int64_t patients_without_key = 0;  // of them, those with a Null or blank Cod_Cart, which no run converts
  std::vector<SharedKey> shared_keys;  // keys of PAZIENTI that several patients share
  std::string shared_keys_unknown;     // why they couldn't be found, when they couldn't
  std::vector<std::string> doctors;  // of STUDIO, "surname name"; empty when the table or a column is missing
  bool doctors_table_usable = false;
  std::vector<CategoryState> categories;  // the master record first
  std::vector<TableFigures> tables;
  bool through_private_copy = false;  // the files can't be written: a copy of them was read
  UnfileableTitles unfileable_titles;  // documents that end "Certificati" in ERR, or aren't filed
  bool CanRunAll() const;
};


// Opens the source whose user database conn names (a path ending in
// GX_USER.FDB, or "host:path" of a server) by the plug-in's own rules (a
// file that can't be written through a private copy) and inspects it,
// reading only. Raises Unopenable.
Inspection Inspect(const std::string& conn);

// For a person: databases, categories with what is missing and its effect,
// table figures, doctors.
std::string ToText(const Inspection& inspection);

// The same, for machines.
nlohmann::json ToJson(const Inspection& inspection);

}  // namespace inspect
