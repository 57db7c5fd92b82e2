// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Types.h"

namespace Agent {

// How looks at queues follow one another. In microseconds.
struct Pace {
  // Three looks: what a look or two have missed is one burst.
  static constexpr Kes::U64 coalescedIntervals = 3;

  // A number of microseconds between looks says all, as long as nobody asks for another coalescing time.
  constexpr Pace(Kes::U64 between) : Pace(between, coalescedIntervals * between) {}
  constexpr Pace(Kes::U64 between, Kes::U64 coalesced) : interval(between), coalescing(coalesced) {}

  Kes::U64 interval;    // intended between two looks
  Kes::U64 coalescing;  // congestion that follows after no more than this is the same burst
};

}  // namespace Agent
