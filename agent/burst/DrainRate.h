// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Types.h"

namespace Agent {

// How fast a queue drains: bytes over time between backlogged readings. Older observations fade once there is
// a quarter of a second's worth of newer ones, so the rate outlives a burst and still follows a changed
// shaper.
class DrainRate {
 public:
  void add(Kes::U64 bytes, Kes::U64 microseconds);
  bool known() const { return bytes_ != 0; }
  // Microseconds that so many bytes take. Only while known.
  Kes::U64 timeFor(Kes::U64 bytes) const;

 private:
  Kes::U64 bytes_ = 0;
  Kes::U64 microseconds_ = 0;
};

}  // namespace Agent
