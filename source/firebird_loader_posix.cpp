#include "source/firebird_loader.h"

namespace source::firebird {

Firebird::IMaster* LoadMaster() { return Firebird::fb_get_master_interface(); }

}  // namespace source::firebird
