// The four kinds of prescription end to end: headers and items read back from
// the trace member by member, in the order and with the types they were set,
// the grouping of rows by day, the failures, and the archive's links.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "plugin/modConversione.h"
#include "support/fixture.h"
#include "tools/kairon-convert/reference_host.h"

namespace {

using fixture::Bool;
using fixture::F64;
using fixture::I16;
using fixture::I32;
using fixture::json;
using fixture::Text;
using host::Date;
using host::Value;

using Members = std::vector<std::pair<std::string, json>>;

const Date kToday{2026, 11, 23};

// A prescription as the trace shows it: the members set on its object, and
// each item saved with it (store and members).
using Items = std::vector<std::pair<std::string, Members>>;
struct Prescription {
  Members header;
  Items items;
};

Members MembersSetOn(const std::vector<json>& trace, const std::string& obj) {
  Members members;
  for (const json& line : trace)
    if (line["op"] == "set" && line["obj"] == obj) members.emplace_back(line["member"], line["value"]);
  return members;
}

// The prescriptions of one patient object (Paziente#N), in the order saved.
std::vector<Prescription> PrescriptionsOf(const fixture::Run& run, const std::string& patient) {
  std::vector<Prescription> prescriptions;
  std::vector<std::string> names;
  for (const json& line : run.trace) {
    if (line["op"] != "call" || line["member"] != "Salva" || line.contains("failed")) continue;
    std::string obj = line["obj"];
    if (obj == patient + ".Ricette") {
      names.push_back(line["args"][0]["value"]);
      prescriptions.push_back({MembersSetOn(run.trace, names.back()), {}});
    } else if (obj.rfind(patient + ".Prescrizione", 0) == 0) {
      std::string ricetta = line["args"][1]["value"];
      auto it = std::find(names.begin(), names.end(), ricetta);
      if (it == names.end()) ADD_FAILURE() << "an item of a prescription never saved: " << ricetta;
      else
        prescriptions[it - names.begin()].items.emplace_back(obj.substr(patient.size() + 1),
                                                             MembersSetOn(run.trace, line["args"][0]["value"]));
    }
  }
  return prescriptions;
}

// From MedicoCAP to Priorita, for the patients of fixture::Patient (no
// address, town, sex or patient type).
Members DoctorAndPatient(const std::string& cognome) {
  Members members;
  for (const char* empty : {"MedicoCAP", "MedicoCitta", "MedicoCodiceFiscale", "MedicoCodiceRegionale",
                            "MedicoCodiceRegioneASL", "MedicoCognome", "MedicoIndirizzo", "MedicoNome",
                            "MedicoProvincia", "MedicoRegione", "MedicoTelefono", "NRE", "IUP", "PazienteCAP",
                            "PazienteCitta", "PazienteCodiceFiscale", "PazienteCognome", "PazienteDataNascita",
                            "PazienteIndirizzo", "PazienteLuogoNascita", "PazienteNome", "PazienteProvincia",
                            "PazienteSesso", "PazienteTipo", "Priorita"})
    members.emplace_back(empty, Text(""));
  members[15].second = Text("RSSMRA50C07H501X");
  members[16].second = Text(cognome);
  members[17].second = Text("07/03/1950");
  members[20].second = Text("MARIO");
  return members;
}

Members Join(Members first, const Members& middle, const Members& last) {
  first.insert(first.end(), middle.begin(), middle.end());
  first.insert(first.end(), last.begin(), last.end());
  return first;
}

// The header of a free (4), laboratory (2) or visit (3) prescription.
Members Header(int tipo, const std::string& cognome, const std::string& data, const std::string& diagnosi,
               const std::string& esenzione) {
  return Join({{"Data", Text(data)}, {"IDDiagnosi", Text("")}, {"Diagnosi", Text(diagnosi)},
               {"CodiceEsenzione", Text(esenzione)}, {"IDEsenzione", Text("")}, {"DescrizioneEsenzione", Text("")}},
              DoctorAndPatient(cognome), {{"Tipo", I16(tipo)}, {"TipoStampa", I16(2)}});
}

Members FreeItem(const std::string& descrizione, int qt, const std::string& esenzione) {
  return {{"Tipo", I16(4)}, {"IDDiagnosi", Text("")}, {"Descrizione", Text(descrizione)}, {"Qt", I32(qt)},
          {"CodiceEsenzione", Text(esenzione)}};
}

Members DrugHeader(const std::string& cognome, const std::string& data, const std::string& esenzione,
                   int tipo_stampa) {
  return Join({{"Data", Text(data)}, {"IDDiagnosi", Text("")}, {"CodiceEsenzione", Text(esenzione)},
               {"IDEsenzione", Text("")}, {"DescrizioneEsenzione", Text("")}, {"ICD9", Text("")}},
              DoctorAndPatient(cognome),
              {{"Tipo", I16(1)}, {"TipoStampa", I16(tipo_stampa)}, {"TipoRicetta", Text("")},
               {"StampaDiagnosi", Bool(false)}, {"QtTotale", I16(1)}});
}

Members LabItem(const std::string& descrizione, const std::string& esenzione, const std::string& dmr) {
  return {{"Tipo", I16(2)}, {"IDDiagnosi", Text("")}, {"Descrizione", Text(descrizione)}, {"Qt", I16(1)},
          {"CodiceEsenzione", Text(esenzione)}, {"CodiceDMR", Text(dmr)}};
}

// Quantities and pack counts as text, as many archives keep them; lab dates
// with a time of day.
std::vector<sample::Table> Schema() {
  std::vector<sample::Table> schema = sample::DefaultSchema();
  sample::SetColumnType(schema, "TERAPIE", "NumPezzi", "VARCHAR(10)");
  sample::SetColumnType(schema, "ESAMI", "Data", "TIMESTAMP");
  // Room for quantities as people type them in words, and for long ones.
  sample::SetColumnType(schema, "RICETTE", "Qta_1", "VARCHAR(20)");
  sample::SetColumnType(schema, "RICETTE", "Qta_2", "VARCHAR(20)");
  return schema;
}

Value At(int y, int m, int d, int h = 0, int min = 0) { return Date{y, m, d, h, min, 0}; }

class PrescriptionsTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    cnv::SetTodayForTesting(kToday);
    dir_ = new fixture::TempDir;
    auto archive = sample::Archive::Create(dir_->path().string(), Schema());
    for (const char* name : {"Esami", "Farmaci", "FarmaciNull", "Libere", "LibereNull", "LibereOverflow", "Oggi"})
      archive->Insert("PAZIENTI", fixture::Patient(name, name));

