// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <linux/pkt_sched.h>

#include <compare>

#include "Kes/Types.h"
#include "agent/burst/QueueReading.h"
#include "agent/record/QueueName.h"

namespace Agent {

// What tells one queueing discipline of this machine from another. `parent` is the class or slot that it
// hangs in (TC_H_ROOT for an interface's outermost), `handle` its own name, 0 for those that the kernel made
// by itself.
struct QdiscId {
  Kes::U32 ifindex = 0;
  Kes::U32 parent = 0;
  Kes::U32 handle = 0;
  QueueKind kind{};

  auto operator<=>(QdiscId const&) const = default;
};

inline QueueKey keyOf(QdiscId const& id) { return id.parent == TC_H_ROOT ? 0 : id.parent; }

// A queueing discipline's counters at one moment. `bytes` (sent) and `drops` count up from the making of the
// queue; drops wrap at 2^32.
struct QdiscSample {
  QdiscId id;
  Kes::U64 stamp = 0;  // microseconds of the monotonic clock
  Kes::U64 bytes = 0;
  Kes::U32 backlog = 0;  // bytes waiting
  Kes::U32 drops = 0;    // packets
};

inline QueueReading readingOf(QdiscSample const& sample) {
  return {sample.stamp, sample.bytes, sample.backlog, sample.drops};
}

}  // namespace Agent
