#include "tools/kairon-convert/host_object.h"

#include <stdexcept>

#include "host/failure.h"
#include "tools/kairon-convert/session.h"
#include "tools/kairon-convert/typed_value.h"

namespace refhost {

namespace {

// The host's own trouble (the archive can't be written) as the plug-in
// can catch it.
constexpr int32_t kHostFailure = 1002;

// The start of a trace line, {"obj":NAME,"op":OP,"member":MEMBER, as the
// JSON of the line's members in that order writes it.
std::string TraceLineStart(const std::string& object, const char* op, std::string_view member) {
  std::string line = "{\"obj\":";
  AppendJsonString(line, object);
  line += ",\"op\":\"";
  line += op;
  line += "\",\"member\":";
  AppendJsonString(line, std::string(member));
  return line;
}

// The archive or trace failing inside a member: passes on host failures and
// turns anything else into one. A write that failed also stops the run.
template <typename Action>
auto AsHostFailure(Session& session, Action action) {
  try {
    return action();
  } catch (const host::Failure&) {
    throw;
  } catch (const WriteError& e) {
    session.WriteFailed(e.what());
    throw host::Failure(kHostFailure, std::string("Errore dell'host: ") + e.what());
  } catch (const std::exception& e) {
    throw host::Failure(kHostFailure, std::string("Errore dell'host: ") + e.what());
  }
}

}  // namespace

HostObject::HostObject(std::shared_ptr<Session> session, std::string trace_name)
    : session_(std::move(session)), trace_name_(std::move(trace_name)) {}

host::Value HostObject::Get(std::string_view member) {
  return AsHostFailure(*session_, [&] { return Read(member); });
}

void HostObject::Set(std::string_view member, const host::Value& value) {
  if (!session_->tracing()) return AsHostFailure(*session_, [&] { Write(member, value); });
  auto write_line = [&](std::string_view end) {
    session_->WriteTrace([&](const std::function<void(std::string_view)>& write) {
      write(TraceLineStart(trace_name_, "set", member) + ",\"value\":");
      WriteTypedValue(value, write);
      write(end);
    });
  };
  try {
    AsHostFailure(*session_, [&] { Write(member, value); });
  } catch (const host::Failure&) {
    write_line(",\"failed\":true}");
    throw;
  }
  write_line("}");
}

host::Value HostObject::Call(std::string_view member, host::Args& args) {
  if (!session_->tracing()) {
    return AsHostFailure(*session_, [&] {
      if (session_->CountCall(trace_name_, member)) throw host::Failure(kSimulatedFailure, kSimulatedFailureText);
      return Invoke(member, args);
    });
  }
  // The arguments as given (their copies share a text), and what must be
  // seen before the call. The line is made after the call, a piece at a
  // time, so that a long text is neither held by the line nor by the line
  // and the archive's row at once.
  std::vector<host::Value> before;
  for (const host::Arg& arg : args) before.push_back(arg.value());
  std::string described;
  auto write_line = [&](const std::string& end) {
    session_->WriteTrace([&](const std::function<void(std::string_view)>& write) {
      write(TraceLineStart(trace_name_, "call", member) + ",\"args\":");
      WriteTypedArray(before, write);
      write(described);
      write(end);
    });
  };
  host::Value result;
  try {
    result = AsHostFailure(*session_, [&] {
      DescribeCall(member, args, described);
      if (session_->CountCall(trace_name_, member)) throw host::Failure(kSimulatedFailure, kSimulatedFailureText);
      return Invoke(member, args);
    });
  } catch (const host::Failure&) {
    write_line(",\"failed\":true}");
    throw;
  }
  std::string end;
  if (!result.is_empty()) {
    end += ",\"returns\":";
    AppendTypedValue(end, result);
  }
  bool any_out = false;
  for (size_t i = 0; i < args.size(); ++i) {
    if (!args[i].by_ref() || args[i].value() == before[i]) continue;
    end += any_out ? "," : ",\"out\":{";
    any_out = true;
    AppendJsonString(end, std::to_string(i));
    end += ':';
    AppendTypedValue(end, args[i].value());
  }
  if (any_out) end += '}';
  end += '}';
  write_line(end);
  return result;
}

void HostObject::Write(std::string_view, const host::Value&) {
  host::failures::Raise(host::failures::kMemberNotSupported);
}

host::Value HostObject::Invoke(std::string_view, host::Args&) {
  host::failures::Raise(host::failures::kMemberNotSupported);
}

void HostObject::DescribeCall(std::string_view, const host::Args&, std::string&) {}

namespace {

// Room made at the first member: a patient's or a ricetta's members (a few
// dozen) then fit without the bag growing and moving them again and again.
constexpr size_t kUsualMembers = 40;

// About the length of a member, or an argument, written as JSON: room made
// for the text at once.
constexpr size_t kTextPerMember = 64;

}  // namespace

host::Value MemberBag::Get(std::string_view name) const {
  for (const auto& [member, value] : members_)
    if (host::SameName(member, name)) return value;
  return {};
}

void MemberBag::Set(std::string_view name, const host::Value& value) {
  for (auto& [member, held] : members_)
    if (host::SameName(member, name)) {
      held = value;
      return;
    }
  if (members_.empty()) members_.reserve(kUsualMembers);
  members_.emplace_back(std::string(name), value);
}

nlohmann::ordered_json MemberBag::ToJson() const {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  for (const auto& [member, value] : members_) json[member] = TypedValue(value);
  return json;
}

std::string MemberBag::JsonText() const {
  std::string text;
  text.reserve(kTextPerMember * members_.size() + 2);
  text += '{';
  for (const auto& [member, value] : members_) {
    if (text.size() > 1) text += ',';
    AppendJsonString(text, member);
    text += ':';
    AppendTypedValue(text, value);
  }
  return text + "}";
}

void RequireArgs(const host::Args& args, size_t count) { RequireArgs(args, count, count); }

void RequireArgs(const host::Args& args, size_t least, size_t most) {
  if (args.size() < least || args.size() > most) host::failures::Raise(host::failures::kWrongArgumentCount);
}

}  // namespace refhost
