// The awkward patients of the master records, the clinical records and the
// prescriptions, and the order in which a sample takes all of them.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>

#include "tools/ambulor-sample/awkward_patients.h"
#include "tools/ambulor-sample/file_contents.h"

namespace sample {

namespace {

// 000001: apostrophe in the surname, a Windows-1252 letter in the name, and
// every kind of clinical row with its edge values.
void ClinicalShowcase(Generator& g) {
  const std::string card = "000001";
  Random files(1);
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome", "D'Angelo"},
                     {"nome", "Nicol\xF2"},
                     {"CodFisc", CodiceFiscale("D'Angelo", "Nicol\xF2", false, DayOf(1948, 11, 2), "F839")},
                     {"DataNat", OnDay(1948, 11, 2)},
                     {"CodiceSSN", "80380000301234567890"},
                     {"Sex", "M"},
                     {"LuogoNat", "NAPOLI"},
                     {"PrvNat", "NA"},
                     {"Indirizzo", "Via dell'Orsa Minore"},
                     {"NumCivico", "12/A"},
                     {"Citta", "ROMA"},
                     {"CAP", "00144"},
                     {"Nazione", "ITALIA"},
                     {"Telefono", " 06 5012345 "},
                     {"Recapito", "347 1234567"},
                     {"Prov", "RM"},
                     {"Email", "nicolo.dangelo@libero.it"},
                     {"Email2", kNull},
                     {"ASL", "203"},
                     {"DataDec", kNull},
                     {"DataScelta", OnDay(2009, 3, 2)},
                     {"dataScadenza_T", kNull},
                     {"DataRevoca", kNull}});

  const auto measure = [&](host::Value day, host::Value low, host::Value high, host::Value note) {
    g.Put("BIOMETRIC", {{"CodCart", card},
                        {"Data", std::move(day)},
                        {"Note", std::move(note)},
                        {"PADIST", std::move(low)},
                        {"PASIST", std::move(high)}});
  };
  measure(OnDay(2023, 1, 10), "80", "130", "Dopo la cena");   // a note of 12 characters
  measure(OnDay(2023, 2, 14), "85", "140", "Dopo il pasto");  // and one of 13
  measure(OnDay(2023, 3, 20), "80,5", "135", kNull);
  measure(OnDay(2023, 4, 2), "90", kNull, kNull);
  measure(kNull, "75", "120", kNull);
  measure(OnDay(2023, 5, 5), "0", "0", "Apparecchio da tarare");
  const auto weigh = [&](host::Value day, double weight, double height, host::Value bmi) {
    g.Put(
        "BIOMETRIC",
        {{"CodCart", card}, {"Data", std::move(day)}, {"Peso", weight}, {"Statura", height}, {"BMI", std::move(bmi)}});
  };
  weigh(OnDay(2023, 6, 1), 82.5, 172, 27.89);
  weigh(OnDay(2023, 7, 1), 80, 172, kNull);
  weigh(OnDay(2023, 7, 15), 79, 172, 0.0);
  g.Put("BIOMETRIC", {{"CodCart", card},
                      {"Data", OnDay(2023, 9, 12)},
                      {"Note", "Misurazione domiciliare"},
                      {"PADIST", "85"},
                      {"PASIST", "145"},
                      {"Peso", 81.0},
                      {"Statura", 172.0},
                      {"BMI", 27.38}});

  const auto problem = [&](host::Value start, host::Value end, const char* title, host::Value text) {
    g.Put("VISITE", {{"CodCart", card},
                     {"Inizio", std::move(start)},
                     {"termine", std::move(end)},
                     {"Titolo", title},
                     {"Testo", std::move(text)}});
  };
  problem(At(2009, 5, 11, 9, 30), kNull, "Ipertensione essenziale non specificata - (401.9)",
          "In terapia dal primo riscontro.");
  problem(At(2015, 10, 2, 11, 0), kNull, "Diabete mellito tipo II senza complicanze - (250.00)", kNull);
  problem(At(2022, 2, 7, 17, 45), OnDay(2022, 2, 20), "Lombalgia - (724.2)", "Dopo sforzo.\r\nFANS per 5 giorni.");
  problem(kNull, kNull, "Controllo periodico", kNull);
  problem(At(2024, 3, 4, 10, 15), OnDay(2024, 3, 4), "Visita medica generale - (V70.0)", kNull);
  problem(At(2024, 11, 18, 16, 0), OnDay(2024, 12, 1), "Lombalgia", "Recidiva.");

