#pragma once

#include "Kes/Types.h"
#include "Vorn/Clock.h"
#include "Vorn/Microseconds.h"

namespace Agent {

// The agent's one time: wall-clock microseconds that never run backwards. Records are stamped with it and the
// recorder reads the same, so that no record is ever younger than the report that shows it.
//
// It is the monotonic clock plus an offset. When the wall clock is stepped forwards, the offset follows at
// once. When it is stepped backwards, time here runs two per cent slow until the wall clock has been met
// again, so that stamps keep their order and durations stay right within those two per cent.
class AgentClock final : public Vorn::Clock {
 public:
  using Ptr = Kes::Ptr<AgentClock>;
  using PtrConst = Kes::Ptr<AgentClock const>;

  struct Readings {
    Kes::S64 wallNanoseconds;
    Kes::S64 monotonicNanoseconds;
  };

  // The wall clock is read first: a thread that is held up between the two readings then seems to have met a
  // step backwards, of which next to nothing is followed, and not one forwards.
  static Readings systemClocks();

  explicit AgentClock(Readings (*clocks)() = &systemClocks);

  // Never 0, and never less than an earlier result.
  Vorn::Microseconds now() const;

  // What now() was when the monotonic clock showed `monotonic` microseconds, by the present offset.
  Vorn::Microseconds wallTime(Kes::U64 monotonic) const;

  // now() in seconds.
  Kes::Seconds getUTCTime() const override;

 private:
  Readings (*const clocks_)();
  mutable Kes::S64 offset_;
  mutable Kes::S64 lastMonotonic_;
};

}  // namespace Agent
