// The awkward patients of the documents: stored files of every kind, INPS
// certificates and therapeutic plans with their edge values.
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

}  // namespace sample
