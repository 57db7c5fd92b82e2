// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "Kes/Types.h"
#include "agent/burst/DrainRate.h"
#include "agent/burst/LatencyMeter.h"
#include "agent/burst/Pace.h"
#include "agent/burst/QueueProgress.h"
#include "agent/record/CongestionUpdate.h"

namespace Agent {

// Finds the bursts in what the looks at one queue make known. No I/O, no clock: looks in, updates out.
//
// A queue is congested while its backlog exceeds the start threshold. Congestion started in the middle
// between the last quiet look and the first high one, or later where the bytes sent between them show that it
// cannot have been that early; where a late look left a wide gap behind a quiet queue, the bytes sent are all
// there is to go by, and give the start. It ended when the last high backlog had drained, at the quiet look
// at the latest; a backlog that has vanished did so in the middle between two looks.
//
// The peak lies somewhere between looks. Drops between two quiet looks are congestion that came and went
// unseen; its length is a lower bound.
//
// Congestion that follows after no more than the coalescing time is the same burst. Where only drops tell of
// either, the time that a look came late does not count as a pause.
class CongestionDetector {
 public:
  struct Limits {
    Kes::U32 startThreshold;  // bytes
    Pace pace;
  };

  // Looks come in order of time. Calls tell(CongestionUpdate) for each update that follows from this one:
  // none while the queue is quiet.
  template <class Tell>
  void handleProgress(QueueProgress const& progress, Limits const& limits, Tell tell) {
    QueueProgress rest = progress;
    if (auto const quiet = missedQuiet(progress, limits)) {
      rest = behind(*quiet, progress);
      handleProgress(*quiet, limits, tell);
    }
    if (rest.lateDrops != 0 && !burstIsNear(rest, limits)) {
      rest.drops += rest.lateDrops;
      rest.lateDrops = 0;
    }
    if (auto const update = handleLate(rest)) tell(*update);
    if (auto const update = handleLook(rest, limits)) tell(*update);
  }

  DrainRate const& rate() const { return rate_; }

  // The queue has vanished: a burst that was open is over, and at least `lostPackets` of it are lost.
  std::optional<CongestionUpdate> handleVanished(Kes::U32 lostPackets);

 private:
  std::optional<QueueProgress> missedQuiet(QueueProgress const& progress, Limits const& limits) const;
  static QueueProgress behind(QueueProgress const& quiet, QueueProgress const& progress);
  bool follows(Kes::U64 timestamp, Pace const& pace) const;
  bool burstIsNear(QueueProgress const& progress, Limits const& limits) const;
  std::optional<CongestionUpdate> handleLate(QueueProgress const& progress);
  std::optional<CongestionUpdate> handleLook(QueueProgress const& progress, Limits const& limits);
  CongestionUpdate present(Kes::U64 timestamp, Kes::U32 drops);
  bool peakIs(Kes::U64 stamp, Kes::U32 backlog);
  Kes::U64 startOf(QueueProgress const& progress, Kes::U64 interval) const;
  Kes::U64 endBefore(QueueProgress const& progress) const;

  DrainRate rate_;
  LatencyMeter latency_;
  bool open_ = false;
  bool idleBefore_ = false;       // little was sent before the last look, measured by the drain rate
  std::optional<Kes::U64> told_;  // the last update's timestamp
  bool unseen_ = false;           // only drops told of it
  Kes::U64 lasted_ = 0;           // until when, at the latest, that congestion lasted
  Kes::U32 peak_ = 0;             // of the present burst, or of the last one
  Kes::U32 peakBound_ = 0;
};

}  // namespace Agent
