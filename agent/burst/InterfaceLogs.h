// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/HashMap.h"
#include "Vorn/CongestionData.h"
#include "agent/burst/BurstLedger.h"
#include "agent/burst/GoneList.h"

namespace Agent {

// Deletes the logs of interfaces that are gone, which is when their last queue is: each stays readable until
// 256 others have gone after it (GoneList.h).
class InterfaceLogs {
 public:
  // Interfaces that the recorder has logs of already were read back. What is deleted is forgotten in the
  // ledger as well, which outlives this.
  InterfaceLogs(Vorn::CongestionData::Ptr recorder, BurstLedger& ledger);

  // As the feed is told (CongestionSink). Whether it is the interface's first queue.
  bool handleQueuePresent(Pylo::IntfId const& intfId);
  // Whether it was the interface's last one.
  bool handleQueueGone(Pylo::IntfId const& intfId);

 private:
  Vorn::CongestionData::Ptr const recorder_;
  BurstLedger& ledger_;
  Kes::HashMap<Pylo::IntfId, Kes::U32, Pylo::IntfIdHash> queues_;  // how many are present
  GoneList<Pylo::IntfId> gone_;                                    // that have a log
};

}  // namespace Agent