  const auto service = [&](host::Value day, const char* what, host::Value diagnosis, host::Value notes) {
    g.Put("PRESTAZIONI", {{"CodCart", card},
                          {"Data", std::move(day)},
                          {"Prestazione", what},
                          {"Diagnosi", std::move(diagnosis)},
                          {"Annotazioni", std::move(notes)}});
  };
  service(OnDay(2024, 1, 15), "VISITA DOMICILIARE", "Ipertensione essenziale non specificata",
          "Controllo parametri e terapia");
  service(OnDay(2024, 2, 15), "VISITA IN ASSISTENZA DOMICILIARE INTEGRATA", "Diabete mellito tipo II senza complicanze",
          kNull);
  service(OnDay(2024, 3, 15), "VISITA IN ASSISTENZA DOMICILIARE PROGRAMMATA", "ipertensione essenziale non specificata",
          "Rinnovo piano assistenziale");
  service(kNull, "ELETTROCARDIOGRAMMA", kNull, kNull);
  service(OnDay(2024, 5, 20), "visita domiciliare", "Controllo periodico", "Paziente allettato");

  const auto reaction = [&](host::Value day, const char* text, host::Value drug) {
    g.Put("REAZIONI", {{"CodCart", card}, {"Data", std::move(day)}, {"Testo", text}, {"CodTer", std::move(drug)}});
  };
  reaction(OnDay(2010, 6, 1), "Allergia alla penicillina", "026089037");
  reaction(kNull, "Allergia al nichel", kNull);
  reaction(OnDay(2018, 9, 9), "Reazione cutanea a FANS", " 023309021 ");
  reaction(OnDay(2019, 1, 1), "Orticaria", "901234567");

  const auto vaccine = [&](host::Value day, const char* name, host::Value note, host::Value recall) {
    g.Put("VACCINI", {{"CodCart", card},
                      {"Data", std::move(day)},
                      {"Testo", name},
                      {"Note", std::move(note)},
                      {"DATARICH", std::move(recall)}});
  };
  vaccine(OnDay(2023, 10, 20), "Antinfluenzale 2023/2024", "Lotto 23K101", OnDay(2024, 10, 15));
  vaccine(OnDay(2021, 5, 10), "Antitetanica (richiamo)", kNull, OnDay(2031, 5, 10));
  vaccine(kNull, "Anti-pneumococcica PCV20", kNull, kNull);

  const auto exemption = [&](host::Value issued, host::Value expires, host::Value code, host::Value icd) {
    g.Put("ESENZIONI", {{"CodCart", card},
                        {"Emissione", std::move(issued)},
                        {"Scadenza", std::move(expires)},
                        {"Codice", std::move(code)},
                        {"COD_ICD1", std::move(icd)}});
  };
  exemption(OnDay(2015, 11, 1), kNull, "013", "250");
  exemption(kNull, kNull, "031", "401");
  exemption(OnDay(2019, 4, 1), OnDay(2020, 3, 31), "E01", "");
  exemption(OnDay(2020, 1, 1), kNull, "031", "  ");
  exemption(OnDay(2020, 1, 1), kNull, kNull, "250");

  g.Put("MESSAGES", {{"CodCart", card}, {"Data_Iniz", At(2024, 1, 10, 9, 0)}, {"MESG", kMessages[0]}});
  g.Put("MESSAGES", {{"CodCart", card}, {"Data_Iniz", kNull}, {"MESG", kMessages[4]}});
  g.Put("VISNOTE", {{"CodCart", card}, {"Data", At(2024, 1, 15, 10, 30)}, {"Testo", kVisitNotes[2]}});
  g.Put("VISNOTE", {{"CodCart", card}, {"Data", kNull}, {"Testo", "  Visita con testo fra spazi  "}});

