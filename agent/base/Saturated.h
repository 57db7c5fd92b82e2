// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <limits>

#include "Kes/Types.h"

namespace Agent {

// A number that stays at 2^32 - 1 where it would be more.
constexpr Kes::U32 saturated(Kes::U64 value) {
  return static_cast<Kes::U32>(std::min<Kes::U64>(value, std::numeric_limits<Kes::U32>::max()));
}

}  // namespace Agent
