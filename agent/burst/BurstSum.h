// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/HashMap.h"
#include "agent/burst/CongestionSink.h"

namespace Agent {

// The sum over all queues, where only what is congested is known: a sink that hands on what it is told of
// queues, and tells of the sum itself.
//
// The sum is congested while any queue is. Its length is that of the longest queue, and what all that were
// congested at the same time held at their peaks is what it cannot have exceeded. Its latency is the longest
// of theirs.
class BurstSum final : public CongestionSink {
 public:
  // `sink` outlives this.
  explicit BurstSum(CongestionSink& sink) : sink_(sink) {}

  // The pause after which congestion is another burst of the sum: microseconds.
  void coalescingIs(Kes::U64 coalescing) { coalescing_ = coalescing; }

  void handlePresent(QueueAddress const& queue) override { sink_.handlePresent(queue); }
  void handleUpdate(QueueAddress const& queue, CongestionUpdate const& update) override;
  void handleGone(QueueAddress const& queue) override;
  // What others add up is let go.
  void handleTotal(CongestionUpdate const&) override {}

 private:
  void tell(CongestionUpdate const& update);

  CongestionSink& sink_;
  Kes::U64 coalescing_ = 0;
  Kes::HashMap<QueueId, Kes::U32, QueueIdHash> open_;  // with what each held at most
  bool begun_ = false;
  CongestionUpdate sum_;  // as last told
  Kes::U64 lasted_ = 0;   // until when it is known to have been congested
};

}  // namespace Agent
