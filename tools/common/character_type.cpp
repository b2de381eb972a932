#include "tools/common/character_type.h"

#include <langinfo.h>

#include <clocale>
#include <cstring>

namespace tools {

void UseEnvironmentCharacterType() {
  std::setlocale(LC_CTYPE, "");
  if (std::strcmp(nl_langinfo(CODESET), "ANSI_X3.4-1968") == 0) std::setlocale(LC_CTYPE, "C.UTF-8");
}

}  // namespace tools