    const Value null = Value::Null();
    archive->Insert("RICETTE", {{"CodCart", "Libere"}, {"DATAEMI", Date{2024, 2, 1}}, {"Indic1", "Diabete"},
                                {"CodEsenz", " 013 "}, {"Row_1", "  strisce Reattive "}, {"Qta_1", "2.5"},
                                {"Row_2", "."}, {"Qta_2", "0"}, {"Row_3", "   "}, {"Qta_3", null}, {"Row_4", null},
                                {"Qta_4", null}, {"Row_5", "lancette"}, {"Qta_5", "3.5"}, {"Row_6", "cotone"},
                                {"Qta_6", "0.4"}, {"Row_7", "garze"}, {"Qta_7", " -2.5"}, {"Row_8", "aghi"},
                                {"Qta_8", "n.d."}});
    archive->Insert("RICETTE", {{"CodCart", "Libere"}, {"Row_1", "."}, {"Qta_1", null}});
    archive->Insert("RICETTE", {{"CodCart", "Libere"}, {"Row_1", "siringhe"}, {"Qta_1", "1 e 1/2"},
                                {"Row_2", "flaconi"}, {"Qta_2", "2 e 3"}});
    archive->Insert("RICETTE", {{"CodCart", "LibereNull"}, {"DATAEMI", Date{2023, 5, 6}}, {"Row_1", "prima"},
                                {"Qta_1", "1"}, {"Row_2", "senza quantità"}, {"Qta_2", null},
                                {"Row_3", "mai salvata"}, {"Qta_3", "1"}});
    archive->Insert("RICETTE", {{"CodCart", "LibereNull"}, {"Row_1", "mai letta"}, {"Qta_1", "1"}});
    archive->Insert("RICETTE", {{"CodCart", "LibereOverflow"}, {"Row_1", "troppe"}, {"Qta_1", "30000000000"}});

