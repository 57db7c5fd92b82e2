// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Types.h"

namespace Agent {

// What a look at a queue has made known: how the queue stands, and what happened since the look before.
struct QueueProgress {
  Kes::U64 stamp = 0;          // microseconds of the monotonic clock
  Kes::U64 elapsed = 0;        // microseconds
  Kes::U32 backlogBefore = 0;  // bytes waiting at the look before
  Kes::U32 backlog = 0;        // bytes waiting now
  Kes::U64 sent = 0;           // bytes
  // Bytes by which the backlog can have exceeded at most, between the looks, what is waiting now: all that
  // has left the queue meanwhile, whichever way.
  Kes::U64 left = 0;
  Kes::U32 drops = 0;  // packets
  // Packets, at least, that have vanished with a link or a queue before the look before: uncounted by the
  // kernel, and known for sure only now.
  Kes::U32 lateDrops = 0;
  // What was waiting has vanished: it was neither sent nor dropped by the queue's own rules.
  bool lost = false;
};

}  // namespace Agent