  g.Put("RICETTE", {{"CodCart", card},
                    {"DATAEMI", OnDay(2024, 2, 1)},
                    {"Indic1", "Diabete mellito tipo II senza complicanze"},
                    {"CodEsenz", " 013 "},
                    {"Row_1", "Strisce reattive per glicemia"},
                    {"Qta_1", "2"},
                    {"Row_2", "aghi per penna da insulina 4 mm  "},
                    {"Qta_2", "0"},
                    {"Row_3", "   "},
                    {"Qta_3", kNull},
                    {"Row_4", "Lancette pungidito"},
                    {"Qta_4", "2.5"},
                    {"Row_5", "Glucometro"},
                    {"Qta_5", "3.5"},
                    {"Row_6", "Cotone idrofilo"},
                    {"Qta_6", ""}});
  g.Put("RICETTE", {{"CodCart", card},
                    {"DATAEMI", kNull},
                    {"Indic1", kNull},
                    {"CodEsenz", kNull},
                    {"Row_1", "."},
                    {"Qta_1", kNull},
                    {"Row_2", "."},
                    {"Qta_2", "1"}});
  g.Put("RICETTE", {{"CodCart", card},
                    {"DATAEMI", OnDay(2024, 9, 3)},
                    {"Indic1", "Lombalgia"},
                    {"CodEsenz", kNull},
                    {"Row_1", "Garze sterili 10x10"},
                    {"Qta_1", "0.4"},
                    {"Row_2", ""},
                    {"Qta_2", ""},
                    {"Row_3", "Cerotto medicato"},
                    {"Qta_3", "-1"},
                    {"Row_4", kNull},
                    {"Qta_4", kNull},
                    {"Row_5", "."},
                    {"Qta_5", "2"},
                    {"Row_6", "Soluzione fisiologica 500 ml"},
                    {"Qta_6", "1"},
                    {"Row_7", "   "},
                    {"Qta_7", kNull},
                    {"Row_8", "Siringhe 5 ml"},
                    {"Qta_8", "10"}});

  const auto therapy = [&](host::Value at, host::Value text, host::Value exemption_code, host::Value drug_class,
                           host::Value drug, host::Value packs, host::Value note, host::Value price) {
    g.Put("TERAPIE", {{"CodCart", card},
                      {"Data", std::move(at)},
                      {"Testo", std::move(text)},
                      {"Esenzione", std::move(exemption_code)},
                      {"Classe", std::move(drug_class)},
                      {"CodTer", std::move(drug)},
                      {"NumPezzi", std::move(packs)},
                      {"NOTA", std::move(note)},
                      {"Indicaz", "1 cpr/die"},
                      {"CodATC", kNull},
                      {"Importo", std::move(price)}});
  };
  therapy(At(2024, 3, 5, 9, 10), "NORVASC*28CPR 5MG", "031", "A", "027426016", Int(2), kNull, 9.90);
  therapy(At(2024, 3, 5, 9, 10), "GLUCOPHAGE*60CPR RIV 1000MG", "013", "A", "026720019", Int(1), kNull, 3.19);
  therapy(At(2024, 3, 5, 9, 12), "", kNull, kNull, kNull, kNull, kNull, kNull);
  therapy(At(2024, 4, 10, 18, 0), "TACHIPIRINA*20CPR 500MG", kNull, "C", "012745093", kNull, kNull, kNull);
  therapy(At(2024, 4, 10, 18, 5), "TORVAST*30CPR RIV 20MG", kNull, "a", "034522016", Int(1), "13", 0.0);
  therapy(At(2024, 6, 1, 12, 0), "VOLTAREN*20CPR 50MG", kNull, "C", "0234567", Int(1), kNull, 6.20);
  therapy(At(2024, 6, 1, 12, 0), "Preparazione galenica", kNull, "C", "", Int(1), kNull, kNull);

