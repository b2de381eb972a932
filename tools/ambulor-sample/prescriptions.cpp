// An ordinary patient's prescriptions: free ones with their eight lines, and
// drugs, which a day's rows gather into one prescription.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>

#include "tools/ambulor-sample/generator.h"

namespace sample {

void Generator::FreePrescriptions(const Person& p) {
  if (!random_.Chance(p.age > 65 ? 0.3 : 0.1)) return;
  const int count = random_.Between(1, 2);
  for (int i = 0; i < count; ++i) {
    Row row = {
        {"CodCart", p.card},
        {"DATAEMI", Maybe(0.97, OnDay(RecordDay(p)))},
        {"Indic1", p.problems.empty() ? kNull : host::Value(random_.Pick(p.problems))},
        {"CodEsenz", p.exemptions.empty() || random_.Chance(0.5) ? kNull : host::Value(random_.Pick(p.exemptions))}};
    const int lines = random_.Between(1, 4);
    for (int line = 1; line <= 8; ++line) {
      const std::string n = std::to_string(line);
      if (line > lines) {
        row.push_back({"Row_" + n, random_.Chance(0.5) ? host::Value("") : kNull});
        row.push_back({"Qta_" + n, kNull});
        continue;
      }
      std::string text = random_.Pick(kFreePrescriptionRows);
      if (random_.Chance(0.1)) text = "  " + Upper(text) + " ";
      row.push_back({"Row_" + n, text});
      row.push_back({"Qta_" + n, random_.Chance(0.05) ? std::string("") : std::to_string(random_.Between(1, 10))});
    }
    Put("RICETTE", row);
  }
}

void Generator::Therapies(const Person& p) {
  std::vector<const Drug*> usual;
  for (const Problem* problem : p.chronic) {
    for (const char* aic : problem->drugs) {
      if (aic == nullptr || !random_.Chance(0.6)) continue;
      const Drug* drug = &DrugByAic(aic);
      if (std::find(usual.begin(), usual.end(), drug) == usual.end()) usual.push_back(drug);
    }
  }
  const auto prescribe = [&](int day, int minutes, const Drug& drug, const std::string& exemption) {
    const int packs = random_.Between(1, 3);
    Put("TERAPIE", {{"CodCart", p.card},
                    {"Data", At(day, minutes)},
                    {"Testo", drug.name},
                    {"Esenzione", exemption.empty() ? kNull : host::Value(exemption)},
                    {"Classe", drug.drug_class},
                    {"CodTer", drug.aic},
                    {"NumPezzi", Int(packs)},
                    {"NOTA", drug.nota ? host::Value(drug.nota) : kNull},
                    {"Indicaz", random_.Pick(kDosages)},
                    {"CodATC", drug.atc},
                    {"Importo", Maybe(0.8, std::round(drug.price * packs * 100) / 100)}});
  };
  // A visit renews a few of the usual drugs at once.
  const int visits = usual.empty() ? 0 : random_.Between(1, 6);
  for (int i = 0; i < visits; ++i) {
    const int day = RecordDay(p);
    const int minutes = OfficeHours();
    const std::string exemption = p.exemptions.empty() || random_.Chance(0.3) ? "" : p.exemptions.front();
    const int count = static_cast<int>(usual.size());
    const int drugs = random_.Between(1, std::min(3, count));
    const int first = random_.Between(0, count - 1);
    for (int d = 0; d < drugs; ++d) prescribe(day, minutes, *usual[(first + d) % count], exemption);
  }
  for (const Problem* problem : p.acute) {
    if (problem->drugs[0] == nullptr || !random_.Chance(0.7)) continue;
    const Drug& drug = random_.Chance(0.04) ? random_.Pick(kWithdrawnDrugs) : DrugByAic(problem->drugs[0]);
    const int day = RecordDay(p);
    prescribe(day, OfficeHours(), drug, "");
  }
}

}  // namespace sample
