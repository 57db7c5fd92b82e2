// SPDX-License-Identifier: Apache-2.0
#include "Vorn/Clock.h"

namespace Vorn {

Clock::~Clock() = default;
Kes::Seconds Clock::getUTCTime() const { return Kes::utcNow(); }
Kes::Seconds Clock::getTime() const { return Kes::now(); }

TestClock::~TestClock() = default;

Clock::Ptr clockFactory() { return Kes::makePtr<Clock>(); }
TestClock::Ptr testClockFactory() { return Kes::makePtr<TestClock>(); }

}  // namespace Vorn
