// Where a path leads, told with its links, "." and ".." resolved as far as
// it exists: for the checks that keep the temporary folder apart from the
// source and the outputs, and that keep the plug-in's file calls inside it.
#pragma once

#include <map>
#include <string>

namespace refhost {

// True when the place that path leads to is folder itself or lies below
// it. A path that can't be resolved lies nowhere (false).
bool LeadsInto(const std::string& path, const std::string& folder);

// True when path, as the plug-in names a file of the temporary folder,
// leads below that folder (never to the folder itself). The usual
// "<folder>/<name>", with a name that is no link, ".", or "..", is decided
// without resolving anything.
bool InTemporaryFolder(const std::string& path, const std::string& folder);

// The temporary folder as utente names it (its member tempdir, the name
// compared without regard to case); nullptr without one.
const std::string* TemporaryFolderOf(const std::map<std::string, std::string>& utente);

}  // namespace refhost
