#include "source/clsAmbulor.h"

namespace cnv {

// Marks a medium as taken by a report; marking it again changes nothing.
void clsAmbulor::SegnaMediaUsato(const std::string& media_code) {
  if (!media_usati_->Contains("I" + media_code)) media_usati_->Add("I" + media_code);
}

}  // namespace cnv
