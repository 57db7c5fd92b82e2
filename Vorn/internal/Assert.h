// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Assert.h"

namespace Vorn {

// A broken invariant of the recorder: ends the process, naming the unit "Vorn", the operation and the
// expression.
inline void assertThat(bool holds, char const* operation, char const* expression) {
  Kes::assertThat(holds, "Vorn", operation, expression);
}

}  // namespace Vorn
