// What each category's converter makes of one patient's source rows, told
// by the converter's own rules: the records it hands to the host, store by
// store; the rows that its rules leave out, each with the rule in words; and
// the row at which a rule ends it in its trap (the patient's "ERR"), after
// which nothing more of it reaches the host. One function per category,
// named for it, walks the rows as the converter does.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "source/keyed_list.h"
#include "tools/kairon-convert/catalogues.h"
#include "tools/run-report/source_tables.h"

namespace runreport::rules {

// The host's archives that decide whether a row makes a record.
struct HostArchives {
  const refhost::Catalogue* farmaci = nullptr;
  const refhost::Catalogue* esenzioni = nullptr;
};

// The per-patient lists of the converters that share images.
struct PatientLists {
  cnv::KeyedList media_usati, immagini_usate;
};

struct Context {
  SourceTables& tables;
  HostArchives archives;
  std::string today;  // "dd/mm/yyyy", the day the run started
};

// One run of a converter for one patient. The row at which a rule ends the
// converter counts the records it made before that point; the rows after it
// count as cut, whatever they would have made.
class Verdict {
 public:
  // A record that the converter hands over: before the end that a rule
  // foresees it reaches the host, after it (cut) it never does.
  void Make(const std::string& store) { (failure.empty() ? made : cut)[store] += 1; }
  // A row, or a file, that a rule leaves out; nothing is told after the end.
  void LeaveOut(const std::string& cause) {
    if (failure.empty()) left_out[cause] += 1;
  }
  void Undecoded(const std::string& title, const std::string& why) {
    if (failure.empty()) undecoded.push_back({title, why});
  }
  // The rule that ends the converter; the first one counts.
  void End(const std::string& cause) {
    if (failure.empty()) failure = cause;
  }
  // The document at which the rule about to end the converter does so.
  void EndAt(const std::string& title, const std::string& why) {
    if (failure.empty()) ended_at = Document{title, why};
  }

  struct Document {
    std::string title, why;
  };

  int64_t rows = 0;
  std::map<std::string, int64_t> made, cut;
  std::map<std::string, int64_t> left_out;
  std::vector<std::pair<std::string, std::string>> undecoded;  // title, why
  std::string failure;
  std::optional<Document> ended_at;  // when a document's title ends the converter
};

// A row of PAZIENTI as the driver reads it.
struct PatientRow {
  host::Value cognome;
  std::string key;  // Cod_Cart's QueryText
};

using Rule = std::function<void(Context&, const PatientRow&, PatientLists&, Verdict&)>;

struct CategoryRules {
  std::string keyword;
  Rule rule;
};

// The master record first ("anagrafica"), then the 19 categories by keyword.
const std::vector<CategoryRules>& AllRules();

}  // namespace runreport::rules
