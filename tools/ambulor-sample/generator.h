// What the generator's files share: random choices that a seed fixes, days
// and values, and the Generator, which writes one patient's rows table by
// table. Internal to ambulor-sample: tests use sample.h.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "tools/ambulor-sample/catalogues.h"
#include "tools/ambulor-sample/file_contents.h"
#include "tools/ambulor-sample/sample.h"

namespace sample {

// Table and column names compare without regard to case.
bool SameName(std::string_view a, std::string_view b);

// ---------------------------------------------------------------------------
// Random choices: splitmix64, so that a seed gives the same sample with every
// compiler and standard library.

class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }

  // A whole number from lo to hi, both included.
  int Between(int lo, int hi) { return lo + static_cast<int>(Next() % static_cast<uint64_t>(hi - lo + 1)); }

  bool Chance(double probability) { return static_cast<double>(Next() >> 11) * 0x1.0p-53 < probability; }

  template <typename Items>
  const auto& Pick(const Items& items) {
    return items[Between(0, static_cast<int>(std::size(items)) - 1)];
  }

  std::string Digits(int count) {
    std::string digits;
    for (int i = 0; i < count; ++i) digits += static_cast<char>('0' + Between(0, 9));
    return digits;
  }

 private:
  uint64_t state_;
};

// ---------------------------------------------------------------------------
// Days, counted from 1970-01-01 so that they add up.

inline int DayOf(int year, int month, int day) {
  year -= month <= 2;
  const int era = (year >= 0 ? year : year - 399) / 400;
  const int year_of_era = year - era * 400;
  const int day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  return era * 146097 + year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year - 719468;
}

