// The mark that a process puts in the names of the files and folders it
// keeps only while it runs (temporary folders, private copies, files that
// replace others when they are whole): its pid and its start time, so that
// a later process can tell what a process that has ended left behind, even
// once the pid is given to another process.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace host::process_mark {

struct Mark {
  long pid = 0;
  unsigned long long start = 0;  // clock ticks after the machine started; 0 when unknown
};

// This process's mark as names carry it: "PID-START".
std::string Own();

// The mark that text begins with ("PID-START"), and in length how many
// characters it takes; nullopt when text doesn't begin with one.
std::optional<Mark> Read(std::string_view text, size_t* length = nullptr);

// Whether the process that made something with mark has ended, something
// last changed at changed: nothing changed since the machine last started
// is of a live process; otherwise the process has ended when no process
// has its pid, or the one that has it started at another time. False when
// this can't be told (no /proc, an unknown start time).
bool Ended(const Mark& mark, std::time_t changed);

}  // namespace host::process_mark
