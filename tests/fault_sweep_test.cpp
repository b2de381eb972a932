// Every host member that a conversion of the sample calls, failed by the
// host at its first, a middle and its last call, one category at a time, and
// held against the clean run of the same options: the promised outcome (the
// category's "ERR" line, the end of the run, or nothing for the scans, which
// pass a failing step over), the patients before the victim as in the clean
// run, the victim's records a prefix (for the scans an ordered part) of its
// clean ones, the patients after it as in the clean run or absent when the
// run ends, and an empty temporary folder.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/value.h"
#include "plugin/Conversione.h"
#include "support/fixture.h"

namespace {

using fixture::json;

// The sanitizers' build converts several times slower: there the sample is
// smaller and each call site fails at its first and its last call only.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kPatients = 12;
constexpr bool kMiddleToo = false;
#else
constexpr int kPatients = 24;
constexpr bool kMiddleToo = true;
#endif

const char kSimulated[] = " Errore 1001 Errore simulato dall'host";

// The Interface members whose failure reaches the run's own trap.
const std::set<std::string> kRunEnders = {"DaiPaziente", "AddMsg", "ChangeMsg", "AddInfo", "UpdateProgress"};

// A call site as --fail names it: the last part of the object's trace name
// without its "#number" ("Pressione", "Interface"), and the member.
struct Site {
  std::string object, member;
  bool operator<(const Site& o) const { return std::tie(object, member) < std::tie(o.object, o.member); }
  std::string Text() const { return object + "." + member; }
};

Site SiteOf(const json& line) {
  std::string obj = line["obj"];
  std::string last = obj.substr(obj.rfind('.') == std::string::npos ? 0 : obj.rfind('.') + 1);
  return {last.substr(0, last.find('#')), line["member"]};
}

bool IsCall(const json& line) { return line["op"] == "call"; }

// Calls per site.
std::map<Site, int> CountSites(const std::vector<json>& trace) {
  std::map<Site, int> counts;
  for (const json& line : trace)
    if (IsCall(line)) ++counts[SiteOf(line)];
  return counts;
}

// The patient (N of Paziente#N) under way at the first call that the host
// failed, and that call; 0 when it came before any patient.
std::pair<int, const json*> Victim(const std::vector<json>& trace) {
  int patient = 0;
  for (const json& line : trace) {
    if (IsCall(line) && line.value("failed", false)) return {patient, &line};
    if (IsCall(line) && line["member"] == "DaiPaziente" && line.contains("returns") &&
        line["returns"]["type"] == "object") {
      std::string name = line["returns"]["value"];
      patient = std::stoi(name.substr(name.find('#') + 1));
    }
  }
  return {patient, nullptr};
}

// What the archive holds of each patient, by kind of row, in the order of
// filing; problem and file references are numbered anew within the patient,
// so that it compares equal whatever the patients before it stored.
struct Stored {
  std::map<std::string, std::vector<std::string>> rows;  // by kind
  bool operator==(const Stored&) const = default;
};

std::string Renumbered(const std::string& text, std::map<std::string, std::string>& seen) {
  static const std::regex reference("\"([FP])[0-9]+\"");
  std::string out;
  auto last = text.cbegin();
  for (std::sregex_iterator it(text.begin(), text.end(), reference), end; it != end; ++it) {
    out.append(last, (*it)[0].first);
    auto [known, added] = seen.emplace((*it)[0].str(), "");
    if (added) known->second = "\"" + (*it)[1].str() + "'" + std::to_string(seen.size()) + "\"";
    out += known->second;
    last = (*it)[0].second;
  }
  out.append(last, text.cend());
  return out;
}

// Files first: their references are numbered in the order of filing, which
// a record left out by a failure doesn't change.
const std::pair<const char*, const char*> kKinds[] = {
    {"file", "SELECT patient_id, json_array(id, title, name, size, sha256) FROM files ORDER BY rowid"},
    {"patient", "SELECT id, members FROM patients ORDER BY id"},
    {"record", "SELECT patient_id, store || ' ' || args FROM records ORDER BY id"},
    {"prescription", "SELECT patient_id, members FROM prescriptions ORDER BY id"},
    {"item", "SELECT p.patient_id, (SELECT count(*) FROM prescriptions q WHERE q.patient_id = p.patient_id "
             "AND q.id <= p.id) || ' ' || i.store || ' ' || i.members FROM prescription_items i "
             "JOIN prescriptions p ON p.id = i.prescription_id ORDER BY i.id"},
};

std::map<int, Stored> ReadArchive(const std::string& path) {
  std::map<int, Stored> patients;
  std::map<int, std::map<std::string, std::string>> references;
  for (const auto& [kind, sql] : kKinds)
    for (const auto& row : fixture::ArchiveRows(path, sql)) {
      const int patient = std::stoi(row[0]);
      patients[patient].rows[kind].push_back(Renumbered(row[1], references[patient]));
    }
  return patients;
}

// The text of the first AddInfo after the call, from the patient's name on
// cut to the " - " that follows it; empty when there is none.
std::string NextInfo(const std::vector<json>& trace, const json* call) {
  auto at = std::find_if(trace.begin(), trace.end(), [&](const json& line) { return &line == call; });
  for (; at != trace.end(); ++at) {
    if ((*at)["obj"] == "Interface" && IsCall(*at) && (*at)["member"] == "AddInfo") {
      std::string text = (*at)["args"][0]["value"];
      size_t dash = text.find(" - ");
      return dash == std::string::npos ? text : text.substr(dash);
    }
  }
  return "";
}

bool IsPrefix(const std::vector<std::string>& part, const std::vector<std::string>& whole) {
  return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

// Rows with their file references blanked: a file left out before them
// numbers the ones after it differently.
std::vector<std::string> WithoutFileReferences(std::vector<std::string> rows) {
  static const std::regex reference("\"F'[0-9]+\"");
  for (std::string& row : rows) row = std::regex_replace(row, reference, "\"F'\"");
  return rows;
}

bool IsOrderedPart(const std::vector<std::string>& some, const std::vector<std::string>& all) {
  const std::vector<std::string> part = WithoutFileReferences(some), whole = WithoutFileReferences(all);
  auto at = whole.begin();
  for (const std::string& row : part) {
    at = std::find(at, whole.end(), row);
    if (at == whole.end()) return false;
    ++at;
  }
  return true;
}

class FaultSweep : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new fixture::TempDir;
    sample::SampleOptions options;
    options.patients = kPatients;
    sample::GenerateSample(*dir_ / "source", options);
  }
  static void TearDownTestSuite() { delete dir_; }

