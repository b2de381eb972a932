#include "plugin/local_system.h"

#include <windows.h>

#include "host/windows/variant.h"

namespace cnv::local_system {

// A path's own attributes are read without opening it, so that a file that
// another process holds (a running database server) still counts; a link
// or junction is opened, through to what it points at.
bool IsFileThere(const std::string& path) {
  const std::wstring wide = host::windows::Utf16(path);
  const DWORD attributes = GetFileAttributesW(wide.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return false;
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
  const HANDLE target = CreateFileW(wide.c_str(), FILE_READ_ATTRIBUTES,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (target == INVALID_HANDLE_VALUE) return false;
  BY_HANDLE_FILE_INFORMATION information;
  const bool found = GetFileInformationByHandle(target, &information) != 0 &&
                     (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
  CloseHandle(target);
  return found;
}

Day LocalToday() {
  SYSTEMTIME now;
  GetLocalTime(&now);
  return Day{now.wYear, now.wMonth, now.wDay};
}

}  // namespace cnv::local_system
