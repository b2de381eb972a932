// The awkward patients of the documents: stored files of every kind, INPS
// certificates, reports and therapeutic plans with their edge values, files
// of several MB, and one patient for each way in which a document stops the
// conversion of his category.
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

Row ImageRow(Generator& g, const std::string& card, host::Value exam, host::Value day, host::Value content,
             host::Value title, host::Value extension, host::Value original) {
  return {{"Record", Int(g.NextImageRecord())},
          {"CodCart", card},
          {"CodEsame", std::move(exam)},
          {"MediaCode", g.NextCode("MC")},
          {"Data", std::move(day)},
          {"bindata", std::move(content)},
          {"Titolo", std::move(title)},
          {"Settings", std::move(extension)},
          {"ORGName", std::move(original)}};
}

// 000002: a foreign-born patient with a long place of birth (leading blank)
// and a long town, and every kind of stored file.
void DocumentShowcase(Generator& g) {
  const std::string card = "000002";
  Random files(2);
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome",
                      "Pe\xF1"
                      "a"},
                     {"nome", "Fran\xE7ois"},
                     {"CodFisc", CodiceFiscale("Pe\xF1"
                                               "a",
                                               "Fran\xE7ois", false, DayOf(1979, 7, 14), "Z110")},
                     {"DataNat", OnDay(1979, 7, 14)},
                     {"CodiceSSN", "  80380000302222333344  "},
                     {"Sex", "M"},
                     {"LuogoNat",
                      " Saint-Jean-de-Luz (Pyr\xE9n\xE9"
                      "es-Atlantiques)"},
                     {"PrvNat", "EE"},
                     {"Indirizzo", "Via Roma"},
                     {"NumCivico", "3 bis"},
                     {"Citta", "San Valentino in Abruzzo Citeriore"},
                     {"CAP", "65020"},
                     {"Nazione", "FRANCIA"},
                     {"Telefono", ""},
                     {"Recapito", "+33 6 12 34 56 78"},
                     {"Prov", "PE"},
                     {"Email", "francois.pena@gmail.com"},
                     {"Email2", "f.pena@pec.it"},
                     {"ASL", "103"},
                     {"DataDec", kNull},
                     {"DataScelta", OnDay(2016, 9, 1)},
                     {"dataScadenza_T", kNull},
                     {"DataRevoca", kNull}});
  g.Put("VISITE", {{"CodCart", card},
                   {"Inizio", At(2017, 1, 9, 9, 0)},
                   {"termine", kNull},
                   {"Titolo", "Fibrillazione atriale - (427.31)"},
                   {"Testo", kNull}});

  const auto image = [&](host::Value day, host::Value content, host::Value title, host::Value extension) {
    g.Put("IMAGES", ImageRow(g, card, kNull, std::move(day), std::move(content), std::move(title), std::move(extension),
                             "SCAN.dat"));
  };
  const host::Value day = At(2024, 6, 3, 10, 0);
  image(day, Bytes(Gzip(FileContent(files, "jpg", ""))), "Eco addome 12/03/2019", "jpg");
  image(day, Bytes(FileContent(files, "pdf", "Referto")), "../referto", "pdf");
  image(day, Bytes(FileContent(files, "jpg", "")), "Eco addome/pelvi", "jpg");
  image(kNull, Bytes(FileContent(files, "png", "")), "   ", "png");
  image(day, Bytes(FileContent(files, "txt", "Appunto senza titolo")), kNull, kNull);
  image(day, Bytes(""), "Vuoto", "txt");
  image(day, Bytes("A"), "Un byte", "txt");
  image(day, Bytes("AB"), "Due byte", "txt");
  image(day, Bytes("\x1F\x8B\x08"), "Tre byte", "txt");
  image(day, Bytes("ABCD"), "Quattro byte", "txt");
  image(day, Bytes(std::string_view("\x1F\x8B\x08\x00\xDE\xAD\xBE\xEF danneggiato", 20)), "Archivio danneggiato",
        "txt");
  image(day, Bytes(std::string_view("\x1F\x8B\x00 non compresso", 17)), "Falso gzip", "txt");
  image(day, Bytes(FileContent(files, "pdf", "Primo referto")), "Referto esterno", "pdf");
  image(day, Bytes(FileContent(files, "pdf", "Secondo referto")), "Referto esterno", "pdf");

  const std::string certificate = Rtf("Certificato di buona salute",
                                      "Si certifica che il Sig. Fran\xE7ois Pe\xF1"
                                      "a "
                                      "\xE8 in buona salute.");
  const auto form = [&](host::Value content, host::Value title, host::Value day_of_form) {
    g.Put("MODULI", {{"CodCart", card},
                     {"bindata", std::move(content)},
                     {"Titolo", std::move(title)},
                     {"Data", std::move(day_of_form)}});
  };
  form(Bytes(Gzip(BytesOfText(certificate))), "Certificato di buona salute", OnDay(2024, 5, 6));
  form(Bytes(certificate), "Certificato di buona salute", OnDay(2024, 5, 6));
  form(Bytes(Rtf("Certificato sportivo non agonistico", "Idoneo.")), "Certificato sportivo non agonistico", kNull);
  form(kNull, "Modulo vuoto", OnDay(2024, 5, 7));
  form(Bytes("{"), "Modulo troncato", OnDay(2024, 5, 8));
  form(Bytes(Rtf("Senza titolo", "")), kNull, OnDay(2024, 5, 9));

  const auto plan = [&](host::Value diagnosis, host::Value scan, host::Value drawn, host::Value expires) {
    const std::string code = g.NextCode("PT");
    g.Put("PIANOTERAP", {{"CodCart", card},
                         {"Diagnosi", std::move(diagnosis)},
                         {"COD_SCAN", std::move(scan)},
                         {"CODPIANO", code},
                         {"DataRedaz", std::move(drawn)},
                         {"Scadenza", std::move(expires)},
                         {"COD_AIC", "040225081"},
                         {"Farmaco", "ELIQUIS*60CPR RIV 5MG"},
                         {"NOTA_AIFA", "97"},
                         {"Posolog", "1 cpr x 2/die"},
                         {"Medico", kPlanSpecialists[0]}});
    return code;
  };
  const auto scan = [&](const std::string& code, host::Value content, host::Value title, host::Value extension) {
    g.Put("SCANSIONI", {{"CodCart", card},
                        {"CODESAME", code},
                        {"bindata", std::move(content)},
                        {"Titolo", std::move(title)},
                        {"Settings", std::move(extension)}});
  };
  scan(plan("Fibrillazione atriale", "S1", OnDay(2023, 3, 1), OnDay(2024, 3, 1)),
       Bytes(Gzip(FileContent(files, "pdf", "Piano terapeutico NAO"))), "Piano terapeutico ELIQUIS", "pdf");
  plan("Fibrillazione atriale", "S2", OnDay(2024, 3, 1), OnDay(2025, 3, 1));
  scan(plan("Fibrillazione atriale", "S3", kNull, kNull), Bytes(FileContent(files, "jpg", "")), "Piano non datato",
       "jpg");
  scan(plan("fibrillazione atriale", "S4", OnDay(2024, 9, 1), kNull), Bytes(FileContent(files, "jpg", "")), "   ",
       "jpg");
  scan(plan("Fibrillazione atriale", "S5", OnDay(2024, 10, 1), OnDay(2025, 10, 1)), Bytes("\x1F\x8B\x08"), "Corto",
       "pdf");
  scan(plan("Fibrillazione atriale", "S6", OnDay(2024, 11, 1), OnDay(2025, 11, 1)),
       Bytes(FileContent(files, "pdf", "Rinnovo")), "Piano 2024/2025", "pdf");
  plan("Fibrillazione atriale", "", OnDay(2024, 12, 1), OnDay(2025, 12, 1));

  const auto inps = [&](host::Value from, host::Value to, host::Value issued, host::Value diagnosis, host::Value first,
                        host::Value continued, host::Value relapse, host::Value sent) {
    g.Put("CERTINPS", {{"CodCart", card},
                       {"DATAINI", std::move(from)},
                       {"DATATER", std::move(to)},
                       {"DATAEMI", std::move(issued)},
                       {"Diag", std::move(diagnosis)},
                       {"Inizio", std::move(first)},
                       {"Continua", std::move(continued)},
                       {"Ricaduta", std::move(relapse)},
                       {"SEND_ID", std::move(sent)}});
  };
  inps(OnDay(2024, 1, 8), OnDay(2024, 1, 12), OnDay(2024, 1, 8), "Trauma distorsivo dell'arto inferiore dx", "X", kNull,
       kNull, "240108001");
  inps(OnDay(2024, 1, 13), OnDay(2024, 1, 19), OnDay(2024, 1, 12), "Trauma distorsivo dell'arto inferiore dx", kNull,
       "X", kNull, "240112002");
  inps(OnDay(2024, 2, 5), OnDay(2024, 2, 9), OnDay(2024, 2, 5), "Lombosciatalgia acuta", "X", "X", "X", "240205003");
  inps(OnDay(2024, 3, 4), OnDay(2024, 3, 6), OnDay(2024, 3, 4), "Sindrome influenzale", "x", kNull, kNull, kNull);
  inps(OnDay(2024, 4, 1), OnDay(2024, 4, 3), OnDay(2024, 4, 1), kNull, "X", kNull, kNull, kNull);
  inps(OnDay(2024, 4, 8), OnDay(2024, 4, 9), OnDay(2024, 4, 8), "", "X", kNull, kNull, kNull);
  inps(OnDay(2024, 5, 6), OnDay(2024, 5, 8), OnDay(2024, 5, 6), "   ", "X", kNull, kNull, kNull);
  inps(OnDay(2024, 6, 10), kNull, kNull, "Gastroenterite acuta", "X", kNull, kNull, kNull);
}

