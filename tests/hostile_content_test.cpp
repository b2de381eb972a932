// Sources as damaged archives have them, converted with every category, one
// hostile value per patient: each such patient ends in a clear "ERR" or
// converts, and the run goes on to the end.
#include <zlib.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/fixture.h"

namespace {

using fixture::json;
using host::Value;
using sample::Row;

using fixture::SetColumn;

const char kKeyed[] = "CodCart";

Value Bytes(const std::string& content) { return Value::Bytes(std::vector<uint8_t>(content.begin(), content.end())); }

// A row of each table that its category takes in, without its CodCart; n
// makes its codes and record numbers the patient's own.
std::map<std::string, Row> UsableRows(int n) {
  const std::string code = "E" + std::to_string(n);
  const host::Date day{2021, 5, 4};
  return {
      {"BIOMETRIC",
       {{"Data", day}, {"Note", "misurata dopo riposo"}, {"PADIST", "80"}, {"PASIST", "125"}, {"Peso", 70.5},
        {"Statura", 172.0}, {"BMI", 23.8}}},
      {"CERTINPS",
       {{"DATAINI", day}, {"DATATER", day}, {"DATAEMI", day}, {"Diag", "Influenza"}, {"Inizio", "X"},
        {"Continua", ""}, {"Ricaduta", ""}, {"SEND_ID", "S-1"}}},
      {"ESAMI",
       {{"RECORD", Value::I32(9000 + n)}, {"tipo", Value::I32(2)}, {"Data", day}, {"Testo", "Emocromo"},
        {"Esenzione", ""}, {"CodRif", "90.62.2"}, {"Indicaz", "controllo"}, {"CODESAME", code}}},
      {"ESENZIONI", {{"Emissione", day}, {"Scadenza", day}, {"Codice", "048"}, {"COD_ICD1", ""}}},
      {"MESSAGES", {{"Data_Iniz", day}, {"MESG", "Richiamare per esito"}}},
      {"PIANOTERAP",
       {{"Diagnosi", "Ipertensione"}, {"COD_SCAN", "S"}, {"CODPIANO", code}, {"DataRedaz", day}, {"Scadenza", day},
        {"COD_AIC", "012345678"}, {"Farmaco", "Ramipril"}, {"NOTA_AIFA", "13"}, {"Posolog", "1 cp"},
        {"Medico", "Dr. Neri"}}},
      {"PRESTAZIONI",
       {{"Data", day}, {"Prestazione", "Visita domiciliare"}, {"Diagnosi", "Ipertensione"}, {"Annotazioni", "ok"}}},
      {"REAZIONI", {{"Data", day}, {"Testo", "Orticaria"}, {"CodTer", "012345678"}}},
      {"REFERTI", {{"Record", Value::I32(7000 + n)}, {"CODESAME", code}, {"Testo", "Nella norma"}}},
      {"RICETTE", {{"DATAEMI", day}, {"Indic1", "controllo"}, {"CodEsenz", ""}, {"Row_1", "Emocromo"}, {"Qta_1", "1"}}},
      {"TERAPIE",
       {{"Data", day}, {"Testo", "Ramipril 5 mg"}, {"Esenzione", ""}, {"Classe", "A"}, {"CodTer", "012345678"},
        {"NumPezzi", Value::I32(1)}, {"NOTA", ""}, {"Indicaz", "1 cp"}, {"CodATC", "C09AA05"},
        {"Importo", 4.5}}},
      {"VACCINI", {{"Data", day}, {"Testo", "Antinfluenzale"}, {"Note", "lotto 12"}, {"DATARICH", day}}},
      {"VISITE", {{"Inizio", day}, {"Titolo", "Ipertensione - (401.9)"}, {"Testo", "Controllo"}}},
      {"VISNOTE", {{"Data", day}, {"Testo", "Visita di controllo"}}},
      {"IMAGES",
       {{"Record", Value::I32(5000 + n)}, {"CodEsame", code}, {"MediaCode", "M" + std::to_string(n)},
        {"Data", day}, {"bindata", Bytes("\xFF\xD8\xFF\xE0 image")}, {"Titolo", "Eco addome"},
        {"Settings", "jpg"}, {"ORGName", "eco.jpg"}}},
      {"MODULI", {{"bindata", Bytes("{\\rtf1 certificato}")}, {"Titolo", "Certificato"}, {"Data", day}}},
      {"SCANSIONI",
       {{"CODESAME", code}, {"bindata", Bytes("\x89PNG piano")}, {"Titolo", "Piano"}, {"Settings", "png"}}},
  };
}

// Columns that hold a key or a code that joins two tables: they stay
// ordinary text, so that the rows are found at all.
bool IsJoinColumn(const std::string& column) {
  for (const char* name : {"Cod_Cart", "CodCart", "CODESAME", "CodEsame", "CODPIANO"})
    if (column == name) return true;
  return false;
}

bool IsText(const std::string& type) { return type.starts_with("VARCHAR") || type == "BLOB SUB_TYPE 1"; }

class HostileContent : public ::testing::Test {
 protected:
  // Writes an archive of schema with the patients made by add, then converts
  // it with every category.
  template <typename Add>
  fixture::Run ConvertWith(std::vector<sample::Table> schema, Add add) {
    auto archive = sample::Archive::Create(dir_ / ("source" + std::to_string(++archives_)), schema);
    add(*archive);
    archive->Close();
    return fixture::Convert(archive->user_path());
  }

