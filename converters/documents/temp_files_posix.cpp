#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "converters/documents/temp_files.h"

namespace cnv::filing::temp_files {
namespace {

Failure FailureOf(int error) {
  switch (error) {
    case EINVAL:
    case ENAMETOOLONG:
      return Failure::kBadName;
    case ENOENT:
    case ENOTDIR:
      return Failure::kPathNotFound;
    default:
      return Failure::kAccess;
  }
}

Identity IdentityOf(const struct stat& st) {
  return {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
}

}  // namespace

File::File(File&& other) noexcept
    : handle_(std::exchange(other.handle_, kNone)), identity_(other.identity_) {}

File& File::operator=(File&& other) noexcept {
  if (this != &other) {
    if (is_open()) close(static_cast<int>(handle_));
    handle_ = std::exchange(other.handle_, kNone);
    identity_ = other.identity_;
  }
  return *this;
}

File::~File() {
  if (is_open()) close(static_cast<int>(handle_));
}

bool File::Write(const void* data, size_t size, Failure& failure) {
  auto bytes = static_cast<const unsigned char*>(data);
  while (size > 0) {
    const ssize_t n = write(static_cast<int>(handle_), bytes, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      failure = n < 0 ? FailureOf(errno) : Failure::kAccess;
      return false;
    }
    bytes += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool File::Close(Failure& failure) {
  const int fd = static_cast<int>(std::exchange(handle_, kNone));
  if (close(fd) == 0) return true;
  failure = FailureOf(errno);
  return false;
}

Folder::~Folder() {
  if (handle_ != File::kNone) close(static_cast<int>(handle_));
}

std::string Folder::PathOf(const std::string& name) const { return path_ + "/" + name; }

bool Folder::Open(Failure& failure) {
  if (handle_ != File::kNone) return true;
  if (path_.find('\0') != std::string::npos) {
    failure = Failure::kBadName;
    return false;
  }
  const int fd = open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) {
    failure = FailureOf(errno);
    return false;
  }
  handle_ = fd;
  return true;
}

bool Folder::Create(const std::string& name, File& file, Failure& failure) {
  if (!Open(failure)) return false;
  const int folder = static_cast<int>(handle_);
  if (unlinkat(folder, name.c_str(), 0) != 0 && errno != ENOENT && errno != EISDIR && errno != EPERM) {
    failure = FailureOf(errno);
    return false;
  }
  const int fd = openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  struct stat st {};
  if (fd < 0 || fstat(fd, &st) != 0) {
    failure = FailureOf(errno);
    if (fd >= 0) {
      unlinkat(folder, name.c_str(), 0);
      close(fd);
    }
    return false;
  }
  file = File();
  file.handle_ = fd;
  file.identity_ = IdentityOf(st);
  return true;
}

void Folder::RemoveIfSame(const std::string& name, const Identity& identity) {
  if (handle_ == File::kNone) return;
  const int folder = static_cast<int>(handle_);
  struct stat st {};
  if (fstatat(folder, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (S_ISREG(st.st_mode) && IdentityOf(st) == identity) unlinkat(folder, name.c_str(), 0);
}

void Folder::Discard(File& file, const std::string& name) {
  RemoveIfSame(name, file.identity());
  close(static_cast<int>(std::exchange(file.handle_, File::kNone)));
}

std::optional<Failure> MakeFolder(const std::string& path) {
  if (path.find('\0') != std::string::npos) return Failure::kBadName;
  struct stat st {};
  if (lstat(path.c_str(), &st) == 0) return std::nullopt;
  if (mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return std::nullopt;
  return errno == ENOENT || errno == ENOTDIR ? Failure::kPathNotFound : Failure::kAccess;
}

}  // namespace cnv::filing::temp_files
