#include "tools/ambulor-inspect/inspection.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "host/failure.h"
#include "host/text.h"
#include "host/value.h"
#include "source/connection.h"
#include "source/opening.h"
#include "source/recordset.h"

namespace inspect {
namespace {

std::string Upper(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::toupper(c); });
  return name;
}

std::string WithoutTrailingBlanks(std::string text) {
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

// The tables of a database with their columns, names in upper case.
using Schema = std::map<std::string, std::set<std::string>>;

Schema ReadSchema(source::Connection& connection) {
  Schema schema;
  source::Recordset rs;
  rs.Open("SELECT TRIM(f.RDB$RELATION_NAME) AS T, TRIM(f.RDB$FIELD_NAME) AS C FROM RDB$RELATION_FIELDS f "
          "JOIN RDB$RELATIONS r ON r.RDB$RELATION_NAME = f.RDB$RELATION_NAME "
          "WHERE COALESCE(r.RDB$SYSTEM_FLAG, 0) = 0",
          connection);
  for (; !rs.Eof(); rs.MoveNext()) schema[host::TextOf(rs.Field("T"))].insert(host::TextOf(rs.Field("C")));
  rs.Close();
  return schema;
}

int64_t Count(source::Connection& connection, const std::string& sql) {
  source::Recordset rs;
  rs.Open(sql, connection);
  host::Value n = rs.Field("N");
  int64_t count = n.is_null() ? 0 : static_cast<int64_t>(std::stod(host::TextOf(n)));
  rs.Close();
  return count;
}

// The file's on-disk structure as its header page tells it, "12.0"; empty
// when the file can't be read or begins no database.
std::string OdsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string first(1024, '\0');
  file.read(first.data(), static_cast<std::streamsize>(first.size()));
  first.resize(static_cast<size_t>(file.gcount()));
  auto ods = source::opening::ReadHeaderPage(first);
  return ods ? std::to_string(ods->major) + "." + std::to_string(ods->minor) : "";
}

// The schemas of the two databases that the conversion reads.
struct Schemas {
  Schema user, media;
  const Schema& Of(SourceFile file) const {
    static const Schema none;
    return file == SourceFile::User ? user : file == SourceFile::Media ? media : none;
  }
};

}  // namespace

bool CategoryState::CanRun() const {
  for (const TableState& table : tables) {
    if (!table.present) return false;
    for (const ColumnState& column : table.columns)
      if (!column.present) return false;
  }
  return true;
}

bool Inspection::CanRunAll() const {
  return std::all_of(categories.begin(), categories.end(), [](const CategoryState& c) { return c.CanRun(); });
}

