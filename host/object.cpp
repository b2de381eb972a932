#include "host/object.h"

#include <cctype>

#include "host/failure.h"

namespace host {

std::vector<Value> Object::Items() { failures::Raise(failures::kMemberNotSupported); }

namespace {
char Fold(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }
}  // namespace

bool SameName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (Fold(a[i]) != Fold(b[i])) return false;
  return true;
}

bool NameLess::operator()(std::string_view a, std::string_view b) const {
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    char x = Fold(a[i]), y = Fold(b[i]);
    if (x != y) return static_cast<unsigned char>(x) < static_cast<unsigned char>(y);
  }
  return a.size() < b.size();
}

Value Get(const Value& target, std::string_view member) { return target.object()->Get(member); }

void Set(const Value& target, std::string_view member, const Value& value) { target.object()->Set(member, value); }

Value Call(const Value& target, std::string_view member, Args& args) { return target.object()->Call(member, args); }

Value Call(const Value& target, std::string_view member, Args&& args) { return target.object()->Call(member, args); }

std::vector<Value> Items(const Value& target) { return target.object()->Items(); }

}  // namespace host
