// The late-bound object: members got, set and called by name, without regard
// to case, with dynamically typed arguments passed by value or by reference.
// The host's Interface, its patient objects and stores, and the plug-in's
// own Conversione all have this form.
#pragma once

#include <concepts>
#include <string_view>
#include <vector>

#include "host/value.h"

namespace host {

// One argument of a call. By value, the callee works on its own copy; by
// reference, what the callee writes reaches the caller's variable.
class Arg {
 public:
  // By value: anything a Value is made from (text, double, Date, Value...).
  template <typename T>
    requires std::constructible_from<Value, T&&>
  Arg(T&& v) : own_(std::forward<T>(v)) {}
  static Arg Ref(Value& variable) {
    Arg a;
    a.ref_ = &variable;
    return a;
  }

  bool by_ref() const { return ref_ != nullptr; }
  Value& value() { return ref_ ? *ref_ : own_; }
  const Value& value() const { return ref_ ? *ref_ : own_; }

 private:
  Arg() = default;
  Value own_;
  Value* ref_ = nullptr;
};
using Args = std::vector<Arg>;

class Object {
 public:
  virtual ~Object() = default;

  // Reads a property. Raises 438 for a member the object doesn't have.
  virtual Value Get(std::string_view member) = 0;
  // Assigns a property. Raises 438 for a member the object doesn't have.
  virtual void Set(std::string_view member, const Value& value) = 0;
  // Calls a method; by-reference arguments may come back changed.
  virtual Value Call(std::string_view member, Args& args) = 0;
  // The items of a collection, first to last. Raises 438 for an object that
  // isn't one.
  virtual std::vector<Value> Items();
};

// Member names compare without regard to (ASCII) case. Names of another
// length are told apart here, without a call or a letter compared.
bool SameLengthNames(std::string_view a, std::string_view b);
inline bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && SameLengthNames(a, b);
}
struct NameLess {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const;
};

// Late-bound access through a value that should hold an object: each raises
// "object required" (424) when it doesn't, and passes on the member's own
// failure otherwise.
Value Get(const Value& target, std::string_view member);
void Set(const Value& target, std::string_view member, const Value& value);
Value Call(const Value& target, std::string_view member, Args& args);
Value Call(const Value& target, std::string_view member, Args&& args = {});
std::vector<Value> Items(const Value& target);

}  // namespace host
