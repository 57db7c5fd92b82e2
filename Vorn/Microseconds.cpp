// SPDX-License-Identifier: Apache-2.0
#include "Vorn/Microseconds.h"

#include <ostream>

namespace Vorn {

Microseconds::Microseconds(Kes::StrepPos& pos, Kes::StrepPos end)
    : value_(Kes::deserializeAttribute(pos, end, max(), "value")) {}

Microseconds Microseconds::fromSeconds(Kes::Seconds seconds) {
  constexpr long double beyondRange = 18446744073709551616.0L;  // 2^64
  long double const product = static_cast<long double>(seconds) * 1e6L;
  if (!(product > 0.0L)) return Microseconds(0);  // NaN as well
  if (product >= beyondRange) return Microseconds(max());
  return Microseconds(static_cast<Kes::U64>(product));
}

Kes::Seconds Microseconds::toSeconds(Microseconds usec) { return static_cast<double>(usec.value()) / 1e6; }

Kes::String valueToStrep(Microseconds usec) { return Kes::valueToStrep(usec.value()); }

std::ostream& operator<<(std::ostream& out, Microseconds usec) { return out << valueToStrep(usec); }

}  // namespace Vorn
