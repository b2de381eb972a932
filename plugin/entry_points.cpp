// The library's four entry points, with C linkage. Nothing is thrown across
// them: every failure becomes a result code.
#include <memory>

#include "host/component.h"
#include "plugin/Conversione.h"

namespace {

class ConversioneFactory : public host::ClassFactory {
 public:
  host::ObjectRef CreateInstance() override { return std::make_shared<cnv::Conversione>(); }
};

constexpr int32_t kUnexpected = static_cast<int32_t>(0x8000FFFF);

}  // namespace

extern "C" {

int32_t DllGetClassObject(const host::ClassId* clsid, const host::ClassId* iid, void** factory) {
  try {
    if (clsid == nullptr || iid == nullptr || factory == nullptr) return host::kNullPointer;
    *factory = nullptr;
    if (!(*clsid == cnv::kConversioneClassId)) return host::kClassNotAvailable;
    if (!(*iid == host::kClassFactoryInterface)) return host::kNoInterface;
    static ConversioneFactory the_factory;
    *factory = static_cast<host::ClassFactory*>(&the_factory);
    return host::kOk;
  } catch (...) {
    return kUnexpected;
  }
}

int32_t DllCanUnloadNow() { return cnv::Conversione::LiveInstances() == 0 ? host::kOk : host::kFalse; }

// The class is found by the library's path and its class identity; there is
// no registry to write to or clean.
int32_t DllRegisterServer() { return host::kOk; }

int32_t DllUnregisterServer() { return host::kOk; }

}  // extern "C"