namespace {

// A PAZIENTI row that the host accepts, for the patients below.
void DocumentPatient(Generator& g, const std::string& card, const char* surname, const char* name, bool female,
                     int birth) {
  g.Put("PAZIENTI", {{"Cod_Cart", card},
                     {"cognome", surname},
                     {"nome", name},
                     {"CodFisc", CodiceFiscale(surname, name, female, birth, "H501")},
                     {"DataNat", OnDay(birth)},
                     {"CodiceSSN", "80380000" + card + "000000"},
                     {"Sex", female ? "F" : "M"},
                     {"LuogoNat", "ROMA"},
                     {"PrvNat", "RM"},
                     {"Indirizzo", "Via Appia Nuova"},
                     {"NumCivico", "120"},
                     {"Citta", "ROMA"},
                     {"CAP", "00183"},
                     {"Prov", "RM"},
                     {"ASL", "202"},
                     {"DataScelta", OnDay(2010, 1, 11)}});
}

// The first half of a gzip stream: its header is sound, its end missing.
std::vector<uint8_t> TruncatedGzip(const std::vector<uint8_t>& content) {
  std::vector<uint8_t> stream = Gzip(content);
  stream.resize(stream.size() / 2);
  return stream;
}

// Exams and their reports for one patient: the exam's RECORD is also the
// report's Record, as the practice program writes them.
struct ExamWriter {
  Generator& g;
  std::string card;

