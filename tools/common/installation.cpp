#include "tools/common/installation.h"

#include <filesystem>

namespace tools {
namespace {

namespace fs = std::filesystem;

// The folder above the one that holds this program; "." when it can't be told.
fs::path InstallationRoot() {
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  if (ec) return ".";
  return (self.parent_path() / "..").lexically_normal();
}

}  // namespace

std::string InstalledPlugin() { return (InstallationRoot() / "lib" / "libcnvKairon.so").string(); }

std::string InstalledCatalogues() { return (InstallationRoot() / "share" / "cnvkairon").string(); }

std::string VersionText(const std::string& program) { return program + " " + KAIRON_VERSION; }

}  // namespace tools
