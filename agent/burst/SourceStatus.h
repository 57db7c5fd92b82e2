// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "Kes/Types.h"

namespace Agent {

// How a source that looks at queues is doing. Times are microseconds.
struct SourceStatus {
  bool enabled = true;          // whether it looks at all
  std::string fault{};          // why it cannot look just now; empty: it can
  Kes::U64 askedInterval = 0;   // between two looks, as the options have it,
  Kes::U64 interval = 0;        // as it is tried,
  double achievedInterval = 0;  // as it comes out in the mean,
  double longestInterval = 0;   // and at worst
  Kes::U64 looks = 0;
  Kes::U64 lateLooks = 0;
  double lookCost = 0;  // processor time, in the mean
  Kes::U64 queues = 0;
  Kes::U64 interruptedLooks = 0;  // the queues changed meanwhile
  Kes::U64 failedLooks = 0;
  std::string lastFailure{};  // empty: none

  // How queues are seen: every packet by a probe in the kernel, or looks alone.
  enum class Means : char { looks, probe } means = Means::looks;
  std::string meansReason{};    // why no better one
  Kes::U64 lostNotices = 0;     // of the probe, that found no room
  Kes::U64 lostBursts = 0;      // of which nothing is known for that reason
  Kes::U64 lostEvents = 0;      // packets that the probe was not called for or could not count
  Kes::U64 flowlessBursts = 0;  // of which is not known who filled the queue

  // For people: some lines, without the last newline.
  std::string text() const;
};

}  // namespace Agent
