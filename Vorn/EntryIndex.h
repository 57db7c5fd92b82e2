// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <iosfwd>

#include "Kes/Strep.h"
#include "Vorn/Export.h"

namespace Vorn {

// Records in one chunk.
inline constexpr Kes::U32 entriesPerChunk = 500;

// A position (slot) inside a chunk, 0 to 499. A value that is rejected is stored all the same: after the
// range exception the object holds it, so whoever takes a slot from an EntryIndex tests it first.
//
// RangeException "EntryIndex::value < 0 or > EntryIndex::max not allowed" for values above 499. Its text is
// its decimal digits.
class VORN_EXPORT EntryIndex {
 public:
  class GenericIf_;  // by-name access, see GenericIf.h

  constexpr EntryIndex() = default;
  explicit EntryIndex(Kes::U16 value) { valueIs(value); }
  EntryIndex(Kes::StrepPos& pos, Kes::StrepPos end);

  static constexpr Kes::U16 max() { return entriesPerChunk - 1; }

  constexpr Kes::U16 value() const { return value_; }
  // Setting the value that the object holds already never raises, in range or not.
  void valueIs(Kes::U16 value) {
    if (value == value_) return;
    value_ = value;
    check();
  }
  // Adds modulo 2^16 and returns the new value. An increment of 0 never raises.
  Kes::U16 valueInc(Kes::U16 increment);

  // RangeException, as above, if the value is out of range.
  void check() const {
    if (value_ > max()) [[unlikely]]
      raise();
  }

  constexpr auto operator<=>(EntryIndex const&) const = default;

 private:
  [[noreturn]] static void raise();

  Kes::U16 value_ = 0;
};

// A position inside a chunk, or none: 0 to 499, or the null 500, which is written and read as 500.
//
// RangeException "EntryIndexOrNull::value < 0 or > EntryIndexOrNull::null not allowed" for values above 500,
// which are stored all the same.
class VORN_EXPORT EntryIndexOrNull {
 public:
  class GenericIf_;  // by-name access, see GenericIf.h

  constexpr EntryIndexOrNull() = default;
  explicit EntryIndexOrNull(Kes::U16 value) { valueIs(value); }
  EntryIndexOrNull(Kes::StrepPos& pos, Kes::StrepPos end);

  static constexpr Kes::U16 null() { return entriesPerChunk; }

  constexpr Kes::U16 value() const { return value_; }
  void valueIs(Kes::U16 value) {
    value_ = value;
    if (value_ > null()) [[unlikely]]
      raise();
  }
  constexpr bool isNull() const { return value_ == null(); }

  constexpr bool operator==(EntryIndexOrNull const&) const = default;

 private:
  [[noreturn]] static void raise();

  Kes::U16 value_ = null();
};

VORN_EXPORT Kes::String valueToStrep(EntryIndex index);
VORN_EXPORT Kes::String valueToStrep(EntryIndexOrNull index);
VORN_EXPORT std::ostream& operator<<(std::ostream& out, EntryIndex index);
VORN_EXPORT std::ostream& operator<<(std::ostream& out, EntryIndexOrNull index);

}  // namespace Vorn
