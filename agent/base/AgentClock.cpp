// SPDX-License-Identifier: Apache-2.0
#include "agent/base/AgentClock.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "Kes/Format.h"
#include "agent/base/Journal.h"

namespace Agent {

namespace {

using Kes::S64;

constexpr S64 second = 1'000'000'000;

// A small step backwards is worked off at one part in fifty of the time that passes.
constexpr S64 backwardShare = 50;

constexpr S64 largestSlow = second;

// From here on a step forwards is worth a word.
constexpr S64 smallestNoted = second / 10;

S64 nanoseconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return S64{time.tv_sec} * second + time.tv_nsec;
}

double inSeconds(S64 nanoseconds) { return static_cast<double>(nanoseconds) / second; }

S64 offsetOf(AgentClock::Readings const& readings) {
  return readings.wallNanoseconds - readings.monotonicNanoseconds;
}

}  // namespace

AgentClock::Readings AgentClock::systemClocks() {
  S64 const wall = nanoseconds(CLOCK_REALTIME);
  return {wall, nanoseconds(CLOCK_MONOTONIC)};
}

AgentClock::AgentClock(Readings (*clocks)()) : clocks_(clocks), process_(::getpid()) {
  Readings const first = clocks_();
  offset_ = offsetOf(first);
  lastMonotonic_ = first.monotonicNanoseconds;
}

void AgentClock::follow(Readings const& readings) const {
  S64 const step = offsetOf(readings) - offset_;
  S64 const slowest = (lastMonotonic_ - readings.monotonicNanoseconds) / backwardShare;
  bool const atOnce = step > 0 || step < -largestSlow;
  offset_ += atOnce ? step : std::max(step, slowest);
  lastMonotonic_ = readings.monotonicNanoseconds;
  if (!atOnce || (step > 0 && step < smallestNoted)) return;
  ++steps_;
  lastStep_ = step;
  lastStepAt_ = readings.monotonicNanoseconds;
  if (::getpid() != process_) return;
  note(LOG_NOTICE,
       Kes::format("the wall clock jumped by %+.3f s (it was set, or the machine slept): records follow it "
                   "from here on",
                   inSeconds(step))
           .str());
}

Vorn::Microseconds AgentClock::now() const {
  Readings readings = clocks_();
  // Held up between the two readings for so long? Then hardly twice.
  if (offsetOf(readings) - offset_ < -largestSlow) readings = clocks_();
  follow(readings);
  S64 const microseconds = (readings.monotonicNanoseconds + offset_) / 1000;
  return Vorn::Microseconds(static_cast<Kes::U64>(std::max(microseconds, S64{1})));
}

Kes::Seconds AgentClock::getUTCTime() const { return Vorn::Microseconds::toSeconds(now()); }

S64 AgentClock::offset() const {
  now();
  return offset_ / 1000;
}

AgentClock::Status AgentClock::status() const {
  now();
  return {steps_, lastStep_, steps_ == 0 ? 0 : lastMonotonic_ - lastStepAt_};
}

std::string AgentClock::Status::text() const {
  if (steps == 0) return {};
  return Kes::format("the wall clock jumped %u %s, the last time by %+.3f s, %.0f s ago", steps,
                     steps == 1 ? "time" : "times", inSeconds(lastStep), inSeconds(sinceLast))
      .str();
}

}  // namespace Agent
