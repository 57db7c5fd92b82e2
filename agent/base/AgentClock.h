// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>

#include "Kes/Types.h"
#include "Vorn/Clock.h"
#include "Vorn/Microseconds.h"

namespace Agent {

// Wall time as the agent uses it: the monotonic clock plus an offset. What happens is measured by the
// monotonic clock; a burst gets wall time by the offset at its beginning. The recorder reads the same clock,
// so a record is not younger than the report that shows it, unless the wall clock has been set back in
// between.
//
// When the wall clock is set, the offset follows: forwards at once, backwards by more than a second at once,
// too. After that, newer records can have earlier times than older ones. A smaller step backwards is worked
// off at two per cent of the time that passes, so that time goes on and stamps keep their order.
//
// Steps that are followed at once are noted in the journal, those forwards from a tenth of a second on, by
// the process that made the clock.
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

  // Never 0.
  Vorn::Microseconds now() const;
  // now() in seconds.
  Kes::Seconds getUTCTime() const override;
  // Wall time less monotonic time, in microseconds, as now() uses it.
  Kes::S64 offset() const;

  // How often the wall clock was set, and the last time.
  struct Status {
    Kes::U64 steps = 0;
    Kes::S64 lastStep = 0;  // nanoseconds, and how long ago:
    Kes::S64 sinceLast = 0;

    // A line for people, without the newline; empty when it never was.
    std::string text() const;
  };
  Status status() const;

 private:
  void follow(Readings const& readings) const;

  Readings (*const clocks_)();
  pid_t const process_;
  mutable Kes::S64 offset_;  // nanoseconds
  mutable Kes::S64 lastMonotonic_;
  mutable Kes::U64 steps_ = 0;
  mutable Kes::S64 lastStep_ = 0;  // nanoseconds
  mutable Kes::S64 lastStepAt_ = 0;
};

}  // namespace Agent