Inspection Inspect(const std::string& conn) {
  Inspection inspection;
  SourceDatabases source(conn);
  for (SourceFile file : {SourceFile::User, SourceFile::Media, SourceFile::Data}) {
    DatabaseState state{file, source.PathOf(file), std::nullopt, "", ""};
    if (source::opening::IsLocalPath(state.path)) {
      std::error_code ec;
      if (std::filesystem::is_regular_file(state.path, ec)) state.size = std::filesystem::file_size(state.path, ec);
      state.ods = OdsOf(state.path);
    }
    try {
      source::Recordset rs;
      rs.Open("SELECT TRIM(COALESCE(RDB$CHARACTER_SET_NAME, 'NONE')) AS CS FROM RDB$DATABASE", source.Of(file));
      state.character_set = host::TextOf(rs.Field("CS"));
      rs.Close();
    } catch (const host::Failure& failure) {
      throw Unopenable(state.path + ": " + std::to_string(failure.number()) + " " + failure.description());
    }
    inspection.databases.push_back(state);
  }

  inspection.through_private_copy = source.through_private_copy();
  Schemas schemas;
  try {
    schemas.user = ReadSchema(source.Of(SourceFile::User));
    schemas.media = ReadSchema(source.Of(SourceFile::Media));

    for (const Category& category : Categories()) {
      CategoryState state{category.keyword, category.suffix, {}};
      for (const TableUse& use : category.tables) {
        const Schema& schema = schemas.Of(use.file);
        auto table = schema.find(Upper(use.table));
        TableState table_state{use.table, use.file, use.per_patient, table != schema.end(), {}};
        for (const ColumnUse& column : use.columns)
          table_state.columns.push_back(
              {column.name, table != schema.end() && table->second.count(Upper(column.name)) > 0, column.effect});
        state.tables.push_back(std::move(table_state));
      }
      inspection.categories.push_back(std::move(state));
    }

    // The patients' keys, for the rows of other tables to be matched
    // against, and the keys that several patients share.
    std::vector<std::string> keys;
    if (schemas.user.count("PAZIENTI") && schemas.user["PAZIENTI"].count("COD_CART")) {
      source::Recordset rs;
      rs.Open("SELECT Cod_Cart FROM PAZIENTI", source.Of(SourceFile::User));
      for (; !rs.Eof(); rs.MoveNext()) {
        ++inspection.patients;
        if (WithoutTrailingBlanks(rs.QueryText("Cod_Cart")).empty()) ++inspection.patients_without_key;
      }
      rs.Close();
      keys = PatientKeys(source.Of(SourceFile::User));
      try {
        inspection.shared_keys = SharedKeys(source.Of(SourceFile::User));
      } catch (const host::Failure& failure) {
        inspection.shared_keys_unknown = std::to_string(failure.number()) + " " + failure.description();
      }
    }

    const auto moduli = schemas.media.find("MODULI");
    if (moduli != schemas.media.end() && moduli->second.count("CODCART") && moduli->second.count("TITOLO") &&
        moduli->second.count("BINDATA")) {
      std::set<std::string> cards;
      for (const std::string& key : keys) cards.insert(WithoutTrailingBlanks(key));
      inspection.unfileable_titles = FindUnfileableTitles(
          source.Of(SourceFile::Media), [&](const std::string& card) { return cards.count(WithoutTrailingBlanks(card)) > 0; });
    }

    std::set<std::string> figured;
    for (const Category& category : Categories()) {
      for (const TableUse& use : category.tables) {
        if (!figured.insert(use.table).second) continue;
        const Schema& schema = schemas.Of(use.file);
        auto table = schema.find(Upper(use.table));
        TableFigures figures{use.table, use.file, table != schema.end()};
        if (figures.present) {
          source::Connection& connection = source.Of(use.file);
          figures.rows = Count(connection, "SELECT COUNT(*) AS N FROM " + use.table);
          if (table->second.count("CODCART")) figures.orphan_rows = RowsOfNoPatient(connection, use.table, keys);
          if (table->second.count("BINDATA"))
            figures.blob_bytes = Count(connection, "SELECT SUM(OCTET_LENGTH(bindata)) AS N FROM " + use.table);
        }
        inspection.tables.push_back(figures);
      }
    }

    auto studio = schemas.user.find("STUDIO");
    inspection.doctors_table_usable =
        studio != schemas.user.end() && studio->second.count("COGNOME") && studio->second.count("NOME");
    if (inspection.doctors_table_usable) {
      source::Recordset rs;
      rs.Open("SELECT cognome, nome FROM STUDIO", source.Of(SourceFile::User));
      for (; !rs.Eof(); rs.MoveNext())
        inspection.doctors.push_back(
            host::text::Trim(host::TextOf(rs.Field("cognome")) + " " + host::TextOf(rs.Field("nome"))));
      rs.Close();
    }
  } catch (const host::Failure& failure) {
    throw Unopenable(conn + ": reading the source failed: " + std::to_string(failure.number()) + " " +
                     failure.description());
  }
  return inspection;
}

namespace {

// The keys that several patients share, each with its patients, and what
// the run does with them; nothing when there are none.
std::string SharedKeysText(const Inspection& inspection) {
  std::ostringstream out;
  if (!inspection.shared_keys_unknown.empty())
    out << "\nShared keys: PAZIENTI can't be grouped by Cod_Cart (" << inspection.shared_keys_unknown << ")";
  if (inspection.shared_keys.empty()) return out.str();
  out << "\nShared keys: " << inspection.shared_keys.size()
      << " Cod_Cart that the database takes as one for several patients; the conversion gives each of them the "
         "master record and the records of all:";
  for (const SharedKey& shared : inspection.shared_keys) {
    out << "\n  '" << shared.key << "': ";
    for (size_t i = 0; i < shared.patients.size(); ++i) out << (i ? ", " : "") << shared.patients[i];
  }
  return out.str();
}

}  // namespace

