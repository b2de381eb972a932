// An ordinary patient's clinical records: measurements, problems,
// exemptions, services, allergies, vaccinations, notes and visit notes.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>

#include "tools/ambulor-sample/generator.h"

namespace sample {

void Generator::Measurements(const Person& p) {
  const int count = p.chronic.empty() ? random_.Between(0, 2) : random_.Between(2, 8);
  const bool hypertensive = std::any_of(p.chronic.begin(), p.chronic.end(), [](const Problem* problem) {
    return problem->icd9 == std::string_view("401.9");
  });
  const int height = p.female ? random_.Between(150, 175) : random_.Between(162, 192);
  const double usual_bmi = random_.Between(190, 340) / 10.0;
  for (int i = 0; i < count; ++i) {
    Row row = {{"CodCart", p.card},
               {"Data", random_.Chance(0.02) ? kNull : OnDay(RecordDay(p))},
               {"Note", random_.Chance(0.25) ? host::Value(random_.Pick(kMeasurementNotes)) : kNull}};
    const bool pressure = random_.Chance(0.75);
    if (pressure) {
      const int systolic = random_.Between(hypertensive ? 130 : 105, hypertensive ? 175 : 145);
      const int diastolic = random_.Between(hypertensive ? 80 : 60, hypertensive ? 105 : 90);
      std::string low = std::to_string(diastolic);
      if (random_.Chance(0.03)) low += ",5";  // typed with a decimal comma
      row.push_back({"PADIST", low});
      row.push_back({"PASIST", random_.Chance(0.02) ? kNull : host::Value(std::to_string(systolic))});
    }
    if (!pressure || random_.Chance(0.25)) {
      const double metres = height / 100.0;
      const double weight = std::round((usual_bmi + random_.Between(-10, 10) / 10.0) * metres * metres * 2) / 2;
      row.push_back({"Peso", weight});
      row.push_back({"Statura", static_cast<double>(height)});
      row.push_back(
          {"BMI", random_.Chance(0.1) ? kNull : host::Value(std::round(weight / (metres * metres) * 100) / 100)});
    }
    Put("BIOMETRIC", row);
  }
}

void Generator::Problems(Person& p) {
  const auto visit = [&](const std::string& title, const std::string& listed, bool open) {
    const int start = RecordDay(p);
    Put("VISITE", {{"CodCart", p.card},
                   {"Inizio", At(start, OfficeHours())},
                   {"termine", open ? kNull : OnDay(std::min(start + random_.Between(7, 40), kLastDay))},
                   {"Titolo", title},
                   {"Testo", Maybe(0.4, random_.Pick(kProblemNotes))}});
    p.problems.push_back(listed);
  };
  for (const Problem* problem : p.chronic) visit(CodedTitle(*problem), problem->description, true);
  for (const Problem* problem : p.acute) {
    if (random_.Chance(0.85)) {
      visit(CodedTitle(*problem), problem->description, random_.Chance(0.2));
    } else {
      visit(problem->description, problem->description, false);
    }
  }
  if (random_.Chance(0.25)) {
    if (random_.Chance(0.5)) {
      const std::string title = CodedTitle(random_.Pick(kUncatalogued));
      visit(title, title, false);
    } else {
      const std::string title = random_.Pick(kFreeTitles);
      visit(title, title, random_.Chance(0.3));
    }
  }
}

void Generator::Exemptions(Person& p) {
  for (const Problem* problem : p.chronic) {
    if (problem->exemption == nullptr || !random_.Chance(0.8)) continue;
    // Hypertension without damage to organs has had a code of its own since
    // the newer list of exemptions.
    const std::string code =
        problem->exemption == std::string_view("031") && random_.Chance(0.4) ? "0A31" : problem->exemption;
    host::Value icd = problem->exemption_icd ? host::Value(problem->exemption_icd) : kNull;
    // Typed with the full ICD9 code, which the archive doesn't know.
    if (problem->exemption_icd && random_.Chance(0.1)) icd = std::string(problem->icd9);
    Put("ESENZIONI", {{"CodCart", p.card},
                      {"Emissione", Maybe(0.97, OnDay(RecordDay(p)))},
                      {"Scadenza", Maybe(0.2, OnDay(random_.Between(kLastDay - 400, kLastDay + 1500)))},
                      {"Codice", code},
                      {"COD_ICD1", icd}});
    p.exemptions.push_back(code);
  }
  // Exemptions by income, renewed every year; E30 isn't in the archive.
  if (p.age >= 65 && random_.Chance(0.35)) {
    const int year = random_.Between(2019, 2025);
    const std::string code = random_.Chance(0.9) ? "E01" : "E30";
    Put("ESENZIONI", {{"CodCart", p.card},
                      {"Emissione", OnDay(year, 4, random_.Between(1, 28))},
                      {"Scadenza", OnDay(year + 1, 3, 31)},
                      {"Codice", code},
                      {"COD_ICD1", random_.Chance(0.5) ? host::Value("") : kNull}});
    p.exemptions.push_back(code);
  }
}

void Generator::Services(const Person& p) {
  const int count = p.age > 75 ? random_.Between(0, 5) : random_.Chance(0.15) ? 1 : 0;
  for (int i = 0; i < count; ++i) {
    host::Value diagnosis = kNull;
    if (!p.problems.empty() && random_.Chance(0.65)) {
      diagnosis = random_.Pick(p.problems);
    } else if (random_.Chance(0.6)) {
      diagnosis = random_.Pick(kFreeTitles);
    }
    Put("PRESTAZIONI", {{"CodCart", p.card},
                        {"Data", Maybe(0.98, OnDay(RecordDay(p)))},
                        {"Prestazione", random_.Pick(kServices)},
                        {"Diagnosi", diagnosis},
                        {"Annotazioni", Maybe(0.5, random_.Pick(kServiceNotes))}});
  }
}

void Generator::Allergies(const Person& p) {
  if (!random_.Chance(0.15)) return;
  const int count = random_.Between(1, 2);
  for (int i = 0; i < count; ++i) {
    host::Value drug = kNull;
    const int roll = random_.Between(0, 99);
    if (roll < 55) {
      drug = random_.Pick(kDrugs).aic;
    } else if (roll < 62) {
      drug = random_.Pick(kWithdrawnDrugs).aic;
    } else if (roll < 66) {
      drug = "";
    }
    Put("REAZIONI", {{"CodCart", p.card},
                     {"Data", Maybe(0.95, OnDay(RecordDay(p)))},
                     {"Testo", random_.Pick(kReactions)},
                     {"CodTer", drug}});
  }
}

void Generator::Vaccinations(const Person& p) {
  const auto vaccine = [&](int day, const char* name, host::Value note, host::Value recall) {
    Put("VACCINI", {{"CodCart", p.card},
                    {"Data", OnDay(day)},
                    {"Testo", name},
                    {"Note", std::move(note)},
                    {"DATARICH", std::move(recall)}});
  };
  const auto batch = [&] {
    std::string lot = "Lotto " + random_.Digits(2);
    lot += "K" + random_.Digits(3);
    return Maybe(0.6, lot);
  };
  if (p.age >= 60 || !p.chronic.empty()) {
    const int seasons = random_.Between(0, 5);
    for (int season = 2025 - seasons; season < 2025; ++season) {
      const int day = DayOf(season, 10, 15) + random_.Between(0, 45);
      if (day < p.first_day || day > p.last_day) continue;
      const std::string name = "Antinfluenzale " + std::to_string(season) + "/" + std::to_string(season + 1);
      vaccine(day, name.c_str(), batch(), OnDay(season + 1, 10, 15));
    }
  }
  if (random_.Chance(0.3)) {
    const int day = RecordDay(p);
    vaccine(day, "Antitetanica (richiamo)", batch(), OnDay(day + 3652));
  }
  if (p.age >= 65 && random_.Chance(0.4)) {
    const int day = RecordDay(p);
    vaccine(day, "Anti-pneumococcica PCV20", batch(), kNull);
  }
  if (random_.Chance(0.2)) {
    const int day = std::max(p.first_day, std::min(DayOf(2023, 10, 2) + random_.Between(0, 60), p.last_day));
    vaccine(day, "Anti COVID-19 (dose di richiamo)", kNull, kNull);
  }
  if (p.age >= 65 && random_.Chance(0.15)) {
    const int day = std::max(p.first_day, kLastDay - random_.Between(20, 120));
    vaccine(day, "Anti-Herpes Zoster ricombinante (1a dose)", batch(), OnDay(day + 60));
  }
}

void Generator::Notes(const Person& p) {
  if (!random_.Chance(0.3)) return;
  const int count = random_.Between(1, 3);
  for (int i = 0; i < count; ++i) {
    Put("MESSAGES", {{"CodCart", p.card},
                     {"Data_Iniz", Maybe(0.97, At(RecordDay(p), OfficeHours()))},
                     {"MESG", random_.Pick(kMessages)}});
  }
}

void Generator::VisitNotes(const Person& p) {
  const int count = random_.Between(0, p.chronic.empty() ? 2 : 5);
  for (int i = 0; i < count; ++i) {
    Put("VISNOTE", {{"CodCart", p.card},
                    {"Data", Maybe(0.98, At(RecordDay(p), OfficeHours()))},
                    {"Testo", random_.Pick(kVisitNotes)}});
  }
}

}  // namespace sample