  // One exam of each kind, most with a report; the ultrasound with images.
  const auto exam = [&](host::Value tipo, host::Value day, const char* name, host::Value dmr, host::Value indication) {
    const int record = g.NextExamRecord();
    const std::string code = g.NextCode("ES");
    g.Put("ESAMI", {{"RECORD", Int(record)},
                    {"CodCart", card},
                    {"tipo", std::move(tipo)},
                    {"Data", std::move(day)},
                    {"Testo", name},
                    {"Esenzione", "013"},
                    {"CodRif", std::move(dmr)},
                    {"Indicaz", std::move(indication)},
                    {"CODESAME", code}});
    return std::pair(record, code);
  };
  const auto report = [&](int record, const std::string& code, host::Value text) {
    g.Put("REFERTI", {{"Record", Int(record)}, {"CodCart", card}, {"CODESAME", code}, {"Testo", std::move(text)}});
  };
  const auto [glucose, glucose_code] = exam(Int(1), OnDay(2024, 1, 20), "GLICEMIA", "90.27.1", kNull);
  report(glucose, glucose_code, "Glicemia 126 mg/dl.");
  exam(Int(1), OnDay(2024, 1, 20), "EMOGLOBINA GLICATA (HbA1c)", kNull, kNull);
  exam(Int(4), OnDay(2024, 1, 20), "URINOCOLTURA", "90.94.2", kNull);
  exam(Int(1), kNull, "CREATININA", "90.16.3", kNull);
  const auto [visit, visit_code] =
      exam(Int(2), OnDay(2024, 2, 10), "VISITA DIABETOLOGICA", "89.7A.8", "Diabete mellito tipo II senza complicanze");
  report(visit, visit_code, kExams[1].report);
  const auto [echo, echo_code] = exam(Int(3), OnDay(2024, 3, 1), "ECOGRAFIA ADDOME COMPLETO", "88.76.1", kNull);
  report(echo, echo_code, kExams[5].report);
  g.Put("IMAGES", ImageRow(g, card, echo_code, At(2024, 3, 1, 11, 20), Bytes(Gzip(FileContent(files, "jpg", ""))),
                           "Eco addome 01/03/2024", "jpg", "ECO0001.jpg"));
  g.Put("IMAGES", ImageRow(g, card, echo_code, At(2024, 3, 1, 11, 21), Bytes(FileContent(files, "jpg", "")), kNull,
                           "jpg", "Eco addome fegato.jpg"));
  g.Put("IMAGES", ImageRow(g, card, echo_code, At(2024, 3, 1, 11, 22), Bytes("\xFF\xD8\xFF"), "Eco troncata", "jpg",
                           "ECO0003.jpg"));
  const auto [stay, stay_code] =
      exam(Int(5), OnDay(2024, 4, 10), "RICOVERO ORDINARIO - MEDICINA INTERNA", kNull, "Polmonite comunitaria");
  report(stay, stay_code, kExams[11].report);
  g.Put("IMAGES",
        ImageRow(g, card, stay_code, At(2024, 4, 18, 9, 0), Bytes(FileContent(files, "pdf", "Lettera di dimissione")),
                 "Lettera di dimissione", "pdf", "DIMISSIONE.pdf"));
  const auto [diet, diet_code] = exam(Int(0), OnDay(2024, 5, 2), "CONSULENZA NUTRIZIONALE", kNull, kNull);
  report(diet, diet_code, kExams[13].report);
  const auto [licence, licence_code] = exam(kNull, kNull, "CERTIFICAZIONE MEDICO-LEGALE", kNull, kNull);
  report(licence, licence_code, kNull);
  report(g.NextExamRecord(), "ES999999", "Referto di un esame non registrato.");

  g.Put("IMAGES", ImageRow(g, card, kNull, At(2019, 3, 12, 10, 0), Bytes(FileContent(files, "jpg", "")),
                           "Tessera sanitaria", "jpg", "SCAN0001.jpg"));

  const std::string plan = g.NextCode("PT");
  g.Put("PIANOTERAP", {{"CodCart", card},
                       {"Diagnosi", "Diabete mellito tipo II senza complicanze"},
                       {"COD_SCAN", "S1"},
                       {"CODPIANO", plan},
                       {"DataRedaz", OnDay(2024, 2, 10)},
                       {"Scadenza", OnDay(2025, 2, 10)},
                       {"COD_AIC", "042498040"},
                       {"Farmaco", "FORXIGA*28CPR RIV 10MG"},
                       {"NOTA_AIFA", "100"},
                       {"Posolog", "1 cpr/die"},
                       {"Medico", kPlanSpecialists[1]}});
  g.Put("SCANSIONI", {{"CodCart", card},
                      {"CODESAME", plan},
                      {"bindata", Bytes(Gzip(FileContent(files, "pdf", "Piano terapeutico AIFA")))},
                      {"Titolo", "Piano terapeutico FORXIGA"},
                      {"Settings", "pdf"}});
}

// 000003: no codice fiscale, date of birth or health card: the host refuses
// him, and his rows are never read.
void UnidentifiedPatient(Generator& g) {
  const std::string card = "000003";
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome", "Esposito"},
                     {"nome", "Gennaro"},
                     {"CodFisc", kNull},
                     {"DataNat", kNull},
                     {"CodiceSSN", kNull},
                     {"Sex", "M"},
                     {"LuogoNat", "NAPOLI"},
                     {"PrvNat", "NA"},
                     {"Indirizzo", "Via Casilina"},
                     {"NumCivico", "1021"},
                     {"Citta", "ROMA"},
                     {"CAP", "00169"},
                     {"Prov", "RM"},
                     {"ASL", "202"},
                     {"DataScelta", OnDay(2020, 2, 3)}});
  g.Put("VISITE", {{"CodCart", card}, {"Inizio", At(2020, 2, 3, 9, 0)}, {"Titolo", "Controllo periodico"}});
  g.Put("BIOMETRIC", {{"CodCart", card}, {"Data", OnDay(2020, 2, 3)}, {"PADIST", "80"}, {"PASIST", "125"}});
}