    auto terapia = [&](const char* cod, const Value& data, const Value& testo, const Value& classe,
                       const Value& codter, const Value& pezzi, const Value& importo, const Value& esenzione) {
      archive->Insert("TERAPIE", {{"CodCart", cod}, {"Data", data}, {"Testo", testo}, {"Esenzione", esenzione},
                                  {"Classe", classe}, {"CodTer", codter}, {"NumPezzi", pezzi},
                                  {"NOTA", "13"}, {"Indicaz", "1 cpr/die"}, {"CodATC", "C08CA01"},
                                  {"Importo", importo}});
    };
    terapia("Farmaci", null, "", "A", "", "1", null, null);
    terapia("Farmaci", At(2024, 3, 5, 9, 10), " Norvasc 5mg ", "a", "027426016", "2 conf", 9.9, "031");
    terapia("Farmaci", At(2024, 3, 5, 9, 12), "   ", "A", "", "1", null, "999");
    terapia("Farmaci", At(2024, 3, 5, 17, 45), "glucophage", "A", "999999999", null, 0.0, "013");
    terapia("Farmaci", At(2024, 4, 10, 8, 0), "tachipirina", "A", "", "abc", null, null);
    terapia("Farmaci", At(2024, 5, 1, 8, 0), null, "A", "012745093", "1", null, null);
    terapia("Farmaci", At(2024, 6, 1, 8, 0), "Tachipirina", "C", "012745093", "1", 3.5, null);
    terapia("FarmaciNull", null, "senza data", "A", "", "1", null, null);
    terapia("FarmaciNull", At(2024, 1, 1), "mai letta", "A", "", "1", null, null);
    terapia("Oggi", At(2026, 11, 23, 8, 0), "di oggi", "A", "", "1", null, null);
    terapia("Oggi", At(2026, 11, 23, 23, 59), "di oggi, più tardi", "A", "", "1", null, null);
    terapia("Oggi", At(2026, 11, 24, 8, 0), "di domani", "C", "", "1", null, null);

    auto esame = [&](const char* cod, const Value& tipo, const Value& data, const Value& testo,
                     const Value& esenzione, const Value& dmr) {
      archive->Insert("ESAMI", {{"CodCart", cod}, {"tipo", tipo}, {"Data", data}, {"Testo", testo},
                                {"Esenzione", esenzione}, {"CodRif", dmr}, {"Indicaz", "mai letta"}});
    };
    esame("Esami", Value::I32(1), null, "creatinina", "013", "90.16.3");
    esame("Esami", Value::I32(1), At(2024, 1, 20, 8, 0), "glicemia", "013", "90.27.1");
    esame("Esami", Value::I32(2), At(2024, 1, 20, 9, 0), "visita", "013", "89.7");
    esame("Esami", Value::I32(4), At(2024, 1, 20, 11, 30), "urinocoltura dell'ospite", "048", null);
    esame("Esami", Value::I32(1), At(2024, 2, 1), null, null, null);
    esame("Esami", Value::I32(3), At(2024, 3, 1), "ecografia", null, null);
    esame("Esami", Value::I32(1), At(2026, 11, 23, 7, 0), "emocromo", null, "90.62.2");
    esame("Oggi", Value::I32(1), At(2026, 11, 23, 7, 0), "emocromo di oggi", null, null);
    esame("Oggi", Value::I32(4), At(2026, 11, 23, 9, 0), "urine di oggi", null, null);
    archive->Close();

    refhost::ConvertOptions options;
    options.options.emplace("prescrizioni esami laboratorio;Prescrizioni Farmaceutiche;PRESCRIZIONI LIBERE");
    run_ = new fixture::Run(fixture::Convert((*dir_) / "GX_USER.FDB", options));
  }
  static void TearDownTestSuite() {
    cnv::SetTodayForTesting(Date{});
    delete run_;
    delete dir_;
  }

  // The prescriptions of the patient of that surname.
  static std::vector<Prescription> Of(const std::string& cognome) {
    auto dai = run_->ArgsOf("Interface", "DaiPaziente");
    for (size_t i = 0; i < dai.size(); ++i)
      if (dai[i][0]["value"] == cognome) return PrescriptionsOf(*run_, "Paziente#" + std::to_string(i + 1));
    ADD_FAILURE() << "no patient " << cognome;
    return {};
  }

  static inline fixture::TempDir* dir_ = nullptr;
  static inline fixture::Run* run_ = nullptr;
};

