// How a host creates the plug-in's class: the library exports, with C
// linkage, the four entry points of an in-process component server. The
// class factory that DllGetClassObject hands out creates late-bound objects.
#pragma once

#include <cstdint>

#include "host/object.h"

namespace host {

struct ClassId {
  uint32_t data1;
  uint16_t data2;
  uint16_t data3;
  uint8_t data4[8];
  bool operator==(const ClassId&) const = default;
};

// The identity of the class factory interface that DllGetClassObject gives.
inline constexpr ClassId kClassFactoryInterface = {
    0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

class ClassFactory {
 public:
  virtual ~ClassFactory() = default;
  // A new instance of the class, reached by member name only.
  virtual ObjectRef CreateInstance() = 0;
};

// Result codes of the entry points.
inline constexpr int32_t kOk = 0;
inline constexpr int32_t kFalse = 1;
inline constexpr int32_t kClassNotAvailable = static_cast<int32_t>(0x80040111);
inline constexpr int32_t kNoInterface = static_cast<int32_t>(0x80004002);
inline constexpr int32_t kNullPointer = static_cast<int32_t>(0x80004003);

// The entry points' signatures, as a host looks them up with dlsym.
// DllGetClassObject puts a ClassFactory* (owned by the library) in *factory.
using DllGetClassObjectFn = int32_t (*)(const ClassId* clsid, const ClassId* iid, void** factory);
using DllCanUnloadNowFn = int32_t (*)();
using DllRegisterServerFn = int32_t (*)();
using DllUnregisterServerFn = int32_t (*)();

}  // namespace host