// Cod_Cart Null: the driver asks for this patient with an empty key.
void PatientWithoutCard(Generator& g) {
  g.Put("PAZIENTI", {{"Cod_Cart", kNull},
                     {"cognome", "Bianchi"},
                     {"nome", "Luigia"},
                     {"CodFisc", CodiceFiscale("Bianchi", "Luigia", true, DayOf(1955, 3, 8), "H501")},
                     {"DataNat", OnDay(1955, 3, 8)},
                     {"Sex", "F"},
                     {"LuogoNat", "ROMA"},
                     {"PrvNat", "RM"},
                     {"Indirizzo", "Via Nomentana"},
                     {"NumCivico", "44"},
                     {"Citta", "ROMA"},
                     {"CAP", "00161"},
                     {"Prov", "RM"},
                     {"ASL", "201"},
                     {"DataScelta", OnDay(2011, 6, 20)}});
}

// Cod_Cart empty: a few rows carry the empty key too.
void PatientWithEmptyCard(Generator& g) {
  const std::string card;
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome", "Ferrari"},
                     {"nome", "Anna"},
                     {"CodFisc", CodiceFiscale("Ferrari", "Anna", true, DayOf(1962, 12, 24), "F205")},
                     {"DataNat", OnDay(1962, 12, 24)},
                     {"CodiceSSN", "80380000305555666677"},
                     {"Sex", "F"},
                     {"LuogoNat", "MILANO"},
                     {"PrvNat", "MI"},
                     {"Indirizzo", "Viale Europa"},
                     {"NumCivico", "190"},
                     {"Citta", "ROMA"},
                     {"CAP", "00144"},
                     {"Prov", "RM"},
                     {"ASL", "203"},
                     {"DataScelta", OnDay(2013, 1, 7)}});
  g.Put("MESSAGES",
        {{"CodCart", card}, {"Data_Iniz", At(2013, 1, 7, 12, 0)}, {"MESG", "Scheda senza codice: verificare"}});
  g.Put("VISNOTE", {{"CodCart", card}, {"Data", At(2014, 2, 3, 9, 40)}, {"Testo", kVisitNotes[0]}});
}

// 00'006: an apostrophe in the key, which goes into the queries unquoted.
void PatientWithQuoteInCard(Generator& g) {
  const std::string card = "00'006";
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome", "Dell'Orto"},
                     {"nome", "Giuseppe"},
                     {"CodFisc", CodiceFiscale("Dell'Orto", "Giuseppe", false, DayOf(1940, 4, 25), "L219")},
                     {"DataNat", OnDay(1940, 4, 25)},
                     {"CodiceSSN", "80380000306666777788"},
                     {"Sex", "M"},
                     {"LuogoNat", "TORINO"},
                     {"PrvNat", "TO"},
                     {"Indirizzo", "Via Sant'Agnese"},
                     {"NumCivico", "7"},
                     {"Citta", "ROMA"},
                     {"CAP", "00198"},
                     {"Prov", "RM"},
                     {"ASL", "201"},
                     {"DataScelta", OnDay(2005, 5, 5)}});
  g.Put("BIOMETRIC", {{"CodCart", card}, {"Data", OnDay(2024, 1, 9)}, {"PADIST", "85"}, {"PASIST", "150"}});
  g.Put("VISITE", {{"CodCart", card}, {"Inizio", At(2005, 5, 5, 10, 0)}, {"Titolo", CodedTitle(kChronic[0])}});
}

// 000007: titles of problems in odd forms; the last one ends right after the
// marker "- (", which makes the conversion of the patient's problems fail.
void PatientWithOddTitles(Generator& g) {
  const std::string card = "000007";
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome", "Gallo"},
                     {"nome", "Teresa"},
                     {"CodFisc", CodiceFiscale("Gallo", "Teresa", true, DayOf(1958, 8, 30), "H501")},
                     {"DataNat", OnDay(1958, 8, 30)},
                     {"CodiceSSN", "80380000307777888899"},
                     {"Sex", "F"},
                     {"LuogoNat", "ROMA"},
                     {"PrvNat", "RM"},
                     {"Indirizzo", "Via Prenestina"},
                     {"NumCivico", "300"},
                     {"Citta", "ROMA"},
                     {"CAP", "00176"},
                     {"Prov", "RM"},
                     {"ASL", "202"},
                     {"DataScelta", OnDay(2010, 10, 10)}});
  int day = DayOf(2018, 1, 15);
  for (const char* title : {"Asma - (493.90", "Gastrite - (535.50) - (535.5)", "Controllo - ()",
                            "Gastrite e gastroduodenite non specificate- (535.50)", "Tosse -  (786.2)",
                            "Sindrome dell'intestino irritabile - (564.1) recidiva", "Diabete mellito - ("}) {
    g.Put("VISITE", {{"CodCart", card}, {"Inizio", At(day, 9 * 60)}, {"termine", kNull}, {"Titolo", title}});
    day += 200;
  }
  g.Put("BIOMETRIC", {{"CodCart", card}, {"Data", OnDay(2024, 2, 2)}, {"PADIST", "70"}, {"PASIST", "115"}});
  g.Put("VACCINI", {{"CodCart", card},
                    {"Data", OnDay(2024, 10, 20)},
                    {"Testo", "Antinfluenzale 2024/2025"},
                    {"DATARICH", OnDay(2025, 10, 15)}});
}

