// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Export.h"

namespace Kes {

// A broken internal invariant: writes "UNIT: OPERATION: assertion failed: EXPRESSION" to stderr and aborts.
// Always on. Used for our own faults only; what a caller can cause is an exception.
[[noreturn]] KES_EXPORT void assertFailed(char const* unit, char const* operation, char const* expression);

// Ends the process unless `holds`. The expression is passed as text because operators and support know these
// texts; they do not change when the code around them does.
inline void assertThat(bool holds, char const* unit, char const* operation, char const* expression) {
  if (!holds) [[unlikely]]
    assertFailed(unit, operation, expression);
}

}  // namespace Kes
