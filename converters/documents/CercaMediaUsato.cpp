#include "source/clsAmbulor.h"

namespace cnv {

// The list keeps keys only; the item under "I" and a code is that code, so
// a code that a report marked comes back as itself, and an empty code as
// the empty text, as if it weren't there.
std::string clsAmbulor::CercaMediaUsato(const std::string& media_code) {
  return media_usati_->Contains("I" + media_code) ? media_code : "";
}

}  // namespace cnv
