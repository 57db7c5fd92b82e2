// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Ptr.h"
#include "Kes/Time.h"
#include "Vorn/Export.h"

namespace Vorn {

// Where the recorder reads the time: rate limits of threshold messages, the age limit and the date of
// reports. It reads getUTCTime only. Records bring their own timestamps. Hosts may derive their own clock,
// whose seconds should then be those of the timestamps; reading them must not change the recorder.
class VORN_EXPORT Clock : public Kes::PtrInterface {
 public:
  using Ptr = Kes::Ptr<Clock>;
  using PtrConst = Kes::Ptr<Clock const>;
  class GenericIf_;  // by-name access, see GenericIf.h

  std::string_view fwkType() const override { return "Vorn::Clock"; }

  // Wall clock, UTC, in seconds.
  virtual Kes::Seconds getUTCTime() const;
  // The framework's monotonic time, in seconds.
  virtual Kes::Seconds getTime() const;

 protected:
  ~Clock() override;
};

// A clock that stands still until it is set; both times start at 0 and are independent of each other.
class VORN_EXPORT TestClock : public Clock {
 public:
  using Ptr = Kes::Ptr<TestClock>;
  using PtrConst = Kes::Ptr<TestClock const>;
  class GenericIf_;  // by-name access, see GenericIf.h

  std::string_view fwkType() const override { return "Vorn::TestClock"; }

  Kes::Seconds getUTCTime() const override { return utcTime_; }
  Kes::Seconds getTime() const override { return time_; }

  Kes::Seconds utcTime() const { return utcTime_; }
  void utcTimeIs(Kes::Seconds utcTime) { utcTime_ = utcTime; }
  Kes::Seconds time() const { return time_; }
  void timeIs(Kes::Seconds time) { time_ = time; }

 protected:
  ~TestClock() override;

 private:
  Kes::Seconds utcTime_ = 0.0;
  Kes::Seconds time_ = 0.0;
};

VORN_EXPORT Clock::Ptr clockFactory();
VORN_EXPORT TestClock::Ptr testClockFactory();

}  // namespace Vorn