// 000008: dates at the ends of the calendar, and Null ones, in every table
// that has dates. The relationship ends in 2099.
void PatientWithOddDates(Generator& g) {
  const std::string card = "000008";
  const host::Value first = OnDay(1900, 1, 1);
  const host::Value last = OnDay(2099, 12, 31);
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome", "Marino"},
                     {"nome", "Rosa"},
                     {"CodFisc", CodiceFiscale("Marino", "Rosa", true, DayOf(1900, 1, 1), "G273")},
                     {"DataNat", first},
                     {"CodiceSSN", "80380000308888999900"},
                     {"Sex", "F"},
                     {"LuogoNat", "PALERMO"},
                     {"PrvNat", "PA"},
                     {"Indirizzo", "Via Ostiense"},
                     {"NumCivico", "5"},
                     {"Citta", "ROMA"},
                     {"CAP", "00154"},
                     {"Prov", "RM"},
                     {"ASL", "203"},
                     {"DataScelta", first},
                     {"DataRevoca", last}});
  g.Put("BIOMETRIC", {{"CodCart", card}, {"Data", first}, {"PADIST", "60"}, {"PASIST", "100"}});
  g.Put("VISITE", {{"CodCart", card}, {"Inizio", At(1900, 1, 1, 0, 0)}, {"Titolo", CodedTitle(kChronic[2])}});
  g.Put("VISITE", {{"CodCart", card}, {"Inizio", kNull}, {"termine", last}, {"Titolo", "Controllo periodico"}});
  g.Put("VACCINI", {{"CodCart", card}, {"Data", first}, {"Testo", "Antitetanica"}, {"DATARICH", last}});
  g.Put("MESSAGES", {{"CodCart", card}, {"Data_Iniz", kNull}, {"MESG", "Data da verificare"}});
  g.Put("VISNOTE", {{"CodCart", card}, {"Data", At(2099, 12, 31, 23, 59)}, {"Testo", "Data futura"}});
  g.Put("ESENZIONI", {{"CodCart", card}, {"Emissione", kNull}, {"Scadenza", last}, {"Codice", "048"}});
  g.Put("CERTINPS", {{"CodCart", card},
                     {"DATAINI", first},
                     {"DATATER", kNull},
                     {"DATAEMI", kNull},
                     {"Diag", "Sindrome influenzale"},
                     {"Inizio", "X"}});
  g.Put("TERAPIE", {{"CodCart", card},
                    {"Data", At(2099, 12, 31, 0, 0)},
                    {"Testo", "EUTIROX*50CPR 75MCG"},
                    {"Classe", "A"},
                    {"CodTer", "023452013"},
                    {"NumPezzi", Int(1)}});
  g.Put("ESAMI", {{"RECORD", Int(g.NextExamRecord())},
                  {"CodCart", card},
                  {"tipo", Int(1)},
                  {"Data", first},
                  {"Testo", "GLICEMIA"},
                  {"CodRif", "90.27.1"},
                  {"CODESAME", g.NextCode("ES")}});
  g.Put("PRESTAZIONI", {{"CodCart", card}, {"Data", last}, {"Prestazione", "VISITA DOMICILIARE"}});
}

