// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "Kes/Types.h"
#include "agent/record/Flow.h"
#include "agent/record/QueueName.h"

namespace Agent {

// What a line of a report of records tells, in whatever form.
struct RecordRow {
  enum class Kind : Kes::U8 {
    record,
    start,  // a congestion that lasts, and whose first record has been overwritten: no more than its
            // beginning
    global  // a record of the global buffer: the sum over all queues
  };

  Kind kind = Kind::record;
  bool open = false;           // the burst lasts, so the figures are those so far
  std::string_view interface;  // short name; borrowed
  QueueKey queue = noQueue;
  Kes::U32 handle = 0;                // of the queueing discipline, 0 for none
  Kes::U64 timestamp = 0;             // of the beginning: microseconds since 1970
  Kes::U64 duration = 0;              // microseconds
  Kes::U32 length = 0;                // bytes: the longest backlog that was found
  Kes::U32 peakBound = 0;             // bytes: what the true peak cannot have exceeded
  Kes::U32 latency = 0;               // microseconds that the last byte of that backlog waited; 0: unknown
  Kes::U32 drops = 0;                 // packets
  BurstFlows const* flows = nullptr;  // who filled the queue, borrowed; null: nobody counted

  Kes::U64 end() const { return timestamp + duration; }
};

}  // namespace Agent
