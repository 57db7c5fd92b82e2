// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <ctime>
#include <string>
#include <string_view>

#include "Vorn/Microseconds.h"

namespace Agent {

// Local time by the zone's offset of one moment. All times of a report are written by one such offset, which
// stands in its titles; so they stay in order and unambiguous also where summer time began or ended between
// them.
class LocalZone {
 public:
  // As the environment's zone (tzset) is at that moment.
  explicit LocalZone(std::time_t moment);

  static LocalZone utc();

  // The one of this process's reports: that of the moment at which it is first asked for, unless it is set to
  // another one before. Each report is written by a process of its own.
  static LocalZone& ofReports();

  // "CET, +01:00"; "+05:45" for a zone whose name is a number.
  std::string name() const;
  // "2025-03-01 14:07:09", valid until the next call. Neighbouring lines mostly share their second, so the
  // last answer is kept.
  std::string_view second(std::time_t second);
  // "2025-03-01 14:07:09.000042", likewise.
  std::string_view moment(Vorn::Microseconds time);

  // Seconds east of Greenwich.
  long offset() const { return offset_; }

 private:
  LocalZone() = default;

  std::string letters_;
  std::string offsetText_;
  long offset_ = 0;
  std::time_t lastSecond_ = -1;
  std::array<char, 32> text_{};
  std::size_t length_ = 0;
};

// The moment in UTC: "2025-03-01T13:07:09.000042Z".
std::string rfc3339(Vorn::Microseconds time);

}  // namespace Agent
