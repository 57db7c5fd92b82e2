// SPDX-License-Identifier: Apache-2.0
#include "Vorn/EntryIndex.h"

#include <limits>
#include <ostream>

namespace Vorn {

namespace {

Kes::U16 deserialize(Kes::StrepPos& pos, Kes::StrepPos end) {
  return static_cast<Kes::U16>(
      Kes::deserializeAttribute(pos, end, std::numeric_limits<Kes::U16>::max(), "value"));
}

}  // namespace

EntryIndex::EntryIndex(Kes::StrepPos& pos, Kes::StrepPos end) : value_(deserialize(pos, end)) { check(); }

Kes::U16 EntryIndex::valueInc(Kes::U16 increment) {
  if (increment != 0) {
    value_ = static_cast<Kes::U16>(value_ + increment);
    check();
  }
  return value_;
}

void EntryIndex::raise() {
  throw Kes::RangeException("EntryIndex::value < 0 or > EntryIndex::max not allowed");
}

EntryIndexOrNull::EntryIndexOrNull(Kes::StrepPos& pos, Kes::StrepPos end) { valueIs(deserialize(pos, end)); }

void EntryIndexOrNull::raise() {
  throw Kes::RangeException("EntryIndexOrNull::value < 0 or > EntryIndexOrNull::null not allowed");
}

Kes::String valueToStrep(EntryIndex index) { return Kes::valueToStrep(index.value()); }
Kes::String valueToStrep(EntryIndexOrNull index) { return Kes::valueToStrep(index.value()); }
std::ostream& operator<<(std::ostream& out, EntryIndex index) { return out << valueToStrep(index); }
std::ostream& operator<<(std::ostream& out, EntryIndexOrNull index) { return out << valueToStrep(index); }

}  // namespace Vorn
