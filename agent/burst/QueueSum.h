// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "Kes/Types.h"
#include "agent/burst/CongestionDetector.h"
#include "agent/burst/CongestionSink.h"
#include "agent/burst/SampledQueue.h"

namespace Agent {

// The sum over all queues that are looked at, as one queue more. It is congested above the largest of their
// start thresholds.
//
// No queue's rate stands for another's. Only what congested queues send counts as drained from the sum, since
// a fast link where nothing waits says nothing about how fast the backlog of a slow one goes. The latency of
// the sum is the longest time that any queue took to let go of what it held at the peak of the sum.
class QueueSum {
 public:
  // To be called for every queue that a look has read, with what its reading made known.
  void add(SampledQueue& queue, QueueProgress const& progress);
  // For one that it has not: what waited there at its last reading still does, for all that is known.
  void addUnread(SampledQueue const& queue);
  // Packets that are lost with queues that have gone.
  void addLost(Kes::U64 packets) { lost_ += packets; }
  // The look is over: tells the sink what it shows. A look that has read none is none, but where there are no
  // queues at all a congestion of the sum has ended.
  void finishLook(Pace const& pace, CongestionSink& sink);

 private:
  // What the look under way has shown so far.
  struct Look {
    QueueProgress progress;
    Kes::U32 startThreshold = 0;
    bool present = false;  // there are queues, read or not
    bool waiting = false;  // one of them still holds some of what is measured
  };

  void finish(Pace const& pace, CongestionSink& sink);
  void tell(CongestionUpdate update, CongestionSink& sink);

  Look look_;
  Kes::U64 lost_ = 0;
  std::optional<QueueProgress> last_;
  CongestionDetector detector_;

  CongestionUpdate told_;     // the last update
  bool measuring_ = false;    // what was held at the peak of the burst
  Kes::U32 measurement_ = 0;  // its number
  Kes::U32 longest_ = 0;      // microseconds, of those that have let go
};

}  // namespace Agent
