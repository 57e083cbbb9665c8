#pragma once
// The run-time error an action raises, for tests that pin error numbers.
#include "core/runtime/RuntimeError.h"

namespace kestro::testing {

// The error raised, or number 0 when the action raised nothing.
template <typename Action>
RuntimeError raised(Action&& action) {
    try {
        action();
    } catch (const RuntimeError& e) {
        return e;
    }
    return RuntimeError(0, "nothing raised");
}

}  // namespace kestro::testing
