#pragma once

#include <optional>

#include "Kes/Types.h"
#include "agent/burst/QueueReading.h"
#include "agent/record/CongestionUpdate.h"

namespace Agent {

// How fast a queue drains: bytes over time between backlogged readings. Older observations fade once there is
// a quarter of a second's worth of newer ones, so the rate outlives a burst and still follows a changed
// shaper.
class DrainRate {
 public:
  void add(Kes::U64 bytes, Kes::U64 microseconds);
  bool known() const { return bytes_ != 0; }
  // 0 while unknown.
  Kes::U64 bytesPerSecond() const;
  // Microseconds that so many bytes take. Only while known.
  Kes::U64 timeFor(Kes::U64 bytes) const;

 private:
  Kes::U64 bytes_ = 0;
  Kes::U64 microseconds_ = 0;
};

// Finds the bursts in the readings of one queue. No I/O, no clock, no memory of its own: readings in, updates
// out.
//
// A burst is open while the backlog exceeds the start threshold. It started in the middle between the last
// quiet reading and the first high one, or later where the bytes sent between them show that it cannot have
// been that early; where a late reading left a wide gap behind a quiet queue, the bytes sent are all there is
// to go by, and give the start. It ended when the last high backlog had drained, at the quiet reading at the
// latest.
//
// The peak lies somewhere between readings: at no moment can the backlog have exceeded what the next reading
// finds plus the bytes sent before it. Drops between two quiet readings are a burst that came and went
// unseen; its length is a lower bound.
//
// Counters that wrap (drops) or start again (a queue made anew under its old name) are told apart by the sent
// bytes, which never wrap.
class CongestionDetector {
 public:
  struct Limits {
    Kes::U32 startThreshold;  // bytes
    Kes::U64 interval;        // intended time between readings
  };

  // What happened since the last reading: microseconds, bytes sent and packets dropped.
  struct Progress {
    Kes::U64 elapsed;
    Kes::U64 sent;
    Kes::U32 drops;
  };

  // Bursts are looked for from this reading on.
  explicit CongestionDetector(QueueReading const& first) : last_(first) {}

  // Whether, by the drain rate, the burst that is open must have ended long before `reading`, another high
  // one: a late reading can meet the next burst. Then the result is a quiet reading that belongs between the
  // two.
  std::optional<QueueReading> missedQuiet(QueueReading const& reading, Limits const& limits) const;

  // Readings come in order of time. Nothing is to be told while the queue is quiet.
  std::optional<CongestionUpdate> handleReading(QueueReading const& reading, Limits const& limits);

  Progress progressTo(QueueReading const& reading) const;
  QueueReading const& lastReading() const { return last_; }

 private:
  CongestionUpdate begin(QueueReading const& reading, Progress const& progress, Limits const& limits);
  CongestionUpdate proceed(QueueReading const& reading, Progress const& progress, Limits const& limits);
  Kes::U64 startOf(QueueReading const& reading, Progress const& progress, Kes::U64 interval) const;
  Kes::U64 endBefore(QueueReading const& reading) const;

  QueueReading last_;
  DrainRate rate_;
  bool open_ = false;
  bool idleBefore_ = false;  // little was sent before the last reading, measured by the drain rate
  Kes::U64 told_ = 0;        // the last update's timestamp
  Kes::U32 peak_ = 0;
  Kes::U32 peakBound_ = 0;
};

}  // namespace Agent
