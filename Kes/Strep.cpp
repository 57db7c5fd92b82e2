// SPDX-License-Identifier: Apache-2.0
#include "Kes/Strep.h"

#include <charconv>

namespace Kes {

DecimalText::DecimalText(U64 number) {
  char* const end = std::to_chars(digits_, digits_ + sizeof digits_ - 1, number).ptr;
  *end = '\0';
  size_ = static_cast<U8>(end - digits_);
}

U64 deserializeUnsigned(StrepPos& pos, StrepPos end, U64 max) {
  U64 number = 0;
  auto const read = std::from_chars(pos, end, number);
  if (read.ec == std::errc::invalid_argument) throw ParseException("no digits where a number was expected");
  if (read.ec == std::errc::result_out_of_range || number > max)
    throw ParseException(format("number larger than %u", max));
  pos = read.ptr;
  return number;
}

U64 deserializeAttribute(StrepPos& pos, StrepPos end, U64 max, char const* attribute) {
  try {
    return deserializeUnsigned(pos, end, max);
  } catch (ParseException const& failure) {
    throw ParseException(format("attribute %s: %s", attribute, failure.what()));
  }
}

}  // namespace Kes