TEST_F(PrescriptionsTest, OnlyThePlantedRowsFail) {
  EXPECT_TRUE(run_->outcome.result);
  std::vector<std::string> details;
  for (const std::string& message : run_->Messages())
    if (message.rfind("AddInfo: ", 0) == 0) details.push_back(message);
  EXPECT_THAT(details, ::testing::ElementsAre(
                           "AddInfo: FARMACINULL MARIO - Prescrizioni Farmaceutiche Errore 13 Tipo non corrispondente",
                           "AddInfo: LIBERENULL MARIO - Prescrizioni Libere Errore 94 Utilizzo non valido di Null",
                           "AddInfo: LIBEREOVERFLOW MARIO - Prescrizioni Libere Errore 6 Overflow"));
}

TEST_F(PrescriptionsTest, FreePrescriptionsLineByLine) {
  auto saved = Of("Libere");
  ASSERT_EQ(saved.size(), 3u);
  // The header's exemption code is trimmed, the items' is not; line 1 of "."
  // and lines of blanks are no lines; 0 and no number give 1, 0.4 gives 0,
  // and halves go to the even neighbour.
  EXPECT_EQ(saved[0].header, Header(4, "LIBERE", "01/02/2024", "Diabete", "013"));
  Items expected;
  for (const auto& [text, qt] : std::vector<std::pair<std::string, int>>{
           {"STRISCE REATTIVE", 2}, {".", 1}, {"LANCETTE", 4}, {"COTONE", 0}, {"GARZE", -2}, {"AGHI", 1}})
    expected.emplace_back("PrescrizioneLibera", FreeItem(text, qt, " 013 "));
  EXPECT_EQ(saved[0].items, expected);
  // A row without date or lines still gives its header.
  EXPECT_EQ(saved[1].header, Header(4, "LIBERE", "01/01/2012", "", ""));
  EXPECT_TRUE(saved[1].items.empty());
  // "One and a half" is one: an "e" between numbers is no exponent.
  EXPECT_EQ(saved[2].items, (Items{{"PrescrizioneLibera", FreeItem("SIRINGHE", 1, "")},
                                    {"PrescrizioneLibera", FreeItem("FLACONI", 2, "")}}));
}

TEST_F(PrescriptionsTest, AFailingLineKeepsWhatWasSavedBeforeIt) {
  auto saved = Of("LibereNull");
  ASSERT_EQ(saved.size(), 1u);
  EXPECT_EQ(saved[0].header[0], (std::pair<std::string, json>("Data", Text("06/05/2023"))));
  ASSERT_EQ(saved[0].items.size(), 1u);
  EXPECT_EQ(saved[0].items[0].second, FreeItem("PRIMA", 1, ""));
  EXPECT_EQ(Of("LibereOverflow").size(), 1u);
  EXPECT_TRUE(Of("LibereOverflow")[0].items.empty());
}

