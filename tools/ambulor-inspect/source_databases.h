// The three databases of a source, opened for reading only by the plug-in's
// own opening rules: the folder of the user database holds the other two, a
// file that can't be written is read through a private copy, and a database
// that can't be opened is named with the plug-in's cause.
#pragma once

#include <stdexcept>
#include <string>

#include "source/connection.h"
#include "source/opening.h"
#include "tools/ambulor-inspect/catalogue.h"

namespace inspect {

// Raised when a database of the source can't be opened; what() says which,
// why and what to do, as the plug-in tells it.
class Unopenable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class SourceDatabases {
 public:
  // Opens GX_USER.FDB at conn (a path or "host:path") and the other two
  // beside it. Raises Unopenable.
  explicit SourceDatabases(const std::string& conn);
  SourceDatabases(const SourceDatabases&) = delete;
  SourceDatabases& operator=(const SourceDatabases&) = delete;

  source::Connection& Of(SourceFile file) {
    return file == SourceFile::User ? user_ : file == SourceFile::Media ? media_ : data_;
  }
  // The path as given for each database: conn, or the folder and the name.
  const std::string& PathOf(SourceFile file) const {
    return file == SourceFile::User ? user_path_ : file == SourceFile::Media ? media_path_ : data_path_;
  }
  // True when the files couldn't be written and copies of them were read.
  bool through_private_copy() const { return !opening_.private_folder().empty(); }

 private:
  source::opening::Opening opening_;  // goes after the connections: its copies are removed with it
  source::Connection user_, media_, data_;
  std::string user_path_, media_path_, data_path_;
};

}  // namespace inspect
