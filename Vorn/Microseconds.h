// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <iosfwd>

#include "Kes/Strep.h"
#include "Kes/Time.h"
#include "Vorn/Export.h"

namespace Vorn {

// A count of microseconds, unsigned 64-bit: the unit of every timestamp (since the clock's epoch) and
// duration in records. Every value is in range. Its text is its decimal digits and nothing else.
class VORN_EXPORT Microseconds {
 public:
  class GenericIf_;  // by-name access, see GenericIf.h

  constexpr Microseconds() = default;
  constexpr explicit Microseconds(Kes::U64 value) : value_(value) {}
  // Reads decimal digits at `pos`, moving it past them. RangeException naming the attribute "value".
  Microseconds(Kes::StrepPos& pos, Kes::StrepPos end);

  static constexpr Kes::U64 min() { return 0; }
  static constexpr Kes::U64 max() { return ~Kes::U64{0}; }
  static constexpr Kes::U64 microsecondsInSecond() { return 1000000; }

  // Truncates toward zero, with the product taken in extended precision: 4.35 s, whose double lies just
  // below, is 4349999. NaN and negative times give 0, those beyond the range the maximum.
  static Microseconds fromSeconds(Kes::Seconds seconds);
  static Kes::Seconds toSeconds(Microseconds usec);

  constexpr Kes::U64 value() const { return value_; }
  constexpr void valueIs(Kes::U64 value) { value_ = value; }

  // Wraps modulo 2^64.
  constexpr Microseconds& operator+=(Kes::U64 count) {
    value_ += count;
    return *this;
  }
  constexpr auto operator<=>(Microseconds const&) const = default;

 private:
  Kes::U64 value_ = 0;
};

VORN_EXPORT Kes::String valueToStrep(Microseconds usec);
VORN_EXPORT std::ostream& operator<<(std::ostream& out, Microseconds usec);

}  // namespace Vorn