  std::pair<int, std::string> Exam(host::Value tipo, host::Value day, const char* name, host::Value indication) {
    const int record = g.NextExamRecord();
    std::string code = g.NextCode("ES");
    g.Put("ESAMI", {{"RECORD", Int(record)},
                    {"CodCart", card},
                    {"tipo", std::move(tipo)},
                    {"Data", std::move(day)},
                    {"Testo", name},
                    {"Indicaz", std::move(indication)},
                    {"CODESAME", code}});
    return {record, code};
  }
  void Report(int record, const std::string& code, host::Value text) {
    g.Put("REFERTI", {{"Record", Int(record)}, {"CodCart", card}, {"CODESAME", code}, {"Testo", std::move(text)}});
  }
  // An image of the exam (or of none, for a Null code) with its own MediaCode
  // unless one is given.
  void Image(host::Value exam, host::Value content, host::Value title, host::Value extension, host::Value original,
             host::Value media_code = host::Value()) {
    Row row = ImageRow(g, card, std::move(exam), At(2024, 3, 5, 10, 0), std::move(content), std::move(title),
                       std::move(extension), std::move(original));
    if (media_code.type() != host::Type::Empty) row[3].second = std::move(media_code);
    g.Put("IMAGES", row);
  }
};

// A report text of 300 characters: the first 255 reach a store that cuts.
std::string LongReport() {
  std::string text = "Esami ematochimici nei limiti, eccetto lieve incremento delle transaminasi (GPT 52 U/l). ";
  while (text.size() < 300) text += "Si consiglia controllo a tre mesi. ";
  return text.substr(0, 300);
}

}  // namespace

