#include "host/object.h"

#include "host/failure.h"

namespace host {

std::vector<Value> Object::Items() { failures::Raise(failures::kMemberNotSupported); }

namespace {
// A byte of a name in lower case: only A to Z change, as in the "C" locale,
// so bytes from 0x80 up (UTF-8) compare as they are.
inline unsigned char Fold(char c) {
  const auto b = static_cast<unsigned char>(c);
  return b >= 'A' && b <= 'Z' ? static_cast<unsigned char>(b + ('a' - 'A')) : b;
}
}  // namespace

bool SameLengthNames(std::string_view a, std::string_view b) {
  for (size_t i = 0; i < a.size(); ++i)
    if (Fold(a[i]) != Fold(b[i])) return false;
  return true;
}

bool NameLess::operator()(std::string_view a, std::string_view b) const {
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    const unsigned char x = Fold(a[i]), y = Fold(b[i]);
    if (x != y) return x < y;
  }
  return a.size() < b.size();
}

Value Get(const Value& target, std::string_view member) { return target.object()->Get(member); }

void Set(const Value& target, std::string_view member, const Value& value) { target.object()->Set(member, value); }

Value Call(const Value& target, std::string_view member, Args& args) { return target.object()->Call(member, args); }

Value Call(const Value& target, std::string_view member, Args&& args) { return target.object()->Call(member, args); }

std::vector<Value> Items(const Value& target) { return target.object()->Items(); }

}  // namespace host
