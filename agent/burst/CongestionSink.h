// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/record/CongestionUpdate.h"
#include "agent/record/QueueName.h"

namespace Agent {

// Takes what sources find. Times are microseconds of the monotonic clock.
//
// A queue that is renamed is gone under its old address and present under its new one. A queue that goes
// while it is congested has its last update before it is gone.
class CongestionSink {
 public:
  virtual ~CongestionSink() = default;

  // The queue is watched from now on.
  virtual void handlePresent(QueueAddress const& queue) = 0;
  virtual void handleUpdate(QueueAddress const& queue, CongestionUpdate const& update) = 0;
  // The queue is no longer watched.
  virtual void handleGone(QueueAddress const& queue) = 0;
  // An update of the sum over all queues, which is one source's to tell.
  virtual void handleTotal(CongestionUpdate const& update) = 0;
};

}  // namespace Agent
