// SPDX-License-Identifier: Apache-2.0
#include "agent/burst/CongestionDetector.h"

#include <algorithm>

#include "agent/base/Saturated.h"

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;

// Looks that come later than this many intervals leave a gap in which the middle says little.
constexpr U64 lateIntervals = 2;

// A queue that uses less than this part of its drain rate counts as idle.
constexpr U64 idleShare = 8;

bool isLate(QueueProgress const& progress, U64 interval) {
  return progress.elapsed > lateIntervals * interval;
}

}  // namespace

// Whether, by the drain rate, the burst that is open must have ended long before this high look: a late one
// can meet the next burst. Then the result is a quiet look that belongs between the two.
std::optional<QueueProgress> CongestionDetector::missedQuiet(QueueProgress const& progress,
                                                             Limits const& limits) const {
  if (!open_ || !rate_.known() || progress.backlog <= limits.startThreshold) return std::nullopt;
  // A queue that has not even sent what it held was held up, not empty.
  if (progress.sent <= progress.backlogBefore) return std::nullopt;
  U64 const busy = rate_.timeFor(progress.sent);
  if (busy + limits.pace.coalescing >= progress.elapsed) return std::nullopt;
  U64 const sinceQuiet = rate_.timeFor(progress.sent - progress.backlogBefore);
  QueueProgress quiet;
  quiet.stamp = progress.stamp - sinceQuiet;
  quiet.elapsed = progress.elapsed - sinceQuiet;
  quiet.backlogBefore = progress.backlogBefore;
  quiet.sent = quiet.left = progress.backlogBefore;
  quiet.lateDrops = progress.lateDrops;
  return quiet;
}

// What is left of a look when a quiet one has been found before it.
QueueProgress CongestionDetector::behind(QueueProgress const& quiet, QueueProgress const& progress) {
  QueueProgress rest = progress;
  rest.elapsed -= quiet.elapsed;
  rest.backlogBefore = 0;
  rest.sent -= quiet.sent;
  rest.left -= quiet.left;
  rest.lateDrops = 0;
  return rest;
}

// Whether congestion at that time is part of the burst last told of.
bool CongestionDetector::follows(U64 timestamp, Pace const& pace) const {
  return told_ && timestamp <= lasted_ + pace.coalescing;
}

// Whether what vanished before the look before was part of a burst, be it one that has just ended. If not, it
// is congestion of its own.
bool CongestionDetector::burstIsNear(QueueProgress const& progress, Limits const& limits) const {
  return open_ || follows(progress.stamp - progress.elapsed, limits.pace);
}

std::optional<CongestionUpdate> CongestionDetector::handleLate(QueueProgress const& progress) {
  bool const measuring = latency_.pending();
  latency_.handleProgress(progress, rate_);
  bool const measured = measuring && latency_.latency() != 0;
  // While the burst is open its next update tells the latency.
  if (!told_ || ((open_ || !measured) && progress.lateDrops == 0)) return std::nullopt;
  CongestionUpdate update = present(*told_, progress.lateDrops);
  update.late = true;
  return update;
}

std::optional<CongestionUpdate> CongestionDetector::handleLook(QueueProgress const& progress,
                                                               Limits const& limits) {
  bool const high = progress.backlog > limits.startThreshold;
  bool const wasOpen = open_;
  // A queue has surely been busy all the time if it has something left and sent no more than it held. Between
  // looks that are not late it will have been, if it is congested at both.
  bool const surelyBusy = progress.backlog != 0 && progress.sent <= progress.backlogBefore;
  if (wasOpen && (surelyBusy || (high && !isLate(progress, limits.pace.interval))))
    rate_.add(progress.sent, progress.elapsed);
  std::optional<CongestionUpdate> update;
  if (wasOpen || high || progress.drops != 0) {
    U64 const timestamp = !wasOpen ? startOf(progress, limits.pace.interval)
                          : high   ? progress.stamp
                                   : endBefore(progress);
    // Drops between two quiet looks may have come at any time between them: where such loss goes on, that a
    // look is late is no pause.
    bool const unseen = !wasOpen && !high;
    U64 const margin = limits.pace.interval / 2;
    U64 const since =
        unseen && unseen_ ? std::min(timestamp, progress.stamp - progress.elapsed + margin) : timestamp;
    bool const goesOn = wasOpen || follows(since, limits.pace);
    if (!goesOn) {
      peak_ = peakBound_ = 0;
      latency_ = {};
    }
    // Without a high look both neighbours bound the peak from below.
    if (unseen && peakIs(progress.stamp - progress.elapsed, progress.backlogBefore))
      latency_.handleProgress(progress, rate_);
    peakIs(progress.stamp, progress.backlog);
    peakBound_ = std::max({peakBound_, peak_, saturated(progress.backlog + progress.left)});
    open_ = high;
    // Where a burst goes on, what was told of it stays.
    update = present(goesOn ? std::max(timestamp, *told_) : timestamp, progress.drops);
    unseen_ = unseen;
    lasted_ = unseen ? std::max(update->timestamp + margin, progress.stamp) - margin : update->timestamp;
    update->begins = !goesOn;
    update->ends = !high;
    if (update->ends) update->coalescing = limits.pace.coalescing;
  }
  if (rate_.known()) idleBefore_ = rate_.timeFor(progress.sent) <= progress.elapsed / idleShare;
  return update;
}

std::optional<CongestionUpdate> CongestionDetector::handleVanished(U32 lostPackets) {
  if (!open_) return std::nullopt;
  open_ = false;
  CongestionUpdate update = present(*told_, lostPackets);
  update.ends = true;
  return update;
}

// The burst as it stands.
CongestionUpdate CongestionDetector::present(U64 timestamp, U32 drops) {
  told_ = timestamp;
  CongestionUpdate update;
  update.timestamp = timestamp;
  update.qLen = peak_;
  update.peakBound = peakBound_;
  update.drops = drops;
  update.latency = latency_.latency();
  return update;
}

// Whether it is a new one.
bool CongestionDetector::peakIs(U64 stamp, U32 backlog) {
  if (backlog <= peak_) return false;
  peak_ = backlog;
  latency_.aim(stamp, backlog);
  return true;
}

U64 CongestionDetector::startOf(QueueProgress const& progress, U64 interval) const {
  U64 const before = progress.stamp - progress.elapsed;
  U64 const middle = before + progress.elapsed / 2;
  if (!rate_.known()) return middle;
  U64 const earliest = progress.stamp - std::min(rate_.timeFor(progress.sent), progress.elapsed);
  return isLate(progress, interval) && idleBefore_ ? earliest : std::max(middle, earliest);
}

U64 CongestionDetector::endBefore(QueueProgress const& progress) const {
  U64 const before = progress.stamp - progress.elapsed;
  if (!rate_.known() || progress.lost) return before + progress.elapsed / 2;
  return std::min(progress.stamp, before + rate_.timeFor(progress.backlogBefore));
}

}  // namespace Agent
