// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Types.h"

namespace Agent {

// A queue's counters at one moment.
struct QueueReading {
  Kes::U64 stamp = 0;    // microseconds of the monotonic clock
  Kes::U64 bytes = 0;    // sent since the queue was made
  Kes::U32 backlog = 0;  // bytes waiting
  Kes::U32 drops = 0;    // packets dropped since the queue was made, modulo 2^32
};

// Whether counters have gone backwards: the queue has been removed and made again under its name. Drops that
// wrap go forwards, since no queue drops half of all numbers between two readings.
inline bool startedAgain(QueueReading const& before, QueueReading const& now) {
  return now.bytes < before.bytes || static_cast<Kes::S32>(now.drops - before.drops) < 0;
}

}  // namespace Agent
