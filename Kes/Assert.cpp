// SPDX-License-Identifier: Apache-2.0
#include "Kes/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kes {

void assertFailed(char const* unit, char const* operation, char const* expression) {
  std::fprintf(stderr, "%s: %s: assertion failed: %s\n", unit, operation, expression);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Kes
