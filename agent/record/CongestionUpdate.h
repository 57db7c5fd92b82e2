// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Types.h"
#include "agent/record/Flow.h"

namespace Agent {

// What the recorder is to be told after a look at a queue. Times are microseconds of the monotonic clock.
struct CongestionUpdate {
  bool begins = false;  // the first update of a burst, which is to be a record of its own
  bool ends = false;    // the queue is quiet again; both for a burst that was seen by its drops only
  // Nothing but what became known behind the end of the burst: its latency, its drops.
  bool late = false;
  // The start of the burst in its first update, afterwards the moment up to which it is known to have lasted.
  Kes::U64 timestamp = 0;
  // The longest backlog sampled in this burst so far, in bytes, and what the true peak cannot have exceeded.
  Kes::U32 qLen = 0;
  Kes::U32 peakBound = 0;
  // Packets, since the last update.
  Kes::U32 drops = 0;
  // Microseconds that the last byte of that longest backlog waited until it had left; 0 while unknown.
  Kes::U32 latency = 0;
  // Of one that ends: microseconds within which more congestion would still be part of this burst.
  Kes::U64 coalescing = 0;
  // Who filled the queue in this burst so far; borrowed for the call. Null: nothing new is known of that.
  BurstFlows const* flows = nullptr;
};

}  // namespace Agent
