#include "tools/common/user_database.h"

#include <sys/stat.h>

#include <cctype>

namespace tools {
namespace {

std::string Upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// "C:\..." or "C:/...", and "\\server\share\...".
bool IsWindowsPath(const std::string& path) {
  const bool drive = path.size() >= 3 && std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':' &&
                     (path[2] == '\\' || path[2] == '/');
  return drive || path.rfind("\\\\", 0) == 0;
}

bool IsFolder(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

std::string WrongUserDatabase(const std::string& conn) {
  const std::string given = conn.substr(0, conn.find(';'));
  if (IsWindowsPath(given))
    return given + " is a Windows path, which names no file on this computer: give the path where the three "
                   "databases lie here (copied, or on a mounted share), such as /mnt/studio/Ambulor/GX_USER.FDB, or "
                   "SERVER:" + given + " to read them through the practice's Firebird server";
  const size_t colon = given.find(':');
  const bool local = colon == std::string::npos;
  const std::string path = local ? given : given.substr(colon + 1);
  const size_t slash = path.find_last_of("/\\");
  const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  const std::string name = Upper(path.substr(folder.size()));
  if (name == "GX_USER.FDB") return "";
  const std::string instead = (local ? "" : given.substr(0, colon + 1)) + folder + "GX_USER.FDB";
  if (name == "GX_MEDIA.FDB" || name == "GX_DATA.FDB")
    return given + " is the " + (name == "GX_MEDIA.FDB" ? "media" : "data") +
           " database: give the user database beside it, " + instead;
  if (local && IsFolder(given))
    return given + " is a folder: give the user database in it, " +
           (given.back() == '/' ? given : given + "/") + "GX_USER.FDB";
  return given + " is not a user database: give the path of GX_USER.FDB, whose folder holds GX_MEDIA.FDB and "
                 "GX_DATA.FDB too";
}

}  // namespace tools
