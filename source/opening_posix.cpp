// The opening's side on Linux: files looked at through POSIX calls, the
// embedded engine's lock folder, and the private copy of a file that can't
// be written.
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "host/process_mark.h"
#include "host/text.h"
#include "source/opening.h"
#include "source/opening_platform.h"

namespace source::opening {
namespace {

namespace fs = std::filesystem;

using platform::Quoted;
using platform::UserName;

std::atomic<bool> force_copy{false};

std::string ReadFirstBytes(int descriptor, size_t count) {
  std::string bytes(count, '\0');
  size_t got = 0;
  while (got < count) {
    const ssize_t n = ::read(descriptor, bytes.data() + got, count - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  bytes.resize(got);
  return bytes;
}

std::string SystemCause(const std::string& path, int error_number, const char* operation) {
  switch (error_number) {
    case ENOENT:
      return platform::MissingCause(path);
    case ENOTDIR:
      return "Il percorso " + Quoted(path) +
             " passa per un file come se fosse una cartella. Rimedio: indicare il percorso completo di GX_USER.FDB.";
    case EACCES:
    case EPERM:
      return platform::DeniedCause(path, operation);
    default:
      return "Il file " + Quoted(path) + " non si può " + operation + ": " + std::strerror(error_number) + ".";
  }
}

}  // namespace

namespace platform {

std::string UserName() {
  if (const passwd* entry = ::getpwuid(::geteuid()); entry != nullptr) return entry->pw_name;
  return std::to_string(::geteuid());
}

FileFacts LookAt(const std::string& path, size_t count) {
  FileFacts file;
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    file.cause = SystemCause(path, errno, "leggere");
    return file;
  }
  if (S_ISDIR(st.st_mode)) {
    file.cause = FolderCause(path);
    return file;
  }
  if (!S_ISREG(st.st_mode)) {
    file.cause = NotAFileCause(path);
    return file;
  }
  int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  file.writable = descriptor >= 0;
  if (descriptor < 0) descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    file.cause = SystemCause(path, errno, "leggere");
    return file;
  }
  file.first_bytes = ReadFirstBytes(descriptor, count);
  ::close(descriptor);
  file.size = static_cast<uint64_t>(st.st_size);
  return file;
}

}  // namespace platform

bool IsLocalPath(const std::string& database) {
  // The engine reads any ":" in a path of this system as the end of a host
  // name, and "xnet://", "inet://" as protocols.
  return database.find(':') == std::string::npos;
}

std::string FindBeside(const std::string& folder, const std::string& name) {
  const std::string exact = folder + name;
  struct stat st;
  if (!IsLocalPath(exact) || ::lstat(exact.c_str(), &st) == 0) return exact;
  const std::string wanted = host::text::Upper(name);
  std::vector<std::string> found;
  std::error_code ec;
  for (fs::directory_iterator entry(folder.empty() ? "." : folder, ec), end; !ec && entry != end; entry.increment(ec)) {
    const std::string file_name = entry->path().filename().string();
    std::error_code kind;
    if (host::text::Upper(file_name) == wanted && entry->is_regular_file(kind)) found.push_back(file_name);
  }
  if (found.empty()) return exact;
  return folder + *std::min_element(found.begin(), found.end());
}

std::string LockFolder() {
  const char* given = std::getenv("FIREBIRD_LOCK");
  return given != nullptr && *given != '\0' ? given : "/tmp/firebird";
}

std::string CheckLockFolder() {
  const std::string folder = LockFolder();
  struct stat st;
  const bool exists = ::stat(folder.c_str(), &st) == 0;
  std::string problem;
  if (exists && !S_ISDIR(st.st_mode)) {
    problem = "non è una cartella";
  } else if (exists && ::access(folder.c_str(), R_OK | W_OK | X_OK) != 0) {
    const passwd* entry = ::getpwuid(st.st_uid);
    const std::string owner = entry != nullptr ? entry->pw_name : std::to_string(st.st_uid);
    const std::string user = UserName();
    problem = "appartiene all'utente " + owner + " (il primo che ha usato Firebird su questo computer) e l'utente " +
              user + " non vi può scrivere";
  } else if (!exists) {
    const std::string parent = fs::path(folder).parent_path().string();
    if (::access(parent.empty() ? "." : parent.c_str(), W_OK | X_OK) != 0)
      problem = "non esiste e l'utente " + UserName() + " non la può creare";
  }
  if (problem.empty()) return "";
  return "La cartella dei file di blocco del motore Firebird " + Quoted(folder) + " " + problem +
         ". Rimedio: indicare nella variabile d'ambiente FIREBIRD_LOCK una cartella in cui questo utente possa "
         "scrivere, oppure dargli il permesso di scrittura su " + Quoted(folder) +
         " (per esempio aggiungendolo al gruppo che la possiede), oppure eseguire la conversione con l'utente che "
         "l'ha creata.";
}

void ForceCopyForTesting(bool force) { force_copy = force; }

std::string Opening::PathToAttach(const std::string& database, const FileCheck& check) {
  if (check.writable && !force_copy) return database;

  // A private copy, in a folder that only this user can enter, named with
  // this process's mark so that what a killed run left can be told apart.
  if (folder_.empty()) {
    std::error_code ec;
    fs::path temp = fs::temp_directory_path(ec);
    if (ec) temp = "/tmp";
    std::string pattern = (temp / ("kairon-ambulor-" + host::process_mark::Own() + "-XXXXXX")).string();
    if (::mkdtemp(pattern.data()) == nullptr)
      Fail(kIoError, "Il file " + Quoted(database) +
                         " non si può scrivere, come Firebird richiede, e non si è potuta creare una cartella per "
                         "una sua copia privata in " + Quoted(temp.string()) + ": " + std::strerror(errno) +
                         ". Rimedio: copiare i tre file in una cartella scrivibile e indicare quella.");
    folder_ = pattern;
  }
  const fs::path source(database);
  const fs::path copy = fs::path(folder_) / source.filename();
  std::error_code ec;
  struct statvfs room;
  const uintmax_t size = fs::file_size(source, ec);
  if (!ec && ::statvfs(folder_.c_str(), &room) == 0 &&
      static_cast<uintmax_t>(room.f_bavail) * room.f_frsize < size + (64u << 20))
    ec = std::make_error_code(std::errc::no_space_on_device);
  if (!ec) fs::copy_file(source, copy, fs::copy_options::overwrite_existing, ec);
  if (!ec) fs::permissions(copy, fs::perms::owner_read | fs::perms::owner_write, ec);
  if (ec) {
    std::error_code ignored;
    fs::remove(copy, ignored);
    Fail(kIoError, "Il file " + Quoted(database) +
                       " non si può scrivere, come Firebird richiede anche solo per leggerlo, e la sua copia privata "
                       "in " + Quoted(folder_) + " non è riuscita: " +
                       (ec == std::errc::no_space_on_device ? std::string("non c'è spazio sul disco")
                                                            : ec.message()) +
                       ". Rimedio: liberare spazio nella cartella temporanea (o indicarne un'altra con TMPDIR), "
                       "oppure copiare i tre file in una cartella scrivibile e indicare quella.");
  }
  return copy.string();
}

}  // namespace source::opening