  fixture::Run Convert(const std::string& options, const std::string& fail, const std::string& name) {
    refhost::ConvertOptions convert;
    convert.options = options;
    if (!fail.empty()) convert.fail = {fail};
    convert.archive = *dir_ / (name + ".sqlite");
    convert.trace = *dir_ / (name + ".jsonl");
    convert.tempdir = *dir_ / "tmp";
    return fixture::Convert(*dir_ / "source/GX_USER.FDB", convert);
  }

  static bool TemporaryFolderEmpty() { return std::filesystem::is_empty(dir_->path() / "tmp"); }

  static inline fixture::TempDir* dir_ = nullptr;
};

// The categories as the host offers them, each with the text that its
// failure puts after the patient's name: "allergie", " - Allergie".
std::vector<std::pair<std::string, std::string>> Categories() {
  std::string lista = host::TextOf(std::make_shared<cnv::Conversione>()->Get("ListaOpzioni"));
  std::vector<std::pair<std::string, std::string>> categories;
  for (size_t start = 0; start <= lista.size();) {
    size_t end = std::min(lista.find(';', start), lista.size());
    std::string name = lista.substr(start, end - start);
    name.erase(0, name.find_first_not_of(' '));
    std::string option = name;
    std::transform(option.begin(), option.end(), option.begin(), ::tolower);
    if (!name.empty()) categories.emplace_back(option, " - " + name);
    start = end + 1;
  }
  return categories;
}