TEST_F(PrescriptionsTest, DrugsGroupedByDay) {
  auto saved = Of("Farmaci");
  ASSERT_EQ(saved.size(), 3u);
  // The first row of the day gives the header its class and exemption; a row
  // with blanks for text neither opens nor joins.
  EXPECT_EQ(saved[0].header, DrugHeader("FARMACI", "05/03/2024", "031", 2));
  ASSERT_EQ(saved[0].items.size(), 2u);
  EXPECT_EQ(saved[0].items[0].first, "PrescrizioneFarmaci");
  EXPECT_EQ(saved[0].items[0].second,
            (Members{{"Tipo", I16(1)}, {"TipoFarmaco", Text("")}, {"IDRif", Text("027426016")},
                     {"TipoFarmaco", Text("ETICO")}, {"Descrizione", Text(" NORVASC 5MG ")}, {"IDDiagnosi", Text("")},
                     {"Diagnosi", Text("")}, {"Qt", F64(2)}, {"Classe", Text("")}, {"NotaAifa", Text("13")},
                     {"Posologia", Text("1 cpr/die")}, {"CodiceEsenzione", Text("031")},
                     {"CodiceATC", Text("C08CA01")}, {"PREZZO", Text("9.9")}, {"StampaDiagnosi", Bool(false)},
                     {"NonSostituibile", Bool(false)}, {"Ripetibile", Bool(false)}, {"CodiceBranca", Text("")}}));
  // An unknown drug, a Null pack count, a zero price.
  const Members& unknown = saved[0].items[1].second;
  EXPECT_EQ(unknown[3], (std::pair<std::string, json>("TipoFarmaco", Text(""))));
  EXPECT_EQ(unknown[7], (std::pair<std::string, json>("Qt", F64(0))));
  EXPECT_EQ(unknown[11], (std::pair<std::string, json>("CodiceEsenzione", Text("013"))));
  EXPECT_EQ(unknown[13], (std::pair<std::string, json>("PREZZO", Text("0"))));

  // Class "A" exactly prints as type 1; a Null price leaves PREZZO unset.
  EXPECT_EQ(saved[1].header, DrugHeader("FARMACI", "10/04/2024", "", 1));
  ASSERT_EQ(saved[1].items.size(), 1u);
  const Members& no_price = saved[1].items[0].second;
  EXPECT_EQ(no_price.size(), 17u);
  EXPECT_EQ(no_price[7], (std::pair<std::string, json>("Qt", F64(0))));
  EXPECT_EQ(no_price[13], (std::pair<std::string, json>("StampaDiagnosi", Bool(false))));
  EXPECT_EQ(saved[2].header[0], (std::pair<std::string, json>("Data", Text("01/06/2024"))));
  EXPECT_EQ(saved[2].items[0].second[3], (std::pair<std::string, json>("TipoFarmaco", Text("SOP"))));

  // The archive is asked only for the codes of rows that became items.
  std::vector<std::string> codes;
  for (const json& call : run_->Calls("Farmaci", "Carica")) codes.push_back(call["args"][0]["value"]);
  EXPECT_THAT(codes, ::testing::ElementsAre("027426016", "999999999", "012745093"));
}

TEST_F(PrescriptionsTest, LaboratoryRequestsGroupedByDay) {
  auto saved = Of("Esami");
  ASSERT_EQ(saved.size(), 3u);
  // Other kinds of exam and undated rows stay out; times of day don't split a day.
  EXPECT_EQ(saved[0].header, Header(2, "ESAMI", "20/01/2024", "", "013"));
  Items first_day = {
      {"PrescrizioneEsami", LabItem("GLICEMIA", "013", "90.27.1")},
      {"PrescrizioneEsami", LabItem("URINOCOLTURA DELL''OSPITE", "048", "")}};
  EXPECT_EQ(saved[0].items, first_day);
  EXPECT_EQ(saved[1].header, Header(2, "ESAMI", "01/02/2024", "", ""));
  ASSERT_EQ(saved[1].items.size(), 1u);
  EXPECT_EQ(saved[1].items[0].second, LabItem("", "", ""));
  // Today opens a prescription once another day came before it.
  EXPECT_EQ(saved[2].header, Header(2, "ESAMI", "23/11/2026", "", ""));
  EXPECT_EQ(saved[2].items.size(), 1u);
}

TEST_F(PrescriptionsTest, TheFirstRowsOfTodayOpenNothing) {
  auto saved = Of("Oggi");
  ASSERT_EQ(saved.size(), 1u);
  EXPECT_EQ(saved[0].header, DrugHeader("OGGI", "24/11/2026", "", 2));
  ASSERT_EQ(saved[0].items.size(), 1u);
  EXPECT_EQ(saved[0].items[0].second[4], (std::pair<std::string, json>("Descrizione", Text("DI DOMANI"))));
}

