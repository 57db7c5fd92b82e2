// SPDX-License-Identifier: Apache-2.0
#include "agent/burst/SourceStatus.h"

#include "Kes/Format.h"

namespace Agent {

std::string SourceStatus::text() const {
  if (!enabled) return "switched off";
  if (means == Means::probe) {
    return Kes::format(
               "every packet is seen, by a probe in the kernel; %u %s\n"
               "%u bursts lost, %u without their flows, %u notices late, %u packets missed",
               queues, queues == 1 ? "queue" : "queues", lostBursts, flowlessBursts, lostNotices, lostEvents)
        .str();
  }
  std::string const last = lastFailure.empty() || !fault.empty() ? "" : " (last: " + lastFailure + ")";
  std::string const reason = meansReason.empty() ? "" : "not every packet is seen: " + meansReason + '\n';
  return (fault.empty() ? "" : fault + '\n') + reason +
         Kes::format(
             "looking every %.2f ms (%.2f ms asked, %.2f ms achieved, %.2f ms at worst, %u ticks late)\n"
             "%u %s, %.0f us of processor time a tick; %u dumps interrupted, %u failed%s",
             static_cast<double>(interval) / 1e3, static_cast<double>(askedInterval) / 1e3,
             achievedInterval / 1e3, longestInterval / 1e3, lateLooks, queues,
             queues == 1 ? "queue" : "queues", lookCost, interruptedLooks, failedLooks, last)
             .str();
}

}  // namespace Agent
