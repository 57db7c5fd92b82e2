#include "agent/base/AgentClock.h"

#include <algorithm>
#include <ctime>

namespace Agent {

namespace {

// A step backwards is worked off at one part in fifty of the time that passes.
constexpr Kes::S64 backwardShare = 50;

Kes::S64 nanoseconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return Kes::S64{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

AgentClock::Readings AgentClock::systemClocks() {
  Kes::S64 const wall = nanoseconds(CLOCK_REALTIME);
  return {wall, nanoseconds(CLOCK_MONOTONIC)};
}

AgentClock::AgentClock(Readings (*clocks)()) : clocks_(clocks) {
  Readings const first = clocks_();
  offset_ = first.wallNanoseconds - first.monotonicNanoseconds;
  lastMonotonic_ = first.monotonicNanoseconds;
}

Vorn::Microseconds AgentClock::now() const {
  Readings const readings = clocks_();
  Kes::S64 const slowest = offset_ - (readings.monotonicNanoseconds - lastMonotonic_) / backwardShare;
  offset_ = std::max(slowest, readings.wallNanoseconds - readings.monotonicNanoseconds);
  lastMonotonic_ = readings.monotonicNanoseconds;
  Kes::S64 const microseconds = (readings.monotonicNanoseconds + offset_) / 1000;
  return Vorn::Microseconds(static_cast<Kes::U64>(std::max(microseconds, Kes::S64{1})));
}

Vorn::Microseconds AgentClock::wallTime(Kes::U64 monotonic) const {
  now();
  Kes::S64 const microseconds = static_cast<Kes::S64>(monotonic) + offset_ / 1000;
  return Vorn::Microseconds(static_cast<Kes::U64>(std::max(microseconds, Kes::S64{1})));
}

Kes::Seconds AgentClock::getUTCTime() const { return Vorn::Microseconds::toSeconds(now()); }

}  // namespace Agent
