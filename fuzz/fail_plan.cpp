// The reference host's --fail rules over arbitrary text, one rule a line:
// a plan or a clean refusal (std::invalid_argument). A plan is then counted
// over a few calls, and a rule fires at most once.

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/kairon-convert/failure_plan.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> rules;
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
    rules.push_back(text.substr(start, end - start));
  rules.push_back(text.substr(start));
  try {
    refhost::FailurePlan plan = refhost::FailurePlan::Parse(rules);
    const char* objects[] = {"Interface", "Paziente#1.Pressione", "Ricetta#3", "Paziente#12.Files", ""};
    const char* members[] = {"Salva", "AddMsg", "SalvaFile", "ImportaAnagrafica", ""};
    size_t fired = 0;
    for (int round = 0; round < 4; ++round)
      for (const char* object : objects)
        for (const char* member : members) fired += plan.CountCall(object, member) ? 1 : 0;
    if (fired > rules.size()) std::abort();
    (void)plan.Unfired();
  } catch (const std::invalid_argument&) {
  }
  return 0;
}
