#include "source/keyed_list.h"

#include "host/failure.h"
#include "host/text.h"

namespace cnv {

void KeyedList::Add(const std::string& key) {
  if (!folded_keys_.insert(host::text::Lower(key)).second) host::failures::Raise(host::failures::kDuplicateKey);
}

bool KeyedList::Contains(const std::string& key) const { return folded_keys_.count(host::text::Lower(key)) > 0; }

}  // namespace cnv
