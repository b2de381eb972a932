// The reference host's catalogue reader over an arbitrary CSV text: either
// a catalogue or a clean refusal (std::runtime_error), and every entry found
// again by its code with as many members as the header names.

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tools/kairon-convert/catalogues.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const refhost::Catalogue catalogue = refhost::Catalogue::Parse(text, "fuzz.csv");
    const auto rows = refhost::ParseCsv(text, "fuzz.csv");
    for (size_t i = 1; i < rows.size(); ++i) {
      const std::vector<std::string>* entry = catalogue.Find(rows[i].front());
      if (entry == nullptr || entry->size() != catalogue.columns().size()) std::abort();
    }
  } catch (const std::runtime_error&) {
  }
  return 0;
}
