#include "tools/kairon-convert/paths.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "host/object.h"

namespace refhost {

namespace fs = std::filesystem;

namespace {

bool Resolve(const std::string& path, fs::path& resolved) {
  if (path.empty() || path.find('\0') != std::string::npos) return false;
  std::error_code ec;
  resolved = fs::weakly_canonical(fs::absolute(path, ec), ec);
  if (!resolved.has_filename()) resolved = resolved.parent_path();  // a final "/"
  return !ec;
}

// True when file is folder or lies below it, both resolved.
bool Below(const fs::path& file, const fs::path& folder) {
  auto [end_of_folder, _] = std::mismatch(folder.begin(), folder.end(), file.begin(), file.end());
  return end_of_folder == folder.end();
}

}  // namespace

bool LeadsInto(const std::string& path, const std::string& folder) {
  fs::path file, resolved_folder;
  return Resolve(path, file) && Resolve(folder, resolved_folder) && Below(file, resolved_folder);
}

bool InTemporaryFolder(const std::string& path, const std::string& folder) {
  if (folder.empty() || folder.find('\0') != std::string::npos || path.find('\0') != std::string::npos) return false;
  const size_t slash = path.rfind('/');
  if (slash != std::string::npos && slash == folder.size() && path.compare(0, slash, folder) == 0) {
    const std::string name = path.substr(slash + 1);
    struct stat st {};
    if (!name.empty() && name != "." && name != ".." &&
        (lstat(path.c_str(), &st) == 0 ? !S_ISLNK(st.st_mode) : errno == ENOENT))
      return true;
  }
  fs::path file, resolved_folder;
  return Resolve(path, file) && Resolve(folder, resolved_folder) && file != resolved_folder &&
         Below(file, resolved_folder);
}

const std::string* TemporaryFolderOf(const std::map<std::string, std::string>& utente) {
  for (const auto& [member, folder] : utente)
    if (host::SameName(member, "tempdir")) return &folder;
  return nullptr;
}

}  // namespace refhost