  // Every patient of the run got "OK" or "ERR", the latter with a reason,
  // and the run reached its end.
  static void ExpectEveryPatientAccounted(const fixture::Run& run, int patients) {
    EXPECT_TRUE(run.outcome.result) << run.outcome.last_error;
    EXPECT_EQ(run.outcome.patients_ok + run.outcome.patients_err, patients);
    std::vector<std::string> messages = run.Messages();
    for (size_t i = 0; i < messages.size(); ++i) {
      if (messages[i] != "ChangeMsg: ERR") continue;
      ASSERT_LT(i + 1, messages.size());
      EXPECT_TRUE(messages[i + 1].starts_with("AddInfo: ")) << messages[i + 1];
    }
  }

  fixture::TempDir dir_;
  int archives_ = 0;
};

std::vector<sample::Table> LongTextSchema() {
  std::vector<sample::Table> schema = sample::DefaultSchema();
  for (sample::Table& table : schema)
    for (sample::Column& column : table.columns)
      if (IsText(column.type) && !IsJoinColumn(column.name)) column.type = "BLOB SUB_TYPE 1";
  return schema;
}

TEST_F(HostileContent, HugeTextsNulBytesAndForeignBytesInEveryTextColumn) {
  const std::vector<std::string> hostile = {
      std::string(1 << 20, 'x'),
      std::string("prima\0dopo", 10),
      "caf\xE9 \xC3\x28 \xFF\xFE \xF0\x9F",  // Windows-1252 and broken UTF-8 sequences
  };
  std::vector<sample::Table> schema = LongTextSchema();
  int patients = 0;
  fixture::Run run = ConvertWith(schema, [&](sample::Archive& archive) {
    for (const sample::Table& table : schema) {
      for (const sample::Column& column : table.columns) {
        if (!IsText(column.type) || IsJoinColumn(column.name) || table.name == "STUDIO" || table.name == "COMUNI")
          continue;
        for (const std::string& value : hostile) {
          const std::string card = "H" + std::to_string(++patients);
          if (table.name == "PAZIENTI") {
            archive.Insert("PAZIENTI", fixture::Patient(card, "OSTILE", {{column.name, value}}));
            continue;
          }
          archive.Insert("PAZIENTI", fixture::Patient(card, "OSTILE"));
          std::map<std::string, Row> rows = UsableRows(patients);
          for (auto& [name, row] : rows) {
            row.emplace_back(kKeyed, card);
            if (name == table.name) SetColumn(row, column.name, value);
            if (name == "ESAMI" || name == "SCANSIONI" || name == table.name) archive.Insert(name, row);
          }
        }
      }
    }
  });
  ExpectEveryPatientAccounted(run, patients);

  // A text goes to the host whole: the NUL and what follows it, and the
  // megabyte of a note.
  bool nul_kept = false, megabyte_kept = false;
  for (const json& args : run.ArgsOf("Appunti", "Salva")) {
    const std::string text = args[4]["value"];
    nul_kept |= text == std::string("prima\0dopo", 10);
    megabyte_kept |= text.size() == (1u << 20);
  }
  EXPECT_TRUE(nul_kept);
  EXPECT_TRUE(megabyte_kept);
}

TEST_F(HostileContent, DatesAtAndBeyondTheEndsOfTheCalendar) {
  std::vector<sample::Table> schema = sample::DefaultSchema();
  const std::vector<host::Date> stored = {host::Date{1, 1, 1}, host::Date{99, 12, 31},
                                          host::Date{9999, 12, 31, 23, 59, 59}};
  const std::vector<std::string> typed = {"01/01/0099", "31/12/10000", "29/02/2023", "00/00/0000", "-1/13/2020",
                                          "31/12/99999999999"};
  int patients = 0;
  std::map<std::string, std::vector<std::string>> date_columns;  // of DATE or TIMESTAMP type in the usual schema
  for (const sample::Table& table : schema)
    for (const sample::Column& column : table.columns)
      if (column.type == "DATE" || column.type == "TIMESTAMP") date_columns[table.name].push_back(column.name);
  auto add_dated = [&](sample::Archive& archive, const Value& date) {
    const std::string card = "D" + std::to_string(++patients);
    Row master = fixture::Patient(card, "DATATO");
    for (const std::string& column : date_columns["PAZIENTI"]) SetColumn(master, column, date);
    archive.Insert("PAZIENTI", master);
    for (auto& [name, row] : UsableRows(patients)) {
      row.emplace_back(kKeyed, card);
      for (const std::string& column : date_columns[name]) SetColumn(row, column, date);
      archive.Insert(name, row);
    }
  };

  fixture::Run in_date_columns = ConvertWith(schema, [&](sample::Archive& archive) {
    for (const host::Date& date : stored) add_dated(archive, date);
  });
  ExpectEveryPatientAccounted(in_date_columns, patients);
  for (const json& args : in_date_columns.ArgsOf("Appunti", "Salva")) {
    const std::string date = args[1]["value"];
    EXPECT_TRUE(date == "01/01/0001" || date == "31/12/0099" || date == "31/12/9999" || date == "01/01/2012")
        << date;
  }

  for (sample::Table& table : schema)
    for (sample::Column& column : table.columns)
      if (column.type == "DATE" || column.type == "TIMESTAMP") column.type = "VARCHAR(30)";
  patients = 0;
  fixture::Run in_text_columns = ConvertWith(schema, [&](sample::Archive& archive) {
    for (const std::string& text : typed) add_dated(archive, Value(text));
  });
  ExpectEveryPatientAccounted(in_text_columns, patients);
}

TEST_F(HostileContent, NumbersPastTheirRange) {
  std::vector<sample::Table> schema = sample::DefaultSchema();
  for (const char* column : {"PADIST", "PASIST"}) sample::SetColumnType(schema, "BIOMETRIC", column, "VARCHAR(30)");
  sample::SetColumnType(schema, "TERAPIE", "NumPezzi", "VARCHAR(30)");
  sample::SetColumnType(schema, "ESAMI", "tipo", "BIGINT");
  sample::SetColumnType(schema, "REFERTI", "Record", "BIGINT");
  sample::SetColumnType(schema, "ESAMI", "RECORD", "BIGINT");
  const std::vector<std::string> numbers = {"32768", "-32769", "2147483648", "-2147483649", "4294967296",
                                            "99999999999999999999", "1E308", "1E400", "-0", "NaN"};
  int patients = 0;
  fixture::Run run = ConvertWith(schema, [&](sample::Archive& archive) {
    for (const std::string& number : numbers) {
      const std::string card = "N" + std::to_string(++patients);
      archive.Insert("PAZIENTI", fixture::Patient(card, "NUMERO"));
      for (auto& [name, row] : UsableRows(patients)) {
        row.emplace_back(kKeyed, card);
        if (name == "BIOMETRIC") row = {{kKeyed, card}, {"PADIST", number}, {"PASIST", number}};
        if (name == "RICETTE")
          for (int line = 1; line <= 8; ++line) {
            SetColumn(row, "Row_" + std::to_string(line), "Esame " + std::to_string(line));
            SetColumn(row, "Qta_" + std::to_string(line), number.substr(0, 6));
          }
        if (name == "TERAPIE") SetColumn(row, "NumPezzi", number);
        archive.Insert(name, row);
      }
      // Whole numbers at the ends of 64 bits where the categories read them
      // as 32-bit record numbers and kinds.
      const double huge = patients % 2 ? 9.2e18 : -9.2e18;
      archive.Insert("ESAMI", {{kKeyed, card}, {"RECORD", Value(huge)}, {"tipo", Value(huge)}, {"CODESAME", "X" + card},
                               {"Data", host::Date{2021, 1, 1}}});
      archive.Insert("REFERTI", {{kKeyed, card}, {"Record", Value(2147483648.0)}, {"CODESAME", "X" + card}});
    }
  });
  ExpectEveryPatientAccounted(run, patients);
}

// A gzip member of count bytes of fill, compressed a chunk at a time.
std::string GzipOf(uint64_t count, char fill) {
  z_stream z{};
  deflateInit2(&z, Z_BEST_SPEED, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
  std::string in(1 << 20, fill), out, chunk(1 << 16, '\0');
  for (uint64_t left = count;;) {
    uint64_t now = std::min<uint64_t>(left, in.size());
    left -= now;
    z.next_in = reinterpret_cast<Bytef*>(in.data());
    z.avail_in = static_cast<uInt>(now);
    int flush = left == 0 ? Z_FINISH : Z_NO_FLUSH;
    int result;
    do {
      z.next_out = reinterpret_cast<Bytef*>(chunk.data());
      z.avail_out = static_cast<uInt>(chunk.size());
      result = deflate(&z, flush);
      out.append(chunk.data(), chunk.size() - z.avail_out);
    } while (z.avail_out == 0);
    if (result == Z_STREAM_END) break;
  }
  deflateEnd(&z);
  return out;
}

TEST_F(HostileContent, FilesOfEveryAwkwardSizeFormAndName) {
  const std::string member = GzipOf(5000, 'a');
  std::string corrupt = member;
  corrupt[corrupt.size() / 2] ^= 0x55;
  std::string big(200u << 20, '\0');
  for (size_t i = 0; i < big.size(); i += 4096) big[i] = static_cast<char>(i >> 12);
  const std::vector<std::string> contents = {
      "", "\x1F", "\x1F\x8B\x08", "\x1F\x8B\x08\x00", member.substr(0, member.size() - 9), corrupt,
      member + GzipOf(3000, 'b'), member + "trailing",
  };
  // Two that only one table holds, so that the run takes each once.
  const std::vector<std::string> huge = {GzipOf(uint64_t{1} << 30, '\0'), big};
  const std::vector<std::string> titles = {"a/b",          "..",           ".",        "../../fuori", "../fuori",
                                           std::string("x\0y", 3), std::string(300, 'x'), "",
                                           std::string(150, 'e') + "\xC3\xA8" + std::string(150, 'e')};
  int patients = 0;
  fixture::Run run = ConvertWith(LongTextSchema(), [&](sample::Archive& archive) {
    auto add = [&](const Value& content, const std::string& title,
                   std::vector<const char*> tables = {"IMAGES", "MODULI", "SCANSIONI"}) {
      const std::string card = "F" + std::to_string(++patients);
      archive.Insert("PAZIENTI", fixture::Patient(card, "FILE"));
      std::map<std::string, Row> rows = UsableRows(patients);
      for (const char* table : {"PIANOTERAP", "REFERTI", "ESAMI"}) {
        SetColumn(rows[table], kKeyed, card);
        archive.Insert(table, rows[table]);
      }
      for (const char* table : tables) {
        Row row = rows[table];
        SetColumn(row, kKeyed, card);
        SetColumn(row, "bindata", content);
        SetColumn(row, "Titolo", title);
        archive.Insert(table, row);
      }
    };
    for (const std::string& content : contents) add(Bytes(content), "Documento");
    for (const std::string& content : huge) add(Bytes(content), "Documento", {"MODULI"});
    add(Value::Null(), "Documento");
    for (const std::string& title : titles) add(Bytes("{\\rtf1 testo}"), title);
  });
  ExpectEveryPatientAccounted(run, patients);

  // Nothing is left in the temporary folder, nothing was written beside it.
  EXPECT_TRUE(std::filesystem::is_empty(run.tempdir));
  for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_.path()))
    EXPECT_EQ(entry.path().filename().string().find("fuori"), std::string::npos) << entry.path();

  // What was stored is what the source held: the 200 MB file whole, both
  // members of the two-member stream, and nothing of a stream past the cap.
  bool big_stored = false, both_members = false;
  for (const json& call : run.Calls("Files", "SalvaFile")) {
    if (!call["file"].is_object()) continue;
    uint64_t size = call["file"]["size"];
    big_stored |= size == big.size();
    both_members |= size == 8000;
    EXPECT_LT(size, uint64_t{1} << 30);
  }
  EXPECT_TRUE(big_stored);
  EXPECT_TRUE(both_members);
}

}  // namespace
