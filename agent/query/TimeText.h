// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "Kes/Types.h"

namespace Agent {

// Moments and spans as people write them, in microseconds. Both throw QueryError.
//
// A moment, in the zone that stands so many seconds east of Greenwich:
//   2026-11-23 14:05:10.5   the time may end behind the minute, or be missing (midnight); a T may stand for
//                           the blank, and UTC, Z or +01:00 behind the time
//   14:05                   of the day of `now`; likewise
//   now, today, yesterday, tomorrow
//   -2h, 2h ago, +5min      from `now`
//   @1795388706.25          seconds since 1970
Kes::U64 momentFrom(std::string_view text, Kes::U64 now, long offset);

// "90", "90s", "1h 30min", "1.5h": seconds where no unit stands; us, ms, s, min or m, h, d, w, M (a twelfth
// of a year), y (365.25 days), and longer words for them.
Kes::U64 spanFrom(std::string_view text);

}  // namespace Agent
