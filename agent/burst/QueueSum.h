#pragma once

#include <optional>

#include "Kes/Types.h"
#include "agent/burst/CongestionDetector.h"
#include "agent/burst/CongestionSink.h"
#include "agent/burst/SampledQueue.h"

namespace Agent {

// The sum over all queues that are looked at, as one queue more. It is congested above the largest of their
// start thresholds.
class QueueSum {
 public:
  // To be called for every queue that a look has read, with what its reading made known.
  void add(SampledQueue const& queue, CongestionDetector::Progress const& progress);
  // The look is over: tells the sink what it shows. A look without queues is none.
  void finishLook(Kes::U64 interval, CongestionSink& sink);

 private:
  QueueReading sum_;  // bytes and drops since the sum was made, stamp and backlog of this look
  Kes::U32 startThreshold_ = 0;
  bool looked_ = false;
  std::optional<CongestionDetector> detector_;
};

}  // namespace Agent