// 000009: deceased; expiry and revocation are set too, and give way.
void DeceasedPatient(Generator& g) {
  const std::string card = "000009";
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome", "Greco"},
                     {"nome", "Salvatore"},
                     {"CodFisc", CodiceFiscale("Greco", "Salvatore", false, DayOf(1931, 2, 17), "C351")},
                     {"DataNat", OnDay(1931, 2, 17)},
                     {"CodiceSSN", "80380000309999000011"},
                     {"Sex", "M"},
                     {"LuogoNat", "CATANIA"},
                     {"PrvNat", "CT"},
                     {"Indirizzo", "Via Tiburtina"},
                     {"NumCivico", "88"},
                     {"Citta", "ROMA"},
                     {"CAP", "00159"},
                     {"Prov", "RM"},
                     {"ASL", "202"},
                     {"DataDec", OnDay(2024, 2, 11)},
                     {"DataScelta", OnDay(1998, 6, 1)},
                     {"dataScadenza_T", OnDay(2024, 12, 31)},
                     {"DataRevoca", OnDay(2024, 3, 1)}});
  g.Put("VISITE", {{"CodCart", card}, {"Inizio", At(2019, 4, 4, 10, 0)}, {"Titolo", CodedTitle(kChronic[11])}});
  g.Put("PRESTAZIONI", {{"CodCart", card},
                        {"Data", OnDay(2023, 12, 20)},
                        {"Prestazione", "VISITA IN ASSISTENZA DOMICILIARE INTEGRATA"},
                        {"Diagnosi", kChronic[11].description},
                        {"Annotazioni", "Paziente allettato"}});
}

// 000010: a temporary resident, chosen on an unknown day, whose expiry goes
// before a revocation; only the second e-mail address.
void TemporaryResident(Generator& g) {
  const std::string card = "000010";
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome", "Bruno"},
                     {"nome", "Chiara"},
                     {"CodFisc", CodiceFiscale("Bruno", "Chiara", true, DayOf(2001, 9, 3), "D086")},
                     {"DataNat", OnDay(2001, 9, 3)},
                     {"CodiceSSN", "80380000300000111122"},
                     {"Sex", "F"},
                     {"LuogoNat", "COSENZA"},
                     {"PrvNat", "CS"},
                     {"Indirizzo", "Viale della Primavera"},
                     {"NumCivico", "17"},
                     {"Citta", "ROMA"},
                     {"CAP", "00172"},
                     {"Prov", "RM"},
                     {"ASL", "202"},
                     {"Email", kNull},
                     {"Email2", "chiara.bruno@pec.it"},
                     {"DataScelta", kNull},
                     {"dataScadenza_T", OnDay(2025, 12, 31)},
                     {"DataRevoca", OnDay(2024, 1, 1)}});
  g.Put("CERTINPS", {{"CodCart", card},
                     {"DATAINI", OnDay(2024, 11, 4)},
                     {"DATATER", OnDay(2024, 11, 6)},
                     {"DATAEMI", OnDay(2024, 11, 4)},
                     {"Diag", "Faringotracheite febbrile"},
                     {"Inizio", "X"},
                     {"SEND_ID", "241104001"}});
}

// 000011: Null or empty wherever a column allows it; no given name.
void PatientOfNulls(Generator& g) {
  const std::string card = "000011";
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome", "Conti"},
                     {"nome", kNull},
                     {"CodFisc", " " + Lower(CodiceFiscale("Conti", "", false, DayOf(1970, 5, 5), "H501")) + " "},
                     {"DataNat", OnDay(1970, 5, 5)},
                     {"CodiceSSN", kNull},
                     {"Sex", kNull},
                     {"LuogoNat", ""},
                     {"PrvNat", kNull},
                     {"Indirizzo", kNull},
                     {"NumCivico", kNull},
                     {"Citta", kNull},
                     {"CAP", kNull},
                     {"Nazione", kNull},
                     {"Telefono", ""},
                     {"Recapito", kNull},
                     {"Prov", kNull},
                     {"Email", ""},
                     {"Email2", kNull},
                     {"ASL", kNull},
                     {"DataDec", kNull},
                     {"DataScelta", kNull},
                     {"dataScadenza_T", kNull},
                     {"DataRevoca", kNull}});
  for (const char* table : {"BIOMETRIC", "VISITE", "PRESTAZIONI", "VACCINI", "MESSAGES", "VISNOTE", "CERTINPS",
                            "RICETTE", "PIANOTERAP", "ESENZIONI"}) {
    g.Put(table, {{"CodCart", card}});
  }
  g.Put("REAZIONI", {{"CodCart", card}, {"CodTer", ""}});
  g.Put("TERAPIE", {{"CodCart", card}, {"Testo", ""}});
  g.Put("ESAMI",
        {{"RECORD", Int(g.NextExamRecord())}, {"CodCart", card}, {"tipo", Int(1)}, {"CODESAME", g.NextCode("ES")}});
  g.Put("MODULI", {{"CodCart", card}});
  g.Put("IMAGES", ImageRow(g, card, kNull, kNull, Bytes("FILE"), kNull, kNull, kNull));
}

