#include "source/opening.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "host/process_mark.h"
#include "host/text.h"

namespace source::opening {
namespace {

namespace fs = std::filesystem;

std::atomic<bool> force_copy{false};

// The header page, as the engine lays it out on a little-endian machine.
constexpr size_t kPageTypeOffset = 0x00;
constexpr unsigned char kHeaderPageType = 1;
constexpr size_t kPageSizeOffset = 0x10;
constexpr size_t kOdsVersionOffset = 0x12;
constexpr unsigned kFirebirdOdsFlag = 0x8000;
// The minor version moved when ODS 12 gave its place to the CPU, OS and
// compiler bytes.
constexpr size_t kOdsMinorOffsetUpTo11 = 0x3E;
constexpr size_t kOdsMinorOffsetFrom12 = 0x40;
constexpr size_t kHeaderBytesRead = 0x44;
constexpr unsigned kSmallestPage = 1024;
constexpr unsigned kLargestPage = 32768;

unsigned U16At(std::string_view bytes, size_t offset) {
  return static_cast<unsigned char>(bytes[offset]) | (static_cast<unsigned char>(bytes[offset + 1]) << 8);
}

std::string Quoted(const std::string& path) { return "\"" + path + "\""; }

std::string UserName() {
  if (const passwd* entry = ::getpwuid(::geteuid()); entry != nullptr) return entry->pw_name;
  return std::to_string(::geteuid());
}

std::string OdsText(unsigned major, unsigned minor) { return std::to_string(major) + "." + std::to_string(minor); }

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

// What to do about a file that another Firebird wrote.
std::string OtherEngineRemedy(bool newer) {
  std::string remedy =
      " Rimedio: collegarsi al server Firebird dello studio, che apre il file, indicando \"host:percorso\" "
      "(per esempio \"server-studio:C:\\Ambulor\\GX_USER.FDB\", con i tre file nella stessa cartella del server)";
  if (newer)
    return remedy + ". Una copia di sicurezza fatta con gbak del server più recente in genere non si ripristina "
                    "con un Firebird più vecchio.";
  return remedy + ", oppure farne una copia di sicurezza con gbak di quel server (gbak -b) e ripristinarla con "
                  "gbak di questo Firebird 3 (gbak -c), per tutti e tre i file GX_USER.FDB, GX_MEDIA.FDB e "
                  "GX_DATA.FDB.";
}

std::string CorruptCause(const std::string& path, const std::string& detail) {
  return "Il file " + Quoted(path) + " è troncato o danneggiato (" + detail +
         "). Rimedio: copiarlo di nuovo dal computer dello studio, per intero, o farlo controllare e riparare "
         "con gfix sul server dello studio prima di copiarlo.";
}

std::string NotADatabaseCause(const std::string& path) {
  return "Il file " + Quoted(path) +
         " non è un database Firebird (la sua prima pagina non è l'intestazione di un database). Rimedio: "
         "controllare di avere indicato la cartella dell'archivio giusta e che il file sia il database stesso, "
         "non una copia di sicurezza (.fbk) o un archivio compresso.";
}

std::string SystemCause(const std::string& path, int error_number, const char* operation) {
  switch (error_number) {
    case ENOENT:
      return "Il file " + Quoted(path) +
             " non esiste. Rimedio: controllare il percorso; GX_USER.FDB, GX_MEDIA.FDB e GX_DATA.FDB devono stare "
             "tutti e tre nella stessa cartella.";
    case ENOTDIR:
      return "Il percorso " + Quoted(path) +
             " passa per un file come se fosse una cartella. Rimedio: indicare il percorso completo di GX_USER.FDB.";
    case EACCES:
    case EPERM:
      return "L'utente " + UserName() + " non ha il permesso di " + operation + " il file " + Quoted(path) +
             ". Rimedio: dare a questo utente il permesso di lettura sul file e di accesso alle cartelle che lo "
             "contengono, o eseguire la conversione con l'utente che possiede i file.";
    default:
      return "Il file " + Quoted(path) + " non si può " + operation + ": " + std::strerror(error_number) + ".";
  }
}

// A text of the engine's message, made comparable.
bool Says(const host::Failure& failure, std::string_view words) {
  return host::text::Lower(failure.description()).find(words) != std::string::npos;
}

}  // namespace

std::optional<Ods> ReadHeaderPage(std::string_view bytes) {
  if (bytes.size() < kHeaderBytesRead) return std::nullopt;
  if (static_cast<unsigned char>(bytes[kPageTypeOffset]) != kHeaderPageType) return std::nullopt;
  Ods ods;
  ods.page_size = U16At(bytes, kPageSizeOffset);
  // 32768 doesn't fit the field's 16 bits on its own: it is kept as is, and
  // the engine reads it back the same.
  if (ods.page_size < kSmallestPage || ods.page_size > kLargestPage || (ods.page_size & (ods.page_size - 1)) != 0)
    return std::nullopt;
  const unsigned version = U16At(bytes, kOdsVersionOffset);
  ods.firebird = (version & kFirebirdOdsFlag) != 0;
  ods.major = version & ~kFirebirdOdsFlag;
  if (ods.major == 0) return std::nullopt;
  ods.minor = U16At(bytes, ods.major >= 12 ? kOdsMinorOffsetFrom12 : kOdsMinorOffsetUpTo11);
  return ods;
}

std::string WritersOf(unsigned major, unsigned minor) {
  switch (major) {
    case 10:
      return minor == 0 ? "Firebird 1.0" : minor == 1 ? "Firebird 1.5" : "Firebird 1.x";
    case 11:
      return minor == 0 ? "Firebird 2.0" : minor == 1 ? "Firebird 2.1" : minor == 2 ? "Firebird 2.5" : "Firebird 2.x";
    case 12:
      return "Firebird 3.0";
    case 13:
      return minor == 0 ? "Firebird 4.0" : minor == 1 ? "Firebird 5.0" : "Firebird 4.0 o successivo";
    default:
      return major < 10 ? "un programma anteriore a Firebird" : "una versione di Firebird successiva alla 5.0";
  }
}

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

FileCheck CheckFile(const std::string& path) {
  FileCheck check;
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    check.number = kIoError;
    check.cause = SystemCause(path, errno, "leggere");
    return check;
  }
  if (S_ISDIR(st.st_mode)) {
    check.number = kIoError;
    check.cause = "Al posto del file " + Quoted(path) +
                  " c'è una cartella. Rimedio: copiare nella cartella dell'archivio il file del database con quel "
                  "nome (non la cartella che lo contiene).";
    return check;
  }
  if (!S_ISREG(st.st_mode)) {
    check.number = kIoError;
    check.cause = Quoted(path) +
                  " non è un file ordinario (è un dispositivo, una coda o un socket). Rimedio: indicare la cartella "
                  "dove si trovano i file del database.";
    return check;
  }

