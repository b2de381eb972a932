// The opening's side on Windows: files looked at through wide-character
// paths, shared with whatever else has them open. The client reaches the
// files through the installed Firebird or the practice's server, so there is
// no lock folder to check and no private copy to make.
#include <windows.h>

#include "host/windows/variant.h"
#include "source/opening.h"
#include "source/opening_platform.h"

namespace source::opening {
namespace {

using host::windows::Utf16;
using host::windows::Utf8;
using platform::Quoted;

std::string SystemWords(DWORD error) {
  wchar_t* words = nullptr;
  const DWORD length =
      FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                     nullptr, error, 0, reinterpret_cast<wchar_t*>(&words), 0, nullptr);
  std::wstring text(words != nullptr ? words : L"", length);
  LocalFree(words);
  while (!text.empty() && (text.back() == L'\r' || text.back() == L'\n' || text.back() == L' ' || text.back() == L'.'))
    text.pop_back();
  return text.empty() ? "errore di sistema " + std::to_string(error) : Utf8(text);
}

std::string SystemCause(const std::string& path, DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
      return platform::MissingCause(path);
    case ERROR_ACCESS_DENIED:
      return platform::DeniedCause(path, "leggere");
    default:
      return "Il file " + Quoted(path) + " non si può leggere: " + SystemWords(error) + ".";
  }
}

// The practice's running server opens its files for itself alone.
bool HeldByAnother(DWORD error) { return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION; }

}  // namespace

namespace platform {

std::string UserName() {
  wchar_t name[256 + 1];
  DWORD length = sizeof name / sizeof name[0];
  if (!GetUserNameW(name, &length) || length == 0) return "corrente";
  return Utf8(std::wstring_view(name, length - 1));
}

FileFacts LookAt(const std::string& path, size_t count) {
  FileFacts file;
  // A file that another process (the practice's server) holds is passed
  // over; any other refusal is the cause.
  const auto refused = [&](DWORD error) {
    if (HeldByAnother(error))
      file.held = true;
    else
      file.cause = SystemCause(path, error);
    return file;
  };
  const std::wstring wide = Utf16(path);
  const DWORD attributes = GetFileAttributesW(wide.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return refused(GetLastError());
  if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
    file.cause = FolderCause(path);
    return file;
  }
  file.writable = (attributes & FILE_ATTRIBUTE_READONLY) == 0;

  // Read only, and shared in every way, so that looking never stands in the
  // way of a server that has the file open.
  HANDLE handle = CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return refused(GetLastError());
  if (GetFileType(handle) != FILE_TYPE_DISK) {
    CloseHandle(handle);
    file.cause = NotAFileCause(path);
    return file;
  }
  LARGE_INTEGER size{};
  GetFileSizeEx(handle, &size);
  file.size = static_cast<uint64_t>(size.QuadPart);
  file.first_bytes.assign(count, '\0');
  size_t got = 0;
  while (got < count) {
    DWORD read = 0;
    if (!ReadFile(handle, file.first_bytes.data() + got, static_cast<DWORD>(count - got), &read, nullptr)) {
      // A server that locked the pages it is using lets nothing be read.
      const DWORD error = GetLastError();
      CloseHandle(handle);
      file.first_bytes.clear();
      if (HeldByAnother(error)) {
        file.held = true;
      } else {
        file.cause = SystemCause(path, error);
      }
      return file;
    }
    if (read == 0) break;
    got += read;
  }
  file.first_bytes.resize(got);
  CloseHandle(handle);
  return file;
}

}  // namespace platform

bool IsLocalPath(const std::string& database) {
  // A drive letter's ":" belongs to the path; any other ":" ends a host name
  // ("server:C:\Ambulor\GX_USER.FDB"), as in "xnet://" and "inet://".
  const bool drive = database.size() >= 2 && database[1] == ':' &&
                     ((database[0] >= 'A' && database[0] <= 'Z') || (database[0] >= 'a' && database[0] <= 'z'));
  return database.find(':', drive ? 2 : 0) == std::string::npos;
}

std::string FindBeside(const std::string& folder, const std::string& name) { return folder + name; }

std::string LockFolder() { return ""; }

std::string CheckLockFolder() { return ""; }

std::string Opening::PathToAttach(const std::string& database, const FileCheck&) { return database; }

}  // namespace source::opening
