#include "host/process_mark.h"

#include <unistd.h>

#include <cctype>
#include <charconv>
#include <fstream>
#include <sstream>

namespace host::process_mark {
namespace {

// The start time of process pid (field 22 of its stat, counted after the
// command's name, which may hold blanks and parentheses); nullopt when
// there is no such process.
std::optional<unsigned long long> StartOf(const std::string& pid) {
  std::ifstream stat("/proc/" + pid + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return std::nullopt;
  const size_t name_end = line.rfind(')');
  if (name_end == std::string::npos) return std::nullopt;
  std::istringstream fields(line.substr(name_end + 1));
  std::string field;
  for (int i = 3; i <= 22; ++i)
    if (!(fields >> field)) return std::nullopt;
  unsigned long long start = 0;
  if (std::from_chars(field.data(), field.data() + field.size(), start).ec != std::errc{}) return std::nullopt;
  return start;
}

// When the machine last started (btime of /proc/stat), in seconds.
std::optional<std::time_t> BootTime() {
  std::ifstream stat("/proc/stat");
  std::string key;
  long long value = 0;
  while (stat >> key) {
    if (key == "btime" && stat >> value) return static_cast<std::time_t>(value);
    stat.ignore(1 << 16, '\n');
  }
  return std::nullopt;
}

}  // namespace

std::string Own() {
  const std::string pid = std::to_string(::getpid());
  return pid + "-" + std::to_string(StartOf(pid).value_or(0));
}

std::optional<Mark> Read(std::string_view text, size_t* length) {
  Mark mark;
  const char* end = text.data() + text.size();
  auto pid = std::from_chars(text.data(), end, mark.pid);
  if (pid.ec != std::errc{} || pid.ptr == text.data() || mark.pid <= 0 || pid.ptr == end || *pid.ptr != '-')
    return std::nullopt;
  auto start = std::from_chars(pid.ptr + 1, end, mark.start);
  if (start.ec != std::errc{} || start.ptr == pid.ptr + 1) return std::nullopt;
  if (length != nullptr) *length = static_cast<size_t>(start.ptr - text.data());
  return mark;
}

bool Ended(const Mark& mark, std::time_t changed) {
  // Without /proc nothing can be told of any process.
  if (!StartOf("self")) return false;
  if (std::optional<std::time_t> boot = BootTime(); boot && changed < *boot) return true;
  if (mark.start == 0) return false;
  std::optional<unsigned long long> start = StartOf(std::to_string(mark.pid));
  return !start || *start != mark.start;
}

}  // namespace host::process_mark
