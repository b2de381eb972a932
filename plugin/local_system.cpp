#include "plugin/local_system.h"

#include <sys/stat.h>

#include <ctime>

namespace cnv::local_system {

bool IsFileThere(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

Day LocalToday() {
  const std::time_t now = std::time(nullptr);
  std::tm local;
  localtime_r(&now, &local);
  return Day{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday};
}

}  // namespace cnv::local_system
