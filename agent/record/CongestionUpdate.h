#pragma once

#include "Kes/Types.h"

namespace Agent {

// What the recorder is to be told after a reading. Times are microseconds of the monotonic clock.
struct CongestionUpdate {
  bool begins = false;  // the first update of a burst
  bool ends = false;    // the last one; both for a burst that was seen by its drops only
  // The start of the burst in its first update, afterwards the moment up to which it is known to have lasted.
  Kes::U64 timestamp = 0;
  // The gap up to which the update belongs to the record before it.
  Kes::U64 coalesceTime = 0;
  // The longest backlog sampled in this burst so far, in bytes, and what the true peak cannot have exceeded.
  Kes::U32 qLen = 0;
  Kes::U32 peakBound = 0;
  // Since the last reading.
  Kes::U32 drops = 0;
  // Bytes a second, 0 while unknown.
  Kes::U64 drainRate = 0;
};

}  // namespace Agent
