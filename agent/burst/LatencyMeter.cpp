// SPDX-License-Identifier: Apache-2.0
#include "agent/burst/LatencyMeter.h"

#include <algorithm>

#include "agent/base/Saturated.h"

namespace Agent {

using Kes::U32;
using Kes::U64;

void LatencyMeter::aim(U64 stamp, U32 backlog) {
  stamp_ = stamp;
  ahead_ = backlog;
  latency_ = 0;
}

void LatencyMeter::handleProgress(QueueProgress const& progress, DrainRate const& rate) {
  if (!pending()) return;
  U64 const ahead = ahead_;
  ahead_ =
      progress.sent < ahead && !progress.lost ? std::min<U64>(ahead - progress.sent, progress.backlog) : 0;
  if (pending() || (progress.lost && progress.sent < ahead)) return;
  U64 needed = progress.elapsed;
  if (progress.sent > ahead) {
    needed = static_cast<U64>(static_cast<double>(progress.elapsed) * static_cast<double>(ahead) /
                              static_cast<double>(progress.sent));
  }
  // A queue that may have been idle in between was so behind what waited.
  bool const surelyBusy = progress.backlog != 0 && progress.sent <= progress.backlogBefore;
  if (!surelyBusy && rate.known()) needed = std::min(needed, rate.timeFor(ahead));
  U64 const latency = progress.stamp - progress.elapsed + needed - stamp_;
  latency_ = std::max(saturated(latency), 1U);
}

}  // namespace Agent
