// SPDX-License-Identifier: Apache-2.0
#include "Kes/Time.h"

#include <time.h>

namespace Kes {

namespace {

Seconds read(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<Seconds>(time.tv_sec) + static_cast<Seconds>(time.tv_nsec) * 1e-9;
}

}  // namespace

Seconds now() { return read(CLOCK_MONOTONIC); }
Seconds utcNow() { return read(CLOCK_REALTIME); }

}  // namespace Kes
