// The number of the host::Failure that a call raised, for tests of both
// platforms.
#pragma once

#include <cstdint>
#include <functional>

#include "host/failure.h"

namespace fixture {

// The number of the host::Failure that call raised, 0 when it raised none.
inline int32_t FailureOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const host::Failure& failure) {
    return failure.number();
  }
  return 0;
}

}  // namespace fixture
