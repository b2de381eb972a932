// A failure raised by a late-bound member, the source databases or the
// plug-in's own rules: a signed number and a description, as a trap turns
// them into the text of LastError.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace host {

class Failure : public std::runtime_error {
 public:
  Failure(int32_t number, std::string description)
      : std::runtime_error(description), number_(number), description_(std::move(description)) {}

  int32_t number() const { return number_; }
  const std::string& description() const { return description_; }

 private:
  int32_t number_;
  std::string description_;
};

// The numbers of the failures that the value model itself raises, with the
// descriptions an Italian runtime gives them.
namespace failures {
inline constexpr int32_t kInvalidArgument = 5;       // a cut of negative length, a bad call
inline constexpr int32_t kTypeMismatch = 13;         // a value that can't become the type asked
inline constexpr int32_t kInvalidUseOfNull = 94;     // Null where a value is needed
inline constexpr int32_t kObjectRequired = 424;      // a member asked of something that isn't an object
inline constexpr int32_t kMemberNotSupported = 438;  // a member that the object doesn't have
inline constexpr int32_t kWrongArgumentCount = 450;  // a member called with the wrong number of arguments
inline constexpr int32_t kItemNotFound = 3265;       // a field name that the recordset doesn't have

inline constexpr int32_t kOverflow = 6;
inline constexpr int32_t kOutOfMemory = 7;
inline constexpr int32_t kDivisionByZero = 11;
inline constexpr int32_t kDuplicateKey = 457;        // a keyed list given a key it already holds
inline constexpr int32_t kInternal = 51;             // any other fault of the plug-in's own code

// Raises the failure of that number with its standard description.
[[noreturn]] void Raise(int32_t number);
}  // namespace failures

// Inside a catch block: the exception under way as a Failure. A Failure comes
// back as it is, std::bad_alloc as 7, any other exception as 51 with its text.
Failure CurrentFailure();

}  // namespace host