  int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  check.writable = descriptor >= 0;
  if (descriptor < 0) descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    check.number = kIoError;
    check.cause = SystemCause(path, errno, "leggere");
    return check;
  }
  const std::string first = ReadFirstBytes(descriptor, kHeaderBytesRead);
  ::close(descriptor);

  const auto size = static_cast<uint64_t>(st.st_size);
  if (size == 0) {
    check.number = kCorrupt;
    check.cause = CorruptCause(path, "è vuoto, lungo 0 byte");
    return check;
  }
  const std::optional<Ods> ods = ReadHeaderPage(first);
  if (!ods) {
    check.number = kNotADatabase;
    check.cause = NotADatabaseCause(path);
    return check;
  }
  if (!ods->firebird) {
    check.number = kWrongOds;
    check.cause = "Il file " + Quoted(path) + " è un database con struttura su disco (ODS) " +
                  OdsText(ods->major, ods->minor) +
                  " senza il contrassegno di Firebird: l'ha scritto un altro motore di database, che questo "
                  "Firebird 3 non apre." +
                  OtherEngineRemedy(false);
    return check;
  }
  if (ods->major != kEngineOdsMajor || ods->minor != kEngineOdsMinor) {
    const bool newer = ods->major > kEngineOdsMajor || (ods->major == kEngineOdsMajor && ods->minor > kEngineOdsMinor);
    check.number = kWrongOds;
    check.cause = "Il file " + Quoted(path) + " è un database di una versione " + (newer ? "più recente" : "più vecchia") +
                  " di Firebird: la sua struttura su disco è ODS " + OdsText(ods->major, ods->minor) +
                  ", quella che scrive " + WritersOf(ods->major, ods->minor) + ", mentre questo programma usa " +
                  "Firebird 3.0, che apre soltanto ODS " + OdsText(kEngineOdsMajor, kEngineOdsMinor) + "." +
                  OtherEngineRemedy(newer);
    return check;
  }
  // Every database has at least its header, page inventory, transaction
  // inventory and pointer pages, and is made of whole pages.
  if (size % ods->page_size != 0 || size < 4ull * ods->page_size) {
    check.number = kCorrupt;
    check.cause = CorruptCause(path, "è lungo " + std::to_string(size) + " byte, mentre un database è fatto di " +
                                         "almeno quattro pagine intere, qui di " + std::to_string(ods->page_size) +
                                         " byte l'una");
    return check;
  }
  return check;
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

