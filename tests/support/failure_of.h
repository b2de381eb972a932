// What a call raised, for tests of both platforms.
#pragma once

#include <cstdint>
#include <functional>

#include <gtest/gtest.h>

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

// The failure that call raised, whatever it threw, as the plug-in's traps
// take it; a test failure when it raised nothing.
inline host::Failure FailureRaisedBy(const std::function<void()>& call) {
  try {
    call();
  } catch (...) {
    return host::CurrentFailure();
  }
  ADD_FAILURE() << "nothing was raised";
  return host::Failure(0, "");
}

}  // namespace fixture
