// SPDX-License-Identifier: Apache-2.0
#include "agent/burst/DrainRate.h"

#include <algorithm>

namespace Agent {

void DrainRate::add(Kes::U64 bytes, Kes::U64 microseconds) {
  constexpr Kes::U64 memory = 250'000;
  bytes_ += bytes;
  microseconds_ += microseconds;
  while (microseconds_ > memory) {
    bytes_ /= 2;
    microseconds_ /= 2;
  }
}

Kes::U64 DrainRate::timeFor(Kes::U64 bytes) const {
  // Counters may say anything: some thirty thousand years are long enough.
  constexpr double longest = 1e18;
  double const time =
      static_cast<double>(bytes) * static_cast<double>(microseconds_) / static_cast<double>(bytes_);
  return static_cast<Kes::U64>(std::min(time, longest));
}

}  // namespace Agent
