// The reference host's --utente reader over arbitrary text: a map of texts
// or a clean refusal (std::runtime_error), never anything else.

#include <cstdint>
#include <stdexcept>
#include <string>

#include "tools/kairon-convert/reference_host.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    (void)refhost::ParseUtente(std::string(reinterpret_cast<const char*>(data), size));
  } catch (const std::runtime_error&) {
  }
  return 0;
}