// 000014: reports of every kind of exam with the edge values of their images.
void ReportShowcase(Generator& g) {
  const std::string card = "000014";
  Random files(14);
  DocumentPatient(g, card, "Rinaldi", "Marta", true, DayOf(1957, 3, 12));
  ExamWriter e{g, card};

  const auto [lab, lab_code] = e.Exam(Int(1), OnDay(2024, 1, 15), "TRANSAMINASI GPT/ALT", kNull);
  e.Report(lab, lab_code, LongReport());
  const auto [culture, culture_code] = e.Exam(Int(4), OnDay(2024, 1, 15), "URINOCOLTURA", kNull);
  e.Report(culture, culture_code, "Urinocoltura negativa.");
  // Two reports of one visit, which has no images: two visit prescriptions.
  const auto [visit, visit_code] =
      e.Exam(Int(2), OnDay(2024, 2, 6), "VISITA CARDIOLOGICA + ECG", "Ipertensione essenziale non specificata");
  e.Report(visit, visit_code, kExams[0].report);
  e.Report(visit, visit_code, "Integrazione: ecocardiogramma consigliato.");

  // An X-ray with images of every form: real ones plain and compressed, a
  // blank title whose name comes from ORGName, a short ORGName under a
  // title, a stream that the decoder refuses, a MediaCode that a scan
  // shares, and a Null MediaCode.
  const auto [xray, xray_code] = e.Exam(Int(3), OnDay(2024, 3, 5), "RX TORACE (2 PROIEZIONI)", kNull);
  e.Report(xray, xray_code, kExams[6].report);
  const host::Value xray_exam(xray_code);
  e.Image(xray_exam, Bytes(FileContent(files, "jpg", "")), "Rx torace PA", "jpg", "RX0001.jpg");
  e.Image(xray_exam, Bytes(Gzip(FileContent(files, "png", ""))), "Rx torace LL", "png", "RX0002.png");
  e.Image(xray_exam, Bytes(FileContent(files, "jpg", "")), "   ", "jpg", "Rx torace.jpg");
  e.Image(xray_exam, Bytes(FileContent(files, "jpg", "")), "Rx torace/dettaglio", "jpg", "ab");
  e.Image(xray_exam, Bytes(TruncatedGzip(FileContent(files, "tif", ""))), "Rx troncata", "tif", "RX0005.tif");
  e.Image(xray_exam, Bytes(FileContent(files, "jpg", "")), "Rx torace condivisa", "jpg", "RX0006.jpg", "MC-COMUNE-14");
  e.Image(xray_exam, Bytes(FileContent(files, "png", "")), "Rx senza codice", "png", "RX0007.png", "MC-RX-14");
  // Not of an exam: the first shares a MediaCode above, so no recording
  // takes it and the scans do; the second has none, which no report marked,
  // so the recordings take it. (An exam image without MediaCode would be
  // taken again by the recordings, and fail them on its key.)
  e.Image(kNull, Bytes(FileContent(files, "jpg", "")), "Copia Rx torace", "jpg", "SCAN0014.jpg", "MC-COMUNE-14");
  e.Image(kNull, Bytes(FileContent(files, "png", "")), "Immagine senza codice", "png", "SCAN0015.png", kNull);

  const auto [stay, stay_code] =
      e.Exam(Int(5), OnDay(2024, 4, 2), "DAY HOSPITAL - CARDIOLOGIA", "Fibrillazione atriale persistente");
  e.Report(stay, stay_code, "  " + LongReport() + "  ");
  const auto [legal, legal_code] = e.Exam(Int(6), OnDay(2024, 5, 9), "CERTIFICAZIONE MEDICO-LEGALE", kNull);
  e.Report(legal, legal_code, kExams[14].report);
  const auto [diet, diet_code] = e.Exam(Int(0), kNull, "CONSULENZA NUTRIZIONALE", kNull);
  e.Report(diet, diet_code, kExams[13].report);
  const auto [other, other_code] = e.Exam(kNull, OnDay(2024, 6, 1), "VISITA FISIATRICA", kNull);
  e.Report(other, other_code, "Programma di esercizi a domicilio.");

  g.Put("CERTINPS", {{"CodCart", card},
                     {"DATAINI", OnDay(2024, 9, 2)},
                     {"DATATER", OnDay(2024, 9, 6)},
                     {"DATAEMI", OnDay(2024, 9, 2)},
                     {"Diag", "Lombalgia acuta\tda sforzo"},
                     {"Inizio", "X"},
                     {"SEND_ID", "240902001"}});
  g.Put("CERTINPS", {{"CodCart", card},
                     {"DATAINI", OnDay(2024, 9, 7)},
                     {"DATATER", OnDay(2024, 9, 10)},
                     {"DATAEMI", OnDay(2024, 9, 6)},
                     {"Diag", "lombalgia all'esordio"},
                     {"Continua", "X"},
                     {"Ricaduta", "x"},
                     {"SEND_ID", ""}});
}

