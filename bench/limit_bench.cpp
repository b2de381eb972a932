// The least that a conversion of an archive can take: every row and every
// BLOB of the tables that the converters read, each table read once and
// whole through the project's own recordsets, and the output of an earlier
// conversion (its archive, given by --like) written again through the
// reference host's archive writer, one transaction per patient. Prints one
// JSON line with the seconds of each half and of the whole.
//
//   limit-bench --source DIR --like ARCHIVE --out FILE
//
// The earlier archive is read into memory before the clock starts; FILE is
// replaced.
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "source/connection.h"
#include "source/recordset.h"
#include "tools/kairon-convert/archive.h"

namespace fs = std::filesystem;

namespace {

// The tables that the categories read, by database file.
const std::map<std::string, std::vector<std::string>> kTables = {
    {"GX_USER.FDB",
     {"PAZIENTI", "STUDIO", "BIOMETRIC", "CERTINPS", "ESAMI", "ESENZIONI", "MESSAGES", "PIANOTERAP", "PRESTAZIONI",
      "REAZIONI", "REFERTI", "RICETTE", "TERAPIE", "VACCINI", "VISITE", "VISNOTE"}},
    {"GX_MEDIA.FDB", {"IMAGES", "MODULI", "SCANSIONI"}},
};

struct Item {
  std::optional<int64_t> prescription;  // the id in the earlier archive
  std::string store, members;
};

// What an earlier conversion wrote, patient by patient.
struct Output {
  struct Patient {
    int64_t id = 0;
    std::string members;
    std::vector<std::pair<std::string, std::string>> records;  // store, args
    std::vector<std::pair<int64_t, std::string>> prescriptions;  // id, members
    std::vector<Item> items;
    std::vector<refhost::StoredFile> files;
  };
  std::map<int64_t, Patient> patients;
  std::vector<std::pair<std::string, std::string>> messages;  // kind, text
  int64_t records = 0;
  int64_t file_bytes = 0;
};

std::string Text(sqlite3_stmt* stmt, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, column));
  return text == nullptr ? std::string() : std::string(text, static_cast<size_t>(sqlite3_column_bytes(stmt, column)));
}

template <typename Row>
void EachRow(sqlite3* db, const char* sql, Row row) {
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(db));
  while (sqlite3_step(stmt) == SQLITE_ROW) row(stmt);
  sqlite3_finalize(stmt);
}

Output ReadOutput(const std::string& path, const std::string& files_dir) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
    throw std::runtime_error("can't open " + path);
  Output out;
  EachRow(db, "SELECT id, members FROM patients", [&](sqlite3_stmt* s) {
    Output::Patient& p = out.patients[sqlite3_column_int64(s, 0)];
    p.id = sqlite3_column_int64(s, 0);
    p.members = Text(s, 1);
    ++out.records;
  });
  EachRow(db, "SELECT patient_id, store, args FROM records ORDER BY id", [&](sqlite3_stmt* s) {
    out.patients[sqlite3_column_int64(s, 0)].records.emplace_back(Text(s, 1), Text(s, 2));
    ++out.records;
  });
  std::map<int64_t, int64_t> patient_of_prescription;
  EachRow(db, "SELECT id, patient_id, members FROM prescriptions ORDER BY id", [&](sqlite3_stmt* s) {
    patient_of_prescription[sqlite3_column_int64(s, 0)] = sqlite3_column_int64(s, 1);
    out.patients[sqlite3_column_int64(s, 1)].prescriptions.emplace_back(sqlite3_column_int64(s, 0), Text(s, 2));
    ++out.records;
  });
  EachRow(db, "SELECT prescription_id, store, members FROM prescription_items ORDER BY id", [&](sqlite3_stmt* s) {
    Item item{std::nullopt, Text(s, 1), Text(s, 2)};
    int64_t patient = 0;
    if (sqlite3_column_type(s, 0) != SQLITE_NULL) {
      item.prescription = sqlite3_column_int64(s, 0);
      patient = patient_of_prescription[*item.prescription];
    }
    out.patients[patient].items.push_back(std::move(item));
    ++out.records;
  });
  // The files are laid out in a folder beside the archive to write, from
  // which the archive takes them as the host does.
  const fs::path files_folder = fs::path(files_dir);
  fs::create_directories(files_folder);
  EachRow(db, "SELECT id, patient_id, title, name, sha256, content FROM files", [&](sqlite3_stmt* s) {
    refhost::StoredFile file{Text(s, 0), sqlite3_column_int64(s, 1), Text(s, 2), Text(s, 3), Text(s, 4), 0, ""};
    file.size = sqlite3_column_bytes(s, 5);
    file.path = (files_folder / file.id).string();
    std::ofstream(file.path, std::ios::binary)
        .write(static_cast<const char*>(sqlite3_column_blob(s, 5)), static_cast<std::streamsize>(file.size));
    out.file_bytes += file.size;
    out.patients[file.patient_id].files.push_back(std::move(file));
  });
  EachRow(db, "SELECT kind, text FROM messages ORDER BY seq",
          [&](sqlite3_stmt* s) { out.messages.emplace_back(Text(s, 0), Text(s, 1)); });
  sqlite3_close(db);
  return out;
}

