// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Types.h"
#include "agent/burst/DrainRate.h"
#include "agent/burst/QueueProgress.h"

namespace Agent {

// Measures how long what waits in a queue at one moment takes to leave: that many bytes more must have been
// sent. Assumes that packets leave in the order in which they came; where they do not, or where some are
// dropped from inside the queue and so never leave, what is ahead is still no more than what waits in the
// whole queue, and a queue that is found empty has let go of everything.
class LatencyMeter {
 public:
  // Measures anew: `backlog` bytes were waiting at `stamp`.
  void aim(Kes::U64 stamp, Kes::U32 backlog);
  // Whether it is still measuring.
  bool pending() const { return ahead_ != 0; }
  // Microseconds, at least 1; 0 while unknown.
  Kes::U32 latency() const { return latency_; }

  // Takes the next look. `rate` is that of this queue.
  void handleProgress(QueueProgress const& progress, DrainRate const& rate);

 private:
  Kes::U64 stamp_ = 0;
  Kes::U64 ahead_ = 0;  // bytes that have still to leave; 0: not measuring
  Kes::U32 latency_ = 0;
};

}  // namespace Agent
