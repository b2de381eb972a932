#include "source/opening.h"

#include <filesystem>
#include <system_error>

#include "host/text.h"
#include "source/firebird_loader.h"
#include "source/opening_platform.h"

namespace source::opening {
namespace {

namespace fs = std::filesystem;

using platform::Quoted;
using platform::UserName;

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

std::string OdsText(unsigned major, unsigned minor) { return std::to_string(major) + "." + std::to_string(minor); }

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

// A text of the engine's message, made comparable.
bool Says(const host::Failure& failure, std::string_view words) {
  return host::text::Lower(failure.description()).find(words) != std::string::npos;
}

}  // namespace

namespace platform {

std::string Quoted(const std::string& path) { return "\"" + path + "\""; }

std::string MissingCause(const std::string& path) {
  return "Il file " + Quoted(path) +
         " non esiste. Rimedio: controllare il percorso; GX_USER.FDB, GX_MEDIA.FDB e GX_DATA.FDB devono stare "
         "tutti e tre nella stessa cartella.";
}

std::string FolderCause(const std::string& path) {
  return "Al posto del file " + Quoted(path) +
         " c'è una cartella. Rimedio: copiare nella cartella dell'archivio il file del database con quel nome (non "
         "la cartella che lo contiene).";
}

std::string NotAFileCause(const std::string& path) {
  return Quoted(path) +
         " non è un file ordinario (è un dispositivo, una coda o un socket). Rimedio: indicare la cartella dove si "
         "trovano i file del database.";
}

std::string DeniedCause(const std::string& path, const char* operation) {
  return "L'utente " + UserName() + " non ha il permesso di " + operation + " il file " + Quoted(path) +
         ". Rimedio: dare a questo utente il permesso di lettura sul file e di accesso alle cartelle che lo "
         "contengono, o eseguire la conversione con l'utente che possiede i file.";
}

}  // namespace platform

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

namespace {

// The Firebird versions that write an ODS: "Firebird 2.5" for 11.2.
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

}  // namespace

FileCheck CheckFile(const std::string& path) {
  FileCheck check;
  const platform::FileFacts file = platform::LookAt(path, kHeaderBytesRead);
  if (!file.cause.empty()) {
    check.number = kIoError;
    check.cause = file.cause;
    return check;
  }
  check.writable = file.writable;
  // The practice's running server keeps its file to itself: what the file
  // holds is then the server's to tell.
  if (file.held) return check;
  const std::string& first = file.first_bytes;

  const uint64_t size = file.size;
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

std::string CauseOfAttachFailure(const std::string& path, const host::Failure& failure) {
  // No client: its cause is already in words.
  if (failure.number() == firebird::kClientUnavailable) return failure.description();
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
  if (!LockFolder().empty() &&
      (failure.number() == kLockFolder || Says(failure, "lock files' directory") || Says(failure, "lock manager")))
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
  return PathToAttach(database, check);
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