// 000015: scans, certificates and plans' scans in the forms that store
// nothing or store a plain file, none of which is a failure.
void MediaShowcase(Generator& g) {
  const std::string card = "000015";
  Random files(15);
  DocumentPatient(g, card, "Fontana", "Ilaria", true, DayOf(1983, 10, 30));
  ExamWriter e{g, card};
  e.Image(kNull, Bytes(TruncatedGzip(FileContent(files, "jpg", ""))), "Foto troncata", "jpg", "FOTO0001.jpg");
  e.Image(kNull, Bytes(std::string_view("\x1F\x8B\x08\x00", 4)), "Inizio gzip", "txt", "GZ.txt");
  e.Image(kNull, Bytes(std::string_view("\x1F\x8B\x07\x00 non compresso", 18)), "Terzo byte 07", "txt", "GZ7.txt");
  e.Image(kNull, Bytes(FileContent(files, "png", "")), "Immagine senza estensione", kNull, "IMG.png");
  e.Image(kNull, Bytes(FileContent(files, "tif", "")), "Scansione 2019/2020", "tif", "SCAN2019.tif");

  const std::string rtf = Rtf("Certificato medico", "Si certifica che la Sig.ra Ilaria Fontana \xE8 in buona salute.");
  const auto form = [&](host::Value content, host::Value title) {
    g.Put("MODULI", {{"CodCart", card},
                     {"bindata", std::move(content)},
                     {"Titolo", std::move(title)},
                     {"Data", OnDay(2024, 7, 1)}});
  };
  form(Bytes(TruncatedGzip(BytesOfText(rtf))), "Certificato troncato");
  form(Bytes(std::string_view("\x1F\x8B\x08", 3)), "Tre byte gzip");
  form(Bytes("{\\rt"), "Quattro byte");
  form(Bytes(std::string_view("\x1F\x8B\x00{\\rtf1 falso gzip}", 20)), "Terzo byte 00");
  form(Bytes(rtf), "   ");
  form(Bytes(Gzip(BytesOfText(rtf))), "Certificato 2024/2025");

  const auto plan = [&](const char* scan) {
    const std::string code = g.NextCode("PT");
    g.Put("PIANOTERAP", {{"CodCart", card},
                         {"Diagnosi", "Diabete mellito tipo II senza complicanze"},
                         {"COD_SCAN", scan},
                         {"CODPIANO", code},
                         {"DataRedaz", OnDay(2024, 2, 1)},
                         {"Scadenza", OnDay(2025, 2, 1)},
                         {"COD_AIC", "042498040"},
                         {"Farmaco", "FORXIGA*28CPR RIV 10MG"},
                         {"NOTA_AIFA", "100"},
                         {"Posolog", "1 cpr/die"},
                         {"Medico", kPlanSpecialists[1]}});
    return code;
  };
  const auto scan = [&](const std::string& code, host::Value content, host::Value title, host::Value extension) {
    g.Put("SCANSIONI", {{"CodCart", card},
                        {"CODESAME", code},
                        {"bindata", std::move(content)},
                        {"Titolo", std::move(title)},
                        {"Settings", std::move(extension)}});
  };
  scan(plan("S1"), Bytes(TruncatedGzip(FileContent(files, "pdf", "Piano terapeutico"))), "Piano troncato", "pdf");
  scan(plan("S2"), Bytes("%PDF"), "Quattro byte", "pdf");
  scan(plan("S3"), Bytes(std::string_view("\x1F\x8B\x01 non compresso", 17)), "Terzo byte 01", "txt");
  scan(plan("S4"), Bytes(FileContent(files, "jpg", "")), kNull, "jpg");
  scan(plan("S5"), Bytes(FileContent(files, "png", "")), "Piano senza estensione", kNull);
}

