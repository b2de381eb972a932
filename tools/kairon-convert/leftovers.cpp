#include "tools/kairon-convert/leftovers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <set>

#include "host/process_mark.h"
#include "tools/kairon-convert/output_files.h"

namespace refhost {
namespace {

namespace fs = std::filesystem;
namespace mark = host::process_mark;

constexpr const char* kCompanions[] = {"-wal", "-shm", "-journal"};

// The folders that the host, the plug-in and the accounts make, by the word
// after "kairon-" in their names.
const std::map<std::string, std::string> kFolderKinds = {
    {"convert", "the temporary folder of a conversion"},
    {"ambulor", "the private copy of a read-only source"},
    {"accounts", "the temporary folder of a report's accounts"}};

// "-XXXXXX" as mkstemp and mkdtemp fill it in, and nothing after.
bool EndsARandomName(std::string_view rest) {
  return rest.size() == 7 && rest[0] == '-' &&
         std::all_of(rest.begin() + 1, rest.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)); });
}

// The mark of a name "MARK-XXXXXX"; nullopt for any other.
std::optional<mark::Mark> MarkedName(std::string_view name) {
  size_t length = 0;
  std::optional<mark::Mark> found = mark::Read(name, &length);
  if (!found || !EndsARandomName(name.substr(length))) return std::nullopt;
  return found;
}

std::optional<struct stat> LstatOf(const std::string& path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return std::nullopt;
  return st;
}

// Another process holds the lock that a run keeps on the files it writes.
bool Locked(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  const bool held = flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(fd);
  return held;
}

uintmax_t BytesIn(const std::string& folder) {
  uintmax_t bytes = 0;
  std::error_code ec;
  for (fs::recursive_directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
    if (it->is_regular_file(ec) && !it->is_symlink(ec)) bytes += it->file_size(ec);
  return bytes;
}

// An unfinished replacement ".NAME.kairon-MARK-XXXXXX" in one folder, with
// the companions found so far.
struct Replacement {
  std::string name;  // NAME
  mark::Mark made_by;
  std::vector<std::string> parts;  // the file and its companions that lie there
};

// The replacement that file name is, or a companion of; nullopt for any
// other name.
std::optional<std::pair<std::string, Replacement>> ReplacementOf(std::string_view name) {
  std::string_view base = name;
  for (std::string_view companion : kCompanions)
    if (base.ends_with(companion)) {
      base.remove_suffix(companion.size());
      break;
    }
  const size_t at = base.rfind(".kairon-");
  if (base.size() < 2 || base.front() != '.' || at == std::string_view::npos || at < 2) return std::nullopt;
  std::optional<mark::Mark> made_by = MarkedName(base.substr(at + 8));
  if (!made_by) return std::nullopt;
  return std::pair{std::string(base), Replacement{std::string(base.substr(1, at - 1)), *made_by, {}}};
}

void LookIn(const std::string& folder, std::vector<Leftover>& found) {
  std::error_code ec;
  std::map<std::string, Replacement> replacements;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    const std::string path = it->path().string();
    std::optional<struct stat> st = LstatOf(path);
    if (!st || st->st_uid != geteuid()) continue;
    if (name.starts_with("kairon-") && S_ISDIR(st->st_mode)) {
      const size_t kind_end = name.find('-', 7);
      if (kind_end == std::string::npos) continue;
      auto kind = kFolderKinds.find(name.substr(7, kind_end - 7));
      std::optional<mark::Mark> made_by = MarkedName(std::string_view(name).substr(kind_end + 1));
      if (kind == kFolderKinds.end() || !made_by || !mark::Ended(*made_by, st->st_ctime)) continue;
      found.push_back({path, {}, kind->second, made_by->pid, BytesIn(path)});
    } else if (S_ISREG(st->st_mode)) {
      if (auto replacement = ReplacementOf(name)) {
        Replacement& held = replacements.try_emplace(replacement->first, replacement->second).first->second;
        held.parts.push_back(name);
      }
    }
  }
  for (const auto& [base, replacement] : replacements) {
    const std::string path = (fs::path(folder) / base).string();
    std::time_t changed = 0;
    uintmax_t bytes = 0;
    Leftover leftover{path, {}, "the unfinished replacement of " + replacement.name, replacement.made_by.pid, 0};
    for (const std::string suffix : {"", "-wal", "-shm", "-journal"}) {
      if (std::find(replacement.parts.begin(), replacement.parts.end(), base + suffix) == replacement.parts.end())
        continue;
      std::optional<struct stat> st = LstatOf(path + suffix);
      if (!st) continue;
      changed = std::max(changed, st->st_ctime);
      bytes += static_cast<uintmax_t>(st->st_size);
      if (!suffix.empty()) leftover.companions.push_back(path + suffix);
    }
    if (Locked(path) || !mark::Ended(replacement.made_by, changed)) continue;
    leftover.bytes = bytes;
    found.push_back(std::move(leftover));
  }
}

}  // namespace

std::vector<std::string> SystemTemporaryFolders() {
  std::vector<std::string> folders;
  const char* tmpdir = std::getenv("TMPDIR");
  folders.push_back(tmpdir != nullptr && *tmpdir != '\0' ? tmpdir : "/tmp");
  std::error_code ec;
  const fs::path standard = fs::temp_directory_path(ec);
  if (!ec) folders.push_back(standard.string());
  return folders;
}

std::vector<Leftover> FindLeftovers(const std::vector<std::string>& folders) {
  std::vector<Leftover> found;
  std::set<std::string> seen;
  for (const std::string& folder : folders) {
    std::error_code ec;
    const fs::path resolved = fs::weakly_canonical(fs::absolute(folder.empty() ? "." : folder, ec), ec);
    if (ec || !seen.insert(resolved.string()).second) continue;
    LookIn(folder.empty() ? "." : folder, found);
  }
  std::sort(found.begin(), found.end(), [](const Leftover& a, const Leftover& b) { return a.path < b.path; });
  return found;
}

std::string RemoveLeftover(const Leftover& leftover) {
  std::error_code ec;
  std::optional<struct stat> st = LstatOf(leftover.path);
  if (st && S_ISDIR(st->st_mode))
    fs::remove_all(leftover.path, ec);
  else if (st && unlink(leftover.path.c_str()) != 0 && errno != ENOENT)
    ec.assign(errno, std::generic_category());
  for (const std::string& companion : leftover.companions)
    if (unlink(companion.c_str()) != 0 && errno != ENOENT && !ec) ec.assign(errno, std::generic_category());
  return ec ? CauseOf(ec.value()) : "";
}

std::vector<Removal> RemoveLeftovers(const std::vector<std::string>& folders) {
  std::vector<Removal> removals;
  for (Leftover& leftover : FindLeftovers(folders)) {
    std::string failure = RemoveLeftover(leftover);
    removals.push_back({std::move(leftover), std::move(failure)});
  }
  return removals;
}

}  // namespace refhost
