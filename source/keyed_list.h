// A list of items under text keys, compared without regard to case. Only the
// keys count here: the per-patient lists remember which source rows a
// category has already handed to the host.
#pragma once

#include <set>
#include <string>

namespace cnv {

class KeyedList {
 public:
  // Adds a key. Raises 457 for a key the list already holds.
  void Add(const std::string& key);

  bool Contains(const std::string& key) const;

 private:
  std::set<std::string> folded_keys_;
};

}  // namespace cnv
