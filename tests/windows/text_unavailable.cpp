// The value model's text functions are not part of this test program: its
// tests never reach them, and a call that did would fail loudly.
#include <stdexcept>

#include "host/text.h"

namespace host::text {

std::string Trim(std::string_view) { throw std::logic_error("host::text::Trim isn't part of this test program"); }

std::string FromLegacyBytes(std::string_view) {
  throw std::logic_error("host::text::FromLegacyBytes isn't part of this test program");
}

}  // namespace host::text

namespace host::text {

std::string Lower(std::string_view) { throw std::logic_error("host::text::Lower isn't part of this test program"); }

}  // namespace host::text