TEST_F(PrescriptionsTest, TheArchiveLinksItemsToTheirPrescriptionAndCountsThem) {
  EXPECT_EQ(run_->outcome.records_per_store["Ricette"], 12);
  EXPECT_EQ(run_->outcome.records_per_store["PrescrizioneLibera"], 9);
  EXPECT_EQ(run_->outcome.records_per_store["PrescrizioneFarmaci"], 5);
  EXPECT_EQ(run_->outcome.records_per_store["PrescrizioneEsami"], 4);

  std::vector<std::string> rows;
  for (const auto& row : fixture::ArchiveRows(run_->archive,
                                              "SELECT json_extract(p.members, '$.Data.value'), i.store, "
                                              "json_extract(i.members, '$.Descrizione.value') FROM prescription_items i "
                                              "JOIN prescriptions p ON p.id = i.prescription_id ORDER BY i.id"))
    rows.push_back(row[0] + "|" + row[1] + "|" + row[2] + "|");
  EXPECT_EQ(rows.size(), 18u);
  EXPECT_THAT(rows, ::testing::IsSupersetOf({"20/01/2024|PrescrizioneEsami|URINOCOLTURA DELL''OSPITE|",
                                             "01/02/2024|PrescrizioneEsami||",
                                             "05/03/2024|PrescrizioneFarmaci|GLUCOPHAGE|",
                                             "01/02/2024|PrescrizioneLibera|AGHI|",
                                             "06/05/2023|PrescrizioneLibera|PRIMA|"}));
}

// A visit report (an exam of Tipo 2 or 3) first gives the prescription of
// the ESAMI row whose RECORD is the report's own Record: one header and one
// item for each dated row found, however often it is found.
TEST(VisitPrescriptions, OneRecordOneHeaderOneItem) {
  fixture::TempDir dir;
  {
    auto archive = sample::Archive::Create(dir.path().string());
    archive->Insert("PAZIENTI", fixture::Patient("V1", "Visite"));
    archive->Insert("ESAMI", {{"RECORD", Value::I32(501)}, {"CodCart", "V1"}, {"tipo", Value::I32(2)},
                              {"Data", Date{2024, 2, 10}}, {"Testo", "visita diabetologica"}, {"Esenzione", "013"},
                              {"Indicaz", "Diabete mellito"}, {"CodRif", "89.7"}, {"CODESAME", "E501"}});
    archive->Insert("ESAMI", {{"RECORD", Value::I32(502)}, {"CodCart", "V1"}, {"Testo", "senza data"}});
    archive->Insert("ESAMI", {{"RECORD", Value::I32(503)}, {"CodCart", "V1"}, {"tipo", Value::I32(3)},
                              {"Data", Date{2024, 3, 1}}, {"Testo", "ecografia"}});
    for (int record : {501, 502, 999, 503, 501})
      archive->Insert("REFERTI", {{"Record", Value::I32(record)}, {"CodCart", "V1"}, {"CODESAME", "E501"}});
    archive->Close();
  }
  refhost::ConvertOptions options;
  options.options.emplace("referti");
  fixture::Run run = fixture::Convert(dir / "GX_USER.FDB", options);
  ASSERT_TRUE(run.outcome.result);
  auto saved = PrescriptionsOf(run, "Paziente#1");
  ASSERT_EQ(saved.size(), 3u);
  EXPECT_EQ(saved[0].header, Header(3, "VISITE", "10/02/2024", "Diabete mellito", "013"));
  Items item = {
      {"PrescrizioneVisite", {{"IDDiagnosi", Text("")}, {"Diagnosi", Text("Diabete mellito")},
                              {"Descrizione", Text("VISITA DIABETOLOGICA")}, {"Qt", I16(1)},
                              {"CodiceEsenzione", Text("013")}}}};
  EXPECT_EQ(saved[0].items, item);
  // A Null indication gives an empty diagnosis on both; the same record twice
  // gives two prescriptions.
  EXPECT_EQ(saved[1].header[2], (std::pair<std::string, json>("Diagnosi", Text(""))));
  EXPECT_EQ(saved[1].items[0].second[1], (std::pair<std::string, json>("Diagnosi", Text(""))));
  EXPECT_EQ(saved[1].items[0].second[2], (std::pair<std::string, json>("Descrizione", Text("ECOGRAFIA"))));
  EXPECT_EQ(saved[2].header, saved[0].header);
  EXPECT_EQ(saved[2].items, saved[0].items);
}

}  // namespace
