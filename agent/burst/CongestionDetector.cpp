#include "agent/burst/CongestionDetector.h"

#include <algorithm>
#include <limits>

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;

constexpr U64 microsecondsInSecond = 1'000'000;

// Bursts less than this many intervals apart are one record.
constexpr U64 coalescedIntervals = 3;

// Readings that come later than this many intervals leave a gap in which the middle says little.
constexpr U64 lateIntervals = 2;

// A queue that uses less than this part of its drain rate counts as idle.
constexpr U64 idleShare = 8;

U32 saturated(U64 value) { return static_cast<U32>(std::min<U64>(value, std::numeric_limits<U32>::max())); }

}  // namespace

void DrainRate::add(U64 bytes, U64 microseconds) {
  constexpr U64 memory = microsecondsInSecond / 4;
  bytes_ += bytes;
  microseconds_ += microseconds;
  while (microseconds_ > memory) {
    bytes_ /= 2;
    microseconds_ /= 2;
  }
}

U64 DrainRate::bytesPerSecond() const {
  return known() ? bytes_ * microsecondsInSecond / std::max<U64>(microseconds_, 1) : 0;
}

U64 DrainRate::timeFor(U64 bytes) const {
  return static_cast<U64>(static_cast<double>(bytes) * static_cast<double>(microseconds_) /
                          static_cast<double>(bytes_));
}

CongestionDetector::Progress CongestionDetector::progressTo(QueueReading const& reading) const {
  U64 const elapsed = reading.stamp - last_.stamp;
  if (reading.bytes < last_.bytes) return {elapsed, reading.bytes, reading.drops};
  return {elapsed, reading.bytes - last_.bytes, reading.drops - last_.drops};
}

std::optional<QueueReading> CongestionDetector::missedQuiet(QueueReading const& reading,
                                                            Limits const& limits) const {
  if (!open_ || !rate_.known() || reading.backlog <= limits.startThreshold) return std::nullopt;
  Progress const progress = progressTo(reading);
  // A queue that has not even sent what it held was held up, not empty.
  if (progress.sent <= last_.backlog) return std::nullopt;
  U64 const busy = rate_.timeFor(progress.sent);
  if (busy + coalescedIntervals * limits.interval >= progress.elapsed) return std::nullopt;
  QueueReading quiet = reading;
  quiet.stamp = reading.stamp - rate_.timeFor(progress.sent - last_.backlog);
  quiet.bytes = reading.bytes - (progress.sent - last_.backlog);
  quiet.backlog = 0;
  quiet.drops = reading.drops - progress.drops;
  return quiet;
}

std::optional<CongestionUpdate> CongestionDetector::handleReading(QueueReading const& reading,
                                                                  Limits const& limits) {
  Progress const progress = progressTo(reading);
  bool const high = reading.backlog > limits.startThreshold;
  std::optional<CongestionUpdate> update;
  // A queue has surely been busy all the time if it has something left and sent no more than it held. Between
  // readings that are not late it will have been, if it is congested at both.
  bool const late = progress.elapsed > lateIntervals * limits.interval;
  bool const surelyBusy = reading.backlog != 0 && progress.sent <= last_.backlog;
  if (open_ && (surelyBusy || (high && !late))) rate_.add(progress.sent, progress.elapsed);
  if (open_)
    update = proceed(reading, progress, limits);
  else if (high || progress.drops != 0)
    update = begin(reading, progress, limits);
  if (update) {
    open_ = high;
    update->ends = !high;
    update->qLen = peak_;
    update->peakBound = peakBound_;
    update->drops = progress.drops;
    update->drainRate = rate_.bytesPerSecond();
    told_ = update->timestamp;
  }
  if (rate_.known()) idleBefore_ = rate_.timeFor(progress.sent) <= progress.elapsed / idleShare;
  last_ = reading;
  return update;
}

CongestionUpdate CongestionDetector::begin(QueueReading const& reading, Progress const& progress,
                                           Limits const& limits) {
  // Without a high reading both neighbours bound the peak from below.
  peak_ = std::max(reading.backlog, last_.backlog);
  peakBound_ = std::max(peak_, saturated(U64{reading.backlog} + progress.sent));
  CongestionUpdate update;
  update.begins = true;
  update.timestamp = startOf(reading, progress, limits.interval);
  update.coalesceTime = coalescedIntervals * limits.interval;
  return update;
}

CongestionUpdate CongestionDetector::proceed(QueueReading const& reading, Progress const& progress,
                                             Limits const& limits) {
  bool const high = reading.backlog > limits.startThreshold;
  peak_ = std::max(peak_, reading.backlog);
  peakBound_ = std::max(peakBound_, saturated(U64{reading.backlog} + progress.sent));
  CongestionUpdate update;
  update.timestamp = high ? reading.stamp : endBefore(reading);
  // An open burst stays one record however late the reading is.
  update.coalesceTime = std::max(coalescedIntervals * limits.interval, update.timestamp - told_);
  return update;
}

U64 CongestionDetector::startOf(QueueReading const& reading, Progress const& progress, U64 interval) const {
  U64 const middle = last_.stamp + progress.elapsed / 2;
  if (!rate_.known()) return middle;
  U64 const earliest = reading.stamp - std::min(rate_.timeFor(progress.sent), progress.elapsed);
  bool const late = progress.elapsed > lateIntervals * interval;
  return late && idleBefore_ ? earliest : std::max(middle, earliest);
}

U64 CongestionDetector::endBefore(QueueReading const& reading) const {
  if (!rate_.known()) return last_.stamp + (reading.stamp - last_.stamp) / 2;
  return std::min(reading.stamp, last_.stamp + rate_.timeFor(last_.backlog));
}

}  // namespace Agent
