#include "converters/documents/filing.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "converters/documents/file_name.h"
#include "converters/documents/gzip_decoder.h"
#include "host/failure.h"
#include "host/object.h"
#include "plugin/modConversione.h"

namespace cnv::filing {
namespace {

[[noreturn]] void RaiseBadFileName() { throw host::Failure(kBadFileName, "Nome o numero di file non valido"); }

[[noreturn]] void RaiseFileFailure(int error) {
  switch (error) {
    case EINVAL:
    case ENAMETOOLONG:
      RaiseBadFileName();
    case ENOENT:
    case ENOTDIR:
      throw host::Failure(kPathNotFound, "Impossibile trovare il percorso");
    default:
      throw host::Failure(kPathAccessError, "Errore di accesso al percorso/file");
  }
}

}  // namespace

TempFolder::TempFolder(std::string path) : path_(std::move(path)) {}

TempFolder::~TempFolder() {
  if (folder_fd_ < 0) return;
  for (const auto& [name, identity] : written_) {
    struct stat st {};
    if (fstatat(folder_fd_, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (!S_ISREG(st.st_mode) || st.st_dev != identity.device || st.st_ino != identity.inode) continue;
    unlinkat(folder_fd_, name.c_str(), 0);
  }
  close(folder_fd_);
}

std::string TempFolder::PathOf(const std::string& file_name) const { return path_ + "/" + file_name; }

int TempFolder::OpenFolder() {
  if (folder_fd_ >= 0) return folder_fd_;
  if (path_.find('\0') != std::string::npos) {
    errno = EINVAL;
    return -1;
  }
  folder_fd_ = open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  return folder_fd_;
}

void TempFolder::Remember(int fd, const std::string& file_name) {
  struct stat st {};
  if (fstat(fd, &st) == 0) written_[file_name] = {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
}

int TempFolder::Create(const std::string& file_name) {
  if (!IsFileName(file_name)) {
    errno = EINVAL;
    return -1;
  }
  const int folder = OpenFolder();
  if (folder < 0) return -1;
  // A folder at the name stays, and then the exclusive creation refuses.
  if (unlinkat(folder, file_name.c_str(), 0) != 0 && errno != ENOENT && errno != EISDIR && errno != EPERM) return -1;
  const int fd = openat(folder, file_name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd >= 0) Remember(fd, file_name);
  return fd;
}

// Closes fd and removes the file it was made as, if it still lies there.
void TempFolder::Discard(int fd, const std::string& file_name) {
  struct stat opened {}, named {};
  if (fstat(fd, &opened) == 0 && fstatat(folder_fd_, file_name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
      opened.st_dev == named.st_dev && opened.st_ino == named.st_ino)
    unlinkat(folder_fd_, file_name.c_str(), 0);
  close(fd);
}

void TempFolder::Write(const std::string& file_name, const std::vector<uint8_t>& bytes) {
  const int fd = Create(file_name);
  if (fd < 0) RaiseFileFailure(errno);
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const int error = n < 0 ? errno : ENOSPC;
      Discard(fd, file_name);
      RaiseFileFailure(error);
    }
    done += static_cast<size_t>(n);
  }
  if (close(fd) != 0) {
    const int error = errno;
    const int folder = OpenFolder();
    if (folder >= 0) unlinkat(folder, file_name.c_str(), 0);
    RaiseFileFailure(error);
  }
}

bool IsGzip(const std::vector<uint8_t>& bytes) {
  if (bytes.size() < 3) throw host::Failure(kSubscriptOutOfRange, "Indice non compreso nell'intervallo");
  return bytes[0] == 0x1F && bytes[1] == 0x8B && bytes[2] == 0x08;
}

host::Value RequiredBytes(host::Value column) {
  if (column.is_null()) host::failures::Raise(host::failures::kInvalidUseOfNull);
  return BytesOf(std::move(column));
}

std::string CleanName(const std::string& name) {
  std::string blanks;
  for (char c : name) blanks += c == ' ' ? '_' : c;
  std::string clean;
  for (char c : blanks) {
    if (c == '/')
      clean += " di ";
    else
      clean += c;
  }
  return clean;
}

void Killfile(const TempFolder& folder, const std::string& file_name) {
  if (!file_name.empty() && !IsFileName(file_name)) return;
  host::Value percorso = file_name.empty() ? std::string() : folder.PathOf(file_name);
  host::Call(host::Get(InterfaceCorrente(), "framework"), "Killfile", {host::Arg::Ref(percorso)});
}

void SalvaFile(host::Value& paziente, host::Value& id, const std::string& title, const TempFolder& folder,
               const std::string& file_name) {
  if (!IsFileName(file_name)) return;
  host::Value percorso = folder.PathOf(file_name);
  host::Call(host::Get(paziente, "Files"), "SalvaFile", {host::Arg::Ref(id), title, host::Arg::Ref(percorso)});
}

bool File(TempFolder& folder, host::Value& paziente, host::Value& id, const std::string& title,
          const std::string& file_name, const std::vector<uint8_t>& bytes) {
  if (IsGzip(bytes)) {
    if (DecodeGzip(bytes, folder, file_name) != kGzipDone) return false;
  } else {
    if (!IsFileName(file_name)) RaiseBadFileName();
    Killfile(folder, file_name);
    folder.Write(file_name, bytes);
  }
  SalvaFile(paziente, id, title, folder, file_name);
  return true;
}

}  // namespace cnv::filing
