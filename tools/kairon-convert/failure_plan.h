// The calls that --fail makes fail. A rule "MEMBER@N" picks the N-th call
// (from 1, over the whole run) of any member of that name; "OBJ.MEMBER@N"
// counts only calls on objects whose trace name ends in OBJ (after a dot),
// or whose last part is OBJ followed by "#" and a number (Ricetta for
// Ricetta#3). Names compare without regard to case.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace refhost {

inline constexpr int32_t kSimulatedFailure = 1001;
inline constexpr const char* kSimulatedFailureText = "Errore simulato dall'host";

class FailurePlan {
 public:
  // Raises std::invalid_argument for a rule without a member or without a
  // whole number from 1 after its last "@".
  static FailurePlan Parse(const std::vector<std::string>& rules);

  // Counts one call of member on the object named object_name; true if the
  // plan makes this call fail.
  bool CountCall(std::string_view object_name, std::string_view member);

  // A warning for each rule whose call never came, with how many calls of
  // its member it counted.
  std::vector<std::string> Unfired() const;

 private:
  struct Rule {
    std::string text;    // as given
    std::string object;  // empty: any object
    std::string member;
    int64_t nth = 0;
    int64_t seen = 0;
  };
  std::vector<Rule> rules_;
};

}  // namespace refhost
