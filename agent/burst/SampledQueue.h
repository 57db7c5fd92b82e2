#pragma once

#include "Kes/Types.h"
#include "agent/burst/CongestionDetector.h"
#include "agent/burst/CongestionSink.h"
#include "agent/burst/QueueReading.h"
#include "agent/record/QueueName.h"

namespace Agent {

// What a source knows of a queue beside its counters.
struct QueueTraits {
  // The queue is congested above so many bytes.
  Kes::U32 startThreshold = 0;
  // The largest packet that can wait in it, in bytes.
  Kes::U32 packetBytes = 0;
  // Whether its discipline also drops packets that it has taken in already, as fair queues do. Those that
  // drop at the tail alone (pfifo, bfifo, pfifo_fast) drop what never was part of the backlog.
  bool dropsFromInside = true;
};

// One queue that a source looks at from time to time.
class SampledQueue {
 public:
  // Bursts are looked for from `first` on. The source tells the sink that the queue is present.
  SampledQueue(QueueAddress address, QueueTraits const& traits, QueueReading const& first);

  QueueAddress const& address() const { return address_; }
  QueueTraits const& traits() const { return traits_; }
  QueueReading const& lastReading() const { return detector_.lastReading(); }

  // An interface that is given another MTU.
  void traitsIs(QueueTraits const& traits) { traits_ = traits; }
  // A queue that is renamed: gone under its old address, present under the new one.
  void addressIs(QueueAddress address, CongestionSink& sink);

  // Tells the sink what the reading shows, and the caller what happened since the last one. `interval` is the
  // intended time between readings, in microseconds.
  CongestionDetector::Progress handleReading(QueueReading const& reading, Kes::U64 interval,
                                             CongestionSink& sink);

  // The queue has vanished. Nothing is to be read of it any more.
  void handleGone(CongestionSink& sink);

 private:
  QueueAddress address_;
  QueueTraits traits_;
  CongestionDetector detector_;
};

}  // namespace Agent
