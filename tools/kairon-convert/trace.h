// The trace: one JSON object a line, in the order of the plug-in's calls and
// assignments on host objects. Lines are kept in memory and written out at
// each Flush, or before a line once they hold a megabyte, so the file holds
// whole lines only, whenever the program ends (but for a line of a megabyte
// or more, which goes out as it is made).
#pragma once

#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "tools/kairon-convert/output_files.h"

namespace refhost {

class Trace {
 public:
  // Writes into descriptor (open for writing, empty, owned by the caller);
  // path names the file in messages.
  Trace(int descriptor, std::string path);

  // Empty when the file at path is a trace (empty, or its first line a JSON
  // object with "obj" and "op"); otherwise why not, in words.
  static std::string NotOurTrace(const std::string& path);

  // Adds one line: the JSON text of one object, without its newline.
  void Write(const std::string& line);
  // The same for a line given in pieces, without its newline.
  void Write(const TextPieces& line);

  // Writes out the lines added so far. Raises WriteError, naming the cause,
  // when the file can't take them (or couldn't take a long line); from then
  // on nothing more is written.
  void Flush();

 private:
  // Writes text whole; 0, or the errno of the failure.
  int WriteOut(std::string_view text);

  int descriptor_;
  std::string path_;
  std::string pending_;
  bool broken_ = false;
  std::string failure_;  // why lines couldn't be written before a Flush, for the next one
  std::mutex mutex_;
};

}  // namespace refhost