TEST_F(FaultSweep, EveryCallSiteFailsAsItsCategoryPromises) {
  fixture::Run master = Convert("", "", "clean-master");
  ASSERT_TRUE(master.outcome.result) << master.outcome.last_error;
  std::map<Site, int> master_sites = CountSites(master.trace);

  struct Sweep {
    std::string options, suffix;  // suffix empty: the master record's
  };
  std::vector<Sweep> sweeps = {{"", " - Anagrafica"}};
  std::string every_category;
  for (const auto& [option, suffix] : Categories()) {
    sweeps.push_back({option, suffix});
    every_category += (every_category.empty() ? "" : ";") + option;
  }

  std::set<Site> covered;
  int runs = 0;
  for (const Sweep& sweep : sweeps) {
    fixture::Run clean = Convert(sweep.options, "", "clean");
    ASSERT_TRUE(clean.outcome.result) << sweep.options << ": " << clean.outcome.last_error;
    ASSERT_TRUE(TemporaryFolderEmpty()) << sweep.options;
    std::map<int, Stored> clean_stored = ReadArchive(clean.archive);
    for (const auto& [site, count] : CountSites(clean.trace)) {
      bool master_site = master_sites.count(site) > 0;
      if (!sweep.options.empty() && master_site) continue;
      covered.insert(site);
      bool ends_run = site.object == "Interface" && kRunEnders.count(site.member) > 0;
      bool passed_over = sweep.options == "scansioni";
      for (int occurrence : std::set<int>{1, kMiddleToo ? (count + 1) / 2 : 1, count}) {
        std::string fail = site.Text() + "@" + std::to_string(occurrence);
        SCOPED_TRACE("options \"" + sweep.options + "\", --fail " + fail);
        std::filesystem::remove(*dir_ / "faulted.sqlite");
        std::filesystem::remove(*dir_ / "faulted.jsonl");
        fixture::Run run = Convert(sweep.options, fail, "faulted");
        ++runs;
        if (!std::filesystem::exists(run.archive)) {
          // A failure that ends the run before its first patient leaves
          // neither archive nor trace.
          EXPECT_TRUE(ends_run);
          EXPECT_FALSE(run.outcome.result);
          EXPECT_EQ(run.outcome.last_error, "1001 Errore simulato dall'host");
          EXPECT_TRUE(run.trace.empty());
          EXPECT_TRUE(TemporaryFolderEmpty());
          continue;
        }
        auto [victim, failed_call] = Victim(run.trace);
        ASSERT_NE(failed_call, nullptr);
        EXPECT_EQ(SiteOf(*failed_call).Text(), site.Text());
        EXPECT_TRUE(TemporaryFolderEmpty());

        std::vector<std::string> messages = run.Messages();
        if (ends_run) {
          EXPECT_FALSE(run.outcome.result);
          EXPECT_EQ(run.outcome.last_error, "1001 Errore simulato dall'host");
          EXPECT_EQ(messages.back(), "ChangeMsg: Errore");
        } else if (passed_over) {
          EXPECT_TRUE(run.outcome.result);
          EXPECT_EQ(run.outcome.patients_err, clean.outcome.patients_err);
        } else {
          EXPECT_TRUE(run.outcome.result);
          EXPECT_EQ(NextInfo(run.trace, failed_call), sweep.suffix + kSimulated);
        }

        std::map<int, Stored> stored = ReadArchive(run.archive);
        for (const auto& [patient, content] : clean_stored) {
          SCOPED_TRACE("patient " + std::to_string(patient) + ", victim " + std::to_string(victim));
          auto found = stored.find(patient);
          if (patient < victim || (patient > victim && !ends_run)) {
            EXPECT_TRUE(found != stored.end() && found->second == content);
          } else if (patient > victim) {
            EXPECT_TRUE(found == stored.end());
          } else if (found != stored.end()) {
            for (const auto& [kind, rows] : found->second.rows) {
              const std::vector<std::string>& whole = content.rows.count(kind) ? content.rows.at(kind) : rows;
              if (kind == "patient")
                EXPECT_EQ(rows, whole);
              else if (passed_over)
                EXPECT_TRUE(IsOrderedPart(rows, whole)) << kind;
              else
                EXPECT_TRUE(IsPrefix(rows, whole)) << kind;
            }
          }
        }
        for (const auto& [patient, content] : stored) EXPECT_TRUE(clean_stored.count(patient)) << patient;
      }
    }
  }

  fixture::Run all = Convert(every_category, "", "clean-all");
  // Every kind of row is read at all: a query that fails reads as none.
  std::set<std::string> kinds;
  for (const auto& [patient, content] : ReadArchive(all.archive))
    for (const auto& [kind, rows] : content.rows) kinds.insert(kind);
  EXPECT_EQ(kinds.size(), std::size(kKinds));
  std::set<Site> in_full_run;
  for (const auto& [site, count] : CountSites(all.trace)) in_full_run.insert(site);
  std::set<Site> missed;
  std::set_difference(in_full_run.begin(), in_full_run.end(), covered.begin(), covered.end(),
                      std::inserter(missed, missed.end()));
  std::cout << "call sites covered: " << covered.size() << " of " << in_full_run.size() << " in the full run, "
            << runs << " faulted runs\n";
  for (const Site& site : missed) ADD_FAILURE() << "call site never failed: " << site.Text();
}

}  // namespace
