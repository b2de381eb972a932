// The temporary folder's files on Windows: paths in UTF-16, handles that
// never follow a reparse point (a symbolic link or a junction) to a file
// elsewhere, and a file's identity in its volume's serial number and its
// file index.
#include <windows.h>

#include <algorithm>
#include <utility>

#include "converters/documents/temp_files.h"

namespace cnv::filing::temp_files {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

Failure FailureOf(DWORD error) {
  switch (error) {
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE:
      return Failure::kBadName;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_DIRECTORY:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
      return Failure::kPathNotFound;
    default:
      return Failure::kAccess;
  }
}

// The UTF-16 of a UTF-8 path; false for bytes that aren't UTF-8 or a NUL,
// which no path of Windows holds.
bool Wide(const std::string& utf8, std::wstring& wide) {
  if (utf8.find('\0') != std::string::npos) return false;
  wide.clear();
  if (utf8.empty()) return true;
  const int size = static_cast<int>(utf8.size());
  const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), size, nullptr, 0);
  if (length <= 0) return false;
  wide.resize(static_cast<size_t>(length));
  return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), size, wide.data(), length) == length;
}

HANDLE HandleOf(intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

// A plain file: neither a folder nor a reparse point.
bool IsPlainFile(const BY_HANDLE_FILE_INFORMATION& information) {
  return (information.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0;
}

Identity IdentityOf(const BY_HANDLE_FILE_INFORMATION& information) {
  return {information.dwVolumeSerialNumber,
          static_cast<uint64_t>(information.nFileIndexHigh) << 32 | information.nFileIndexLow};
}

// Marks the open file for removal when its last handle closes; the handle
// must have been opened with DELETE access.
void RemoveOnClose(HANDLE handle) {
  FILE_DISPOSITION_INFO disposition{TRUE};
  SetFileInformationByHandle(handle, FileDispositionInfo, &disposition, sizeof disposition);
}

}  // namespace

File::File(File&& other) noexcept
    : handle_(std::exchange(other.handle_, kNone)), identity_(other.identity_) {}

File& File::operator=(File&& other) noexcept {
  if (this != &other) {
    if (is_open()) CloseHandle(HandleOf(handle_));
    handle_ = std::exchange(other.handle_, kNone);
    identity_ = other.identity_;
  }
  return *this;
}

File::~File() {
  if (is_open()) CloseHandle(HandleOf(handle_));
}

bool File::Write(const void* data, size_t size, Failure& failure) {
  auto bytes = static_cast<const unsigned char*>(data);
  while (size > 0) {
    const DWORD piece = static_cast<DWORD>(std::min<size_t>(size, DWORD{1} << 30));
    DWORD written = 0;
    if (!WriteFile(HandleOf(handle_), bytes, piece, &written, nullptr) || written == 0) {
      failure = FailureOf(GetLastError());
      return false;
    }
    bytes += written;
    size -= written;
  }
  return true;
}

bool File::Close(Failure& failure) {
  if (CloseHandle(HandleOf(std::exchange(handle_, kNone)))) return true;
  failure = FailureOf(GetLastError());
  return false;
}

Folder::~Folder() {
  if (handle_ != File::kNone) CloseHandle(HandleOf(handle_));
}

std::string Folder::PathOf(const std::string& name) const { return path_ + "\\" + name; }

// The folder is held open without sharing its removal, so that while the
// routine runs it can be neither removed nor renamed and another put at
// its path.
bool Folder::Open(Failure& failure) {
  if (handle_ != File::kNone) return true;
  std::wstring wide;
  if (!Wide(path_, wide)) {
    failure = Failure::kBadName;
    return false;
  }
  const HANDLE folder = CreateFileW(wide.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (folder == INVALID_HANDLE_VALUE) {
    failure = FailureOf(GetLastError());
    return false;
  }
  BY_HANDLE_FILE_INFORMATION information;
  if (!GetFileInformationByHandle(folder, &information) ||
      (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    CloseHandle(folder);
    failure = Failure::kPathNotFound;
    return false;
  }
  handle_ = reinterpret_cast<intptr_t>(folder);
  return true;
}

bool Folder::Create(const std::string& name, File& file, Failure& failure) {
  if (!Open(failure)) return false;
  std::wstring path;
  if (!Wide(PathOf(name), path)) {
    failure = Failure::kBadName;
    return false;
  }
  // A file or a link (a symbolic link, a junction) at the name is removed,
  // the link itself and never what it points at; a folder stays.
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES) {
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
      DeleteFileW(path.c_str());
    else if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
      RemoveDirectoryW(path.c_str());
  }
  const HANDLE handle = CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    failure = FailureOf(GetLastError());
    return false;
  }
  BY_HANDLE_FILE_INFORMATION information;
  if (!GetFileInformationByHandle(handle, &information) || !IsPlainFile(information)) {
    RemoveOnClose(handle);
    CloseHandle(handle);
    failure = Failure::kAccess;
    return false;
  }
  file = File();
  file.handle_ = reinterpret_cast<intptr_t>(handle);
  file.identity_ = IdentityOf(information);
  return true;
}

void Folder::RemoveIfSame(const std::string& name, const Identity& identity) {
  std::wstring path;
  if (handle_ == File::kNone || !Wide(PathOf(name), path)) return;
  const HANDLE handle = CreateFileW(path.c_str(), DELETE | FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return;
  BY_HANDLE_FILE_INFORMATION information;
  if (GetFileInformationByHandle(handle, &information) && IsPlainFile(information) &&
      IdentityOf(information) == identity)
    RemoveOnClose(handle);
  CloseHandle(handle);
}

void Folder::Discard(File& file, const std::string&) {
  const HANDLE handle = HandleOf(std::exchange(file.handle_, File::kNone));
  RemoveOnClose(handle);
  CloseHandle(handle);
}

std::optional<Failure> MakeFolder(const std::string& path) {
  std::wstring wide;
  if (!Wide(path, wide)) return Failure::kBadName;
  if (GetFileAttributesW(wide.c_str()) != INVALID_FILE_ATTRIBUTES) return std::nullopt;
  if (CreateDirectoryW(wide.c_str(), nullptr)) return std::nullopt;
  const DWORD error = GetLastError();
  if (error == ERROR_ALREADY_EXISTS) return std::nullopt;
  return FailureOf(error);
}

}  // namespace cnv::filing::temp_files
