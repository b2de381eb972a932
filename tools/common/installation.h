// Where a program finds what is installed with it, relative to the folder
// that holds the program, so that an installation works wherever it is
// copied: the plug-in in ../lib/, the catalogues in ../share/cnvkairon/.
// The build folder is laid out the same way.
#pragma once

#include <string>

namespace tools {

// libcnvKairon.so in ../lib/ beside the folder of this program.
std::string InstalledPlugin();

// The folder of the catalogues that go with the programs: icd9.csv,
// farmaci.csv, esenzioni.csv, province.csv.
std::string InstalledCatalogues();

// What --version prints: the program's name and the project's version.
std::string VersionText(const std::string& program);

}  // namespace tools
