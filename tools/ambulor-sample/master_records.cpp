// The doctors of the practice, the towns, and each ordinary patient's master
// record, from which the rest of his records follow.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>

#include "tools/ambulor-sample/generator.h"

namespace sample {

namespace {

// ---------------------------------------------------------------------------
// Codice fiscale: three letters of the surname, three of the name, year,
// month letter, day (plus 40 for women), town code and check letter.

// The letters of a text in upper case, accented ones as their plain letter.
std::string PlainLetters(std::string_view text) {
  static constexpr std::string_view kAccented = "\xE0\xE8\xE9\xEC\xF2\xF9\xE7\xF1";
  static constexpr std::string_view kPlain = "AEEIOUCN";
  std::string letters;
  for (unsigned char c : text) {
    if (const size_t accent = kAccented.find(static_cast<char>(c)); accent != std::string_view::npos) {
      letters += kPlain[accent];
    } else if (std::isalpha(c)) {
      letters += static_cast<char>(std::toupper(c));
    }
  }
  return letters;
}

bool IsVowel(char c) { return std::string_view("AEIOU").find(c) != std::string_view::npos; }

std::string FiscalLetters(std::string_view text, bool is_name) {
  std::string consonants, vowels;
  for (char c : PlainLetters(text)) (IsVowel(c) ? vowels : consonants) += c;
  if (is_name && consonants.size() >= 4) return {consonants[0], consonants[2], consonants[3]};
  return (consonants + vowels + "XXX").substr(0, 3);
}

}  // namespace

std::string CodiceFiscale(std::string_view surname, std::string_view name, bool female, int birth,
                          std::string_view cadastral) {
  const host::Date born = DateOfDay(birth);
  char date_part[16];
  std::snprintf(date_part, sizeof date_part, "%02d%c%02d", born.year % 100, "ABCDEHLMPRST"[born.month - 1],
                born.day + (female ? 40 : 0));
  std::string code = FiscalLetters(surname, false) + FiscalLetters(name, true) + date_part + std::string(cadastral);
  // What a character in an odd place (the first, third...) counts for.
  static constexpr int kOdd[] = {1,  0,  5, 7, 9, 13, 15, 17, 19, 21, 2,  4,  18,
                                 20, 11, 3, 6, 8, 12, 14, 16, 10, 22, 25, 24, 23};
  int sum = 0;
  for (size_t i = 0; i < code.size(); ++i) {
    const char c = code[i];
    const int value = std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : c - 'A';
    sum += i % 2 == 0 ? kOdd[value] : value;
  }
  return code + static_cast<char>('A' + sum % 26);
}

std::string Lower(std::string_view text) {
  std::string lower;
  for (char c : PlainLetters(text)) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

std::string Upper(std::string_view text) {
  std::string upper(text);
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return upper;
}

void Generator::Doctors() {
  Put("STUDIO", {{"cognome", "Lucchetti"},
                 {"nome", "Nicol\xF2"},
                 {"CodFisc", CodiceFiscale("Lucchetti", "Nicol\xF2", false, DayOf(1968, 2, 12), "H501")},
                 {"CodReg", "120345"},
                 {"Indirizzo", "Via Tuscolana 512"},
                 {"Citta", "Roma"},
                 {"Telefono", "06 7612345"}});
  Put("STUDIO", {{"cognome", "Marchetti"},
                 {"nome", "Giovanna"},
                 {"CodFisc", CodiceFiscale("Marchetti", "Giovanna", true, DayOf(1972, 7, 15), "H501")},
                 {"CodReg", "120412"},
                 {"Indirizzo", "Via Tuscolana 512"},
                 {"Citta", "Roma"},
                 {"Telefono", "06 7612346"}});
  Put("STUDIO", {{"cognome", "De Santis"},
                 {"nome", "Paolo"},
                 {"CodFisc", CodiceFiscale("De Santis", "Paolo", false, DayOf(1960, 1, 1), "H501")},
                 {"CodReg", "120278"},
                 {"Indirizzo", "Via Appia Nuova 98"},
                 {"Citta", "Roma"},
                 {"Telefono", kNull}});
}

void Generator::Towns() {
  Put("COMUNI", {{"CODICE", kRome.cadastral}, {"DESCRIZIONE", "ROMA"}, {"PROVINCIA", "RM"}, {"CAP", "00100"}});
  for (const Town& town : kBirthTowns) {
    Put("COMUNI",
        {{"CODICE", town.cadastral}, {"DESCRIZIONE", Upper(town.name)}, {"PROVINCIA", town.province}, {"CAP", kNull}});
  }
}

Person Generator::Patient(const std::string& card) {
  Person p;
  p.card = card;
  std::string birthplace, birth_province, nation = "ITALIA", cadastral;
  if (random_.Chance(0.05)) {
    const Foreigner& f = random_.Pick(kForeigners);
    p.surname = f.surname;
    p.name = f.name;
    p.female = f.female;
    birthplace = f.birthplace;
    birth_province = "EE";
    nation = f.country;
    cadastral = f.cadastral;
  } else {
    p.female = random_.Chance(0.53);
    p.surname = random_.Pick(kSurnames);
    p.name = p.female ? random_.Pick(kFemaleNames) : random_.Pick(kMaleNames);
    const Town& town = random_.Chance(0.5) ? kRome : random_.Pick(kBirthTowns);
    birthplace = random_.Chance(0.7) ? Upper(town.name) : town.name;
    birth_province = town.province;
    cadastral = town.cadastral;
  }
  p.birth = random_.Between(DayOf(1928, 1, 1), DayOf(2010, 12, 31));
  p.age = static_cast<int>((kLastDay - p.birth) / 365.25);

  // The relationship with the practice: chosen, then maybe revoked, ended at
  // a set expiry (a temporary resident) or by death.
  const int adult = std::max(p.birth + 14 * 365, DayOf(1985, 1, 1));
  const int chosen = random_.Between(adult, kLastDay - 60);
  host::Value death = kNull, expiry = kNull, revocation = kNull;
  p.last_day = kLastDay;
  if (p.age > 70 && random_.Chance(0.08)) {
    p.last_day = random_.Between(std::max(chosen + 30, DayOf(2015, 1, 1)), kLastDay);
    death = OnDay(p.last_day);
  } else if (random_.Chance(0.07)) {
    p.last_day = random_.Between(chosen + 30, kLastDay);
    revocation = OnDay(p.last_day);
  } else if (random_.Chance(0.04)) {
    expiry = OnDay(random_.Between(kLastDay - 180, kLastDay + 365));
  }
  p.first_day = std::min(std::max(chosen, kFirstRecordDay), p.last_day - 30);

  const Home& home = random_.Pick(kHomes);
  std::string fiscal = CodiceFiscale(p.surname, p.name, p.female, p.birth, cadastral);
  if (random_.Chance(0.02)) fiscal = Lower(fiscal.substr(0, 11)) + fiscal.substr(11) + " ";
  std::string health_card = "80380" + random_.Digits(15);
  if (random_.Chance(0.03)) health_card = " " + health_card + " ";
  // One random choice to a statement: the operands of + are evaluated in
  // no fixed order, and the sample must not depend on the compiler's.
  std::string mail = Lower(p.name);
  if (random_.Chance(0.5)) mail += ".";
  mail += Lower(p.surname);
  if (random_.Chance(0.3)) mail += random_.Digits(2);
  mail += "@" + std::string(random_.Pick(kMailDomains));
  std::string mobile = "3" + random_.Digits(2);
  mobile += " " + random_.Digits(7);
  std::string number = std::to_string(random_.Between(1, 240));
  if (random_.Chance(0.08)) number += random_.Chance(0.5) ? "/A" : " bis";
  std::string street = random_.Pick(kStreets);
  if (random_.Chance(0.05)) street = "  " + street + " ";

  Put("PAZIENTI", {{"Cod_Cart", p.card},
                   {"cognome", p.surname},
                   {"nome", p.name},
                   {"CodFisc", fiscal},
                   {"DataNat", OnDay(p.birth)},
                   {"CodiceSSN", Maybe(0.9, health_card)},
                   {"Sex", random_.Chance(0.01) ? kNull : host::Value(p.female ? "F" : "M")},
                   {"LuogoNat", birthplace},
                   {"PrvNat", birth_province},
                   {"Indirizzo", street},
                   {"NumCivico", Maybe(0.95, number)},
                   {"Citta", random_.Chance(0.6) ? Upper(home.town) : home.town},
                   {"CAP", home.cap},
                   {"Nazione", Maybe(0.9, nation)},
                   {"Telefono", random_.Chance(0.55) ? host::Value("06 " + random_.Digits(7)) : Maybe(0.5, "")},
                   {"Recapito", Maybe(0.8, mobile)},
                   {"Prov", home.province},
                   {"Email", Maybe(0.45, mail)},
                   {"Email2", Maybe(0.06, Lower(p.surname) + "." + random_.Digits(4) + "@pec.it")},
                   {"ASL", Maybe(0.95, home.asl)},
                   {"DataDec", death},
                   {"DataScelta", random_.Chance(0.06) ? kNull : OnDay(chosen)},
                   {"dataScadenza_T", expiry},
                   {"DataRevoca", revocation}});

  // Chronic problems come with age; some belong to one sex.
  const int wanted = p.age < 40 ? random_.Between(0, 1) : p.age < 65 ? random_.Between(0, 3) : random_.Between(1, 4);
  for (int attempt = 0; attempt < 12 && static_cast<int>(p.chronic.size()) < wanted; ++attempt) {
    const Problem& problem = random_.Pick(kChronic);
    const bool fits = p.age >= problem.min_age && (problem.sex == 0 || (problem.sex == 'F') == p.female);
    if (fits && std::find(p.chronic.begin(), p.chronic.end(), &problem) == p.chronic.end()) {
      p.chronic.push_back(&problem);
    }
  }
  const int ailments = random_.Between(0, 4);
  for (int i = 0; i < ailments; ++i) p.acute.push_back(&random_.Pick(kAcute));
  return p;
}

void Generator::OrdinaryPatient(const std::string& card, int64_t media_share) {
  Person p = Patient(card);
  Problems(p);
  Exemptions(p);
  Measurements(p);
  Services(p);
  Allergies(p);
  Vaccinations(p);
  Notes(p);
  VisitNotes(p);
  FreePrescriptions(p);
  Therapies(p);
  ExamsAndReports(p);
  InpsCertificates(p);
  TherapeuticPlans(p);
  Scans(p);
  Certificates(p);
  if (media_share > 0) BulkMedia(p, media_share);
}

}  // namespace sample