// 000012: a free prescription with a line in use whose quantity is Null,
// which ends the conversion of the patient's free prescriptions after the
// line before it.
void PatientWithUncountedLine(Generator& g) {
  const std::string card = "000012";
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome", "Ricci"},
                     {"nome", "Paolo"},
                     {"CodFisc", CodiceFiscale("Ricci", "Paolo", false, DayOf(1952, 7, 14), "H501")},
                     {"DataNat", OnDay(1952, 7, 14)},
                     {"CodiceSSN", "80380000301111222233"},
                     {"Sex", "M"},
                     {"Citta", "ROMA"},
                     {"CAP", "00179"},
                     {"Prov", "RM"},
                     {"ASL", "202"},
                     {"DataScelta", OnDay(2012, 9, 1)}});
  g.Put("RICETTE", {{"CodCart", card},
                    {"DATAEMI", OnDay(2024, 10, 7)},
                    {"Indic1", "Lombalgia"},
                    {"Row_1", "Ciclo di fisioterapia (10 sedute)"},
                    {"Qta_1", "1"},
                    {"Row_2", "Busto ortopedico"},
                    {"Qta_2", kNull}});
}

// 000013: a drug row with a text and no date, which ends the conversion of
// the patient's pharmaceutical prescriptions.
void PatientWithUndatedDrug(Generator& g) {
  const std::string card = "000013";
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome", "Romano"},
                     {"nome", "Elena"},
                     {"CodFisc", CodiceFiscale("Romano", "Elena", true, DayOf(1966, 1, 21), "H501")},
                     {"DataNat", OnDay(1966, 1, 21)},
                     {"CodiceSSN", "80380000302222333344"},
                     {"Sex", "F"},
                     {"Citta", "ROMA"},
                     {"CAP", "00182"},
                     {"Prov", "RM"},
                     {"ASL", "202"},
                     {"DataScelta", OnDay(2016, 4, 4)}});
  g.Put("TERAPIE", {{"CodCart", card},
                    {"Data", kNull},
                    {"Testo", "EUTIROX*50CPR 75MCG"},
                    {"Classe", "A"},
                    {"CodTer", "023452013"},
                    {"NumPezzi", Int(1)}});
  g.Put("TERAPIE", {{"CodCart", card},
                    {"Data", At(2024, 5, 6, 10, 0)},
                    {"Testo", "TACHIPIRINA*20CPR 500MG"},
                    {"Classe", "C"},
                    {"CodTer", "012745093"},
                    {"NumPezzi", Int(1)}});
}

}  // namespace

// In the order in which a small sample takes them.
const AwkwardPatient kAwkwardPatients[] = {
    ClinicalShowcase,       DocumentShowcase,        UnidentifiedPatient,   PatientWithoutCard,
    PatientWithEmptyCard,   PatientWithQuoteInCard,  PatientWithOddTitles,  PatientWithOddDates,
    DeceasedPatient,        TemporaryResident,       PatientOfNulls,        PatientWithUncountedLine,
    PatientWithUndatedDrug, ReportShowcase,          MediaShowcase,         RecordingWithoutContent,
    ExamImageWithShortName, CertificateWithSlash,    CertificateOfTwoBytes, ExamReportedTwice,
    PlanScanWithoutContent, ExamImageWithoutContent, LargeDocuments};

std::span<const AwkwardPatient> AwkwardPatients() { return kAwkwardPatients; }

const std::vector<PlantedFailure>& PlantedFailures() {
  static const std::vector<PlantedFailure> failures = {
      {"000003", "", "no tax code, date of birth or health card: the host gives no patient object"},
      {"00'006", "Anagrafica", "the quote in the key breaks the query of the master record"},
      {"000007", "Diagnosi", "a problem's title ends right after the marker \"- (\""},
      {"000012", "Prescrizioni Libere", "a free prescription's line in use has a Null quantity"},
      {"000013", "Prescrizioni Farmaceutiche", "a drug row has a text and no date"},
      {"000016", "Registrazioni Private", "an image not of an exam has a Null bindata"},
      {"000017", "Referti", "an exam's image with a blank title has an ORGName of two characters"},
      {"000018", "Certificati", "a plain document's title holds a \"/\", which can't be a file name"},
      {"000019", "Certificati", "a document's bindata has exactly two bytes, no third to look at"},
      {"000020", "Referti", "two reports name one exam with images, whose keys the second finds taken"},
      {"000021", "Piani Terapeutici", "a plan's scan has a Null bindata"},
      {"000022", "Referti", "an exam's image has a Null bindata"},
  };
  return failures;
}

}  // namespace sample
