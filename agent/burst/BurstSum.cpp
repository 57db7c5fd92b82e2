// SPDX-License-Identifier: Apache-2.0
#include "agent/burst/BurstSum.h"

#include <algorithm>

#include "agent/base/Saturated.h"

namespace Agent {

using Kes::U32;
using Kes::U64;

void BurstSum::handleUpdate(QueueAddress const& queue, CongestionUpdate const& update) {
  sink_.handleUpdate(queue, update);
  QueueId const id = {queue.intfId, queue.key};
  CongestionUpdate next = sum_;
  next.begins = next.ends = next.late = false;
  next.drops = update.drops;
  next.flows = nullptr;
  bool const was = open_.find(id) != nullptr;
  if (update.late || (!update.begins && !was && update.drops == 0)) {
    if (!begun_ || update.timestamp + coalescing_ < sum_.timestamp) return;
    next.late = open_.size() == 0;
    next.latency = std::max(sum_.latency, update.latency);
    if (next.drops != 0 || next.latency != sum_.latency) tell(next);
    return;
  }
  bool const apart = update.timestamp > lasted_ && update.timestamp - lasted_ > coalescing_;
  if (!begun_ || (open_.size() == 0 && apart)) {
    next = {};
    next.begins = true;
    next.timestamp = update.timestamp;
    next.drops = update.drops;
    lasted_ = update.timestamp;
  } else {
    lasted_ = std::max(lasted_, update.timestamp);
    next.timestamp = lasted_;
  }
  open_.put(id, std::max(update.qLen, update.peakBound));
  U64 held = 0;
  for (auto const& [other, bound] : open_) held += bound;
  next.qLen = std::max(next.qLen, update.qLen);
  next.peakBound = std::max({next.peakBound, saturated(held), next.qLen});
  next.latency = std::max(next.latency, update.latency);
  if (update.ends) open_.del(id);
  next.ends = open_.size() == 0;
  next.coalescing = update.coalescing;
  begun_ = true;
  tell(next);
}

void BurstSum::handleGone(QueueAddress const& queue) {
  QueueId const id = {queue.intfId, queue.key};
  if (open_.find(id) != nullptr) {
    open_.del(id);
    if (open_.size() == 0) {
      CongestionUpdate next = sum_;
      next.begins = next.late = false;
      next.ends = true;
      next.drops = 0;
      next.timestamp = lasted_;
      tell(next);
    }
  }
  sink_.handleGone(queue);
}

void BurstSum::tell(CongestionUpdate const& update) {
  sum_ = update;
  sink_.handleTotal(update);
}

}  // namespace Agent
