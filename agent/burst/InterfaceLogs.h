// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>

#include "Kes/HashMap.h"
#include "Vorn/CongestionData.h"

namespace Agent {

// Deletes the logs of interfaces that are gone, which is when their last queue is: each stays readable until
// 256 others have gone after it.
class InterfaceLogs {
 public:
  // Interfaces that the recorder has logs of already are gone until a queue of theirs is there.
  explicit InterfaceLogs(Vorn::CongestionData::Ptr recorder);

  // As the feed is told (CongestionSink). Whether it is the interface's first queue.
  bool handleQueuePresent(Pylo::IntfId const& intfId);
  // Whether it was the interface's last one.
  bool handleQueueGone(Pylo::IntfId const& intfId);

 private:
  Vorn::CongestionData::Ptr const recorder_;
  Kes::HashMap<Pylo::IntfId, Kes::U32, Pylo::IntfIdHash> queues_;  // how many are present
  std::deque<Pylo::IntfId> gone_;                                  // that have a log, gone longest ago first
};

}  // namespace Agent