inline host::Date DateOfDay(int day, int minutes = 0) {
  const int z = day + 719468;
  const int era = (z >= 0 ? z : z - 146096) / 146097;
  const int day_of_era = z - era * 146097;
  const int year_of_era = (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const int day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const int shifted_month = (5 * day_of_year + 2) / 153;
  const int month = shifted_month + (shifted_month < 10 ? 3 : -9);
  const int year = year_of_era + era * 400 + (month <= 2);
  const int day_of_month = day_of_year - (153 * shifted_month + 2) / 5 + 1;
  return host::Date{year, month, day_of_month, minutes / 60, minutes % 60, 0};
}

// The sample's records end on this day, whatever the day of the run, so that
// a seed always gives the same archive; recall dates reach years beyond it.
inline const int kLastDay = DayOf(2025, 6, 30);
inline const int kFirstRecordDay = DayOf(2008, 1, 1);

inline host::Value OnDay(int day) { return host::Value(DateOfDay(day)); }
inline host::Value OnDay(int year, int month, int day) { return host::Value(DateOfDay(DayOf(year, month, day))); }
inline host::Value At(int day, int minutes) { return host::Value(DateOfDay(day, minutes)); }
inline host::Value At(int year, int month, int day, int hour, int minute) {
  return At(DayOf(year, month, day), hour * 60 + minute);
}

// "dd/mm/yyyy", or with another separator: "dd-mm-yyyy", "dd.mm.yyyy".
inline std::string FormatDay(int day, char separator = '/') {
  const host::Date d = DateOfDay(day);
  char text[32];  // room for any int, to quiet the compiler
  std::snprintf(text, sizeof text, "%02d%c%02d%c%04d", d.day, separator, d.month, separator, d.year);
  return text;
}

inline const host::Value kNull = host::Value::Null();

inline host::Value Int(int n) { return host::Value::I32(n); }
inline host::Value Bytes(std::string_view content) { return host::Value::Bytes({content.begin(), content.end()}); }
inline host::Value Bytes(const std::vector<uint8_t>& content) { return host::Value::Bytes(content); }

// ---------------------------------------------------------------------------
// Codice fiscale and letter case (master_records.cpp).

std::string CodiceFiscale(std::string_view surname, std::string_view name, bool female, int birth,
                          std::string_view cadastral);
// Only the letters of a text, in lower case, accented ones as their plain letter.
std::string Lower(std::string_view text);
std::string Upper(std::string_view text);

// ---------------------------------------------------------------------------
// The generator: one routine per table, each making the rows that one
// patient has there.

// What the rows of an ordinary patient follow from.
struct Person {
  std::string card;
  std::string surname;
  std::string name;
  bool female = false;
  int birth = 0;
  int age = 0;        // in years, on the sample's last day
  int first_day = 0;  // of his records in the practice
  int last_day = 0;   // the sample's last day, or the day of death
  std::vector<const Problem*> chronic;
  std::vector<const Problem*> acute;
  std::vector<std::string> exemptions;  // Codice of his exemptions
  std::vector<std::string> problems;    // descriptions under which the host lists his problems
};

class Generator {
 public:
  // Media beyond the ordinary documents come from a random source and
  // running numbers of their own, so that asking for them leaves every other
  // row of the sample as it was.
  Generator(Archive& archive, uint64_t seed)
      : archive_(archive), random_(seed), media_random_(seed ^ 0x6D656469612D6D62ull) {}

  void Put(const std::string& table, const Row& row) {
    archive_.Insert(table, row);
    ++summary_.rows;
    for (const auto& [column, value] : row) {
      if (SameName(column, "bindata") && value.type() == host::Type::Bytes) {
        ++summary_.files;
        summary_.media_bytes += static_cast<int64_t>(value.bytes().size());
      }
    }
  }

  // Puts a row whose column bindata takes what produce gives, piece by piece.
  void PutStreamed(const std::string& table, const Row& row, const Producer& produce) {
    int64_t size = 0;
    archive_.Insert(table, row, "bindata", [&](const PutBytes& put) {
      produce([&](const uint8_t* data, size_t length) {
        size += static_cast<int64_t>(length);
        put(data, length);
      });
    });
    ++summary_.rows;
    ++summary_.files;
    summary_.media_bytes += size;
  }

  int NextImageRecord() { return next_image_record_++; }
  int NextExamRecord() { return next_exam_record_++; }
  std::string NextCode(const char* prefix) { return prefix + std::to_string(next_code_++); }
  const SampleSummary& summary() const { return summary_; }

  void Doctors();
  void Towns();
  // An ordinary patient with all his records, and about media_share bytes of
  // scanned pages and long documents besides his usual ones.
  void OrdinaryPatient(const std::string& card, int64_t media_share = 0);

 private:
  Person Patient(const std::string& card);
  void Measurements(const Person& p);
  void Problems(Person& p);
  void Services(const Person& p);
  void Allergies(const Person& p);
  void Vaccinations(const Person& p);
  void Exemptions(Person& p);
  void Notes(const Person& p);
  void VisitNotes(const Person& p);
  void FreePrescriptions(const Person& p);
  void Therapies(const Person& p);
  void ExamsAndReports(const Person& p);
  void InpsCertificates(const Person& p);
  void TherapeuticPlans(const Person& p);
  void Scans(const Person& p);
  void Certificates(const Person& p);
  void BulkMedia(const Person& p, int64_t share);

  // A working day of the patient's time in the practice.
  int RecordDay(const Person& p) {
    const int day = random_.Between(p.first_day, p.last_day);
    const int weekday = (day + 3) % 7;  // 0 Monday; 1970-01-01 was a Thursday
    return weekday < 5 ? day : day - (weekday - 4);
  }
  int OfficeHours() { return random_.Between(8 * 60, 19 * 60); }
  host::Value Maybe(double probability, host::Value value) {
    return random_.Chance(probability) ? std::move(value) : kNull;
  }
  host::Value StoredFile(std::vector<uint8_t> content, double gzip_share) {
    return Bytes(random_.Chance(gzip_share) ? Gzip(content) : content);
  }

  Archive& archive_;
  Random random_;
  Random media_random_;
  SampleSummary summary_;
  int next_image_record_ = 1;
  int next_exam_record_ = 1;
  int next_code_ = 1;
  int next_bulk_ = 1;  // of the rows of BulkMedia: Record 1000000000 + n, codes "MB", "PB", "SB" + n
};

}  // namespace sample
