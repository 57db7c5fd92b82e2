// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <string_view>

#include "Kes/Exception.h"
#include "Kes/Export.h"
#include "Kes/Format.h"
#include "Kes/String.h"
#include "Kes/Types.h"

// String representations: every value type writes itself as text ("strep") and reads itself back.
//
// Numbers are decimal digits and nothing else. Reading wants at least one digit and takes digits only: no
// sign, no blanks; leading zeros are fine. "No digits" and a number too large for its type are range
// exceptions.
namespace Kes {

// A reading position in a text; `pos` moves past what was read.
using StrepPos = char const*;

// The decimal digits of a number, NUL-terminated, in place.
class KES_EXPORT DecimalText {
 public:
  explicit DecimalText(U64 number);
  char const* charPtr() const { return digits_; }
  std::string_view view() const { return {digits_, size_}; }

 private:
  char digits_[21];  // 2^64 - 1 has 20
  U8 size_;
};

// Reads an unsigned number of at most `max`, moving `pos` past its digits. After an exception `pos` stands
// where it stood.
KES_EXPORT U64 deserializeUnsigned(StrepPos& pos, StrepPos end, U64 max);

// The same on behalf of an attribute: the range exception then names it.
KES_EXPORT U64 deserializeAttribute(StrepPos& pos, StrepPos end, U64 max, char const* attribute);

template <std::unsigned_integral T>
String valueToStrep(T number) {
  return DecimalText(number).view();
}

// Reads a whole text by `read(pos, end)`, which moves `pos` past what it reads. Anything left over is a range
// exception "junk at column COLUMN deserializing TEXT", the column counted from 0. A parse exception of
// `read` gets the column added, which is where it has left `pos`.
template <class Read>
auto readWhole(String const& text, Read read) {
  StrepPos const begin = text.view().data();
  StrepPos const end = begin + text.size();
  StrepPos pos = begin;
  auto value = [&] {
    try {
      return read(pos, end);
    } catch (ParseException const& failure) {
      throw ParseException(format("%s at column %lld deserializing %s", failure.what(), pos - begin, text));
    }
  }();
  if (pos != end) throw ParseException(format("junk at column %lld deserializing %s", pos - begin, text));
  return value;
}

// Reads a whole text as a T, by T's deserialising constructor T(pos, end).
template <class T>
T strepToValue(String const& text) {
  return readWhole(text, [](StrepPos& pos, StrepPos end) { return T(pos, end); });
}

}  // namespace Kes