// 000016: an image without content among the private recordings.
void RecordingWithoutContent(Generator& g) {
  const std::string card = "000016";
  Random files(16);
  DocumentPatient(g, card, "Barbieri", "Luca", false, DayOf(1975, 6, 18));
  ExamWriter e{g, card};
  e.Image(kNull, Bytes(FileContent(files, "jpg", "")), "Foto lesione cutanea", "jpg", "FOTO0001.jpg");
  e.Image(kNull, kNull, "Foto lesione cutanea (controllo)", "jpg", "FOTO0002.jpg");
}

// 000017: an exam's image with a blank title and an ORGName too short to
// lose its four-character ending.
void ExamImageWithShortName(Generator& g) {
  const std::string card = "000017";
  Random files(17);
  DocumentPatient(g, card, "Leone", "Franca", true, DayOf(1961, 2, 27));
  ExamWriter e{g, card};
  const auto [echo, code] = e.Exam(Int(3), OnDay(2024, 4, 16), "ECOGRAFIA TIROIDE", kNull);
  e.Report(echo, code, "Tiroide di dimensioni nei limiti, ecostruttura omogenea.");
  e.Image(host::Value(code), Bytes(FileContent(files, "jpg", "")), "Eco tiroide", "jpg", "ECO0001.jpg");
  e.Image(host::Value(code), Bytes(FileContent(files, "jpg", "")), "  ", "jpg", "tc");
}

// 000018: a plain certificate whose title holds a "/", which can't be a file
// name.
void CertificateWithSlash(Generator& g) {
  const std::string card = "000018";
  DocumentPatient(g, card, "Longo", "Davide", false, DayOf(2009, 9, 9));
  const auto form = [&](const char* title) {
    g.Put("MODULI", {{"CodCart", card},
                     {"bindata", Bytes(Rtf(title, "Si certifica l'esonero dalle lezioni pratiche."))},
                     {"Titolo", title},
                     {"Data", OnDay(2024, 9, 16)}});
  };
  form("Certificato di buona salute");
  form("Esonero educazione fisica 2024/2025");
}

// 000019: a certificate of exactly two bytes, too short for a look at the
// third.
void CertificateOfTwoBytes(Generator& g) {
  const std::string card = "000019";
  DocumentPatient(g, card, "Vitale", "Sara", true, DayOf(1990, 12, 1));
  g.Put("MODULI",
        {{"CodCart", card}, {"bindata", Bytes("{\\")}, {"Titolo", "Modulo interrotto"}, {"Data", OnDay(2024, 3, 3)}});
}

// 000020: two reports of one exam that has images: the second files them
// again and finds their keys taken.
void ExamReportedTwice(Generator& g) {
  const std::string card = "000020";
  Random files(20);
  DocumentPatient(g, card, "Martini", "Giorgio", false, DayOf(1949, 5, 4));
  ExamWriter e{g, card};
  const auto [echo, code] = e.Exam(Int(3), OnDay(2024, 5, 20), "ECOCOLORDOPPLER TSA", kNull);
  e.Report(echo, code, kExams[7].report);
  e.Report(echo, code, "Referto rivisto: confermato.");
  e.Image(host::Value(code), Bytes(FileContent(files, "jpg", "")), "Doppler TSA dx", "jpg", "TSA0001.jpg");
  e.Image(host::Value(code), Bytes(FileContent(files, "jpg", "")), "Doppler TSA sx", "jpg", "TSA0002.jpg");
}

