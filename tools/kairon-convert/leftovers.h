// What runs that ended without tidying up (killed, or the machine stopped)
// left behind: the temporary folders of the host and of the report's
// accounts, the plug-in's private copies of a read-only source, and the
// unfinished replacements of an archive, trace or report with SQLite's
// files beside them. Each carries in its name the mark of the process that
// made it (host/process_mark.h); only what has that mark, is of the kind
// its name says, belongs to this user and was made by a process that has
// ended is a leftover.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace refhost {

struct Leftover {
  std::string path;                     // the folder, or the unfinished file
  std::vector<std::string> companions;  // the -wal, -shm, -journal beside an unfinished file
  std::string what;                     // in words: "the temporary folder of a conversion", ...
  long pid = 0;                         // the process that made it
  uintmax_t bytes = 0;                  // what it holds, companions included
};

// The system's temporary folders (TMPDIR, and the one the standard library
// takes), where the temporary folders and private copies are made.
std::vector<std::string> SystemTemporaryFolders();

// The leftovers that lie directly in folders (each looked at once, however
// named), sorted by path. A folder that can't be read holds none.
std::vector<Leftover> FindLeftovers(const std::vector<std::string>& folders);

// Removes a leftover, its companions and, for a folder, what it holds
// (links are removed, never followed). Gives why it couldn't, in words;
// empty when it is gone.
std::string RemoveLeftover(const Leftover& leftover);

// The leftovers in folders, each removed.
struct Removal {
  Leftover leftover;
  std::string failure;  // why it couldn't be removed; empty when it was
};
std::vector<Removal> RemoveLeftovers(const std::vector<std::string>& folders);

}  // namespace refhost
