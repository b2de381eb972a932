// What the opening of a source asks of the system that it runs on
// (source/opening_posix.cpp, source/opening_windows.cpp), and the causes in
// words that both systems share (source/opening.cpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace source::opening::platform {

// A database file as the system shows it before the engine sees it.
struct FileFacts {
  std::string cause;        // why it isn't a file that can be read, with the remedy; empty when it is
  bool held = false;        // another program (the practice's running server) holds it: nothing was read
  bool writable = false;    // it can be opened for writing
  uint64_t size = 0;
  std::string first_bytes;  // its first bytes, up to the count asked for
};
FileFacts LookAt(const std::string& path, size_t count);

// The name of the user that the conversion runs as.
std::string UserName();

// The causes that both systems give in the same words.
std::string Quoted(const std::string& path);
std::string MissingCause(const std::string& path);
std::string FolderCause(const std::string& path);
std::string NotAFileCause(const std::string& path);
std::string DeniedCause(const std::string& path, const char* operation);

}  // namespace source::opening::platform