std::string ToText(const Inspection& inspection) {
  std::ostringstream out;
  out << "Databases\n";
  for (const DatabaseState& db : inspection.databases) {
    out << "  " << FileName(db.file) << "  " << db.path;
    if (db.size) out << "  " << *db.size << " bytes";
    if (!db.ods.empty()) out << "  ODS " << db.ods;
    out << "  character set " << db.character_set << "\n";
  }
  if (inspection.through_private_copy)
    out << "  (the files can't be written: they were read through a private copy, as the conversion will)\n";
  out << "\nPatients: " << inspection.patients;
  if (inspection.patients_without_key) out << " (" << inspection.patients_without_key << " without Cod_Cart, never converted)";
  out << SharedKeysText(inspection);
  out << "\nDoctors: ";
  if (!inspection.doctors_table_usable)
    out << "STUDIO or its cognome/nome missing: the host gets no doctors";
  else if (inspection.doctors.empty())
    out << "none in STUDIO";
  for (size_t i = 0; i < inspection.doctors.size(); ++i) out << (i ? "; " : "") << inspection.doctors[i];
  out << "\n\nCategories\n";
  for (const CategoryState& category : inspection.categories) {
    out << "  " << (category.CanRun() ? "ok       " : "CAN'T RUN") << "  " << category.keyword << "\n";
    for (const TableState& table : category.tables) {
      if (!table.present) {
        out << "             missing table " << table.table << " (" << FileName(table.file) << "): "
            << (table.table == "PAZIENTI" ? "no run can start"
                : table.per_patient      ? "every patient ends in ERR for this category"
                                         : "every patient that reaches it ends in ERR for this category")
            << "\n";
        continue;
      }
      for (const ColumnState& column : table.columns)
        if (!column.present)
          out << "             missing column " << table.table << "." << column.name << ": "
              << Describe(column.effect) << "\n";
    }
  }
  out << "\nTables                 rows   no patient   bindata bytes\n";
  for (const TableFigures& t : inspection.tables) {
    char line[128];
    if (!t.present) {
      std::snprintf(line, sizeof line, "  %-14s  %s\n", t.table.c_str(), "missing");
    } else {
      auto figure = [](int64_t n) { return n < 0 ? std::string("-") : std::to_string(n); };
      std::snprintf(line, sizeof line, "  %-14s %9s %12s %15s\n", t.table.c_str(), figure(t.rows).c_str(),
                    figure(t.orphan_rows).c_str(), figure(t.blob_bytes).c_str());
    }
    out << line;
  }
  WriteText(out, inspection.unfileable_titles);
  out << "\n" << (inspection.CanRunAll() ? "Every category can run." : "Some categories can't run as they should.")
      << "\n";
  return out.str();
}

nlohmann::json ToJson(const Inspection& inspection) {
  using nlohmann::json;
  json out;
  for (const DatabaseState& db : inspection.databases)
    out["databases"].push_back({{"file", FileName(db.file)},
                                {"path", db.path},
                                {"size", db.size ? json(*db.size) : json()},
                                {"ods", db.ods},
                                {"character_set", db.character_set}});
  out["through_private_copy"] = inspection.through_private_copy;
  out["patients"] = inspection.patients;
  out["patients_without_key"] = inspection.patients_without_key;
  out["shared_keys"] = json::array();
  for (const SharedKey& shared : inspection.shared_keys)
    out["shared_keys"].push_back({{"key", shared.key}, {"patients", shared.patients}});
  out["shared_keys_unknown"] =
      inspection.shared_keys_unknown.empty() ? json() : json(inspection.shared_keys_unknown);
  out["doctors"] = inspection.doctors;
  out["doctors_table_usable"] = inspection.doctors_table_usable;
  for (const CategoryState& category : inspection.categories) {
    json c = {{"keyword", category.keyword}, {"can_run", category.CanRun()}, {"tables", json::array()}};
    for (const TableState& table : category.tables) {
      json t = {{"table", table.table}, {"file", FileName(table.file)}, {"present", table.present}};
      for (const ColumnState& column : table.columns)
        t["columns"].push_back({{"name", column.name},
                                {"present", column.present},
                                {"effect_if_missing", Describe(column.effect)}});
      c["tables"].push_back(t);
    }
    out["categories"].push_back(c);
  }
  for (const TableFigures& t : inspection.tables) {
    auto figure = [](int64_t n) { return n < 0 ? json() : json(n); };
    out["tables"].push_back({{"table", t.table},
                             {"file", FileName(t.file)},
                             {"present", t.present},
                             {"rows", figure(t.rows)},
                             {"orphan_rows", figure(t.orphan_rows)},
                             {"blob_bytes", figure(t.blob_bytes)}});
  }
  out["unfileable_titles"] = ToJson(inspection.unfileable_titles);
  out["can_run_all"] = inspection.CanRunAll();
  return out;
}

}  // namespace inspect