// 000021: a therapeutic plan whose scan has no content.
void PlanScanWithoutContent(Generator& g) {
  const std::string card = "000021";
  DocumentPatient(g, card, "Serra", "Antonio", false, DayOf(1944, 8, 14));
  const std::string plan = g.NextCode("PT");
  g.Put("PIANOTERAP", {{"CodCart", card},
                       {"Diagnosi", "Fibrillazione atriale"},
                       {"COD_SCAN", "S1"},
                       {"CODPIANO", plan},
                       {"DataRedaz", OnDay(2024, 6, 3)},
                       {"Scadenza", OnDay(2025, 6, 3)},
                       {"COD_AIC", "040225081"},
                       {"Farmaco", "ELIQUIS*60CPR RIV 5MG"},
                       {"NOTA_AIFA", "97"},
                       {"Posolog", "1 cpr x 2/die"},
                       {"Medico", kPlanSpecialists[0]}});
  g.Put("SCANSIONI",
        {{"CodCart", card}, {"CODESAME", plan}, {"bindata", kNull}, {"Titolo", "Piano ELIQUIS"}, {"Settings", "pdf"}});
}

// 000022: an exam's image without content.
void ExamImageWithoutContent(Generator& g) {
  const std::string card = "000022";
  DocumentPatient(g, card, "Coppola", "Rita", true, DayOf(1968, 11, 23));
  ExamWriter e{g, card};
  const auto [spirometry, code] = e.Exam(Int(3), OnDay(2024, 2, 19), "SPIROMETRIA SEMPLICE", kNull);
  e.Report(spirometry, code, kExams[8].report);
  e.Image(host::Value(code), kNull, "Curva flusso-volume", "pdf", "SPIRO.pdf");
}

// 000023: files of several MB in every table of files, so that what a
// conversion holds in memory at once can be measured.
void LargeDocuments(Generator& g) {
  const std::string card = "000023";
  constexpr size_t kMB = 1024 * 1024;
  DocumentPatient(g, card, "Caruso", "Pietro", false, DayOf(1952, 1, 28));
  const auto image = [&](host::Value exam, const char* title, const Producer& content) {
    g.PutStreamed("IMAGES",
                  {{"Record", Int(g.NextImageRecord())},
                   {"CodCart", card},
                   {"CodEsame", std::move(exam)},
                   {"MediaCode", g.NextCode("MC")},
                   {"Data", At(2024, 2, 12, 9, 30)},
                   {"Titolo", title},
                   {"Settings", "tif"},
                   {"ORGName", "SCANGRANDE.tif"}},
                  content);
  };
  image(kNull, "Cartella clinica ricovero 2023", ScannedPage(2301, 6 * kMB));
  image(kNull, "Cartella clinica ricovero 2022", Gzipped(ScannedPage(2201, 9 * kMB)));
  ExamWriter e{g, card};
  const auto [ct, code] = e.Exam(Int(3), OnDay(2024, 2, 12), "TC TORACE SENZA MDC", kNull);
  e.Report(ct, code, "Non lesioni focali parenchimali. Non linfoadenomegalie mediastiniche.");
  image(host::Value(code), "TC torace", ScannedPage(2401, 3 * kMB));

  const std::string plan = g.NextCode("PT");
  g.Put("PIANOTERAP", {{"CodCart", card},
                       {"Diagnosi", "Diabete mellito tipo II senza complicanze"},
                       {"COD_SCAN", "S1"},
                       {"CODPIANO", plan},
                       {"DataRedaz", OnDay(2024, 3, 1)},
                       {"Scadenza", OnDay(2025, 3, 1)},
                       {"COD_AIC", "042498040"},
                       {"Farmaco", "FORXIGA*28CPR RIV 10MG"},
                       {"NOTA_AIFA", "100"},
                       {"Posolog", "1 cpr/die"},
                       {"Medico", kPlanSpecialists[1]}});
  g.PutStreamed("SCANSIONI",
                {{"CodCart", card}, {"CODESAME", plan}, {"Titolo", "Piano terapeutico FORXIGA"}, {"Settings", "tif"}},
                Gzipped(ScannedPage(2402, 5 * kMB)));
  g.PutStreamed("MODULI", {{"CodCart", card}, {"Titolo", "Relazione clinica"}, {"Data", OnDay(2024, 4, 2)}},
                Gzipped(LongRtf(2403, "Relazione clinica", 4 * kMB)));
  g.PutStreamed("MODULI", {{"CodCart", card}, {"Titolo", "Diario clinico"}, {"Data", OnDay(2024, 4, 3)}},
                LongRtf(2404, "Diario clinico", 3 * kMB));
}

}  // namespace sample
