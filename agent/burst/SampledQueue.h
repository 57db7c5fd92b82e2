// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

#include "Kes/Types.h"
#include "agent/burst/CongestionDetector.h"
#include "agent/burst/CongestionSink.h"
#include "agent/burst/QueueProgress.h"
#include "agent/burst/QueueReading.h"
#include "agent/record/QueueName.h"

namespace Agent {

// What a source knows of a queue beside its counters.
struct QueueTraits {
  // The queue is congested above so many bytes.
  Kes::U32 startThreshold = 0;
  // A full frame, in bytes: what vanishes is counted in these.
  Kes::U32 packetBytes = 0;
  // The largest packet that can wait in it, in bytes: it may be cut into frames only behind the queue.
  Kes::U32 largestPacketBytes = 0;
  // Whether its discipline also drops packets that it has taken in already, as fair queues do. Those that
  // drop at the tail alone (pfifo, bfifo, pfifo_fast) drop what never was part of the backlog.
  bool dropsFromInside = true;
};

// One queue that a source looks at from time to time: makes of its counters what the detector works on.
//
// The queue's bytes are conserved: what waited and was not sent still waits, or was dropped. What is missing
// from that has vanished with its link or with the queue. It counts as lost, and as drops of so many full
// packets where the kernel counted none. Some packets on their way can seem to be missing as well, so what
// vanishes must be more than that, and drops are told only when the next reading has not found them either.
//
// Drops are counted modulo 2^32; a drop counter that goes backwards otherwise, or sent bytes that do, are
// those of a queue that was made anew. Then the old queue has vanished, and the new one starts with this
// reading and what it has dropped so far.
class SampledQueue {
 public:
  // Bursts are looked for from `first` on. The source tells the sink that the queue is present.
  SampledQueue(QueueAddress address, QueueTraits const& traits, QueueReading const& first);

  QueueAddress const& address() const { return address_; }
  QueueTraits const& traits() const { return traits_; }
  QueueReading const& lastReading() const { return last_; }

  // What is known by other means of a moment since when nobody has looked: the queue was not congested.
  void lastReadingIs(QueueReading const& reading);

  // An interface that is given another MTU.
  void traitsIs(QueueTraits const& traits) { traits_ = traits; }
  // A queue that is renamed. A burst that is open goes on under the new address. The source tells the sink
  // that the queue is gone under the old one and present under the new one.
  void addressIs(QueueAddress address) { address_ = std::move(address); }

  // Tells the sink what the reading shows. Readings come in order of time.
  QueueProgress handleReading(QueueReading const& reading, Pace const& pace, CongestionSink& sink);

  // Measures how long that took to leave which waited here at the look before the first call with this
  // number, by which the caller tells one measurement from the next.
  LatencyMeter const& measured(Kes::U32 number, QueueProgress const& progress);

  // The queue has vanished, and with it what waited there. Nothing is to be read of it any more. Returns how
  // many packets have been told as lost.
  Kes::U32 handleGone(CongestionSink& sink);
  // Nobody looks at the queue any more: what becomes of it is not known.
  void handleUnwatched(CongestionSink& sink);

 private:
  QueueProgress restart(QueueReading const& reading, CongestionDetector::Limits const& limits,
                        CongestionSink& sink);
  void detect(QueueProgress const& progress, CongestionDetector::Limits const& limits, CongestionSink& sink);
  QueueProgress progressTo(QueueReading const& reading);
  Kes::U32 packetsOf(Kes::U64 bytes) const;
  bool finish(Kes::U32 lostPackets, CongestionSink& sink);

  QueueAddress address_;
  QueueTraits traits_;
  QueueReading last_;
  Kes::U64 missing_ = 0;  // bytes that the last reading could not account for
  CongestionDetector detector_;
  LatencyMeter meter_;
  Kes::U32 measurement_ = 0;
};

}  // namespace Agent
