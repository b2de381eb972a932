// An ordinary patient's exams and reports with the images of some exams, INPS
// certificates, therapeutic plans with their scanned pages, scanned
// documents and certificates kept as RTF files.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>

#include "tools/ambulor-sample/file_contents.h"
#include "tools/ambulor-sample/generator.h"

namespace sample {

void Generator::ExamsAndReports(const Person& p) {
  const auto exam = [&](int tipo, int day, const char* name, const char* code, host::Value indication) {
    const int record = NextExamRecord();
    const std::string exam_code = NextCode("ES");
    Put("ESAMI",
        {{"RECORD", Int(record)},
         {"CodCart", p.card},
         {"tipo", tipo < 0 ? kNull : Int(tipo)},
         {"Data", Maybe(0.98, OnDay(day))},
         {"Testo", name},
         {"Esenzione", p.exemptions.empty() || random_.Chance(0.5) ? kNull : host::Value(p.exemptions.front())},
         {"CodRif", *code ? host::Value(code) : kNull},
         {"Indicaz", std::move(indication)},
         {"CODESAME", exam_code}});
    return std::pair(record, exam_code);
  };
  const auto report = [&](int record, const std::string& exam_code, const std::string& text) {
    Put("REFERTI", {{"Record", Int(record)}, {"CodCart", p.card}, {"CODESAME", exam_code}, {"Testo", text}});
  };

  // Laboratory requests: the tests of a day make one prescription.
  std::vector<const LabTest*> tests;
  for (const Problem* problem : p.chronic) {
    for (const char* name : problem->lab) {
      if (name != nullptr) tests.push_back(&LabTestByName(name));
    }
  }
  for (const Problem* problem : p.acute) {
    if (problem->lab[0] != nullptr && random_.Chance(0.5)) tests.push_back(&LabTestByName(problem->lab[0]));
  }
  if (p.age > 40 && random_.Chance(0.5)) tests.push_back(&kLabTests[0]);
  const int rounds = tests.empty() ? 0 : random_.Between(1, 3);
  for (int round = 0; round < rounds; ++round) {
    const int day = RecordDay(p);
    const host::Value indication = p.problems.empty() ? kNull : host::Value(random_.Pick(p.problems));
    for (const LabTest* test : tests) {
      const auto [record, code] = exam(test->tipo, day, test->name, test->code, indication);
      if (random_.Chance(0.25)) report(record, code, std::string(test->name) + ": valori nei limiti di riferimento.");
    }
  }

  // Visits, instrumental exams and stays, most with a report and some with
  // the images of the exam. An exam with images has one report only.
  const int others = random_.Between(0, p.age > 60 ? 4 : 2);
  for (int i = 0; i < others; ++i) {
    const Exam& kind = random_.Pick(kExams);
    const int tipo = kind.tipo == 6 && random_.Chance(0.5) ? -1 : kind.tipo;
    const int day = RecordDay(p);
    const auto [record, code] =
        exam(tipo, day, kind.name, kind.code, p.problems.empty() ? kNull : host::Value(random_.Pick(p.problems)));
    if (!random_.Chance(0.75)) continue;
    report(record, code, kind.report);
    if ((kind.tipo != 3 && kind.tipo != 5) || !random_.Chance(0.5)) continue;
    const int images = random_.Between(1, 2);
    for (int n = 0; n < images; ++n) {
      const char* extension = kind.tipo == 5 ? "pdf" : random_.Chance(0.7) ? "jpg" : "pdf";
      const std::string original = "IMG_" + std::to_string(record) + "_" + std::to_string(n + 1) + "." + extension;
      const bool titled = random_.Chance(0.8);
      Put("IMAGES", {{"Record", Int(NextImageRecord())},
                     {"CodCart", p.card},
                     {"CodEsame", code},
                     {"MediaCode", NextCode("MC")},
                     {"Data", At(day, OfficeHours())},
                     {"bindata", StoredFile(FileContent(random_, extension, kind.report), 0.4)},
                     {"Titolo", titled ? host::Value(std::string(kind.name) + " " + FormatDay(day)) : kNull},
                     {"Settings", extension},
                     {"ORGName", original}});
    }
  }
}

void Generator::InpsCertificates(const Person& p) {
  if (p.age < 18 || p.age > 66 || !random_.Chance(0.2)) return;
  const int count = random_.Between(1, 3);
  int start = RecordDay(p);
  for (int i = 0; i < count; ++i) {
    const bool continues = i > 0 && random_.Chance(0.4);
    if (!continues) start = RecordDay(p);
    const int days = random_.Between(2, 10);
    Put("CERTINPS", {{"CodCart", p.card},
                     {"DATAINI", OnDay(start)},
                     {"DATATER", OnDay(start + days - 1)},
                     {"DATAEMI", OnDay(start)},
                     {"Diag", random_.Pick(kCertificateDiagnoses)},
                     {"Inizio", continues ? kNull : host::Value("X")},
                     {"Continua", continues ? host::Value("X") : kNull},
                     {"Ricaduta", random_.Chance(0.05) ? host::Value("X") : kNull},
                     {"SEND_ID", random_.Chance(0.9) ? host::Value(random_.Digits(9)) : kNull}});
    start += days;
  }
}

void Generator::TherapeuticPlans(const Person& p) {
  for (const Problem* problem : p.chronic) {
    for (const char* aic : problem->drugs) {
      if (aic == nullptr) break;
      const Drug& drug = DrugByAic(aic);
      const bool needs_plan =
          drug.nota && (std::string_view(drug.nota) == "97" || std::string_view(drug.nota) == "100");
      if (!needs_plan || !random_.Chance(0.5)) continue;
      const int drawn = RecordDay(p);
      const std::string plan = NextCode("PT");
      const bool scanned = random_.Chance(0.6);
      Put("PIANOTERAP",
          {{"CodCart", p.card},
           {"Diagnosi", problem->description},
           {"COD_SCAN", scanned ? host::Value(NextCode("S")) : host::Value(random_.Chance(0.5) ? "" : kNull)},
           {"CODPIANO", plan},
           {"DataRedaz", Maybe(0.97, OnDay(drawn))},
           {"Scadenza", OnDay(drawn + 365)},
           {"COD_AIC", drug.aic},
           {"Farmaco", drug.name},
           {"NOTA_AIFA", drug.nota},
           {"Posolog", random_.Pick(kDosages)},
           {"Medico", random_.Pick(kPlanSpecialists)}});
      if (!scanned) continue;
      const char* extension = random_.Chance(0.6) ? "pdf" : "jpg";
      Put("SCANSIONI",
          {{"CodCart", p.card},
           {"CODESAME", plan},
           {"bindata", StoredFile(FileContent(random_, extension, "Piano terapeutico AIFA"), 0.5)},
           {"Titolo", random_.Chance(0.85) ? host::Value("Piano terapeutico " + std::string(drug.name)) : kNull},
           {"Settings", extension}});
    }
  }
}

void Generator::Scans(const Person& p) {
  if (!random_.Chance(0.3)) return;
  static const char* const kExtensions[] = {"jpg", "jpg", "pdf", "pdf", "png", "tif", "txt"};
  const int count = random_.Between(1, 3);
  for (int i = 0; i < count; ++i) {
    const int day = RecordDay(p);
    std::string title = random_.Pick(kScanTitles);
    if (title == "Referto esterno") title += " " + FormatDay(day);
    const char* extension = random_.Pick(kExtensions);
    std::vector<uint8_t> content = FileContent(random_, extension, title);
    host::Value stored = Bytes(random_.Chance(0.4) ? Gzip(content) : content);
    if (random_.Chance(0.02)) stored = Bytes(std::string(static_cast<size_t>(random_.Between(1, 3)), 'x'));
    Put("IMAGES", {{"Record", Int(NextImageRecord())},
                   {"CodCart", p.card},
                   {"CodEsame", kNull},
                   {"MediaCode", NextCode("MC")},
                   {"Data", Maybe(0.97, At(day, OfficeHours()))},
                   {"bindata", stored},
                   {"Titolo", random_.Chance(0.03) ? host::Value("   ") : host::Value(title)},
                   {"Settings", extension},
                   {"ORGName", "SCAN" + random_.Digits(4) + "." + extension}});
  }
}

void Generator::Certificates(const Person& p) {
  if (!random_.Chance(0.2)) return;
  const int count = random_.Between(1, 2);
  for (int i = 0; i < count; ++i) {
    const int day = RecordDay(p);
    const std::string title = random_.Pick(kCertificateTitles);
    const std::string body = "Si certifica che il/la Sig./Sig.ra " + p.surname + " " + p.name + ", nato/a il " +
                             FormatDay(p.birth) + ", \xE8 stato/a da me visitato/a in data " + FormatDay(day) + ".";
    Put("MODULI", {{"CodCart", p.card},
                   {"bindata", StoredFile(BytesOfText(Rtf(title, body)), 0.5)},
                   {"Titolo", title},
                   {"Data", Maybe(0.97, OnDay(day))}});
  }
}

// Files of the sizes that a practice scans: most of a few hundred KB, some
// of several MB. Each row draws only on media_random_.
void Generator::BulkMedia(const Person& p, int64_t share) {
  constexpr int64_t kKB = 1024;
  Random& random = media_random_;
  for (int64_t left = share; left >= 32 * kKB;) {
    const int64_t wanted =
        random.Chance(0.12) ? random.Between(3 * 1024, 12 * 1024) * kKB : random.Between(150, 1536) * kKB;
    const auto size = static_cast<size_t>(std::min(wanted, left));
    const int day = random.Between(p.first_day, p.last_day);
    const uint64_t seed = random.Next();
    const double kind = random.Between(0, 99) / 100.0;
    const bool gzipped = random.Chance(0.35);
    const int64_t before = summary_.media_bytes;
    const int number = next_bulk_++;
    if (kind < 0.65) {
      Producer page = ScannedPage(seed, size);
      PutStreamed("IMAGES",
                  {{"Record", Int(1000000000 + number)},
                   {"CodCart", p.card},
                   {"CodEsame", kNull},
                   {"MediaCode", "MB" + std::to_string(number)},
                   {"Data", At(day, random.Between(8 * 60, 19 * 60))},
                   {"Titolo", "Scansione documentazione clinica " + FormatDay(day)},
                   {"Settings", "tif"},
                   {"ORGName", "SCAN" + random.Digits(6) + ".tif"}},
                  gzipped ? Gzipped(page) : page);
    } else if (kind < 0.85) {
      const std::string plan = "PB" + std::to_string(number);
      Put("PIANOTERAP",
          {{"CodCart", p.card},
           {"Diagnosi", p.problems.empty() ? host::Value("Controllo periodico") : host::Value(p.problems[0])},
           {"COD_SCAN", "SB" + std::to_string(number)},
           {"CODPIANO", plan},
           {"DataRedaz", OnDay(day)},
           {"Scadenza", OnDay(day + 365)},
           {"COD_AIC", "042498040"},
           {"Farmaco", "FORXIGA*28CPR RIV 10MG"},
           {"NOTA_AIFA", "100"},
           {"Posolog", "1 cpr/die"},
           {"Medico", random.Pick(kPlanSpecialists)}});
      Producer page = ScannedPage(seed, size);
      PutStreamed(
          "SCANSIONI",
          {{"CodCart", p.card}, {"CODESAME", plan}, {"Titolo", "Piano terapeutico scansionato"}, {"Settings", "tif"}},
          gzipped ? Gzipped(page) : page);
    } else {
      // A title is a file name when the document is filed, so the date in
      // it is written as people do in names of files: "-" or ".", no "/".
      const std::string title = "Diario clinico del " + FormatDay(day, number % 2 ? '-' : '.');
      Producer document = LongRtf(seed, title, size);
      PutStreamed("MODULI", {{"CodCart", p.card}, {"Titolo", title}, {"Data", OnDay(day)}},
                  gzipped ? Gzipped(document) : document);
    }
    left -= std::max<int64_t>(summary_.media_bytes - before, 32 * kKB);
  }
}

}  // namespace sample
