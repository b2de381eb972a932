#include "tools/kairon-convert/failure_plan.h"

#include <charconv>
#include <stdexcept>

#include "host/object.h"

namespace refhost {

namespace {

bool EndsWithName(std::string_view name, std::string_view suffix) {
  return name.size() >= suffix.size() && host::SameName(name.substr(name.size() - suffix.size()), suffix);
}

// Ricetta#3 -> Ricetta; other names as they are.
std::string_view WithoutNumber(std::string_view part) {
  size_t hash = part.rfind('#');
  if (hash == std::string_view::npos || hash + 1 == part.size()) return part;
  for (size_t i = hash + 1; i < part.size(); ++i)
    if (part[i] < '0' || part[i] > '9') return part;
  return part.substr(0, hash);
}

bool ObjectMatches(std::string_view name, std::string_view qualifier) {
  if (qualifier.empty() || host::SameName(name, qualifier)) return true;
  if (name.size() > qualifier.size() && EndsWithName(name, qualifier) &&
      name[name.size() - qualifier.size() - 1] == '.')
    return true;
  size_t dot = name.rfind('.');
  std::string_view last = dot == std::string_view::npos ? name : name.substr(dot + 1);
  return host::SameName(WithoutNumber(last), qualifier);
}

}  // namespace

FailurePlan FailurePlan::Parse(const std::vector<std::string>& rules) {
  FailurePlan plan;
  for (const std::string& text : rules) {
    size_t at = text.rfind('@');
    if (at == std::string::npos) throw std::invalid_argument("--fail " + text + ": expected MEMBER@N");
    Rule rule;
    rule.text = text;
    std::string_view count = std::string_view(text).substr(at + 1);
    auto [end, error] = std::from_chars(count.data(), count.data() + count.size(), rule.nth);
    if (error != std::errc() || end != count.data() + count.size() || rule.nth < 1)
      throw std::invalid_argument("--fail " + text + ": N must be a whole number from 1");
    std::string target = text.substr(0, at);
    size_t dot = target.rfind('.');
    rule.member = dot == std::string::npos ? target : target.substr(dot + 1);
    if (dot != std::string::npos) rule.object = target.substr(0, dot);
    if (rule.member.empty() || (dot != std::string::npos && rule.object.empty()))
      throw std::invalid_argument("--fail " + text + ": expected MEMBER@N or OBJECT.MEMBER@N");
    plan.rules_.push_back(std::move(rule));
  }
  return plan;
}

bool FailurePlan::CountCall(std::string_view object_name, std::string_view member) {
  bool fail = false;
  for (Rule& rule : rules_) {
    if (!host::SameName(rule.member, member) || !ObjectMatches(object_name, rule.object)) continue;
    if (++rule.seen == rule.nth) fail = true;
  }
  return fail;
}

std::vector<std::string> FailurePlan::Unfired() const {
  std::vector<std::string> warnings;
  for (const Rule& rule : rules_)
    if (rule.seen < rule.nth)
      warnings.push_back("--fail " + rule.text + " never fired: it counted " + std::to_string(rule.seen) +
                         (rule.seen == 1 ? " call" : " calls") + " of " + rule.text.substr(0, rule.text.rfind('@')));
  return warnings;
}

}  // namespace refhost
