// What the info and test commands ask the plug-in, and how they print it.

#include <algorithm>
#include <stdexcept>
#include <nlohmann/json.hpp>

#include "host/failure.h"
#include "host/text.h"

#include "tools/kairon-convert/reference_host.h"
#include "tools/kairon-convert/typed_value.h"

namespace refhost {

namespace {

constexpr const char* kInfoProperties[] = {
    "NomeProgramma", "TipoOrigine",         "DefaultDSN",      "DefaultHost",     "DefaultFile",
    "DefaultPort",   "DefaultDatabaseName", "DefaultUsername", "DefaultPassword", "DefaultCartellaImmagini",
    "ListaOpzioni"};

// A property's value as plain JSON: text as a string, numbers as numbers.
nlohmann::ordered_json PlainValue(const host::Value& value) {
  switch (value.type()) {
    case host::Type::Text:
      return value.text();
    case host::Type::I16:
    case host::Type::I32:
      return value.integer();
    case host::Type::Bool:
      return value.integer() != 0;
    case host::Type::F64:
      return value.number();
    case host::Type::Empty:
    case host::Type::Null:
      return nullptr;
    default:
      return TypedValue(value)["value"];
  }
}

std::string Trimmed(const std::string& s) {
  size_t first = s.find_first_not_of(' ');
  if (first == std::string::npos) return "";
  return s.substr(first, s.find_last_not_of(' ') - first + 1);
}

// The number of single-byte edits that turn a into b.
size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// The names of known closest to name (lower case), nearest first: those at
// the least distance and one more, three at most.
std::vector<std::string> ClosestNames(const std::string& name, const std::vector<std::string>& known) {
  std::vector<std::pair<size_t, std::string>> ranked;
  for (const std::string& candidate : known)
    ranked.emplace_back(EditDistance(name, host::text::Lower(candidate)), candidate);
  std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string> closest;
  for (const auto& [distance, candidate] : ranked)
    if (closest.size() < 3 && distance <= ranked.front().first + 1) closest.push_back(candidate);
  return closest;
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t end; (end = text.find(separator, start)) != std::string::npos; start = end + 1)
    parts.push_back(text.substr(start, end - start));
  parts.push_back(text.substr(start));
  return parts;
}

}  // namespace

std::vector<std::pair<std::string, host::Value>> ReadInfo(const host::ObjectRef& conversione) {
  std::vector<std::pair<std::string, host::Value>> info;
  for (const char* property : kInfoProperties) info.emplace_back(property, conversione->Get(property));
  return info;
}

std::string InfoJson(const std::vector<std::pair<std::string, host::Value>>& info) {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  for (const auto& [property, value] : info) json[property] = PlainValue(value);
  return JsonText(json);
}

TestOutcome RunTest(const host::ObjectRef& conversione, const std::string& conn) {
  host::Value lista_medici = "";
  host::Args args{host::Arg(conn), host::Arg::Ref(lista_medici)};
  host::Value result = conversione->Call("Test", args);
  TestOutcome outcome;
  outcome.result = ResultOf(result);
  outcome.lista_medici = host::TextOf(lista_medici);
  outcome.last_error = host::TextOf(conversione->Get("LastError"));
  outcome.opening_cause = OptionalText(conversione, "CausaApertura");
  outcome.private_copy = OptionalText(conversione, "CopiaPrivata");
  return outcome;
}

std::string OptionalText(const host::ObjectRef& conversione, const char* property) {
  try {
    return host::TextOf(conversione->Get(property));
  } catch (const host::Failure& failure) {
    if (failure.number() == host::failures::kMemberNotSupported) return "";
    throw;
  }
}

std::string TestJson(const TestOutcome& outcome) {
  nlohmann::ordered_json json;
  json["result"] = outcome.result;
  json["ListaMedici"] = outcome.lista_medici;
  json["LastError"] = outcome.last_error;
  if (!outcome.opening_cause.empty()) json["cause"] = outcome.opening_cause;
  return JsonText(json);
}

std::vector<std::string> SplitDoctors(const std::string& lista_medici) {
  if (lista_medici.empty()) return {};
  return Split(lista_medici, ';');
}

std::string UnmatchedOptions(const std::string& option_list, const std::string& lista_opzioni) {
  std::vector<std::string> categories;
  for (const std::string& category : Split(lista_opzioni, ';'))
    if (!Trimmed(category).empty()) categories.push_back(host::text::Lower(Trimmed(category)));
  auto known = [&](const std::string& name) { return std::find(categories.begin(), categories.end(), name) != categories.end(); };
  std::string unmatched;
  int count = 0;
  bool blanks = false;
  for (const std::string& element : Split(option_list, ';')) {
    std::string lower = host::text::Lower(element);
    if (element.empty() || known(lower)) continue;
    unmatched += (count++ == 0 ? "\"" : ", \"") + element + "\"";
    blanks = blanks || known(Trimmed(lower));
  }
  if (count == 0) return "";
  return "--options: " + unmatched + (count == 1 ? " matches" : " match") +
         " no category, and nothing is converted for " + (count == 1 ? "it" : "them") +
         (blanks ? " (blanks count: separate the categories with \";\" alone)" : "") +
         "; the categories are: " + DefaultOptions(lista_opzioni);
}

std::string CategoryOptions(const std::string& categories, const std::string& lista_opzioni) {
  std::vector<std::string> known;
  for (const std::string& category : Split(lista_opzioni, ';'))
    if (!Trimmed(category).empty()) known.push_back(Trimmed(category));
  std::string commas_as_semicolons = categories;
  std::replace(commas_as_semicolons.begin(), commas_as_semicolons.end(), ',', ';');
  std::string option_list;
  for (const std::string& element : Split(commas_as_semicolons, ';')) {
    const size_t first = element.find_first_not_of(" \t");
    if (first == std::string::npos) continue;
    const std::string name = element.substr(first, element.find_last_not_of(" \t") - first + 1);
    const std::string lower = host::text::Lower(name);
    auto same = [&](const std::string& category) { return host::text::Lower(category) == lower; };
    auto found = std::find_if(known.begin(), known.end(), same);
    if (found == known.end()) {
      const std::vector<std::string> closest = ClosestNames(lower, known);
      std::string names;
      for (const std::string& candidate : closest) names += (names.empty() ? "\"" : ", \"") + candidate + "\"";
      throw std::runtime_error("--categories: \"" + name + "\" is no category; the closest " +
                               (closest.size() == 1 ? "is " : "are ") + names + " (all of them: kairon-convert info)");
    }
    option_list += (option_list.empty() ? "" : ";") + *found;
  }
  if (option_list.empty())
    throw std::runtime_error("--categories names no category (to convert the master records alone, give --options \"\")");
  return option_list;
}

std::string DefaultOptions(const std::string& lista_opzioni) {
  std::string options;
  for (const std::string& category : Split(lista_opzioni, ';')) {
    std::string name = Trimmed(category);
    if (name.empty()) continue;
    if (!options.empty()) options += ';';
    options += name;
  }
  return options;
}

}  // namespace refhost
