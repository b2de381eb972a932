// What the plug-in's shared routines ask of the system they run on: whether
// a file is there, and today's date. local_system.cpp answers on POSIX
// systems, windows/local_system.cpp on Windows.
#pragma once

#include <string>

namespace cnv::local_system {

// True when the UTF-8 path names something that exists and isn't a folder,
// following links (a dangling link gives false).
bool IsFileThere(const std::string& path);

// Today in the local time zone.
struct Day {
  int year = 0;
  int month = 0;  // 1 to 12
  int day = 0;
};
Day LocalToday();

}  // namespace cnv::local_system