struct ReadCount {
  int64_t rows = 0;
};

// Every row of every table there is, every value of it decoded.
ReadCount ReadSource(const fs::path& folder) {
  ReadCount count;
  for (const auto& [file, tables] : kTables) {
    source::Connection connection;
    connection.Open("Uid=SYSDBA;Pwd=masterkey;DbName=" + (folder / file).string());
    std::vector<std::string> present;
    {
      source::Recordset names;
      names.Open("SELECT TRIM(RDB$RELATION_NAME) AS NAME FROM RDB$RELATIONS", connection);
      for (; !names.Eof(); names.MoveNext()) present.push_back(names.Field("NAME").text());
    }
    for (const std::string& table : tables) {
      if (std::find(present.begin(), present.end(), table) == present.end()) continue;
      std::vector<std::string> columns;
      {
        source::Recordset names;
        names.Open("SELECT TRIM(RDB$FIELD_NAME) AS NAME FROM RDB$RELATION_FIELDS WHERE RDB$RELATION_NAME = '" +
                       table + "'",
                   connection);
        for (; !names.Eof(); names.MoveNext()) columns.push_back(names.Field("NAME").text());
      }
      source::Recordset rows;
      rows.Open("SELECT * FROM " + table, connection);
      // Every column is asked for, so that each BLOB is read and decoded too.
      for (; !rows.Eof(); rows.MoveNext()) {
        for (const std::string& column : columns) rows.Field(column);
        ++count.rows;
      }
    }
    connection.Close();
  }
  return count;
}

void WriteOutput(const Output& out, const std::string& path) {
  fs::remove(path);
  fs::remove(path + "-wal");
  std::ofstream(path).close();
  std::unique_ptr<refhost::Archive> archive = refhost::Archive::Open(path);
  const int64_t run = archive->BeginRun("2026-01-01T00:00:00", "limit", "");
  // The messages spread evenly over the patients, as a run writes them.
  const size_t per_patient = out.messages.size() / std::max<size_t>(1, out.patients.size());
  size_t message = 0;
  for (const auto& [id, patient] : out.patients) {
    archive->BeginTransaction();
    if (id != 0) archive->SavePatient(id, patient.members);
    for (const auto& [store, args] : patient.records) archive->AddRecord(id, store, args);
    std::map<int64_t, int64_t> new_id;
    for (const auto& [old_id, members] : patient.prescriptions) new_id[old_id] = archive->AddPrescription(id, members);
    for (const Item& item : patient.items) {
      std::optional<int64_t> prescription;
      if (item.prescription) prescription = new_id[*item.prescription];
      archive->AddPrescriptionItem(prescription, item.store, item.members);
    }
    for (const refhost::StoredFile& file : patient.files) archive->AddFile(file);
    for (size_t k = 0; k < per_patient && message < out.messages.size(); ++k, ++message)
      archive->AddMessage(out.messages[message].first, out.messages[message].second);
  }
  archive->BeginTransaction();
  for (; message < out.messages.size(); ++message)
    archive->AddMessage(out.messages[message].first, out.messages[message].second);
  archive->Commit();
  archive->EndRun(run, "2026-01-01T00:00:01", true, "");
  archive->Close();
}

}  // namespace

int main(int argc, char** argv) {
  std::string source_dir, like, out_path;
  CLI::App app{"Times the least that a conversion can take"};
  app.add_option("--source", source_dir, "folder of GX_USER.FDB, GX_MEDIA.FDB, GX_DATA.FDB")->required();
  app.add_option("--like", like, "archive of a conversion of that folder")->required();
  app.add_option("--out", out_path, "archive to write (replaced)")->required();
  CLI11_PARSE(app, argc, argv);

  try {
    const Output out = ReadOutput(like, out_path + ".files");
    const auto start = std::chrono::steady_clock::now();
    const ReadCount read = ReadSource(source_dir);
    const auto read_end = std::chrono::steady_clock::now();
    WriteOutput(out, out_path);
    const auto end = std::chrono::steady_clock::now();
    fs::remove_all(out_path + ".files");
    const double read_s = std::chrono::duration<double>(read_end - start).count();
    const double write_s = std::chrono::duration<double>(end - read_end).count();
    nlohmann::json line = {{"rows", read.rows},      {"records", out.records}, {"file_bytes", out.file_bytes},
                           {"read_s", read_s},       {"write_s", write_s},     {"limit_s", read_s + write_s}};
    std::cout << line.dump() << "\n";
  } catch (const std::exception& e) {
    std::cerr << "limit-bench: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