std::string CauseOfAttachFailure(const std::string& path, const host::Failure& failure) {
  const std::string engine = "(messaggio di Firebird: " + failure.description() + ")";
  if (!IsLocalPath(path)) {
    const std::string server = path.substr(0, path.find(':'));
    if (failure.number() == 335544721 || Says(failure, "unable to complete network request"))
      return "Il server Firebird " + Quoted(server) +
             " non risponde. Rimedio: controllare che il server sia acceso e raggiungibile da questo computer, che "
             "il nome e la porta siano giusti e che nessun firewall li blocchi " + engine + ".";
    if (failure.number() == 335544472 || Says(failure, "user name and password"))
      return "Il server Firebird " + Quoted(server) +
             " ha rifiutato l'utente SYSDBA con la password dell'archivio. Rimedio: sul server l'utente SYSDBA deve "
             "avere la password che usa il programma dello studio " + engine + ".";
    if (Says(failure, "no such file") || Says(failure, "i/o error"))
      return "Il server Firebird " + Quoted(server) + " non trova o non legge il file " +
             Quoted(path.substr(path.find(':') + 1)) +
             ". Rimedio: indicare dopo \"host:\" il percorso del file come lo vede il server " + engine + ".";
    return "Il database " + Quoted(path) + " non si apre sul server " + engine + ".";
  }
  if (failure.number() == kLockFolder || Says(failure, "lock files' directory") || Says(failure, "lock manager"))
    return CheckLockFolder().empty() ? "Il motore Firebird non può usare la cartella dei file di blocco " +
                                           Quoted(LockFolder()) + " " + engine + "."
                                     : CheckLockFolder() + " " + engine;
  if (failure.number() == kWrongOds) {
    const FileCheck check = CheckFile(path);
    return check.cause.empty() ? "Il file " + Quoted(path) + " ha una struttura su disco che questo Firebird non "
                                     "apre " + engine + "." + OtherEngineRemedy(false)
                               : check.cause;
  }
  if (failure.number() == kNotADatabase || failure.number() == kCorrupt || Says(failure, "corrupt") ||
      Says(failure, "checksum") || Says(failure, "wrong page type") || Says(failure, "short read") ||
      Says(failure, "end of file") || Says(failure, "size is less than expected"))
    return CorruptCause(path, engine.substr(1, engine.size() - 2));
  if (Says(failure, "read-write access") || Says(failure, "permission denied"))
    return "L'utente " + UserName() + " non può aprire il file " + Quoted(path) +
           " come Firebird lo richiede, in lettura e scrittura. Rimedio: dargli il permesso di scrittura sul file "
           + engine + ".";
  return "Il database " + Quoted(path) + " non si apre " + engine + ".";
}

void ForceCopyForTesting(bool force) { force_copy = force; }

Opening::~Opening() { RemoveCopies(); }

void Opening::Fail(int32_t number, std::string cause) {
  cause_ = cause;
  throw host::Failure(number, std::move(cause));
}

std::string Opening::Prepare(const std::string& database) {
  if (!IsLocalPath(database)) return database;
  const FileCheck check = CheckFile(database);
  if (check.number != 0) Fail(check.number, check.cause);
  if (!lock_folder_checked_) {
    if (std::string lock = CheckLockFolder(); !lock.empty()) Fail(kLockFolder, lock);
    lock_folder_checked_ = true;
  }
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

void Opening::Explain(const std::string& database, const host::Failure& failure) {
  if (cause_.empty()) cause_ = CauseOfAttachFailure(database, failure);
}

void Opening::RemoveCopies() {
  if (folder_.empty()) return;
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
  folder_.clear();
}

}  // namespace source::opening
