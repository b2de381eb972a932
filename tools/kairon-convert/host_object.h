// The common form of the reference host's objects. Each has a trace name
// (Interface, Paziente#1.Pressione, Ricetta#2, ICD9:401.9 ...). Every call
// and every assignment that reaches one is counted against the --fail plan,
// carried out and written to the trace; reads of properties are carried out
// only. A concrete object says what its members do through Read, Write and
// Invoke.
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/object.h"

namespace refhost {

class Session;

class HostObject : public host::Object {
 public:
  HostObject(std::shared_ptr<Session> session, std::string trace_name);

  const std::string& trace_name() const { return trace_name_; }

  host::Value Get(std::string_view member) final;
  void Set(std::string_view member, const host::Value& value) final;
  // A call that the --fail plan picks raises host::Failure 1001 without being
  // carried out. A failure of the host's own (the archive can't be written)
  // reaches the caller as host::Failure 1002.
  host::Value Call(std::string_view member, host::Args& args) final;

 protected:
  // A property read; raises 438 for a member the object lacks.
  virtual host::Value Read(std::string_view member) = 0;
  // A property assignment; by default the object has no member to assign.
  virtual void Write(std::string_view member, const host::Value& value);
  // A method call; by default the object has no method.
  virtual host::Value Invoke(std::string_view member, host::Args& args);
  // Adds to the trace line of a call, as JSON text that goes on its open
  // object (",\"name\":value"), what must be seen before the call is
  // carried out (the file of SalvaFile).
  virtual void DescribeCall(std::string_view member, const host::Args& args, std::string& line);

  Session& session() { return *session_; }
  const std::shared_ptr<Session>& shared_session() const { return session_; }

 private:
  std::shared_ptr<Session> session_;
  std::string trace_name_;
};

// The members of an object that takes any member: names compare without
// regard to case, and keep the place and spelling of their first setting.
class MemberBag {
 public:
  // The value of a member; Empty if it was never set.
  host::Value Get(std::string_view name) const;
  void Set(std::string_view name, const host::Value& value);
  // {"name": typed value, ...} in order of first setting.
  nlohmann::ordered_json ToJson() const;
  // The same as JSON text, as refhost::JsonText writes it.
  std::string JsonText() const;

 private:
  std::vector<std::pair<std::string, host::Value>> members_;
};

// An object that takes any member, as NewRicetta, NewItemRicetta and utente
// give: reading a member never set gives Empty; it has no methods.
class AnyMemberObject : public HostObject {
 public:
  using HostObject::HostObject;
  const MemberBag& members() const { return members_; }
  // Sets a member as the host itself does: not counted, not traced.
  void Assign(std::string_view member, const host::Value& value) { members_.Set(member, value); }

 protected:
  host::Value Read(std::string_view member) override { return members_.Get(member); }
  void Write(std::string_view member, const host::Value& value) override { members_.Set(member, value); }

 private:
  MemberBag members_;
};

// The number of arguments a member needs: raises 450 for another count.
void RequireArgs(const host::Args& args, size_t count);
void RequireArgs(const host::Args& args, size_t least, size_t most);

}  // namespace refhost
